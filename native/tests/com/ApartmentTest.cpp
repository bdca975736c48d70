// Apartments: per-thread initialisation counts, the implicit multithreaded apartment, and the
// once-per-process security set-up. Each test leaves every thread uninitialised.
#include "ComTestSupport.h"

#include <thread>

namespace {

const CLSID kUnregistered = {0x0BADF00D, 0x1234, 0x5678, {0x9A, 0xBC, 0xDE, 0xF0, 0x12, 0x34, 0x56, 0x78}};

template <typename Body>
void onNewThread(Body&& body) {
    std::thread t(std::forward<Body>(body));
    t.join();
}

HRESULT activationResult() {
    void* object = reinterpret_cast<void*>(1);
    const HRESULT hr = CoGetClassObject(kUnregistered, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, &object);
    EXPECT_EQ(nullptr, object);
    return hr;
}

}  // namespace

TEST(Apartment, RepeatedInitialisationCountsAndOtherModelIsRefused) {
    onNewThread([] {
        EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED | COINIT_DISABLE_OLE1DDE));
        EXPECT_EQ(RPC_E_CHANGED_MODE, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
        CoUninitialize();
        // S_FALSE was counted: the thread is still in the multithreaded apartment.
        EXPECT_EQ(RPC_E_CHANGED_MODE, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
        CoUninitialize();
        // RPC_E_CHANGED_MODE was not counted: the thread is out now and may choose again.
        EXPECT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
        EXPECT_EQ(RPC_E_CHANGED_MODE, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        EXPECT_EQ(S_FALSE, CoInitialize(nullptr));
        CoUninitialize();
        CoUninitialize();
    });
}

TEST(Apartment, UninitialisedThreadsJoinAnExistingMultithreadedApartment) {
    onNewThread([] { EXPECT_EQ(CO_E_NOTINITIALIZED, activationResult()); });
    onNewThread([] {
        ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
        onNewThread([] { EXPECT_EQ(REGDB_E_CLASSNOTREG, activationResult()); });
        CoUninitialize();
    });
    onNewThread([] { EXPECT_EQ(CO_E_NOTINITIALIZED, activationResult()); });
}

TEST(Apartment, SingleThreadedApartmentsDoNotCoverOtherThreads) {
    onNewThread([] {
        ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
        EXPECT_EQ(REGDB_E_CLASSNOTREG, activationResult());
        onNewThread([] { EXPECT_EQ(CO_E_NOTINITIALIZED, activationResult()); });
        CoUninitialize();
    });
}

TEST(Apartment, SecurityIsSetOncePerProcess) {
    SKIP_UNDER_WINE("CoInitializeSecurity always answers S_OK under Wine");
    onNewThread([] {
        EXPECT_EQ(CO_E_NOTINITIALIZED,
                  CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                       RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
    });
    onNewThread([] {
        MtaScope mta;
        EXPECT_EQ(S_OK, CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                             RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
    });
    onNewThread([] {
        MtaScope mta;
        EXPECT_EQ(RPC_E_TOO_LATE, CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                                       RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
    });
}

TEST(Apartment, ObjectsUsedDirectlyHaveNoProxyBlanket) {
    CountingUnknown object;
    IUnknown* security = reinterpret_cast<IUnknown*>(1);
    EXPECT_EQ(E_NOINTERFACE, object.QueryInterface(IID_IClientSecurity, reinterpret_cast<void**>(&security)));
    EXPECT_EQ(E_NOINTERFACE, CoSetProxyBlanket(&object, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                               RPC_C_AUTHN_LEVEL_CONNECT, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr,
                                               EOAC_NONE));
    EXPECT_EQ(1u, object.refs.load());
}
