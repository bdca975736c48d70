// The server object: activation, status, the group rules and the control surface's failures.
#include "SimFixture.h"

namespace {

ULONGLONG ticks(const FILETIME& ft) { return (ULONGLONG(ft.dwHighDateTime) << 32) | ft.dwLowDateTime; }

TEST_F(SimTest, ActivatesByEitherProgIdRefusesAggregationAndOffersItsInterfaces) {
    const std::u16string clsidText = wide(kSimClsidText);
    for (const char16_t* name : {u"Velmora.Simulation.1", u"Velmora.Simulation", clsidText.c_str()}) {
        CLSID clsid{};
        ASSERT_EQ(S_OK, CLSIDFromString(name, &clsid));
        EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_VelmoraSimulation));
    }
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, CoGetClassObject(CLSID_VelmoraSimulation, 21, nullptr, IID_IClassFactory, factory.putVoid()));
    ComPtr<IUnknown> object;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(server.get(), IID_IUnknown, object.putVoid()));
    EXPECT_EQ(nullptr, object.get());
    SimFailNext("IClassFactory::CreateInstance", E_ACCESSDENIED, 1);
    EXPECT_EQ(E_ACCESSDENIED, factory->CreateInstance(nullptr, IID_IOPCServer, object.putVoid()));
    EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IOPCServer, object.putVoid()));
    EXPECT_EQ(2, SimLiveObjects("server"));
    object.reset();
    EXPECT_EQ(1, SimLiveObjects("server"));

    for (const IID* iid : {&IID_IOPCCommon, &IID_IConnectionPointContainer, &IID_IOPCItemProperties,
                           &IID_IOPCBrowseServerAddressSpace, &IID_IOPCBrowse, &IID_IOPCSecurityNT}) {
        EXPECT_EQ(S_OK, server->QueryInterface(*iid, object.putVoid()));
    }
    EXPECT_EQ(E_NOINTERFACE, server->QueryInterface(IID_IOPCItemMgt, object.putVoid()));
    // Logon checks the password; in process nothing else stands in its way.
    auto logon = as<IOPCSecurityPrivate>(server.get(), IID_IOPCSecurityPrivate);
    EXPECT_EQ(E_ACCESSDENIED, logon->Logon(u"operator", u"wrong"));
    EXPECT_EQ(S_OK, logon->Logon(u"operator", u"secret"));
    EXPECT_STREQ("user=operator", SimLastCallArgs("IOPCSecurityPrivate::Logon"));
}

TEST_F(SimTest, StatusCountsGroupsAndFailsOnceOrUntilCleared) {
    auto g1 = addGroup(u"G1");
    auto g2 = addGroup(u"G2");
    TaskMem<OPCSERVERSTATUS> status;
    SimSetNullResults("IOPCServer::GetStatus", 1);
    ASSERT_EQ(S_OK, server->GetStatus(status.put()));
    EXPECT_EQ(OPC_STATUS_RUNNING, status.get()->dwServerState);
    EXPECT_EQ(2u, status.get()->dwGroupCount);
    EXPECT_LE(ticks(status.get()->ftStartTime), ticks(status.get()->ftCurrentTime));
    EXPECT_EQ(nullptr, status.get()->szVendorInfo);

    SimFailNext("IOPCServer::GetStatus", E_FAIL, -1);
    for (int i = 0; i < 3; ++i) {
        OPCSERVERSTATUS* failed = reinterpret_cast<OPCSERVERSTATUS*>(1);
        EXPECT_EQ(E_FAIL, server->GetStatus(&failed));
        EXPECT_EQ(nullptr, failed);
    }
    SimFailNext("IOPCServer::GetStatus", E_FAIL, 0);
    ASSERT_EQ(S_OK, server->GetStatus(status.put()));
    EXPECT_EQ(5, SimCallCount("IOPCServer::GetStatus"));
}

