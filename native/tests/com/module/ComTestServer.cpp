// A tiny in-process server for the activation tests: one class with a ProgID, plus a count of
// live objects so tests can see that every reference was given back.
#include <windows.h>
#include <objbase.h>

#include <atomic>
#include <string>

// Exported entry points, marked the same way on every platform.
#define TEST_EXPORT EXTERN_C __declspec(dllexport)
#define ENTRY_POINT EXTERN_C __declspec(dllexport) HRESULT STDAPICALLTYPE

namespace {

// {6F1D3C2A-8B4E-4F61-9C7D-2A5B8E9F1C01}
const CLSID kTestObject = {0x6F1D3C2A, 0x8B4E, 0x4F61, {0x9C, 0x7D, 0x2A, 0x5B, 0x8E, 0x9F, 0x1C, 0x01}};
std::atomic<long> liveObjects{0};

// The module's objects: reference counted, each a live object until its last reference goes.
template <typename Interface>
class Counted : public Interface {
public:
    explicit Counted(const IID& iid) : iid_(iid) { ++liveObjects; }
    virtual ~Counted() { --liveObjects; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = riid == IID_IUnknown || riid == iid_ ? static_cast<Interface*>(this) : nullptr;
        if (*ppv == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --refs_;
        if (left == 0) delete this;
        return left;
    }

private:
    const IID iid_;
    std::atomic<ULONG> refs_{1};
};

class Factory final : public Counted<IClassFactory> {
public:
    Factory() : Counted(IID_IClassFactory) {}
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        auto* object = new Counted<IUnknown>(IID_IUnknown);
        const HRESULT hr = object->QueryInterface(riid, ppv);
        object->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

using Wide = std::basic_string<WCHAR>;

LSTATUS setValue(const Wide& path, const WCHAR* name, const Wide& value) {
    HKEY key = nullptr;
    LSTATUS status = RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS) return status;
    status = RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                            static_cast<DWORD>((value.size() + 1) * sizeof(WCHAR)));
    RegCloseKey(key);
    return status;
}

}  // namespace

TEST_EXPORT long TestServerLiveObjects() { return liveObjects.load(); }

ENTRY_POINT DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
    if (ppv == nullptr) return E_INVALIDARG;
    *ppv = nullptr;
    if (!(rclsid == kTestObject)) return CLASS_E_CLASSNOTAVAILABLE;
    auto* factory = new Factory();
    const HRESULT hr = factory->QueryInterface(riid, ppv);
    factory->Release();
    return hr;
}

ENTRY_POINT DllCanUnloadNow(void) { return liveObjects.load() == 0 ? S_OK : S_FALSE; }

ENTRY_POINT DllRegisterServer(void) {
    HMODULE self = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            reinterpret_cast<LPCWSTR>(reinterpret_cast<void*>(&DllRegisterServer)), &self))
        return E_FAIL;
    WCHAR path[1024];
    const DWORD length = GetModuleFileNameW(self, path, 1024);
    if (length == 0 || length >= 1024) return E_FAIL;
    OLECHAR clsid[39];
    StringFromGUID2(kTestObject, clsid, 39);
    const Wide classKey = Wide(OLESTR("CLSID\\")) + clsid;
    const Wide inproc = classKey + OLESTR("\\InprocServer32");
    const struct {
        Wide key;
        const WCHAR* name;
        Wide value;
    } entries[] = {
        {classKey, nullptr, OLESTR("COM runtime test object")},
        {inproc, nullptr, Wide(path, length)},
        // Usable from any apartment, so callers get the object itself rather than a proxy.
        {inproc, OLESTR("ThreadingModel"), OLESTR("Both")},
        {classKey + OLESTR("\\ProgID"), nullptr, OLESTR("ComTest.Object.1")},
        {OLESTR("ComTest.Object.1"), nullptr, OLESTR("COM runtime test object")},
        {OLESTR("ComTest.Object.1\\CLSID"), nullptr, clsid},
    };
    for (const auto& entry : entries) {
        if (const LSTATUS s = setValue(entry.key, entry.name, entry.value); s != ERROR_SUCCESS)
            return HRESULT_FROM_WIN32(s);
    }
    return S_OK;
}
