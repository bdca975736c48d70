// Proxy/stub module of the OPC Data Access interfaces.
#include "ProxyStubExports.h"

namespace {

const ProxyStubInterface kInterfaces[] = {
    {u"IOPCServer", u"{39C13A4D-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCServerPublicGroups", u"{39C13A4E-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCBrowseServerAddressSpace", u"{39C13A4F-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCGroupStateMgt", u"{39C13A50-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCPublicGroupStateMgt", u"{39C13A51-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCSyncIO", u"{39C13A52-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCAsyncIO", u"{39C13A53-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCItemMgt", u"{39C13A54-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IEnumOPCItemAttributes", u"{39C13A55-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCDataCallback", u"{39C13A70-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCAsyncIO2", u"{39C13A71-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCItemProperties", u"{39C13A72-011E-11D0-9675-0020AFD8ADB3}"},
    {u"IOPCItemDeadbandMgt", u"{5946DA93-8B39-4EC8-AB3D-AA73DF5BC86F}"},
    {u"IOPCItemSamplingMgt", u"{3E22D313-F08B-41A5-86C8-95E95CB49FFC}"},
    {u"IOPCBrowse", u"{39227004-A18F-4B57-8B0A-5235670F4468}"},
    {u"IOPCItemIO", u"{85C0B427-2893-4CBC-BD78-E5FC5146F08F}"},
    {u"IOPCSyncIO2", u"{730F5F0F-55B1-4C81-9E18-FF8A0904E1FA}"},
    {u"IOPCAsyncIO3", u"{0967B97B-36EF-423E-B6F8-6BFF1E40D39D}"},
    {u"IOPCGroupStateMgt2", u"{8E368666-D72E-4F78-87ED-647611C61C9F}"},
};

}  // namespace

const ProxyStubModule kProxyStubModule = proxyStubOf(kInterfaces);
