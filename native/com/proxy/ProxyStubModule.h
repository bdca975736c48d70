// What a proxy/stub module registers: for each interface, Interface\{iid} naming the interface
// and pointing (ProxyStubClsid32) at the module's proxy/stub class, whose InprocServer32 is the
// module itself.
//
// Objects in this process are called directly, on the caller's thread, so no interface needs
// marshalling today and the class object is not served (DllGetClassObject answers
// CLASS_E_CLASSNOTAVAILABLE). The registrations are what a marshaller for out-of-process
// servers will look up.
#pragma once

#include <windows.h>
#include <objbase.h>

struct ProxyStubInterface {
    const char16_t* name;
    const char16_t* iid;  // braced text
};

struct ProxyStubModule {
    const char16_t* clsid;  // braced text of the proxy/stub class
    const char16_t* description;
    const ProxyStubInterface* interfaces;
    size_t count;
};

HRESULT registerProxyStub(const ProxyStubModule& module, const void* addressInModule);
HRESULT unregisterProxyStub(const ProxyStubModule& module);
