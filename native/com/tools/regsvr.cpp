// opc_regsvr [/u] [/s] <module>... — calls each module's DllRegisterServer (or, with /u,
// DllUnregisterServer). /s prints nothing on success. Exit code 0 when every call succeeded.
#include <windows.h>
#include <objbase.h>
#include <substrate/registry.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

int usage() {
    std::fprintf(stderr, "usage: opc_regsvr [/u] [/s] <module>...\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    bool unregister = false;
    bool silent = false;
    std::vector<const char*> modules;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "/u") == 0 || std::strcmp(argv[i], "-u") == 0) {
            unregister = true;
        } else if (std::strcmp(argv[i], "/s") == 0 || std::strcmp(argv[i], "-s") == 0) {
            silent = true;
        } else if (argv[i][0] == '/' && std::strlen(argv[i]) == 2) {
            return usage();
        } else {
            modules.push_back(argv[i]);
        }
    }
    if (modules.empty()) return usage();

    const char* entryName = unregister ? "DllUnregisterServer" : "DllRegisterServer";
    int failures = 0;
    for (const char* path : modules) {
        HMODULE module = LoadLibraryA(path);
        if (module == nullptr) {
            std::fprintf(stderr, "opc_regsvr: cannot load %s (error %u)\n", path, GetLastError());
            ++failures;
            continue;
        }
        void* entry = reinterpret_cast<void*>(GetProcAddress(module, entryName));
        if (entry == nullptr) {
            std::fprintf(stderr, "opc_regsvr: %s has no %s\n", path, entryName);
            FreeLibrary(module);
            ++failures;
            continue;
        }
        const HRESULT hr = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(entry)();
        if (FAILED(hr)) {
            std::fprintf(stderr, "opc_regsvr: %s of %s failed: 0x%08X\n", entryName, path, static_cast<unsigned>(hr));
            ++failures;
        } else if (!silent) {
            std::printf("%s of %s succeeded (registry %s)\n", entryName, path, RegistryFilePath());
        }
        FreeLibrary(module);
    }
    return failures == 0 ? 0 : 1;
}
