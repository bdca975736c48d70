// The module's entry points: class object, unloading and self-registration.
#include "ComObject.h"
#include "Control.h"
#include "Server.h"
#include "ServerList.h"
#include "sim/SimControl.h"

#include <vector>

namespace sim {
namespace {

using Create = HRESULT (*)(REFIID iid, void** out);

HRESULT createServer(REFIID iid, void** out) {
    Server* server = new Server();
    const HRESULT hr = server->QueryInterface(iid, out);
    server->Release();
    return hr;
}

class ClassFactory final : public opc::support::ComObject<ClassFactory, IClassFactory> {
public:
    explicit ClassFactory(Create create) : create_(create) {}
    void* interfaceFor(REFIID iid) {
        return IsEqualIID(iid, IID_IClassFactory) ? static_cast<IClassFactory*>(this) : nullptr;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (out) *out = nullptr;
        if (HRESULT hr = enter("IClassFactory::CreateInstance", outer ? "outer=set" : "outer=null"); FAILED(hr)) {
            return hr;
        }
        if (out == nullptr) return E_POINTER;
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        return create_(iid, out);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override {
        g_moduleLocks += lock ? 1 : -1;
        return S_OK;
    }

private:
    Live<Kind::Factory> live_;
    Create create_;
};

const char kCategoryTexts[][40] = {"OPC Data Access Servers Version 1.0", "OPC Data Access Servers Version 2.0",
                                   "OPC Data Access Servers Version 3.0"};

HRESULT modulePath(WString* path) {
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(&modulePath), &module)) {
        return E_FAIL;
    }
    std::vector<WCHAR> buffer(4096);
    const DWORD n = GetModuleFileNameW(module, buffer.data(), DWORD(buffer.size()));
    if (n == 0 || n >= buffer.size()) return E_FAIL;
    path->assign(buffer.data(), n);
    return S_OK;
}

}  // namespace
}  // namespace sim

using namespace sim;

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
    if (ppv == nullptr) return E_INVALIDARG;
    *ppv = nullptr;
    Create create = nullptr;
    if (IsEqualCLSID(rclsid, CLSID_VelmoraSimulation)) create = createServer;
    if (IsEqualCLSID(rclsid, CLSID_OpcServerList)) create = createServerList;
    if (create == nullptr) return CLASS_E_CLASSNOTAVAILABLE;
    auto* factory = new ClassFactory(create);
    const HRESULT hr = factory->QueryInterface(riid, ppv);
    factory->Release();
    return hr;
}

STDAPI DllCanUnloadNow() { return liveObjects() == 0 && g_moduleLocks.load() == 0 ? S_OK : S_FALSE; }

STDAPI DllRegisterServer() {
    WString path;
    if (HRESULT hr = modulePath(&path); FAILED(hr)) return hr;
    const WString clsid = widen(kSimClsidText);
    const WString progId = widen(kSimProgId);
    const WString independent = widen(kSimVersionIndependentProgId);
    const WString classKey = widen("CLSID\\") + clsid;
    const WString name = widen("Velmora Simulation Server");
    const CATID categories[] = {CATID_OPCDAServer10, CATID_OPCDAServer20, CATID_OPCDAServer30};

    std::vector<RegistryText> entries = {
        {classKey, nullptr, name},
        {classKey + widen("\\InprocServer32"), nullptr, path},
        {classKey + widen("\\InprocServer32"), OLESTR("ThreadingModel"), widen("Both")},
        {classKey + widen("\\ProgID"), nullptr, progId},
        {classKey + widen("\\VersionIndependentProgID"), nullptr, independent},
        {progId, nullptr, name},
        {progId + widen("\\CLSID"), nullptr, clsid},
        {progId + widen("\\OPC"), OLESTR("Vendor"), widen("Velmora")},
        {independent, nullptr, name},
        {independent + widen("\\CLSID"), nullptr, clsid},
        {independent + widen("\\CurVer"), nullptr, progId},
    };
    for (int i = 0; i < 3; ++i) {
        const WString catid = guidText(categories[i]);
        entries.push_back({classKey + widen("\\Implemented Categories\\") + catid, nullptr, WString()});
        entries.push_back({widen("Component Categories\\") + catid, OLESTR("409"), widen(kCategoryTexts[i])});
    }
    HRESULT hr = writeRegistryTexts(entries);
    if (SUCCEEDED(hr)) hr = registerServerList(path);
    return hr;
}

STDAPI DllUnregisterServer() {
    WString path;
    if (SUCCEEDED(modulePath(&path))) {
        if (HRESULT hr = unregisterServerList(path); FAILED(hr)) return hr;
    }
    const WString keys[] = {widen("CLSID\\") + widen(kSimClsidText), widen(kSimProgId),
                            widen(kSimVersionIndependentProgId)};
    for (const WString& key : keys) {
        const LONG rc = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
        if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return HRESULT_FROM_WIN32(rc);
    }
    return S_OK;
}
