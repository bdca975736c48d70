// Callbacks on the server's thread: subscriptions, asynchronous read, write and cancel, the
// shutdown request; and browsing the address space.
#include "SimFixture.h"

namespace {

TEST_F(SimTest, SubscriptionAndAsyncRequestsCompleteOnTheServerThread) {
    auto group = addGroup(u"G", 10);
    const auto h = addItems(group.get(), {"Simulation.Static.R8", "Simulation.Array.BSTR"});
    auto io = as<IOPCAsyncIO2>(group.get(), IID_IOPCAsyncIO2);
    DWORD cancel = 0;
    TaskMem<HRESULT> errors;
    OPCHANDLE handles[] = {h[0], h[1], 4242};
    EXPECT_EQ(CONNECT_E_NOCONNECTION, io->Read(2, handles, 1, &cancel, errors.put()));

    ComPtr<IConnectionPoint> point;
    DWORD cookie = 0;
    Sink* sink = connect(group.get(), IID_IOPCDataCallback, &point, &cookie);
    EXPECT_NE(0u, cookie);
    Sink::Call call;
    ASSERT_TRUE(sink->waitFor("data", &call));
    EXPECT_EQ(0u, call.transaction);
    EXPECT_EQ(77u, call.group);
    EXPECT_EQ((std::vector<OPCHANDLE>{100, 101}), call.clients);
    EXPECT_EQ((std::vector<VARTYPE>{VT_R8, VT_ARRAY | VT_BSTR}), call.types);
    EXPECT_NE(GetCurrentThreadId(), call.thread);

    ASSERT_EQ(S_FALSE, io->Read(3, handles, 42, &cancel, errors.put()));
    EXPECT_EQ(OPC_E_INVALIDHANDLE, errors.get()[2]);
    ASSERT_TRUE(sink->waitFor("read", &call));
    EXPECT_EQ(42u, call.transaction);
    EXPECT_EQ((std::vector<HRESULT>{S_OK, S_OK}), call.errors);
    EXPECT_NE(GetCurrentThreadId(), call.thread);
    VARIANT value = i4(9);
    ASSERT_EQ(S_OK, io->Write(1, handles, &value, 43, &cancel, errors.put()));
    ASSERT_TRUE(sink->waitFor("write", &call));
    EXPECT_EQ(43u, call.transaction);
    EXPECT_EQ(std::vector<HRESULT>{S_OK}, call.errors);

    // A delayed request can be cancelled; a finished one cannot.
    SimSetAsyncDelay(500);
    ASSERT_EQ(S_OK, io->Refresh2(OPC_DS_CACHE, 44, &cancel));
    EXPECT_EQ(S_OK, io->Cancel2(cancel));
    ASSERT_TRUE(sink->waitFor("cancel", &call));
    EXPECT_EQ(44u, call.transaction);
    EXPECT_EQ(E_FAIL, io->Cancel2(cancel));
    SimSetAsyncDelay(0);

    EXPECT_EQ(CONNECT_E_NOCONNECTION, point->Unadvise(cookie + 100));
    EXPECT_EQ(S_OK, point->Unadvise(cookie));
    EXPECT_EQ(1, SimLiveObjects("connectionpoint"));
}

TEST_F(SimTest, SubscriptionSendsChangesOnlyForActiveItemsOfAnActiveEnabledGroup) {
    auto group = addGroup(u"G", 10);
    const auto h = addItems(group.get(), {"Simulation.Static.I4", "Simulation.Static.R4"});
    ComPtr<IConnectionPoint> point, point2;
    DWORD cookie = 0, cookie2 = 0;
    Sink::Call call;
    ASSERT_TRUE(connect(group.get(), IID_IOPCDataCallback, &point, &cookie)->waitFor("data", &call));
    EXPECT_EQ(2u, call.clients.size());

    // A second sink sees only what changes after it connected: the written item, once.
    Sink* later = connect(group.get(), IID_IOPCDataCallback, &point2, &cookie2);
    EXPECT_EQ(std::vector<HRESULT>{S_OK}, write(group.get(), {h[0]}, {i4(5)}));
    ASSERT_TRUE(later->waitFor("data", &call));
    EXPECT_EQ(std::vector<OPCHANDLE>{100}, call.clients);

    // Switched off, the group answers refreshes with E_FAIL; enabled stays as it was.
    BOOL off = FALSE;
    DWORD revised = 0;
    ASSERT_EQ(S_OK, as<IOPCGroupStateMgt>(group.get(), IID_IOPCGroupStateMgt)
                        ->SetState(nullptr, &revised, &off, nullptr, nullptr, nullptr, nullptr));
    auto async = as<IOPCAsyncIO2>(group.get(), IID_IOPCAsyncIO2);
    DWORD cancel = 0;
    EXPECT_EQ(E_FAIL, async->Refresh2(OPC_DS_DEVICE, 9, &cancel));
    BOOL enabled = FALSE;
    EXPECT_EQ(S_OK, async->GetEnable(&enabled));
    EXPECT_EQ(TRUE, enabled);
    EXPECT_EQ(S_OK, point->Unadvise(cookie));
    EXPECT_EQ(S_OK, point2->Unadvise(cookie2));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, async->GetEnable(&enabled));
}

