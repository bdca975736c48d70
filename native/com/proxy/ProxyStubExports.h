// The exports of a proxy/stub module. A module includes this header in exactly one file and
// defines kProxyStubModule there, usually as proxyStubOf(its interface table).
#pragma once

#include "ProxyStubModule.h"

#include <cstddef>

// A module serving `interfaces`. Its proxy/stub class carries the identifier of the first
// interface, as generated proxies do.
template <size_t N>
ProxyStubModule proxyStubOf(const ProxyStubInterface (&interfaces)[N]) {
    return ProxyStubModule{interfaces[0].iid, u"PSFactoryBuffer", interfaces, N};
}

extern const ProxyStubModule kProxyStubModule;

STDAPI DllRegisterServer(void) {
    return registerProxyStub(kProxyStubModule, reinterpret_cast<const void*>(&DllRegisterServer));
}

STDAPI DllUnregisterServer(void) { return unregisterProxyStub(kProxyStubModule); }

STDAPI DllGetClassObject(REFCLSID, REFIID, LPVOID* ppv) {
    if (ppv != nullptr) *ppv = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow(void) { return S_OK; }
