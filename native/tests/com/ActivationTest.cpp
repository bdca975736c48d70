// Class activation through the registry: contexts, failures, ProgIDs, remote host names.
#include "ComTestSupport.h"

#include <winreg.h>

namespace {

const CLSID kTestObject = {0x6F1D3C2A, 0x8B4E, 0x4F61, {0x9C, 0x7D, 0x2A, 0x5B, 0x8E, 0x9F, 0x1C, 0x01}};
const CLSID kUnregistered = {0x0BADF00D, 0x1234, 0x5678, {0x9A, 0xBC, 0xDE, 0xF0, 0x12, 0x34, 0x56, 0x78}};
// Registered by the tests below with hand-made keys.
const CLSID kMissingModule = {0x6F1D3C2A, 0x8B4E, 0x4F61, {0x9C, 0x7D, 0x2A, 0x5B, 0x8E, 0x9F, 0x1C, 0x02}};
const CLSID kNotServed = {0x6F1D3C2A, 0x8B4E, 0x4F61, {0x9C, 0x7D, 0x2A, 0x5B, 0x8E, 0x9F, 0x1C, 0x03}};

using EntryPoint = HRESULT(STDAPICALLTYPE*)();

class Activation : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        module_ = LoadLibraryA("comtestserver.dll");
        ASSERT_NE(nullptr, module_);
        auto reg = reinterpret_cast<EntryPoint>(reinterpret_cast<void*>(GetProcAddress(module_, "DllRegisterServer")));
        ASSERT_NE(nullptr, reg);
        ASSERT_EQ(S_OK, reg());
        live_ = reinterpret_cast<long (*)()>(reinterpret_cast<void*>(GetProcAddress(module_, "TestServerLiveObjects")));
    }
    // The registration stays: test processes run in parallel against one registry file, and
    // another one may be activating the class right now.
    static void TearDownTestSuite() { FreeLibrary(module_); }

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

    static Text modulePath() {
        WCHAR path[1024];
        const DWORD n = GetModuleFileNameW(module_, path, 1024);
        return Text(path, n);
    }

    // Activation for a context; on failure the out-pointer must come back null.
    static HRESULT classObject(const CLSID& clsid, DWORD context, COSERVERINFO* server, IClassFactory** factory) {
        *factory = reinterpret_cast<IClassFactory*>(1);
        const HRESULT hr = CoGetClassObject(clsid, context, server, IID_IClassFactory, reinterpret_cast<void**>(factory));
        if (FAILED(hr)) {
            EXPECT_EQ(nullptr, *factory) << "out-pointer not cleared for 0x" << std::hex << hr;
        }
        return hr;
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
    // An object in the caller's apartment is no proxy: it has no blanket to set.
    void* security = reinterpret_cast<void*>(1);
    EXPECT_EQ(E_NOINTERFACE, object->QueryInterface(IID_IClientSecurity, &security));
    EXPECT_EQ(nullptr, security);
    object->Release();
    EXPECT_EQ(0, live_());

    // INPROC | LOCAL | REMOTE without server information activates in-process.
    ASSERT_EQ(S_OK, classObject(kTestObject, CLSCTX_SERVER, nullptr, &factory));
    factory->Release();
    EXPECT_EQ(0, live_());
}

TEST_F(Activation, ClassRegisteredForAnotherContextIsNotRegistered) {
    IClassFactory* factory = nullptr;
    EXPECT_EQ(REGDB_E_CLASSNOTREG, classObject(kTestObject, CLSCTX_LOCAL_SERVER, nullptr, &factory));
    for (DWORD context : {CLSCTX_INPROC_SERVER, CLSCTX_INPROC_HANDLER, CLSCTX_LOCAL_SERVER, CLSCTX_REMOTE_SERVER})
        EXPECT_EQ(REGDB_E_CLASSNOTREG, classObject(kUnregistered, context, nullptr, &factory)) << context;
    EXPECT_EQ(E_INVALIDARG, CoGetClassObject(kTestObject, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, nullptr));
}