TEST_F(SimTest, ShutdownRequestReachesConnectedSinksUntilUnadvised) {
    ComPtr<IConnectionPoint> point;
    EXPECT_EQ(CONNECT_E_NOCONNECTION, as<IConnectionPointContainer>(server.get(), IID_IConnectionPointContainer)
                                          ->FindConnectionPoint(IID_IOPCDataCallback, point.put()));
    DWORD cookie = 0;
    Sink* sink = connect(server.get(), IID_IOPCShutdown, &point, &cookie);
    EXPECT_EQ(1, SimShutdown("maintenance"));
    EXPECT_EQ(1, SimShutdown(nullptr));
    EXPECT_EQ((std::vector<std::u16string>{u"maintenance", u"<null>"}), sink->reasons());
    SimFailNext("IConnectionPoint::Advise", CONNECT_E_ADVISELIMIT, 1);
    DWORD second = 7;
    EXPECT_EQ(CONNECT_E_ADVISELIMIT, point->Advise(static_cast<IOPCShutdown*>(sink), &second));
    EXPECT_EQ(0u, second);
    ASSERT_EQ(S_OK, point->Unadvise(cookie));
    EXPECT_EQ(0, SimShutdown("again"));
}

TEST_F(SimTest, BrowsingByPositionAndInPortionsWithContinuationPoints) {
    auto position = as<IOPCBrowseServerAddressSpace>(server.get(), IID_IOPCBrowseServerAddressSpace);
    EXPECT_EQ(E_FAIL, position->ChangeBrowsePosition(OPC_BROWSE_UP, u""));
    ASSERT_EQ(S_OK, position->ChangeBrowsePosition(OPC_BROWSE_TO, u"Simulation.Access"));
    IEnumString* names = nullptr;
    ASSERT_EQ(S_OK, position->BrowseOPCItemIDs(OPC_LEAF, u"", VT_EMPTY, OPC_WRITEABLE, &names));
    LPOLESTR name = nullptr;
    ULONG fetched = 0;
    ASSERT_EQ(S_OK, names->Next(1, &name, &fetched));
    EXPECT_EQ(u"WriteOnly", take(name));  // the rights filter leaves the read-only item out
    EXPECT_EQ(S_FALSE, names->Next(1, &name, &fetched));
    names->Release();

    auto browse = as<IOPCBrowse>(server.get(), IID_IOPCBrowse);
    SimSetBrowsePortion(1);
    LPWSTR continuation = const_cast<LPWSTR>(u"");
    BOOL more = FALSE;
    DWORD count = 0;
    TaskMem<OPCBROWSEELEMENT> elements;
    ASSERT_EQ(S_OK, browse->Browse(const_cast<LPWSTR>(u""), &continuation, 0, OPC_BROWSE_FILTER_BRANCHES,
                                   const_cast<LPWSTR>(u""), const_cast<LPWSTR>(u""), FALSE, FALSE, 0, nullptr, &more,
                                   &count, elements.put()));
    EXPECT_EQ(TRUE, more);
    EXPECT_EQ(u"1", take(continuation));
    EXPECT_EQ(u"Bench", take(elements.get()[0].szName));
    CoTaskMemFree(elements.get()[0].szItemID);
    continuation = const_cast<LPWSTR>(u"99");
    EXPECT_EQ(OPC_E_INVALIDCONTINUATIONPOINT,
              browse->Browse(const_cast<LPWSTR>(u""), &continuation, 0, OPC_BROWSE_FILTER_ALL, const_cast<LPWSTR>(u""),
                             const_cast<LPWSTR>(u""), FALSE, FALSE, 0, nullptr, &more, &count, elements.put()));
}

