// The controls that shape how the server calls its clients back: completion on the caller's
// thread, write completions on demand, items that change at every update, and the counts of
// connections and callbacks.
#include "SimFixture.h"

#include <algorithm>
#include <atomic>

namespace {

// The value that a call carries for the client handle (fails the test when it carries none).
double numberOf(const Sink::Call& call, OPCHANDLE client) {
    const auto at = std::find(call.clients.begin(), call.clients.end(), client);
    EXPECT_NE(call.clients.end(), at) << "client handle " << client;
    return at == call.clients.end() ? -1 : call.numbers[at - call.clients.begin()];
}

std::u16string textOf(const Sink::Call& call, OPCHANDLE client) {
    const auto at = std::find(call.clients.begin(), call.clients.end(), client);
    return at == call.clients.end() ? u"<none>" : call.texts[at - call.clients.begin()];
}

double readNumber(IUnknown* group, OPCHANDLE handle) {
    ReadResult read(group, {handle});
    EXPECT_EQ(S_OK, read.hr);
    return read.states ? number(read.value(0)) : -1;
}

TEST_F(SimTest, InlineCompletionRunsRequestsOnTheCallerBeforeTheyReturn) {
    auto group = addGroup(u"G", 10);
    const auto h = addItems(group.get(), {"Simulation.Static.I4", "Simulation.Static.R8"});
    auto io = as<IOPCAsyncIO2>(group.get(), IID_IOPCAsyncIO2);
    // A client that calls the group again from inside a completion must not find it locked.
    const auto caller = GetCurrentThreadId();
    ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    Sink* sink = connect(group.get(), IID_IOPCDataCallback, &point, &cookie, [&](const std::string& kind) {
        if (GetCurrentThreadId() == caller && kind != "cancel") {
            EXPECT_EQ(std::vector<HRESULT>{S_OK}, write(group.get(), {h[0]}, {i4(kind == "write" ? 11 : 12)}));
        }
    });

    SimSetInlineCompletion(1);
    SimSetAsyncDelay(500);  // has no say over inline completions
    OPCHANDLE handles[] = {h[0], h[1]};
    DWORD cancel = 0;
    TaskMem<HRESULT> errors;
    ASSERT_EQ(S_OK, io->Read(2, handles, 31, &cancel, errors.put()));
    auto reads = sink->calls("read");
    ASSERT_EQ(1u, reads.size());
    EXPECT_EQ(31u, reads[0].transaction);
    EXPECT_EQ(caller, reads[0].thread);
    EXPECT_NE(0u, cancel);
    EXPECT_EQ(E_FAIL, io->Cancel2(cancel));

    VARIANT v = i4(5);
    ASSERT_EQ(S_OK, io->Write(1, handles, &v, 32, &cancel, errors.put()));
    auto writes = sink->calls("write");
    ASSERT_EQ(1u, writes.size());
    EXPECT_EQ(32u, writes[0].transaction);
    EXPECT_EQ(caller, writes[0].thread);
    EXPECT_EQ(11, readNumber(group.get(), h[0]));  // written from inside the completion, after the request's 5

    ASSERT_EQ(S_OK, io->Refresh2(OPC_DS_DEVICE, 33, &cancel));
    auto refreshed = sink->calls("data");
    const auto mine = std::find_if(refreshed.begin(), refreshed.end(),
                                   [](const Sink::Call& c) { return c.transaction == 33; });
    ASSERT_NE(refreshed.end(), mine);
    EXPECT_EQ(caller, mine->thread);
    EXPECT_EQ(2u, mine->clients.size());
    EXPECT_EQ(1, SimCallbacksMade("OnReadComplete"));
    EXPECT_EQ(1, SimCallbacksMade("OnWriteComplete"));
    EXPECT_TRUE(sink->calls("cancel").empty());

    // Reset returns completions to the server's thread.
    SimReset();
    ASSERT_EQ(S_OK, io->Read(1, handles, 34, &cancel, errors.put()));
    Sink::Call later;
    ASSERT_TRUE(sink->waitFor("read", &later, 2));
    EXPECT_EQ(34u, later.transaction);
    EXPECT_NE(caller, later.thread);
    EXPECT_EQ(S_OK, point->Unadvise(cookie));
}

TEST_F(SimTest, WriteCompletionsOnDemandReachTheGroupsHoldingTheItems) {
    // G1 holds R8 (client 100) and I4 (101); G2 holds I4 (100) and BOOL (101); G3 holds BOOL (100).
    auto g1 = addGroup(u"G1", 10);
    auto g2 = addGroup(u"G2", 10);
    auto g3 = addGroup(u"G3", 10);
    addItems(g1.get(), {"Simulation.Static.R8", "Simulation.Static.I4"});
    const auto h2 = addItems(g2.get(), {"Simulation.Static.I4", "Simulation.Static.BOOL"});
    addItems(g3.get(), {"Simulation.Static.BOOL"});
    // Armed later: asks for write completions from inside a callback on the server's own thread,
    // where the request must run at once instead of waiting for that thread.
    struct Inside {
        std::atomic<bool> armed{false};
        std::atomic<int> called{-1};
    };
    auto inside = std::make_shared<Inside>();
    IOPCItemMgt* groups[] = {g1.get(), g1.get(), g2.get(), g3.get()};
    ComPtr<IConnectionPoint> points[4];
    DWORD cookies[4];
    Sink* sinks[4];
    for (int i = 0; i < 4; ++i) {
        sinks[i] = connect(groups[i], IID_IOPCDataCallback, &points[i], &cookies[i],
                           [i, inside](const std::string& kind) {
                               if (i == 3 && kind == "data" && inside->armed.exchange(false)) {
                                   inside->called = SimSendWriteComplete(14, S_OK, "Simulation.Static.BOOL", S_OK);
                               }
                           });
    }

    EXPECT_EQ(3, SimSendWriteComplete(9, S_FALSE, " Simulation.Static.I4 ,Simulation.Static.R8", E_FAIL));
    auto first = sinks[0]->calls("write");  // made before SimSendWriteComplete returned
    ASSERT_EQ(1u, first.size());
    EXPECT_EQ(9u, first[0].transaction);
    EXPECT_EQ(77u, first[0].group);
    EXPECT_EQ(S_FALSE, first[0].masterError);
    EXPECT_EQ((std::vector<OPCHANDLE>{101, 100}), first[0].clients);
    EXPECT_EQ((std::vector<HRESULT>{E_FAIL, E_FAIL}), first[0].errors);
    EXPECT_NE(GetCurrentThreadId(), first[0].thread);
    EXPECT_EQ(1u, sinks[1]->calls("write").size());
    auto second = sinks[2]->calls("write");
    ASSERT_EQ(1u, second.size());
    EXPECT_EQ(std::vector<OPCHANDLE>{100}, second[0].clients);
    EXPECT_TRUE(sinks[3]->calls("write").empty());

    // A removed item no longer counts; unknown or missing ids reach nobody.
    TaskMem<HRESULT> errors;
    OPCHANDLE removed = h2[0];
    ASSERT_EQ(S_OK, g2->RemoveItems(1, &removed, errors.put()));
    EXPECT_EQ(2, SimSendWriteComplete(10, S_OK, "Simulation.Static.I4", S_OK));
    EXPECT_EQ(0, SimSendWriteComplete(11, S_OK, "Simulation.Static.UI4,Nowhere", S_OK));
    EXPECT_EQ(0, SimSendWriteComplete(12, S_OK, "", S_OK));
    EXPECT_EQ(0, SimSendWriteComplete(13, S_OK, nullptr, S_OK));
    EXPECT_EQ(5, SimCallbacksMade("OnWriteComplete"));

    inside->armed = true;
    OPCHANDLE again = 1;  // BOOL in G3: switching it off and on sends its value again
    ASSERT_EQ(S_OK, g3->SetActiveState(1, &again, FALSE, errors.put()));
    ASSERT_EQ(S_OK, g3->SetActiveState(1, &again, TRUE, errors.put()));
    Sink::Call call;
    ASSERT_TRUE(sinks[3]->waitFor("write", &call));
    EXPECT_EQ(14u, call.transaction);
    const auto deadline = std::chrono::steady_clock::now() + 5s;  // the count comes after the calls
    while (inside->called == -1 && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(1ms);
    EXPECT_EQ(2, inside->called.load());  // G2's and G3's sinks
    for (int i = 0; i < 4; ++i) EXPECT_EQ(S_OK, points[i]->Unadvise(cookies[i]));
}

TEST_F(SimTest, ItemsChangingAtEveryUpdateAreSentInEveryUpdate) {
    auto group = addGroup(u"G", 10);
    // Clients 100..106.
    const auto h = addItems(group.get(), {"Bench.R8.1", "Bench.R8.2", "Simulation.Static.I4", "Bench.R8.3",
                                          "Simulation.Static.I1", "Simulation.Static.BOOL", "Simulation.Static.BSTR"});
    TaskMem<HRESULT> errors;
    OPCHANDLE inactive = h[3];
    ASSERT_EQ(S_OK, group->SetActiveState(1, &inactive, FALSE, errors.put()));
    EXPECT_EQ(std::vector<HRESULT>{S_OK}, write(group.get(), {h[4]}, {i4(127)}));
    SimSetChangeEveryTick("Bench.R8.", 1);
    SimSetChangeEveryTick("Simulation.Static.B", 1);
    SimSetChangeEveryTick("Simulation.Static.I1", 1);
    SimSetChangeEveryTick("Simulation.Static.I1", 1);  // once is enough

    ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    Sink* sink = connect(group.get(), IID_IOPCDataCallback, &point, &cookie);
    Sink::Call calls[3];
    for (size_t n = 0; n < 3; ++n) ASSERT_TRUE(sink->waitFor("data", &calls[n], n + 1));
    EXPECT_EQ(6u, calls[0].clients.size());  // all active items, the unchanging one only now
    for (size_t n = 1; n < 3; ++n) {
        auto clients = calls[n].clients;
        std::sort(clients.begin(), clients.end());
        EXPECT_EQ((std::vector<OPCHANDLE>{100, 101, 104, 105, 106}), clients) << "update " << n;
    }
    EXPECT_EQ(2.5, numberOf(calls[0], 100));
    EXPECT_EQ(3.5, numberOf(calls[1], 100));
    EXPECT_EQ(4.5, numberOf(calls[1], 101));
    EXPECT_EQ(-128, numberOf(calls[0], 104));  // wraps within its type
    EXPECT_EQ(-127, numberOf(calls[1], 104));
    EXPECT_EQ(0, numberOf(calls[0], 105));
    EXPECT_EQ(1, numberOf(calls[1], 105));
    EXPECT_EQ(u"hello#1", textOf(calls[0], 106));
    EXPECT_EQ(u"hello#2", textOf(calls[1], 106));
    EXPECT_GT(SimLastTickMicros(), 0.0);
    EXPECT_GE(readNumber(group.get(), h[0]), 4.5);  // reads see the changes

    // Switched off, the items settle: at most one more update each, then silence.
    SimSetChangeEveryTick("Bench.R8.", 0);
    SimSetChangeEveryTick("Simulation.Static.B", 0);
    SimSetChangeEveryTick("Simulation.Static.I1", 0);
    std::this_thread::sleep_for(150ms);
    const size_t settled = sink->calls("data").size();
    std::this_thread::sleep_for(150ms);
    EXPECT_EQ(settled, sink->calls("data").size());
    EXPECT_EQ(S_OK, point->Unadvise(cookie));
    SimReset();
    EXPECT_EQ(1.5, readNumber(group.get(), h[0]));
    EXPECT_EQ(0.0, SimLastTickMicros());
}

TEST_F(SimTest, TenThousandItemsChangeInEveryUpdateAtASmallCostToTheServer) {
    std::vector<std::string> ids;
    for (int n = 0; n < 10000; ++n) ids.push_back("Bench.R8." + std::to_string(n));
    auto group = addGroup(u"G", 10);
    ASSERT_EQ(10000u, addItems(group.get(), ids).size());
    SimSetChangeEveryTick("Bench.R8.", 1);
    ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    Sink* sink = connect(group.get(), IID_IOPCDataCallback, &point, &cookie);
    Sink::Call second, third;
    ASSERT_TRUE(sink->waitFor("data", &second, 2));
    ASSERT_TRUE(sink->waitFor("data", &third, 3));
    ASSERT_EQ(10000u, second.clients.size());
    ASSERT_EQ(10000u, third.clients.size());
    for (size_t i = 0; i < third.clients.size(); i += 997) {
        EXPECT_EQ(second.numbers[i] + 1, third.numbers[i]) << "item " << third.clients[i];
    }
    const double micros = SimLastTickMicros();
    RecordProperty("serverMicrosPerUpdate", std::to_string(micros));
    EXPECT_GT(micros, 0.0);
    EXPECT_LT(micros, 100000.0);  // a tenth of a second would mean work growing faster than the items
    EXPECT_EQ(S_OK, point->Unadvise(cookie));
}

TEST_F(SimTest, ConnectionsAreCountedWhileTheyLiveAndCallbacksUntilReset) {
    EXPECT_EQ(0, SimConnections(nullptr));
    ComPtr<IConnectionPoint> shutdownPoint, p1, p2;
    connect(server.get(), IID_IOPCShutdown, &shutdownPoint);
    OPCHANDLE second = 0;
    auto g1 = addGroup(u"G1", 10);
    auto g2 = addGroup(u"G2", 10, &second);
    addItems(g1.get(), {"Simulation.Static.R8"});
    DWORD c1 = 0;
    Sink* sink = connect(g1.get(), IID_IOPCDataCallback, &p1, &c1);
    connect(g2.get(), IID_IOPCDataCallback, &p2);
    EXPECT_EQ(1, SimConnections("shutdown"));
    EXPECT_EQ(2, SimConnections("datacallback"));
    EXPECT_EQ(3, SimConnections(nullptr));
    EXPECT_EQ(0, SimConnections("bogus"));

    EXPECT_EQ(1, SimShutdown("x"));
    EXPECT_EQ(1, SimCallbacksMade("ShutdownRequest"));
    Sink::Call call;
    ASSERT_TRUE(sink->waitFor("data", &call));
    EXPECT_GE(SimCallbacksMade("OnDataChange"), 1);
    auto io = as<IOPCAsyncIO2>(g1.get(), IID_IOPCAsyncIO2);
    SimSetAsyncDelay(500);
    DWORD cancel = 0;
    ASSERT_EQ(S_OK, io->Refresh2(OPC_DS_CACHE, 5, &cancel));
    ASSERT_EQ(S_OK, io->Cancel2(cancel));
    ASSERT_TRUE(sink->waitFor("cancel", &call));
    EXPECT_EQ(1, SimCallbacksMade("OnCancelComplete"));

    SimReset();  // counts of calls go; live connections stay
    for (const char* method : {"OnDataChange", "OnReadComplete", "OnWriteComplete", "OnCancelComplete",
                               "ShutdownRequest", "Nothing"}) {
        EXPECT_EQ(0, SimCallbacksMade(method)) << method;
    }
    EXPECT_EQ(0, SimCallbacksMade(nullptr));
    EXPECT_EQ(3, SimConnections(nullptr));

    // Connections end by unadvise, with their group, and with their server.
    EXPECT_EQ(S_OK, p1->Unadvise(c1));
    EXPECT_EQ(1, SimConnections("datacallback"));
    ASSERT_TRUE(SUCCEEDED(server->RemoveGroup(second, FALSE)));
    g2.reset();
    p2.reset();
    // An update under way on the server's thread may hold the group a moment longer.
    const auto deadline = std::chrono::steady_clock::now() + 2s;
    while (SimConnections("datacallback") != 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(0, SimConnections("datacallback"));
    io.reset();
    g1.reset();
    p1.reset();
    shutdownPoint.reset();
    server.reset();
    EXPECT_EQ(0, SimConnections(nullptr));
}

}  // namespace
