// Proxy/stub module of the OPC Common interfaces.
#include "ProxyStubModule.h"

namespace {

const ProxyStubInterface kInterfaces[] = {
    {u"IOPCShutdown", u"{F31DFDE1-07B6-11D2-B2D8-0060083BA1FB}"},
    {u"IOPCCommon", u"{F31DFDE2-07B6-11D2-B2D8-0060083BA1FB}"},
    {u"IOPCServerList", u"{13486D50-4821-11D2-A494-3CB306C10000}"},
    {u"IOPCEnumGUID", u"{55C382C8-21C7-4E88-96C1-BECFB1E3F483}"},
    {u"IOPCServerList2", u"{9DD0B56C-AD9E-43EE-8305-487F3188BF7A}"},
};

// The proxy/stub class carries the identifier of the first interface, as generated proxies do.
const ProxyStubModule kModule{u"{F31DFDE1-07B6-11D2-B2D8-0060083BA1FB}", u"PSFactoryBuffer", kInterfaces,
                              sizeof(kInterfaces) / sizeof(kInterfaces[0])};

}  // namespace

STDAPI DllRegisterServer(void) { return registerProxyStub(kModule, reinterpret_cast<const void*>(&DllRegisterServer)); }

STDAPI DllUnregisterServer(void) { return unregisterProxyStub(kModule); }

STDAPI DllGetClassObject(REFCLSID, REFIID, LPVOID* ppv) {
    if (ppv != nullptr) *ppv = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow(void) { return S_OK; }
