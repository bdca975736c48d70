// Opens a shared module by path and finds its exported functions: dlopen/dlsym on POSIX hosts,
// LoadLibraryW/GetProcAddress on Windows. Modules opened here stay loaded for the life of the
// process (test and bench libraries bind a server module's control functions once).
#pragma once

#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace opc::support {

// The module at the UTF-8 path, or null with the reason in why.
inline void* openModule(const char* path, std::string& why) {
#ifdef _WIN32
    const int length = MultiByteToWideChar(CP_UTF8, 0, path, -1, nullptr, 0);
    std::wstring wide(length > 0 ? static_cast<size_t>(length) : 1u, L'\0');
    if (length > 0) MultiByteToWideChar(CP_UTF8, 0, path, -1, wide.data(), length);
    HMODULE module = LoadLibraryW(wide.c_str());
    if (module == nullptr) why = "LoadLibrary failed with error " + std::to_string(GetLastError()) + ": " + path;
    return reinterpret_cast<void*>(module);
#else
    void* module = dlopen(path, RTLD_NOW);
    if (module == nullptr) {
        const char* reason = dlerror();
        why = reason != nullptr ? reason : "dlopen failed";
    }
    return module;
#endif
}

// The exported function of the module, or null.
template <typename F>
F moduleFunction(void* module, const char* name) {
#ifdef _WIN32
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name)));
#else
    return reinterpret_cast<F>(dlsym(module, name));
#endif
}

}  // namespace opc::support
