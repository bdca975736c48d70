// The server object: activation, status, the group rules and the control surface's failures.
#include "SimFixture.h"

#include <cstring>

namespace {

std::u16string take(LPWSTR text) {
    std::u16string out = text ? std::u16string(text) : u"<null>";
    CoTaskMemFree(text);
    return out;
}

ULONGLONG ticks(const FILETIME& ft) { return (ULONGLONG(ft.dwHighDateTime) << 32) | ft.dwLowDateTime; }

TEST_F(SimTest, ActivatesByBothProgIdsAndRefusesAggregation) {
    CLSID byVersion{}, byIndependent{}, byText{};
    ASSERT_EQ(S_OK, CLSIDFromString(OLESTR("Velmora.Simulation.1"), &byVersion));
    ASSERT_EQ(S_OK, CLSIDFromString(OLESTR("Velmora.Simulation"), &byIndependent));
    ASSERT_EQ(S_OK, CLSIDFromString(wide(kSimClsidText).c_str(), &byText));
    EXPECT_TRUE(IsEqualCLSID(byVersion, CLSID_VelmoraSimulation));
    EXPECT_TRUE(IsEqualCLSID(byIndependent, CLSID_VelmoraSimulation));
    EXPECT_TRUE(IsEqualCLSID(byText, CLSID_VelmoraSimulation));

    ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, CoGetClassObject(byVersion, 21, nullptr, IID_IClassFactory, factory.putVoid()));
    ComPtr<IUnknown> outer;
    server->QueryInterface(IID_IUnknown, outer.putVoid());
    ComPtr<IUnknown> object;
    EXPECT_EQ(CLASS_E_NOAGGREGATION, factory->CreateInstance(outer.get(), IID_IUnknown, object.putVoid()));
    EXPECT_EQ(nullptr, object.get());

    SimFailNext("IClassFactory::CreateInstance", E_ACCESSDENIED, 1);
    EXPECT_EQ(E_ACCESSDENIED, factory->CreateInstance(nullptr, IID_IOPCServer, object.putVoid()));
    EXPECT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IOPCServer, object.putVoid()));
    EXPECT_EQ(2, SimLiveObjects("server"));
    object.reset();
    EXPECT_EQ(1, SimLiveObjects("server"));

    // Interfaces of the server object, and one it does not have.
    for (const IID* iid : {&IID_IOPCCommon, &IID_IConnectionPointContainer, &IID_IOPCItemProperties,
                           &IID_IOPCBrowseServerAddressSpace}) {
        ComPtr<IUnknown> other;
        EXPECT_EQ(S_OK, server->QueryInterface(*iid, other.putVoid()));
    }
    EXPECT_EQ(E_NOINTERFACE, server->QueryInterface(IID_IOPCItemMgt, object.putVoid()));
}

TEST_F(SimTest, StatusReportsRunningTimesGroupsAndVendor) {
    OPCSERVERSTATUS* status = nullptr;
    ASSERT_EQ(S_OK, server->GetStatus(&status));
    EXPECT_EQ(OPC_STATUS_RUNNING, status->dwServerState);
    EXPECT_EQ(0u, status->dwGroupCount);
    EXPECT_LE(ticks(status->ftStartTime), ticks(status->ftCurrentTime));
    EXPECT_GT(ticks(status->ftStartTime), 116444736000000000ULL);  // after 1970
    EXPECT_EQ(u"Velmora Simulation Server", std::u16string(status->szVendorInfo));
    CoTaskMemFree(status->szVendorInfo);
    CoTaskMemFree(status);

    auto g1 = addGroup(u"G1");
    auto g2 = addGroup(u"G2");
    SimSetNullResults("IOPCServer::GetStatus", 1);
    ASSERT_EQ(S_OK, server->GetStatus(&status));
    EXPECT_EQ(2u, status->dwGroupCount);
    EXPECT_EQ(nullptr, status->szVendorInfo);
    CoTaskMemFree(status);

    SimFailNext("IOPCServer::GetStatus", E_FAIL, -1);
    for (int i = 0; i < 3; ++i) {
        status = reinterpret_cast<OPCSERVERSTATUS*>(1);
        EXPECT_EQ(E_FAIL, server->GetStatus(&status));
        EXPECT_EQ(nullptr, status);
    }
    SimFailNext("IOPCServer::GetStatus", E_FAIL, 0);
    ASSERT_EQ(S_OK, server->GetStatus(&status));
    CoTaskMemFree(status);
    EXPECT_EQ(6, SimCallCount("IOPCServer::GetStatus"));
}

