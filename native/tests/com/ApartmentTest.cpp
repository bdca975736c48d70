// Apartments: per-thread initialisation counts, the implicit multithreaded apartment, and the
// once-per-process security set-up. Each test leaves every thread uninitialised.
#include "ComTestSupport.h"

#include <thread>

namespace {

template <typename Body>
void onNewThread(Body&& body) {
    std::thread(std::forward<Body>(body)).join();
}

HRESULT activationResult() { return classObject(kUnregistered, CLSCTX_INPROC_SERVER); }

HRESULT initialiseSecurity() {
    return CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE,
                                nullptr, EOAC_NONE, nullptr);
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

TEST(Apartment, OnlyAnExistingMultithreadedApartmentCoversUninitialisedThreads) {
    onNewThread([] { EXPECT_EQ(CO_E_NOTINITIALIZED, activationResult()); });
    for (DWORD model : {COINIT_MULTITHREADED, COINIT_APARTMENTTHREADED}) {
        onNewThread([model] {
            ASSERT_EQ(S_OK, CoInitializeEx(nullptr, model));
            EXPECT_EQ(REGDB_E_CLASSNOTREG, activationResult());
            onNewThread([model] {
                EXPECT_EQ(model == COINIT_MULTITHREADED ? REGDB_E_CLASSNOTREG : CO_E_NOTINITIALIZED,
                          activationResult());
            });
            CoUninitialize();
        });
        onNewThread([] { EXPECT_EQ(CO_E_NOTINITIALIZED, activationResult()); });
    }
}

TEST(Apartment, SecurityIsSetOncePerProcess) {
    SKIP_UNDER_WINE("CoInitializeSecurity always answers S_OK under Wine");
    onNewThread([] { EXPECT_EQ(CO_E_NOTINITIALIZED, initialiseSecurity()); });
    for (HRESULT expected : {S_OK, RPC_E_TOO_LATE}) {
        onNewThread([expected] {
            MtaScope mta;
            EXPECT_EQ(expected, initialiseSecurity());
        });
    }
}
