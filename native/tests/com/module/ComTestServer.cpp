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

class TestObject final : public IUnknown {
public:
    TestObject() { ++liveObjects; }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        if (riid == IID_IUnknown) {
            *ppv = static_cast<IUnknown*>(this);
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --refs_;
        if (left == 0) {
            --liveObjects;
            delete this;
        }
        return left;
    }

private:
    std::atomic<ULONG> refs_{1};
};

class Factory final : public IClassFactory {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IClassFactory) {
            *ppv = static_cast<IClassFactory*>(this);
            AddRef();
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs_; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --refs_;
        if (left == 0) {
            --liveObjects;
            delete this;
        }
        return left;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        auto* object = new TestObject();
        const HRESULT hr = object->QueryInterface(riid, ppv);
        object->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
    Factory() { ++liveObjects; }

private:
    std::atomic<ULONG> refs_{1};
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

LSTATUS setDefault(const Wide& path, const Wide& value) { return setValue(path, nullptr, value); }

Wide clsidText() {
    OLECHAR text[39];
    StringFromGUID2(kTestObject, text, 39);
    return Wide(text);
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
    const Wide classKey = Wide(OLESTR("CLSID\\")) + clsidText();
    LSTATUS s = setDefault(classKey, OLESTR("COM runtime test object"));
    if (s == ERROR_SUCCESS) s = setDefault(classKey + OLESTR("\\InprocServer32"), Wide(path, length));
    // Usable from any apartment, so callers get the object itself rather than a proxy.
    if (s == ERROR_SUCCESS) s = setValue(classKey + OLESTR("\\InprocServer32"), OLESTR("ThreadingModel"), OLESTR("Both"));
    if (s == ERROR_SUCCESS) s = setDefault(classKey + OLESTR("\\ProgID"), OLESTR("ComTest.Object.1"));
    if (s == ERROR_SUCCESS) s = setDefault(OLESTR("ComTest.Object.1"), OLESTR("COM runtime test object"));
    if (s == ERROR_SUCCESS) s = setDefault(OLESTR("ComTest.Object.1\\CLSID"), clsidText());
    return s == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(s);
}

ENTRY_POINT DllUnregisterServer(void) {
    RegDeleteTreeW(HKEY_CLASSES_ROOT, OLESTR("ComTest.Object.1"));
    RegDeleteTreeW(HKEY_CLASSES_ROOT, (Wide(OLESTR("CLSID\\")) + clsidText()).c_str());
    return S_OK;
}
