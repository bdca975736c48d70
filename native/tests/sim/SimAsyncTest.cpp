// Callbacks on the server's thread: subscriptions, asynchronous read, write and cancel, the
// shutdown request; and browsing the address space.
#include "SimSink.h"

namespace {

TEST_F(SimTest, SubscriptionAndAsyncRequestsCompleteOnTheServerThread) {
    auto group = addGroup(u"G", 10);
    const auto h = addItems(group.get(), {"Simulation.Static.R8", "Simulation.Array.BSTR"});
    ComPtr<IOPCAsyncIO2> io;
    ASSERT_EQ(S_OK, group->QueryInterface(IID_IOPCAsyncIO2, io.putVoid()));
    DWORD cancel = 0;
    HRESULT* errors = nullptr;
    OPCHANDLE handles[] = {h[0], h[1], 4242};
    EXPECT_EQ(CONNECT_E_NOCONNECTION, io->Read(2, handles, 1, &cancel, &errors));

    auto* sink = new Sink();
    ComPtr<IConnectionPoint> point;
    const DWORD cookie = connect(group.get(), IID_IOPCDataCallback, static_cast<IOPCDataCallback*>(sink), &point);
    EXPECT_NE(0u, cookie);

    Sink::Call call;
    ASSERT_TRUE(sink->waitFor("data", &call));
    EXPECT_EQ(0u, call.transaction);
    EXPECT_EQ(77u, call.group);
    EXPECT_EQ((std::vector<OPCHANDLE>{100, 101}), call.clients);
    EXPECT_EQ((std::vector<VARTYPE>{VT_R8, VT_ARRAY | VT_BSTR}), call.types);
    EXPECT_NE(std::this_thread::get_id(), call.thread);

    ASSERT_EQ(S_FALSE, io->Read(3, handles, 42, &cancel, &errors));
    EXPECT_EQ(OPC_E_INVALIDHANDLE, errors[2]);
    CoTaskMemFree(errors);
    ASSERT_TRUE(sink->waitFor("read", &call));
    EXPECT_EQ(42u, call.transaction);
    EXPECT_EQ((std::vector<HRESULT>{S_OK, S_OK}), call.errors);
    EXPECT_NE(std::this_thread::get_id(), call.thread);

    VARIANT value; VariantInit(&value);
    value.vt = VT_I4;
    value.lVal = 9;
    ASSERT_EQ(S_OK, io->Write(1, handles, &value, 43, &cancel, &errors));
    CoTaskMemFree(errors);
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
    point.reset();
    sink->Release();
}

TEST_F(SimTest, ShutdownRequestReachesConnectedSinksUntilUnadvised) {
    auto* sink = new Sink();
    ComPtr<IConnectionPoint> point;
    ComPtr<IConnectionPointContainer> cpc;
    ASSERT_EQ(S_OK, server->QueryInterface(IID_IConnectionPointContainer, cpc.putVoid()));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, cpc->FindConnectionPoint(IID_IOPCDataCallback, point.put()));
    const DWORD cookie = connect(server.get(), IID_IOPCShutdown, static_cast<IOPCShutdown*>(sink), &point);
    EXPECT_EQ(1, SimShutdown("maintenance"));
    EXPECT_EQ(1, SimShutdown(nullptr));
    EXPECT_EQ((std::vector<std::u16string>{u"maintenance", u"<null>"}), sink->reasons());
    SimFailNext("IConnectionPoint::Advise", CONNECT_E_ADVISELIMIT, 1);
    DWORD second = 7;
    EXPECT_EQ(CONNECT_E_ADVISELIMIT, point->Advise(static_cast<IOPCShutdown*>(sink), &second));
    EXPECT_EQ(0u, second);
    ASSERT_EQ(S_OK, point->Unadvise(cookie));
    EXPECT_EQ(0, SimShutdown("again"));
    sink->Release();
}

std::vector<std::u16string> drain(IEnumString* names) {
    std::vector<std::u16string> out;
    LPOLESTR text = nullptr;
    ULONG fetched = 0;
    while (names->Next(1, &text, &fetched) == S_OK) {
        out.emplace_back(text);
        CoTaskMemFree(text);
    }
    names->Release();
    return out;
}

