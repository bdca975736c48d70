#include "ProxyStubModule.h"

#include <string>

namespace {

using Text = std::u16string;

LSTATUS setDefault(const Text& path, const Text& value) {
    HKEY key = nullptr;
    LSTATUS status =
        RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS) return status;
    status = RegSetValueExW(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                            static_cast<DWORD>((value.size() + 1) * sizeof(char16_t)));
    RegCloseKey(key);
    return status;
}

HRESULT result(LSTATUS status) { return status == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(status); }

}  // namespace

HRESULT registerProxyStub(const ProxyStubModule& module, const void* addressInModule) {
    HMODULE self = nullptr;
    if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                            static_cast<LPCWSTR>(addressInModule), &self))
        return HRESULT_FROM_WIN32(GetLastError());
    WCHAR path[MAX_PATH * 4];
    const DWORD length = GetModuleFileNameW(self, path, MAX_PATH * 4);
    if (length == 0 || length >= MAX_PATH * 4) return E_FAIL;

    const Text classKey = Text(u"CLSID\\") + module.clsid;
    LSTATUS status = setDefault(classKey, module.description);
    if (status == ERROR_SUCCESS) status = setDefault(classKey + u"\\InprocServer32", Text(path, length));
    for (size_t i = 0; status == ERROR_SUCCESS && i < module.count; ++i) {
        const Text interfaceKey = Text(u"Interface\\") + module.interfaces[i].iid;
        status = setDefault(interfaceKey, module.interfaces[i].name);
        if (status == ERROR_SUCCESS) status = setDefault(interfaceKey + u"\\ProxyStubClsid32", module.clsid);
    }
    return result(status);
}

HRESULT unregisterProxyStub(const ProxyStubModule& module) {
    for (size_t i = 0; i < module.count; ++i) {
        const Text interfaceKey = Text(u"Interface\\") + module.interfaces[i].iid;
        RegDeleteTreeW(HKEY_CLASSES_ROOT, interfaceKey.c_str());
    }
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, (Text(u"CLSID\\") + module.clsid).c_str());
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND ? S_OK : result(status);
}
