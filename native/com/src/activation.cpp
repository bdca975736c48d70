// Class activation.
//
// Contexts are tried in the order Windows tries them: class objects registered at run time, then
// the in-process server (CLSID\{clsid}\InprocServer32), then local and remote servers. A context
// counts only when its bit is requested; a class registered for another context only is "not
// registered". Modules stay loaded once a class object came from them.
//
// Remote activation: no network transport exists here. A server name that denotes this machine
// (its host name, "localhost", a loopback address or one of its own addresses) hosts the class in
// this process, as a DLL surrogate would host an in-process class for a remote caller on Windows;
// that is the first marshalled activation, so it also settles process security. Any other host is
// unreachable (RPC_S_SERVER_UNAVAILABLE) and nothing is sent anywhere.
#include "internal.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <mutex>
#include <vector>

namespace {

struct RegisteredClass {
    CLSID clsid;
    IUnknown* object;
    DWORD context;
    DWORD cookie;
};

std::mutex classesMutex;
std::vector<RegisteredClass> registeredClasses;
DWORD nextCookie = 1;

std::mutex modulesMutex;
std::map<std::u16string, HMODULE> loadedModules;

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return s;
}

bool isOwnAddress(const std::string& host) {
    in_addr v4{};
    in6_addr v6{};
    const bool isV4 = inet_pton(AF_INET, host.c_str(), &v4) == 1;
    const bool isV6 = !isV4 && inet_pton(AF_INET6, host.c_str(), &v6) == 1;
    if (!isV4 && !isV6) return false;
    if (isV4 && (ntohl(v4.s_addr) >> 24) == 127) return true;
    if (isV6 && IN6_IS_ADDR_LOOPBACK(&v6)) return true;
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return false;
    bool found = false;
    for (ifaddrs* a = list; a != nullptr && !found; a = a->ifa_next) {
        if (a->ifa_addr == nullptr) continue;
        if (isV4 && a->ifa_addr->sa_family == AF_INET)
            found = std::memcmp(&reinterpret_cast<sockaddr_in*>(a->ifa_addr)->sin_addr, &v4, sizeof(v4)) == 0;
        if (isV6 && a->ifa_addr->sa_family == AF_INET6)
            found = std::memcmp(&reinterpret_cast<sockaddr_in6*>(a->ifa_addr)->sin6_addr, &v6, sizeof(v6)) == 0;
    }
    freeifaddrs(list);
    return found;
}

// Whether a server name denotes this machine, decided without any network traffic.
bool isThisMachine(LPCWSTR name) {
    if (name == nullptr || *name == 0) return true;
    const std::string host = lower(substrate::toUtf8(name, substrate::length16(name)));
    if (host == "localhost" || host == "localhost.localdomain") return true;
    char own[256] = {};
    if (gethostname(own, sizeof(own) - 1) == 0 && host == lower(own)) return true;
    return isOwnAddress(host);
}

HRESULT fromRegisteredClass(REFCLSID rclsid, DWORD context, REFIID riid, LPVOID* ppv, bool* found) {
    IUnknown* object = nullptr;
    {
        std::lock_guard<std::mutex> guard(classesMutex);
        for (const RegisteredClass& c : registeredClasses) {
            if (c.clsid == rclsid && (c.context & context) != 0) {
                object = c.object;
                object->AddRef();
                break;
            }
        }
    }
    *found = object != nullptr;
    if (object == nullptr) return REGDB_E_CLASSNOTREG;
    const HRESULT hr = object->QueryInterface(riid, ppv);
    object->Release();
    return hr;
}

HRESULT fromInprocServer(REFCLSID rclsid, REFIID riid, LPVOID* ppv, bool* found) {
    std::u16string modulePath;
    *found = substrate::classRootString(u"CLSID\\" + substrate::guidText(rclsid) + u"\\InprocServer32", &modulePath) &&
             !modulePath.empty();
    if (!*found) return REGDB_E_CLASSNOTREG;

    HMODULE module = nullptr;
    {
        std::lock_guard<std::mutex> guard(modulesMutex);
        auto it = loadedModules.find(modulePath);
        if (it != loadedModules.end()) {
            module = it->second;
        } else {
            module = LoadLibraryW(modulePath.c_str());
            if (module == nullptr) return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
            loadedModules.emplace(modulePath, module);
        }
    }
    void* entry = reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject"));
    if (entry == nullptr) return CO_E_DLLNOTFOUND;
    const HRESULT hr = reinterpret_cast<LPFNGETCLASSOBJECT>(entry)(rclsid, riid, ppv);
    if (FAILED(hr)) *ppv = nullptr;
    return hr;
}