TEST_F(Activation, ModuleFailuresPassThrough) {
    registerInproc(kMissingModule, OLESTR("no_such_module_anywhere.dll"));
    registerInproc(kNotServed, modulePath());
    IClassFactory* factory = nullptr;
    const HRESULT missing = classObject(kMissingModule, CLSCTX_INPROC_SERVER, nullptr, &factory);
    if (runningUnderWine())
        EXPECT_TRUE(missing == HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND) || missing == E_ACCESSDENIED);
    else
        EXPECT_EQ(HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND), missing);
    EXPECT_EQ(CLASS_E_CLASSNOTAVAILABLE, classObject(kNotServed, CLSCTX_INPROC_SERVER, nullptr, &factory));
    RegDeleteTreeW(HKEY_CLASSES_ROOT, keyOf(kMissingModule).c_str());
    RegDeleteTreeW(HKEY_CLASSES_ROOT, keyOf(kNotServed).c_str());
}

TEST_F(Activation, ProgIdsResolveBothWays) {
    LedgerScope ledger;
    CLSID clsid{};
    EXPECT_EQ(S_OK, CLSIDFromString(OLESTR("ComTest.Object.1"), &clsid));
    EXPECT_TRUE(IsEqualCLSID(kTestObject, clsid));
    EXPECT_EQ(S_OK, CLSIDFromProgID(OLESTR("comtest.object.1"), &clsid));
    EXPECT_TRUE(IsEqualCLSID(kTestObject, clsid));
    LPOLESTR progId = nullptr;
    ASSERT_EQ(S_OK, ProgIDFromCLSID(kTestObject, &progId));
    EXPECT_EQ(Text(OLESTR("ComTest.Object.1")), Text(progId));
    CoTaskMemFree(progId);
    EXPECT_EQ(REGDB_E_CLASSNOTREG, ProgIDFromCLSID(kUnregistered, &progId));
}

TEST_F(Activation, CreateInstanceCombinesTheSteps) {
    IUnknown* object = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(kTestObject, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown,
                                     reinterpret_cast<void**>(&object)));
    EXPECT_EQ(1, live_());
    object->Release();
    object = reinterpret_cast<IUnknown*>(1);
    EXPECT_EQ(E_NOINTERFACE, CoCreateInstance(kTestObject, nullptr, CLSCTX_INPROC_SERVER, IID_IClassFactory,
                                              reinterpret_cast<void**>(&object)));
    EXPECT_EQ(nullptr, object);
    EXPECT_EQ(0, live_());
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
    EXPECT_EQ(REGDB_E_CLASSNOTREG, classObject(kUnregistered, CLSCTX_INPROC_SERVER, nullptr, &again));
    factory->Release();
    EXPECT_EQ(0, live_());
}

TEST_F(Activation, RemoteNamesOfThisMachineHostTheClassOthersAreUnreachable) {
    SKIP_UNDER_WINE("Wine has no DCOM activation to compare with");
    OLECHAR local[] = OLESTR("localhost");
    OLECHAR loopback[] = OLESTR("127.0.0.1");
    OLECHAR elsewhere[] = OLESTR("opc-host.invalid");
    for (OLECHAR* name : {local, loopback}) {
        COSERVERINFO server{0, name, nullptr, 0};
        IClassFactory* factory = nullptr;
        ASSERT_EQ(S_OK, classObject(kTestObject, CLSCTX_REMOTE_SERVER, &server, &factory));
        factory->Release();
    }
    COSERVERINFO server{0, elsewhere, nullptr, 0};
    IClassFactory* factory = nullptr;
    EXPECT_EQ(static_cast<HRESULT>(0x800706BA), classObject(kTestObject, CLSCTX_REMOTE_SERVER, &server, &factory));
    // Unreachable before any class look-up: nothing is known about classes of another host.
    EXPECT_EQ(HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE),
              classObject(kUnregistered, CLSCTX_REMOTE_SERVER, &server, &factory));
    EXPECT_EQ(0, live_());
}