TEST_F(SimTest, AddGroupRevisesRatesRefusesDuplicatesAndRecordsArguments) {
    OPCHANDLE h1 = 0, h2 = 0;
    DWORD revised = 0;
    FLOAT deadband = 0;
    LONG bias = 60;
    ComPtr<IUnknown> g1, g2, g3;
    EXPECT_EQ(S_OK, server->AddGroup(u"G1", TRUE, 1000, 5, nullptr, &deadband, 1033, &h1, &revised, IID_IUnknown,
                                     g1.put()));
    EXPECT_EQ(1000u, revised);
    EXPECT_STREQ("name=G1 active=1 rate=1000 clientHandle=5 timeBias=null deadband=0 lcid=1033",
                 SimLastCallArgs("IOPCServer::AddGroup"));

    EXPECT_EQ(OPC_E_DUPLICATENAME, server->AddGroup(u"G1", TRUE, 1000, 5, nullptr, &deadband, 1033, &h2, &revised,
                                                    IID_IUnknown, g2.put()));
    EXPECT_EQ(nullptr, g2.get());

    EXPECT_EQ(OPC_S_UNSUPPORTEDRATE, server->AddGroup(u"", FALSE, 333, 6, &bias, &deadband, 1031, &h2, &revised,
                                                      IID_IOPCGroupStateMgt, g2.put()));
    EXPECT_EQ(340u, revised);
    EXPECT_NE(h1, h2);
    EXPECT_STREQ("name= active=0 rate=333 clientHandle=6 timeBias=60 deadband=0 lcid=1031",
                 SimLastCallArgs("IOPCServer::AddGroup"));
    EXPECT_EQ(OPC_S_UNSUPPORTEDRATE, server->AddGroup(u"", TRUE, 0, 7, nullptr, &deadband, 1033, &h2, &revised,
                                                      IID_IUnknown, g3.put()));
    EXPECT_EQ(10u, revised);

    // Generated names are unique and findable; a deadband beyond 100 % is refused.
    auto state = ComPtr<IOPCGroupStateMgt>::attach(static_cast<IOPCGroupStateMgt*>(g2.detach()));
    DWORD rate; BOOL active; LPWSTR name = nullptr; LONG timeBias; FLOAT db; DWORD lcid; OPCHANDLE hc, hs;
    ASSERT_EQ(S_OK, state->GetState(&rate, &active, &name, &timeBias, &db, &lcid, &hc, &hs));
    const std::u16string generated = take(name);
    EXPECT_FALSE(generated.empty());
    EXPECT_EQ(60, timeBias);
    EXPECT_EQ(FALSE, active);
    ComPtr<IUnknown> found;
    EXPECT_EQ(S_OK, server->GetGroupByName(generated.c_str(), IID_IUnknown, found.put()));
    EXPECT_EQ(E_INVALIDARG, server->GetGroupByName(u"nope", IID_IUnknown, found.put()));
    EXPECT_EQ(E_NOINTERFACE, server->AddGroup(u"G8", TRUE, 1000, 5, nullptr, &deadband, 1033, &h2, &revised,
                                              IID_IOPCServer, found.put()));
    EXPECT_EQ(3, SimLiveObjects("group"));  // the refused group is gone, and its name is free
    deadband = 101;
    EXPECT_EQ(E_INVALIDARG, server->AddGroup(u"G9", TRUE, 1000, 5, nullptr, &deadband, 1033, &h2, &revised,
                                             IID_IUnknown, found.put()));

    // SetName follows the same rule, and rates set later are revised alike.
    EXPECT_EQ(OPC_E_DUPLICATENAME, state->SetName(u"G1"));
    EXPECT_EQ(S_OK, state->SetName(u"Renamed"));
    DWORD requested = 333;
    EXPECT_EQ(OPC_S_UNSUPPORTEDRATE, state->SetState(&requested, &revised, nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(340u, revised);
}

TEST_F(SimTest, RemoveGroupIsInUseWhileReferencedAndGoesWithTheLastReference) {
    OPCHANDLE handle = 0;
    auto group = addGroup(u"G1", 1000, &handle);
    EXPECT_EQ(1, SimLiveObjects("group"));
    EXPECT_EQ(OPC_S_INUSE, server->RemoveGroup(handle, FALSE));
    EXPECT_EQ(1, SimLiveObjects("group"));
    EXPECT_EQ(E_INVALIDARG, server->RemoveGroup(handle, FALSE));  // already gone from the server
    EXPECT_EQ(E_INVALIDARG, server->RemoveGroup(4711, TRUE));
    group.reset();
    EXPECT_EQ(0, SimLiveObjects("group"));

    // The name is free again; force removes while referenced without OPC_S_INUSE.
    group = addGroup(u"G1", 1000, &handle);
    EXPECT_EQ(S_OK, server->RemoveGroup(handle, TRUE));
    group.reset();

    auto unreferenced = addGroup(u"G2", 1000, &handle);
    unreferenced.reset();
    EXPECT_EQ(1, SimLiveObjects("group"));  // the server still holds it
    EXPECT_EQ(S_OK, server->RemoveGroup(handle, FALSE));
    EXPECT_EQ(0, SimLiveObjects("group"));

    // Groups still on the server go with the server.
    group = addGroup(u"G3");
    group.reset();
    server.reset();
    EXPECT_EQ(0, SimLiveObjects(nullptr));
}

TEST_F(SimTest, CommonServicesAnswerLocalesAndErrorTexts) {
    ComPtr<IOPCCommon> common;
    ASSERT_EQ(S_OK, server->QueryInterface(IID_IOPCCommon, common.putVoid()));
    DWORD count = 0;
    LCID* locales = nullptr;
    ASSERT_EQ(S_OK, common->QueryAvailableLocaleIDs(&count, &locales));
    ASSERT_EQ(2u, count);
    EXPECT_EQ(1033u, locales[0]);
    CoTaskMemFree(locales);
    EXPECT_EQ(E_INVALIDARG, common->SetLocaleID(0x0411));
    LPWSTR text = nullptr;
    ASSERT_EQ(S_OK, common->GetErrorString(OPC_E_UNKNOWNITEMID, &text));
    EXPECT_EQ(u"The item is no longer available in the server address space.", take(text));
    ASSERT_EQ(S_OK, common->SetLocaleID(0x0407));
    ASSERT_EQ(S_OK, common->GetErrorString(OPC_E_UNKNOWNITEMID, &text));
    EXPECT_EQ(u"Das Item ist im Adressraum des Servers nicht vorhanden.", take(text));
    EXPECT_EQ(E_INVALIDARG, server->GetErrorString(0x12345678, 1033, &text));
    EXPECT_EQ(nullptr, text);
    SimSetNullResults("IOPCServer::GetErrorString", 1);
    EXPECT_EQ(S_OK, server->GetErrorString(E_FAIL, 1033, &text));
    EXPECT_EQ(nullptr, text);

    ComPtr<IOPCSecurityPrivate> logon;
    ASSERT_EQ(S_OK, server->QueryInterface(IID_IOPCSecurityPrivate, logon.putVoid()));
    EXPECT_EQ(E_ACCESSDENIED, logon->Logon(u"operator", u"wrong"));
    EXPECT_EQ(S_OK, logon->Logon(u"operator", u"secret"));
    EXPECT_STREQ("user=operator", SimLastCallArgs("IOPCSecurityPrivate::Logon"));
    ComPtr<IOPCSecurityNT> nt;
    ASSERT_EQ(S_OK, server->QueryInterface(IID_IOPCSecurityNT, nt.putVoid()));
    DWORD level = 0;
    EXPECT_EQ(S_OK, nt->QueryMinImpersonationLevel(&level));
    EXPECT_EQ(DWORD(RPC_C_IMP_LEVEL_IDENTIFY), level);
}

TEST_F(SimTest, ServerListFindsTheServerByCategoryAndReadsItsDetails) {
    COSERVERINFO host{0, const_cast<LPWSTR>(u"localhost"), nullptr, 0};
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(S_OK, CoGetClassObject(CLSID_OpcServerList, CLSCTX_REMOTE_SERVER, &host, IID_IClassFactory,
                                     factory.putVoid()));
    ComPtr<IOPCServerList2> list;
    ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IOPCServerList2, list.putVoid()));

    auto classesOf = [&](const CATID& category) {
        CATID wanted = category;
        ComPtr<IOPCEnumGUID> found;
        EXPECT_EQ(S_OK, list->EnumClassesOfCategories(1, &wanted, 0, nullptr, found.put()));
        std::vector<GUID> out;
        GUID id;
        ULONG fetched = 0;
        while (found && found->Next(1, &id, &fetched) == S_OK) out.push_back(id);
        return out;
    };
    auto has = [](const std::vector<GUID>& ids) {
        for (const GUID& id : ids) {
            if (IsEqualCLSID(id, CLSID_VelmoraSimulation)) return true;
        }
        return false;
    };
    EXPECT_TRUE(has(classesOf(CATID_OPCDAServer20)));
    EXPECT_TRUE(has(classesOf(CATID_OPCDAServer10)));
    EXPECT_FALSE(has(classesOf(CATID_XMLDAServer10)));

    LPOLESTR progId = nullptr, userType = nullptr, independent = nullptr;
    ASSERT_EQ(S_OK, list->GetClassDetails(CLSID_VelmoraSimulation, &progId, &userType, &independent));
    EXPECT_EQ(u"Velmora.Simulation.1", take(progId));
    EXPECT_EQ(u"Velmora Simulation Server", take(userType));
    EXPECT_EQ(u"Velmora.Simulation", take(independent));
    const CLSID unknown = {0x0BADF00D, 0x1234, 0x4321, {0x80, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01}};
    EXPECT_EQ(REGDB_E_CLASSNOTREG, list->GetClassDetails(unknown, &progId, &userType, &independent));
    CLSID clsid{};
    EXPECT_EQ(S_OK, list->CLSIDFromProgID(u"Velmora.Simulation", &clsid));
    EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_VelmoraSimulation));
}

}  // namespace