TEST_F(SimTest, BrowsingWalksBranchesAndLeaves) {
    ComPtr<IOPCBrowseServerAddressSpace> browse;
    ASSERT_EQ(S_OK, server->QueryInterface(IID_IOPCBrowseServerAddressSpace, browse.putVoid()));
    IEnumString* names = nullptr;
    ASSERT_EQ(S_OK, browse->BrowseOPCItemIDs(OPC_BRANCH, u"", VT_EMPTY, 0, &names));
    EXPECT_EQ((std::vector<std::u16string>{u"Bench", u"Simulation"}), drain(names));
    EXPECT_EQ(E_FAIL, browse->ChangeBrowsePosition(OPC_BROWSE_UP, u""));
    EXPECT_EQ(E_INVALIDARG, browse->ChangeBrowsePosition(OPC_BROWSE_DOWN, u"Nowhere"));
    ASSERT_EQ(S_OK, browse->ChangeBrowsePosition(OPC_BROWSE_TO, u"Simulation.Access"));
    ASSERT_EQ(S_OK, browse->BrowseOPCItemIDs(OPC_LEAF, u"", VT_EMPTY, OPC_WRITEABLE, &names));
    EXPECT_EQ(std::vector<std::u16string>{u"WriteOnly"}, drain(names));
    LPWSTR id = nullptr;
    ASSERT_EQ(S_OK, browse->GetItemID(const_cast<LPWSTR>(u"ReadOnly"), &id));
    EXPECT_EQ(u"Simulation.Access.ReadOnly", std::u16string(id));
    CoTaskMemFree(id);
    ASSERT_EQ(S_OK, browse->ChangeBrowsePosition(OPC_BROWSE_UP, u""));
    ASSERT_EQ(S_OK, browse->BrowseOPCItemIDs(OPC_FLAT, u"*.R?", VT_R8, 0, &names));
    EXPECT_EQ((std::vector<std::u16string>{u"Simulation.Ramp.R8", u"Simulation.Random.R8", u"Simulation.Sine.R8",
                                         u"Simulation.Static.R8"}),
              drain(names));
    EXPECT_EQ(S_FALSE, browse->BrowseOPCItemIDs(OPC_LEAF, u"", VT_EMPTY, 0, &names));
    EXPECT_TRUE(drain(names).empty());
}

TEST_F(SimTest, BrowseAnswersInPortionsWithPropertiesOfItems) {
    ComPtr<IOPCBrowse> browse;
    ASSERT_EQ(S_OK, server->QueryInterface(IID_IOPCBrowse, browse.putVoid()));
    SimSetBrowsePortion(3);
    DWORD ids[] = {OPC_PROPERTY_DATATYPE, OPC_PROPERTY_ACCESS_RIGHTS};
    LPWSTR continuation = const_cast<LPWSTR>(u"");
    LPWSTR toFree = nullptr;
    BOOL more = TRUE;
    int calls = 0;
    std::vector<std::u16string> names;
    while (more) {
        DWORD count = 0;
        OPCBROWSEELEMENT* elements = nullptr;
        ASSERT_TRUE(SUCCEEDED(browse->Browse(const_cast<LPWSTR>(u"Simulation.Access"), &continuation, 0,
                                             OPC_BROWSE_FILTER_ALL, const_cast<LPWSTR>(u""),
                                             const_cast<LPWSTR>(u""), FALSE, TRUE, 2, ids, &more, &count, &elements)));
        CoTaskMemFree(toFree);
        toFree = continuation;
        ++calls;
        for (DWORD i = 0; i < count; ++i) {
            OPCBROWSEELEMENT& e = elements[i];
            names.emplace_back(e.szName);
            EXPECT_EQ(OPC_BROWSE_ISITEM, int(e.dwFlagValue));
            ASSERT_EQ(2u, e.ItemProperties.dwNumProperties);
            EXPECT_EQ(VT_R8, e.ItemProperties.pItemProperties[0].vValue.iVal);
            const LONG rights = e.ItemProperties.pItemProperties[1].vValue.lVal;
            EXPECT_EQ(names.back() == u"ReadOnly" ? OPC_READABLE : OPC_WRITEABLE, rights);
            CoTaskMemFree(e.szName);
            CoTaskMemFree(e.szItemID);
            for (DWORD p = 0; p < e.ItemProperties.dwNumProperties; ++p) {
                CoTaskMemFree(e.ItemProperties.pItemProperties[p].szDescription);
                VariantClear(&e.ItemProperties.pItemProperties[p].vValue);
            }
            CoTaskMemFree(e.ItemProperties.pItemProperties);
        }
        CoTaskMemFree(elements);
    }
    CoTaskMemFree(toFree);
    EXPECT_EQ(1, calls);  // two items fit one portion of three
    EXPECT_EQ((std::vector<std::u16string>{u"ReadOnly", u"WriteOnly"}), names);

    SimSetBrowsePortion(1);
    continuation = const_cast<LPWSTR>(u"");
    DWORD count = 0;
    OPCBROWSEELEMENT* elements = nullptr;
    ASSERT_EQ(S_OK, browse->Browse(const_cast<LPWSTR>(u""), &continuation, 0, OPC_BROWSE_FILTER_BRANCHES,
                                   const_cast<LPWSTR>(u""), const_cast<LPWSTR>(u""), FALSE, FALSE, 0, nullptr, &more,
                                   &count, &elements));
    EXPECT_EQ(TRUE, more);
    EXPECT_EQ(u"1", std::u16string(continuation));
    EXPECT_EQ(u"Bench", std::u16string(elements[0].szName));
    EXPECT_EQ(OPC_BROWSE_HASCHILDREN, int(elements[0].dwFlagValue));
    EXPECT_EQ(0u, elements[0].ItemProperties.dwNumProperties);
    CoTaskMemFree(elements[0].szName);
    CoTaskMemFree(elements[0].szItemID);
    CoTaskMemFree(elements);
    LPWSTR bad = continuation;
    CoTaskMemFree(bad);
    continuation = const_cast<LPWSTR>(u"99");
    EXPECT_EQ(OPC_E_INVALIDCONTINUATIONPOINT,
              browse->Browse(const_cast<LPWSTR>(u""), &continuation, 0, OPC_BROWSE_FILTER_ALL, const_cast<LPWSTR>(u""),
                             const_cast<LPWSTR>(u""), FALSE, FALSE, 0, nullptr, &more, &count, &elements));
}

