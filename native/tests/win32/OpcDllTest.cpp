// opc.dll loads like any JNI library: every DLL it imports and every function it imports from
// them resolves, its natives are reachable by their unmangled names, and it unloads and reloads.
#include <windows.h>

#include <gtest/gtest.h>

namespace {

const char* const kStartupNatives[] = {
    "Java_com_velmora_opc_OpcEnv_initEnv",
    "Java_com_velmora_opc_OpcEnv_initThread",
};

TEST(OpcDll, LoadsResolvesAndReloads) {
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        HMODULE dll = LoadLibraryA("opc.dll");
        ASSERT_NE(dll, nullptr) << "LoadLibrary failed with error " << GetLastError();
        for (const char* name : kStartupNatives) {
            EXPECT_NE(GetProcAddress(dll, name), nullptr) << name;
        }
        // Only the natives are exported: the runtime's own functions stay inside.
        EXPECT_EQ(GetProcAddress(dll, "DllMain"), nullptr);
        EXPECT_EQ(GetProcAddress(dll, "_ZSt9terminatev"), nullptr);
        EXPECT_EQ(GetProcAddress(dll, "pthread_create"), nullptr);
        EXPECT_TRUE(FreeLibrary(dll));
    }
}

}  // namespace
