// A server process that dies: killed while its subscription delivers and while a call is under
// way, it leaves this process running; every later call through its proxies fails with an RPC
// disconnection HRESULT, the proxies still release cleanly, and a restarted server serves again.
#include "OutOfProcess.h"

#include <atomic>

namespace outproc {
namespace {

std::vector<std::wstring> benchItems(int count) {
    std::vector<std::wstring> ids;
    for (int i = 0; i < count; ++i) ids.push_back(L"Bench.R8." + std::to_wstring(i));
    return ids;
}

// Every call on the dead server's objects fails as a disconnection.
void expectDisconnected(IOPCServer* server, IOPCSyncIO* sync, Group& group) {
    OPCSERVERSTATUS* status = nullptr;
    HRESULT hr = server->GetStatus(&status);
    EXPECT_TRUE(isDisconnection(hr)) << std::hex << hr;
    EXPECT_EQ(nullptr, status);
    OPCITEMSTATE* states = nullptr;
    HRESULT* errors = nullptr;
    hr = sync->Read(OPC_DS_CACHE, 1, group.items.data(), &states, &errors);
    EXPECT_TRUE(isDisconnection(hr)) << std::hex << hr;
    EXPECT_EQ(nullptr, states);
    hr = server->RemoveGroup(group.serverHandle, TRUE);
    EXPECT_TRUE(isDisconnection(hr)) << std::hex << hr;
}

TEST_F(OutOfProcessTest, KilledMidSubscriptionAndMidCallThreeTimesInARow) {
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        // Mid-subscription: updates are arriving when the process goes.
        {
            ServerProcess process;
            ASSERT_TRUE(process.start());
            ComPtr<IOPCServer> server = activate();
            ASSERT_TRUE(server);
            Group group(server.get(), L"doomed", 20, {L"Simulation.Ramp.I4", L"Simulation.Sine.R8"});
            auto sink = ComPtr<Sink>::attach(new Sink);
            const DWORD cookie = advise(group.unknown.get(), IID_IOPCDataCallback, static_cast<IOPCDataCallback*>(sink.get()));
            ASSERT_NE(0u, cookie);
            Sink::Call call;
            ASSERT_TRUE(sink->waitFor("data", &call, 3));
            auto sync = as<IOPCSyncIO>(group.unknown.get(), IID_IOPCSyncIO);
            process.kill();
            expectDisconnected(server.get(), sync.get(), group);
            // A proxy can no longer learn new interfaces from the dead object.
            ComPtr<IOPCGroupStateMgt> state;
            EXPECT_TRUE(FAILED(group.unknown->QueryInterface(IID_IOPCGroupStateMgt, state.putVoid())));
            const HRESULT hr = unadvise(group.unknown.get(), IID_IOPCDataCallback, cookie);
            EXPECT_TRUE(isDisconnection(hr)) << std::hex << hr;
            // Releasing dead proxies returns; the server's references on the sink are gone with it.
            sync.reset();
            group.unknown.reset();
            server.reset();
        }
        // Mid-call: another thread reads 5000 items over and over; the process goes while it does.
        {
            ServerProcess process;
            ASSERT_TRUE(process.start());
            ComPtr<IOPCServer> server = activate();
            ASSERT_TRUE(server);
            Group group(server.get(), L"busy", 1000, benchItems(5000));
            ASSERT_EQ(5000u, group.items.size());
            ComPtr<IOPCSyncIO> sync = as<IOPCSyncIO>(group.unknown.get(), IID_IOPCSyncIO);
            std::atomic<int> reads{0};
            std::atomic<HRESULT> failure{S_OK};
            std::thread reader([&] {
                CoInitializeEx(nullptr, COINIT_MULTITHREADED);
                const auto giveUp = std::chrono::steady_clock::now() + 30s;
                while (std::chrono::steady_clock::now() < giveUp) {
                    OPCITEMSTATE* states = nullptr;
                    HRESULT* errors = nullptr;
                    const HRESULT hr = sync->Read(OPC_DS_DEVICE, DWORD(group.items.size()), group.items.data(),
                                                  &states, &errors);
                    if (FAILED(hr)) {
                        failure = hr;
                        break;
                    }
                    for (size_t i = 0; i < group.items.size(); ++i) VariantClear(&states[i].vDataValue);
                    CoTaskMemFree(states);
                    CoTaskMemFree(errors);
                    ++reads;
                }
                CoUninitialize();
            });
            while (reads < 2) std::this_thread::sleep_for(5ms);
            const auto killed = std::chrono::steady_clock::now();
            process.kill();
            reader.join();
            EXPECT_LT(std::chrono::steady_clock::now() - killed, 30s);
            EXPECT_TRUE(isDisconnection(failure)) << std::hex << HRESULT(failure);
            expectDisconnected(server.get(), sync.get(), group);
            sync.reset();
            group.unknown.reset();
            server.reset();
        }
        // Restarted, the server serves again.
        {
            ServerProcess process;
            ASSERT_TRUE(process.start());
            ComPtr<IOPCServer> server = activate();
            ASSERT_TRUE(server);
            OPCSERVERSTATUS* status = nullptr;
            ASSERT_EQ(S_OK, server->GetStatus(&status));
            EXPECT_EQ(OPC_STATUS_RUNNING, status->dwServerState);
            CoTaskMemFree(status->szVendorInfo);
            CoTaskMemFree(status);
            server.reset();
            EXPECT_EQ(0, process.exitCode()) << serverProcesses() << " server processes";
        }
    }
}

}  // namespace
}  // namespace outproc
