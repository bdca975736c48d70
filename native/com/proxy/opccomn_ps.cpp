// Proxy/stub module of the OPC Common interfaces.
#include "ProxyStubExports.h"

namespace {

const ProxyStubInterface kInterfaces[] = {
    {u"IOPCShutdown", u"{F31DFDE1-07B6-11D2-B2D8-0060083BA1FB}"},
    {u"IOPCCommon", u"{F31DFDE2-07B6-11D2-B2D8-0060083BA1FB}"},
    {u"IOPCServerList", u"{13486D50-4821-11D2-A494-3CB306C10000}"},
    {u"IOPCEnumGUID", u"{55C382C8-21C7-4E88-96C1-BECFB1E3F483}"},
    {u"IOPCServerList2", u"{9DD0B56C-AD9E-43EE-8305-487F3188BF7A}"},
};

}  // namespace

const ProxyStubModule kProxyStubModule = proxyStubOf(kInterfaces);
