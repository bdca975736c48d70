// Module loading: name mapping, reference counts, entry points, module file names.
#include "ComTestSupport.h"

TEST(Module, MissingModulesAndEntryPointsReportWin32Errors) {
    SetLastError(0);
    EXPECT_EQ(nullptr, LoadLibraryA("no_such_module_anywhere.dll"));
    EXPECT_EQ(static_cast<DWORD>(ERROR_MOD_NOT_FOUND), GetLastError());

    HMODULE module = LoadLibraryA("comtestserver.dll");
    ASSERT_NE(nullptr, module) << "error " << GetLastError();
    EXPECT_EQ(nullptr, GetProcAddress(module, "NoSuchEntryPoint"));
    EXPECT_EQ(static_cast<DWORD>(ERROR_PROC_NOT_FOUND), GetLastError());
    EXPECT_EQ(nullptr, GetProcAddress(module, "dllgetclassobject"));  // names are case-sensitive
    EXPECT_NE(nullptr, GetProcAddress(module, "DllGetClassObject"));
    EXPECT_TRUE(FreeLibrary(module));
}

TEST(Module, LoadingAgainGivesTheSameHandleAndCountsIt) {
    HMODULE first = LoadLibraryA("comtestserver.dll");
    ASSERT_NE(nullptr, first);
    HMODULE second = LoadLibraryA("comtestserver");  // ".dll" is implied
    EXPECT_EQ(first, second);
    EXPECT_TRUE(FreeLibrary(second));
    // Still loaded: the first reference holds it.
    EXPECT_EQ(first, GetModuleHandleA("comtestserver.dll"));
    auto* live = reinterpret_cast<long (*)()>(reinterpret_cast<void*>(GetProcAddress(first, "TestServerLiveObjects")));
    ASSERT_NE(nullptr, live);
    EXPECT_EQ(0, live());
    EXPECT_TRUE(FreeLibrary(first));
}

TEST(Module, FileNameOfAModuleAndOfAnAddressInIt) {
    HMODULE module = LoadLibraryA("comtestserver.dll");
    ASSERT_NE(nullptr, module);
    WCHAR path[1024];
    const DWORD length = GetModuleFileNameW(module, path, 1024);
    ASSERT_GT(length, 0u);
    ASSERT_LT(length, 1024u);
    const Text name(path, length);
    EXPECT_NE(Text::npos, name.find(OLESTR("comtestserver"))) << "module path has the module's name";

    WCHAR small[4];
    EXPECT_EQ(4u, GetModuleFileNameW(module, small, 4));  // truncated: the whole buffer is used

    HMODULE owner = nullptr;
    void* entry = reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject"));
    ASSERT_TRUE(GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                   static_cast<LPCWSTR>(entry), &owner));
    EXPECT_EQ(module, owner);
    EXPECT_TRUE(FreeLibrary(module));
}