bool hasLocalServer(REFCLSID rclsid) {
    std::u16string command;
    return substrate::classRootString(u"CLSID\\" + substrate::guidText(rclsid) + u"\\LocalServer32", &command) &&
           !command.empty();
}

}  // namespace

HRESULT CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid, LPVOID* ppv) {
    if (ppv == nullptr) return E_INVALIDARG;
    *ppv = nullptr;
    if (!substrate::apartmentAvailable()) return CO_E_NOTINITIALIZED;
    const auto* server = static_cast<const COSERVERINFO*>(pvReserved);
    bool found = false;
    HRESULT hr = S_OK;

    if (dwClsContext & (CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER)) {
        hr = fromRegisteredClass(rclsid, dwClsContext, riid, ppv, &found);
        if (found) return hr;
    }
    if (dwClsContext & CLSCTX_INPROC_SERVER) {
        hr = fromInprocServer(rclsid, riid, ppv, &found);
        if (found) return hr;
    }
    if ((dwClsContext & CLSCTX_LOCAL_SERVER) && hasLocalServer(rclsid)) {
        return CO_E_SERVER_EXEC_FAILURE;  // this platform launches no server processes
    }
    if (dwClsContext & CLSCTX_REMOTE_SERVER) {
        if (server != nullptr && !isThisMachine(server->pwszName)) return HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE);
        hr = fromInprocServer(rclsid, riid, ppv, &found);
        if (found) {
            substrate::markSecurityInitialized();
            return hr;
        }
    }
    return REGDB_E_CLASSNOTREG;
}

HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    IClassFactory* factory = nullptr;
    HRESULT hr = CoGetClassObject(rclsid, dwClsContext, nullptr, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    if (FAILED(hr)) return hr;
    hr = factory->CreateInstance(pUnkOuter, riid, ppv);
    factory->Release();
    if (FAILED(hr)) *ppv = nullptr;
    return hr;
}

HRESULT CoCreateInstanceEx(REFCLSID Clsid, IUnknown* punkOuter, DWORD dwClsCtx, COSERVERINFO* pServerInfo,
                           DWORD dwCount, MULTI_QI* pResults) {
    if (dwCount == 0 || pResults == nullptr) return E_INVALIDARG;
    for (DWORD i = 0; i < dwCount; ++i) {
        pResults[i].pItf = nullptr;
        pResults[i].hr = E_NOINTERFACE;
    }
    IClassFactory* factory = nullptr;
    HRESULT hr = CoGetClassObject(Clsid, dwClsCtx, pServerInfo, IID_IClassFactory, reinterpret_cast<void**>(&factory));
    if (FAILED(hr)) return hr;
    IUnknown* object = nullptr;
    hr = factory->CreateInstance(punkOuter, IID_IUnknown, reinterpret_cast<void**>(&object));
    factory->Release();
    if (FAILED(hr)) return hr;
    DWORD obtained = 0;
    for (DWORD i = 0; i < dwCount; ++i) {
        if (pResults[i].pIID == nullptr) {
            pResults[i].hr = E_INVALIDARG;
            continue;
        }
        pResults[i].hr = object->QueryInterface(*pResults[i].pIID, reinterpret_cast<void**>(&pResults[i].pItf));
        if (SUCCEEDED(pResults[i].hr)) ++obtained;
    }
    object->Release();
    return obtained == dwCount ? S_OK : obtained > 0 ? CO_S_NOTALLINTERFACES : E_NOINTERFACE;
}

HRESULT CoRegisterClassObject(REFCLSID rclsid, LPUNKNOWN pUnk, DWORD dwClsContext, DWORD, LPDWORD lpdwRegister) {
    if (pUnk == nullptr || lpdwRegister == nullptr) return E_INVALIDARG;
    if (!substrate::apartmentAvailable()) return CO_E_NOTINITIALIZED;
    std::lock_guard<std::mutex> guard(classesMutex);
    pUnk->AddRef();
    registeredClasses.push_back(RegisteredClass{rclsid, pUnk, dwClsContext, nextCookie});
    *lpdwRegister = nextCookie++;
    return S_OK;
}

HRESULT CoRevokeClassObject(DWORD dwRegister) {
    IUnknown* object = nullptr;
    {
        std::lock_guard<std::mutex> guard(classesMutex);
        for (auto it = registeredClasses.begin(); it != registeredClasses.end(); ++it) {
            if (it->cookie == dwRegister) {
                object = it->object;
                registeredClasses.erase(it);
                break;
            }
        }
    }
    if (object == nullptr) return CO_E_OBJNOTREG;
    object->Release();
    return S_OK;
}