TEST_F(SimTest, AddGroupRevisesRatesRefusesDuplicatesAndRecordsArguments) {
    OPCHANDLE h1 = 0, h2 = 0;
    DWORD revised = 0;
    FLOAT deadband = 0;
    LONG bias = 60;
    ComPtr<IUnknown> g1, g2, g3;
    auto add = [&](const char16_t* name, BOOL active, DWORD rate, LONG* timeBias, const IID& iid,
                   ComPtr<IUnknown>* out) {
        return server->AddGroup(name, active, rate, 5, timeBias, &deadband, 1031, &h2, &revised, iid, out->put());
    };
    EXPECT_EQ(S_OK, server->AddGroup(u"G1", TRUE, 1000, 5, nullptr, &deadband, 1033, &h1, &revised, IID_IUnknown,
                                     g1.put()));
    EXPECT_EQ(1000u, revised);
    EXPECT_STREQ("name=G1 active=1 rate=1000 clientHandle=5 timeBias=null deadband=0 lcid=1033",
                 SimLastCallArgs("IOPCServer::AddGroup"));
    EXPECT_EQ(OPC_E_DUPLICATENAME, add(u"G1", TRUE, 1000, nullptr, IID_IUnknown, &g2));
    EXPECT_EQ(nullptr, g2.get());
    EXPECT_EQ(OPC_S_UNSUPPORTEDRATE, add(u"", FALSE, 333, &bias, IID_IOPCGroupStateMgt, &g2));
    EXPECT_EQ(340u, revised);
    EXPECT_NE(h1, h2);
    EXPECT_STREQ("name= active=0 rate=333 clientHandle=5 timeBias=60 deadband=0 lcid=1031",
                 SimLastCallArgs("IOPCServer::AddGroup"));
    EXPECT_EQ(OPC_S_UNSUPPORTEDRATE, add(u"", TRUE, 0, nullptr, IID_IUnknown, &g3));
    EXPECT_EQ(10u, revised);

    // Generated names are unique and findable; a refused interface or a deadband beyond 100 % adds nothing.
    auto state = as<IOPCGroupStateMgt>(g2.get(), IID_IOPCGroupStateMgt);
    DWORD rate; BOOL active; LPWSTR name = nullptr; LONG timeBias; FLOAT db; DWORD lcid; OPCHANDLE hc, hs;
    ASSERT_EQ(S_OK, state->GetState(&rate, &active, &name, &timeBias, &db, &lcid, &hc, &hs));
    const std::u16string generated = take(name);
    EXPECT_FALSE(generated.empty());
    EXPECT_EQ(60, timeBias);
    EXPECT_EQ(FALSE, active);
    ComPtr<IUnknown> found;
    EXPECT_EQ(S_OK, server->GetGroupByName(generated.c_str(), IID_IUnknown, found.put()));
    EXPECT_EQ(E_INVALIDARG, server->GetGroupByName(u"nope", IID_IUnknown, found.put()));
    EXPECT_EQ(E_NOINTERFACE, add(u"G8", TRUE, 1000, nullptr, IID_IOPCServer, &found));
    EXPECT_EQ(3, SimLiveObjects("group"));
    deadband = 101;
    EXPECT_EQ(E_INVALIDARG, add(u"G8", TRUE, 1000, nullptr, IID_IUnknown, &found));

    // SetName follows the same rule, and rates set later are revised alike.
    EXPECT_EQ(OPC_E_DUPLICATENAME, state->SetName(u"G1"));
    EXPECT_EQ(S_OK, state->SetName(u"Renamed"));
    DWORD requested = 333;
    EXPECT_EQ(OPC_S_UNSUPPORTEDRATE,
              state->SetState(&requested, &revised, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(340u, revised);
}

TEST_F(SimTest, RemoveGroupIsInUseWhileReferencedAndGoesWithTheLastReference) {
    OPCHANDLE handle = 0;
    auto group = addGroup(u"G1", 1000, &handle);
    EXPECT_EQ(OPC_S_INUSE, server->RemoveGroup(handle, FALSE));
    EXPECT_EQ(1, SimLiveObjects("group"));
    EXPECT_EQ(E_INVALIDARG, server->RemoveGroup(handle, FALSE));  // already gone from the server
    EXPECT_EQ(E_INVALIDARG, server->RemoveGroup(4711, TRUE));
    group.reset();
    EXPECT_EQ(0, SimLiveObjects("group"));

    // The name is free again; force removes while referenced without OPC_S_INUSE.
    group = addGroup(u"G1", 1000, &handle);
    EXPECT_EQ(S_OK, server->RemoveGroup(handle, TRUE));
    group = addGroup(u"G2", 1000, &handle);
    group.reset();
    EXPECT_EQ(1, SimLiveObjects("group"));  // the server still holds it
    EXPECT_EQ(S_OK, server->RemoveGroup(handle, FALSE));
    EXPECT_EQ(0, SimLiveObjects("group"));

    // Groups still on the server go with the server.
    addGroup(u"G3");
    server.reset();
    EXPECT_EQ(0, SimLiveObjects(nullptr));
}

}  // namespace
