// Module loading: name mapping, reference counts, entry points, module file names.
#include "ComTestSupport.h"

TEST(Module, LoadingCountsReferencesAndFailuresReportWin32Errors) {
    SetLastError(0);
    EXPECT_EQ(nullptr, LoadLibraryA("no_such_module_anywhere.dll"));
    EXPECT_EQ(static_cast<DWORD>(ERROR_MOD_NOT_FOUND), GetLastError());

    HMODULE first = LoadLibraryA("comtestserver.dll");
    ASSERT_NE(nullptr, first) << "error " << GetLastError();
    EXPECT_EQ(nullptr, GetProcAddress(first, "NoSuchEntryPoint"));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PROC_NOT_FOUND), GetLastError());
    EXPECT_EQ(nullptr, GetProcAddress(first, "dllgetclassobject"));  // names are case-sensitive
    EXPECT_NE(nullptr, GetProcAddress(first, "DllGetClassObject"));

    HMODULE second = LoadLibraryA("comtestserver");  // ".dll" is implied
    EXPECT_EQ(first, second);
    EXPECT_TRUE(FreeLibrary(second));
    // Still loaded: the first reference holds it.
    EXPECT_EQ(first, GetModuleHandleA("comtestserver.dll"));
    EXPECT_NE(nullptr, GetProcAddress(first, "TestServerLiveObjects"));
    EXPECT_TRUE(FreeLibrary(first));
}

TEST(Module, FileNameOfAModuleAndOfAnAddressInIt) {
    HMODULE module = LoadLibraryA("comtestserver.dll");
    ASSERT_NE(nullptr, module);
    WCHAR path[1024];
    const DWORD length = GetModuleFileNameW(module, path, 1024);
    ASSERT_GT(length, 0u);
    ASSERT_LT(length, 1024u);
    EXPECT_NE(Text::npos, Text(path, length).find(OLESTR("comtestserver"))) << "module path has the module's name";
    WCHAR small[4];
    EXPECT_EQ(4u, GetModuleFileNameW(module, small, 4));  // truncated: the whole buffer is used

    HMODULE owner = nullptr;
    void* entry = reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject"));
    const DWORD flags = GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    ASSERT_TRUE(GetModuleHandleExW(flags, static_cast<LPCWSTR>(entry), &owner));
    EXPECT_EQ(module, owner);
    EXPECT_TRUE(FreeLibrary(module));
}