TEST_F(SimTest, SubscriptionSendsChangesOnlyForActiveItemsOfAnActiveEnabledGroup) {
    auto group = addGroup(u"G", 10);
    const auto h = addItems(group.get(), {"Simulation.Static.I4", "Simulation.Static.R4"});
    auto* sink = new Sink();
    ComPtr<IConnectionPoint> point;
    const DWORD cookie = connect(group.get(), IID_IOPCDataCallback, static_cast<IOPCDataCallback*>(sink), &point);
    Sink::Call call;
    ASSERT_TRUE(sink->waitFor("data", &call));
    EXPECT_EQ(2u, call.clients.size());
    sink->Release();

    // A second sink sees only what changes after it connected: the written item, once.
    auto* later = new Sink();
    ComPtr<IConnectionPoint> point2;
    const DWORD cookie2 = connect(group.get(), IID_IOPCDataCallback, static_cast<IOPCDataCallback*>(later), &point2);
    ComPtr<IOPCSyncIO> io;
    group->QueryInterface(IID_IOPCSyncIO, io.putVoid());
    VARIANT value; VariantInit(&value);
    value.vt = VT_I4;
    value.lVal = 5;
    HRESULT* errors = nullptr;
    OPCHANDLE first[] = {h[0]};
    ASSERT_EQ(S_OK, io->Write(1, first, &value, &errors));
    CoTaskMemFree(errors);
    ASSERT_TRUE(later->waitFor("data", &call));
    EXPECT_EQ(std::vector<OPCHANDLE>{100}, call.clients);

    // Switched off, the group answers refreshes with E_FAIL and sends nothing.
    ComPtr<IOPCGroupStateMgt> state;
    group->QueryInterface(IID_IOPCGroupStateMgt, state.putVoid());
    BOOL off = FALSE;
    DWORD revised = 0;
    ASSERT_EQ(S_OK, state->SetState(nullptr, &revised, &off, nullptr, nullptr, nullptr, nullptr));
    ComPtr<IOPCAsyncIO2> async;
    group->QueryInterface(IID_IOPCAsyncIO2, async.putVoid());
    DWORD cancel = 0;
    EXPECT_EQ(E_FAIL, async->Refresh2(OPC_DS_DEVICE, 9, &cancel));
    BOOL enabled = FALSE;
    EXPECT_EQ(S_OK, async->GetEnable(&enabled));
    EXPECT_EQ(TRUE, enabled);

    EXPECT_EQ(S_OK, point->Unadvise(cookie));
    EXPECT_EQ(S_OK, point2->Unadvise(cookie2));
    EXPECT_EQ(CONNECT_E_NOCONNECTION, async->GetEnable(&enabled));
    later->Release();
}

}  // namespace
