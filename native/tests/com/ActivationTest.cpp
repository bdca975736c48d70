// Class activation through the registry: contexts, failures, ProgIDs, class objects registered at
// run time, remote host names.
#include "ComTestSupport.h"

#include <winreg.h>

namespace {

const CLSID kTestObject = {0x6F1D3C2A, 0x8B4E, 0x4F61, {0x9C, 0x7D, 0x2A, 0x5B, 0x8E, 0x9F, 0x1C, 0x01}};
// Registered by the tests below with hand-made keys.
const CLSID kMissingModule = {0x6F1D3C2A, 0x8B4E, 0x4F61, {0x9C, 0x7D, 0x2A, 0x5B, 0x8E, 0x9F, 0x1C, 0x02}};
const CLSID kNotServed = {0x6F1D3C2A, 0x8B4E, 0x4F61, {0x9C, 0x7D, 0x2A, 0x5B, 0x8E, 0x9F, 0x1C, 0x03}};

class Activation : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        module_ = LoadLibraryA("comtestserver.dll");
        ASSERT_NE(nullptr, module_);
        auto reg = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(entry("DllRegisterServer"));
        ASSERT_NE(nullptr, reg);
        ASSERT_EQ(S_OK, reg());
        live_ = reinterpret_cast<long (*)()>(entry("TestServerLiveObjects"));
    }
    // The registration stays: test processes run in parallel against one registry file, and
    // another one may be activating the class right now.
    static void TearDownTestSuite() { FreeLibrary(module_); }

    static void* entry(const char* name) { return reinterpret_cast<void*>(GetProcAddress(module_, name)); }

    static Text keyOf(const CLSID& clsid) {
        OLECHAR text[39];
        StringFromGUID2(clsid, text, 39);
        return Text(OLESTR("CLSID\\")) + text;
    }

    static void registerInproc(const CLSID& clsid, const Text& path) {
        HKEY key = nullptr;
        ASSERT_EQ(ERROR_SUCCESS, RegCreateKeyExW(HKEY_CLASSES_ROOT, (keyOf(clsid) + OLESTR("\\InprocServer32")).c_str(),
                                                 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr));
        ASSERT_EQ(ERROR_SUCCESS, RegSetValueExW(key, nullptr, 0, REG_SZ, reinterpret_cast<const BYTE*>(path.c_str()),
                                                static_cast<DWORD>((path.size() + 1) * sizeof(OLECHAR))));
        RegCloseKey(key);
    }

    static HMODULE module_;
    static long (*live_)();
    MtaScope mta_;
};

HMODULE Activation::module_ = nullptr;
long (*Activation::live_)() = nullptr;

}  // namespace

TEST_F(Activation, InprocClassIsCreatedAndUsedDirectly) {
    IClassFactory* factory = nullptr;
    ASSERT_EQ(S_OK, classObject(kTestObject, CLSCTX_INPROC_SERVER, nullptr, &factory));
    IUnknown* object = nullptr;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IUnknown, reinterpret_cast<void**>(&object)));
    factory->Release();
    EXPECT_EQ(1, live_());
    // An object in the caller's apartment is no proxy: it has no blanket to set.
    void* security = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_NOINTERFACE, object->QueryInterface(IID_IClientSecurity, &security));
    EXPECT_EQ(nullptr, security);
    object->Release();
    EXPECT_EQ(0, live_());
    // INPROC | LOCAL | REMOTE without server information activates in-process.
    EXPECT_EQ(S_OK, classObject(kTestObject, CLSCTX_SERVER));
    EXPECT_EQ(0, live_());
}

TEST_F(Activation, FailuresOfRegistrationAndModulePassThrough) {
    EXPECT_EQ(REGDB_E_CLASSNOTREG, classObject(kTestObject, CLSCTX_LOCAL_SERVER));  // registered for another context
    for (DWORD context : {CLSCTX_INPROC_SERVER, CLSCTX_INPROC_HANDLER, CLSCTX_LOCAL_SERVER, CLSCTX_REMOTE_SERVER})
        EXPECT_EQ(REGDB_E_CLASSNOTREG, classObject(kUnregistered, context)) << context;
    EXPECT_EQ(E_INVALIDARG, CoGetClassObject(kTestObject, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, nullptr));

    WCHAR path[1024];
    registerInproc(kMissingModule, OLESTR("no_such_module_anywhere.dll"));
    registerInproc(kNotServed, Text(path, GetModuleFileNameW(module_, path, 1024)));
    const HRESULT missing = classObject(kMissingModule, CLSCTX_INPROC_SERVER);
    if (runningUnderWine())
        EXPECT_TRUE(missing == HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND) || missing == E_ACCESSDENIED);
    else
        EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), missing);
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, classObject(kNotServed, CLSCTX_INPROC_SERVER));
    RegDeleteTreeW(HKEY_CLASSES_ROOT, keyOf(kMissingModule).c_str());
    RegDeleteTreeW(HKEY_CLASSES_ROOT, keyOf(kNotServed).c_str());
}

TEST_F(Activation, ProgIdsResolveInEitherCase) {
    CLSID clsid{};
    EXPECT_EQ(S_OK, CLSIDFromString(OLESTR("ComTest.Object.1"), &clsid));
    EXPECT_TRUE(IsEqualCLSID(kTestObject, clsid));
    clsid = GUID_NULL;
    EXPECT_EQ(S_OK, CLSIDFromProgID(OLESTR("comtest.object.1"), &clsid));
    EXPECT_TRUE(IsEqualCLSID(kTestObject, clsid));
}

TEST_F(Activation, ClassObjectsRegisteredAtRunTimeComeFirst) {
    IClassFactory* factory = nullptr;
    ASSERT_EQ(S_OK, classObject(kTestObject, CLSCTX_INPROC_SERVER, nullptr, &factory));
    DWORD cookie = 0;
    ASSERT_EQ(S_OK, CoRegisterClassObject(kUnregistered, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie));
    IClassFactory* again = nullptr;
    ASSERT_EQ(S_OK, classObject(kUnregistered, CLSCTX_INPROC_SERVER, nullptr, &again));
    EXPECT_EQ(factory, again);
    again->Release();
    EXPECT_EQ(S_OK, CoRevokeClassObject(cookie));
    EXPECT_EQ(REGDB_E_CLASSNOTREG, classObject(kUnregistered, CLSCTX_INPROC_SERVER));
    factory->Release();
    EXPECT_EQ(0, live_());
}

TEST_F(Activation, RemoteNamesOfThisMachineHostTheClassOthersAreUnreachable) {
    SKIP_UNDER_WINE("Wine has no DCOM activation to compare with");
    OLECHAR local[] = OLESTR("localhost"), loopback[] = OLESTR("127.0.0.1"), elsewhere[] = OLESTR("opc-host.invalid");
    for (OLECHAR* name : {local, loopback}) {
        COSERVERINFO server{0, name, nullptr, 0};
        EXPECT_EQ(S_OK, classObject(kTestObject, CLSCTX_REMOTE_SERVER, &server));
    }
    COSERVERINFO server{0, elsewhere, nullptr, 0};
    EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), classObject(kTestObject, CLSCTX_REMOTE_SERVER, &server));
    // Unreachable before any class look-up: nothing is known about classes of another host.
    EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), classObject(kUnregistered, CLSCTX_REMOTE_SERVER, &server));
    EXPECT_EQ(0, live_());
}
