// Apartments and process security.
//
// Each thread records how often it entered COM and in which apartment type. The multithreaded
// apartment exists while at least one thread is in it; threads that never initialised COM then
// belong to it implicitly. Objects are never marshalled between apartments in this runtime: every
// object is called directly on the caller's thread, and objects guard their own state.
#include "internal.h"

#include <random>

namespace {

std::atomic<int> mtaThreads{0};
std::atomic<bool> securityInitialized{false};

struct ThreadApartment {
    int inits = 0;
    bool singleThreaded = false;
    ~ThreadApartment() {
        // A thread that ends inside the multithreaded apartment leaves it.
        if (inits > 0 && !singleThreaded) mtaThreads.fetch_sub(1);
    }
};

thread_local ThreadApartment current;

constexpr DWORD kKnownCoInitFlags =
    COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE | COINIT_SPEED_OVER_MEMORY;

// Calls a method of the object's IClientSecurity, if it has one. Only proxies have one; objects
// used directly answer E_NOINTERFACE, and so do these helpers.
template <typename Call>
HRESULT withClientSecurity(IUnknown* proxy, Call&& call) {
    if (proxy == nullptr) return E_INVALIDARG;
    IClientSecurity* security = nullptr;
    HRESULT hr = proxy->QueryInterface(IID_IClientSecurity, reinterpret_cast<void**>(&security));
    if (FAILED(hr)) return hr;
    hr = call(security);
    security->Release();
    return hr;
}

}  // namespace

namespace substrate {

bool apartmentAvailable() { return current.inits > 0 || mtaThreads.load() > 0; }

void markSecurityInitialized() { securityInitialized.store(true); }

}  // namespace substrate

HRESULT CoInitializeEx(LPVOID, DWORD dwCoInit) {
    if (dwCoInit & ~kKnownCoInitFlags) return E_INVALIDARG;
    const bool singleThreaded = (dwCoInit & COINIT_APARTMENTTHREADED) != 0;
    if (current.inits > 0) {
        // Another model is refused and not counted; the same model is counted (and needs its
        // CoUninitialize) but reports S_FALSE.
        if (current.singleThreaded != singleThreaded) return RPC_E_CHANGED_MODE;
        ++current.inits;
        return S_FALSE;
    }
    current.inits = 1;
    current.singleThreaded = singleThreaded;
    if (!singleThreaded) mtaThreads.fetch_add(1);
    return S_OK;
}

HRESULT CoInitialize(LPVOID pvReserved) { return CoInitializeEx(pvReserved, COINIT_APARTMENTTHREADED); }

void CoUninitialize(void) {
    if (current.inits == 0) return;
    if (--current.inits == 0 && !current.singleThreaded) mtaThreads.fetch_sub(1);
}

HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR pSecDesc, LONG cAuthSvc, SOLE_AUTHENTICATION_SERVICE* asAuthSvc,
                             void*, DWORD dwAuthnLevel, DWORD dwImpLevel, void*, DWORD, void*) {
    if (!substrate::apartmentAvailable()) return CO_E_NOTINITIALIZED;
    if (cAuthSvc < -1 || (cAuthSvc == -1 && asAuthSvc != nullptr) || (cAuthSvc > 0 && asAuthSvc == nullptr))
        return E_INVALIDARG;
    if (pSecDesc != nullptr && dwAuthnLevel == RPC_C_AUTHN_LEVEL_NONE) return E_INVALIDARG;
    if (dwAuthnLevel > RPC_C_AUTHN_LEVEL_PKT_PRIVACY || dwImpLevel > RPC_C_IMP_LEVEL_DELEGATE) return E_INVALIDARG;
    // Once per process, whether set explicitly here or implicitly by the first marshalled call.
    bool expected = false;
    if (!securityInitialized.compare_exchange_strong(expected, true)) return RPC_E_TOO_LATE;
    return S_OK;
}

HRESULT CoQueryProxyBlanket(IUnknown* pProxy, DWORD* pwAuthnSvc, DWORD* pAuthzSvc, LPOLESTR* pServerPrincName,
                            DWORD* pAuthnLevel, DWORD* pImpLevel, RPC_AUTH_IDENTITY_HANDLE* pAuthInfo,
                            DWORD* pCapabilites) {
    return withClientSecurity(pProxy, [&](IClientSecurity* s) {
        return s->QueryBlanket(pProxy, pwAuthnSvc, pAuthzSvc, pServerPrincName, pAuthnLevel, pImpLevel, pAuthInfo,
                               pCapabilites);
    });
}

HRESULT CoSetProxyBlanket(IUnknown* pProxy, DWORD dwAuthnSvc, DWORD dwAuthzSvc, OLECHAR* pServerPrincName,
                          DWORD dwAuthnLevel, DWORD dwImpLevel, RPC_AUTH_IDENTITY_HANDLE pAuthInfo,
                          DWORD dwCapabilities) {
    return withClientSecurity(pProxy, [&](IClientSecurity* s) {
        return s->SetBlanket(pProxy, dwAuthnSvc, dwAuthzSvc, pServerPrincName, dwAuthnLevel, dwImpLevel, pAuthInfo,
                             dwCapabilities);
    });
}

HRESULT CoCopyProxy(IUnknown* pProxy, IUnknown** ppCopy) {
    if (ppCopy == nullptr) return E_INVALIDARG;
    *ppCopy = nullptr;
    return withClientSecurity(pProxy, [&](IClientSecurity* s) { return s->CopyProxy(pProxy, ppCopy); });
}

DWORD CoGetCurrentProcess(void) {
    static std::atomic<DWORD> next{1};
    static thread_local DWORD token = 0;
    if (token == 0) token = next.fetch_add(1);
    return token;
}

HRESULT CoCreateGuid(GUID* pguid) {
    if (pguid == nullptr) return E_INVALIDARG;
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    const uint64_t a = generator();
    const uint64_t b = generator();
    pguid->Data1 = static_cast<DWORD>(a);
    pguid->Data2 = static_cast<unsigned short>(a >> 32);
    pguid->Data3 = static_cast<unsigned short>(((a >> 48) & 0x0FFF) | 0x4000);  // version 4
    for (int i = 0; i < 8; ++i) pguid->Data4[i] = static_cast<unsigned char>(b >> (8 * i));
    pguid->Data4[0] = static_cast<unsigned char>((pguid->Data4[0] & 0x3F) | 0x80);  // variant 1
    return S_OK;
}