TEST_F(SimTest, BenchBranchLeavesExistOnlyWhileSetAndAnswerInPortions) {
    auto position = as<IOPCBrowseServerAddressSpace>(server.get(), IID_IOPCBrowseServerAddressSpace);
    EXPECT_EQ(E_INVALIDARG, position->ChangeBrowsePosition(OPC_BROWSE_TO, u"Bench.Many"));
    SimSetBenchBranch(3);
    ASSERT_EQ(S_OK, position->ChangeBrowsePosition(OPC_BROWSE_TO, u"Bench.Many"));
    IEnumString* names = nullptr;
    ASSERT_EQ(S_OK, position->BrowseOPCItemIDs(OPC_LEAF, u"", VT_EMPTY, 0, &names));
    LPOLESTR name = nullptr;
    ULONG fetched = 0;
    std::vector<std::u16string> leaves;
    while (names->Next(1, &name, &fetched) == S_OK) leaves.push_back(take(name));
    names->Release();
    EXPECT_EQ((std::vector<std::u16string>{u"0", u"1", u"2"}), leaves);
    LPWSTR id = nullptr;
    ASSERT_EQ(S_OK, position->GetItemID(const_cast<LPWSTR>(u"2"), &id));
    EXPECT_EQ(u"Bench.Many.2", take(id));
    EXPECT_EQ(E_INVALIDARG, position->GetItemID(const_cast<LPWSTR>(u"3"), &id));

    auto browse = as<IOPCBrowse>(server.get(), IID_IOPCBrowse);
    SimSetBrowsePortion(2);
    LPWSTR continuation = const_cast<LPWSTR>(u"");
    BOOL more = FALSE;
    DWORD count = 0;
    TaskMem<OPCBROWSEELEMENT> elements;
    DWORD ids[] = {OPC_PROPERTY_DATATYPE};
    ASSERT_EQ(S_OK, browse->Browse(const_cast<LPWSTR>(u"Bench.Many"), &continuation, 0, OPC_BROWSE_FILTER_ALL,
                                   const_cast<LPWSTR>(u""), const_cast<LPWSTR>(u""), FALSE, TRUE, 1, ids, &more, &count,
                                   elements.put()));
    ASSERT_EQ(2u, count);
    EXPECT_EQ(TRUE, more);
    EXPECT_EQ(u"Bench.Many.1", take(elements.get()[1].szItemID));
    OPCITEMPROPERTIES& properties = elements.get()[1].ItemProperties;
    EXPECT_EQ(VT_R8, static_cast<VARTYPE>(properties.pItemProperties[0].vValue.iVal));
    for (DWORD i = 0; i < count; ++i) {
        CoTaskMemFree(elements.get()[i].szName);
        if (i == 0) CoTaskMemFree(elements.get()[i].szItemID);
        for (DWORD p = 0; p < elements.get()[i].ItemProperties.dwNumProperties; ++p) {
            CoTaskMemFree(elements.get()[i].ItemProperties.pItemProperties[p].szItemID);
            CoTaskMemFree(elements.get()[i].ItemProperties.pItemProperties[p].szDescription);
            VariantClear(&elements.get()[i].ItemProperties.pItemProperties[p].vValue);
        }
        CoTaskMemFree(elements.get()[i].ItemProperties.pItemProperties);
    }
    EXPECT_EQ(u"2", take(continuation));
    SimReset();
    EXPECT_EQ(E_INVALIDARG, position->ChangeBrowsePosition(OPC_BROWSE_TO, u"Bench.Many"));
}

}  // namespace
