// Modules over the dynamic loader. Windows file names map to shared objects: "name.dll" (or
// "name" without extension) is looked up as "libname.so", first along the library search path,
// then in the folder of this runtime library, so that modules built next to it are found without
// any search-path setup. The module handle is the loader's handle.
#include "internal.h"

#include <dlfcn.h>
#include <link.h>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

bool endsWithDll(const std::string& s) {
    if (s.size() < 4) return false;
    std::string tail = s.substr(s.size() - 4);
    for (char& c : tail) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return tail == ".dll";
}

// The file names to try, in order, for a module name as a Windows program would give it.
std::vector<std::string> candidates(const std::string& name) {
    const size_t slash = name.rfind('/');
    const std::string dir = slash == std::string::npos ? std::string() : name.substr(0, slash + 1);
    const std::string base = slash == std::string::npos ? name : name.substr(slash + 1);
    std::string mapped = base;
    if (endsWithDll(base)) {
        mapped = "lib" + base.substr(0, base.size() - 4) + ".so";
    } else if (base.find('.') == std::string::npos) {
        mapped = "lib" + base + ".so";
    }
    std::vector<std::string> out;
    if (!dir.empty()) {
        out.push_back(name);
        if (mapped != base) out.push_back(dir + mapped);
    } else {
        out.push_back(mapped);
        out.push_back(substrate::runtimeFolder() + mapped);
        if (mapped != base) out.push_back(base);
    }
    return out;
}

HMODULE openModule(const std::string& name, int extraFlags) {
    for (const std::string& candidate : candidates(name)) {
        if (void* h = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL | extraFlags)) return static_cast<HMODULE>(h);
    }
    return nullptr;
}

bool fileExists(const std::string& name) {
    for (const std::string& candidate : candidates(name)) {
        if (candidate.find('/') != std::string::npos && access(candidate.c_str(), F_OK) == 0) return true;
    }
    return false;
}

std::string narrow(LPCWSTR text) { return substrate::toUtf8(text, substrate::length16(text)); }

std::string modulePath(HMODULE module) {
    std::string path;
    if (module != nullptr) {
        link_map* map = nullptr;
        if (dlinfo(module, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr) return std::string();
        path = map->l_name != nullptr ? map->l_name : "";
    }
    char resolved[PATH_MAX];
    if (path.empty()) {
        const ssize_t n = readlink("/proc/self/exe", resolved, sizeof(resolved) - 1);
        if (n <= 0) return std::string();
        return std::string(resolved, static_cast<size_t>(n));
    }
    return realpath(path.c_str(), resolved) != nullptr ? std::string(resolved) : path;
}

template <typename Unit>
DWORD copyPath(const std::basic_string<Unit>& path, Unit* buffer, DWORD size) {
    if (size == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    if (path.size() >= size) {  // truncated, still terminated, as Windows does
        std::memcpy(buffer, path.data(), (size - 1) * sizeof(Unit));
        buffer[size - 1] = 0;
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    std::memcpy(buffer, path.c_str(), (path.size() + 1) * sizeof(Unit));
    return static_cast<DWORD>(path.size());
}

}  // namespace

namespace substrate {

const std::string& runtimeFolder() {
    static const std::string folder = [] {
        Dl_info info{};
        if (dladdr(reinterpret_cast<void*>(&LoadLibraryA), &info) == 0 || info.dli_fname == nullptr)
            return std::string();
        char resolved[PATH_MAX];
        std::string path = realpath(info.dli_fname, resolved) != nullptr ? resolved : info.dli_fname;
        const size_t slash = path.rfind('/');
        return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
    }();
    return folder;
}

}  // namespace substrate

HMODULE LoadLibraryA(LPCSTR lpLibFileName) {
    if (lpLibFileName == nullptr || *lpLibFileName == 0) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    const std::string name(lpLibFileName);
    HMODULE module = openModule(name, 0);
    if (module == nullptr) SetLastError(fileExists(name) ? ERROR_BAD_EXE_FORMAT : ERROR_MOD_NOT_FOUND);
    return module;
}

HMODULE LoadLibraryW(LPCWSTR lpLibFileName) {
    if (lpLibFileName == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return LoadLibraryA(narrow(lpLibFileName).c_str());
}

FARPROC GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
    if (hModule == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    if (reinterpret_cast<uintptr_t>(lpProcName) < 0x10000) {  // ordinals: not available here
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    void* symbol = dlsym(hModule, lpProcName);
    if (symbol == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(symbol);
}

BOOL FreeLibrary(HMODULE hLibModule) {
    if (hLibModule == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return dlclose(hLibModule) == 0 ? TRUE : FALSE;
}

HMODULE GetModuleHandleA(LPCSTR lpModuleName) {
    if (lpModuleName == nullptr) return static_cast<HMODULE>(dlopen(nullptr, RTLD_LAZY));
    HMODULE module = openModule(lpModuleName, RTLD_NOLOAD);
    if (module == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    dlclose(module);  // the look-up took a reference; the module stays loaded by its other owners
    return module;
}

HMODULE GetModuleHandleW(LPCWSTR lpModuleName) {
    if (lpModuleName == nullptr) return GetModuleHandleA(nullptr);
    return GetModuleHandleA(narrow(lpModuleName).c_str());
}

BOOL GetModuleHandleExW(DWORD dwFlags, LPCWSTR lpModuleName, HMODULE* phModule) {
    if (phModule == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }
    *phModule = nullptr;
    HMODULE module = nullptr;
    if (dwFlags & GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS) {
        Dl_info info{};
        if (dladdr(reinterpret_cast<const void*>(lpModuleName), &info) == 0 || info.dli_fname == nullptr) {
            SetLastError(ERROR_MOD_NOT_FOUND);
            return FALSE;
        }
        module = static_cast<HMODULE>(dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD));
        if (module == nullptr) module = static_cast<HMODULE>(dlopen(nullptr, RTLD_LAZY));  // the program itself
    } else if (lpModuleName == nullptr) {
        module = static_cast<HMODULE>(dlopen(nullptr, RTLD_LAZY));
    } else {
        module = openModule(narrow(lpModuleName), RTLD_NOLOAD);
    }
    if (module == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return FALSE;
    }
    if (dwFlags & GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT) dlclose(module);
    *phModule = module;
    return TRUE;
}

DWORD GetModuleFileNameA(HMODULE hModule, LPSTR lpFilename, DWORD nSize) {
    const std::string path = modulePath(hModule);
    if (path.empty()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    return copyPath(path, lpFilename, nSize);
}

DWORD GetModuleFileNameW(HMODULE hModule, LPWSTR lpFilename, DWORD nSize) {
    const std::string path = modulePath(hModule);
    if (path.empty()) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    return copyPath(substrate::fromUtf8(path), lpFilename, nSize);
}
