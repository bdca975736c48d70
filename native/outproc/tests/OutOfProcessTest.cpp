// The simulation server in its own process, reached through opcproxy.dll and opccomn_ps.dll: every
// interface the library uses, the callbacks into the client, and the lifetime across the boundary
// (the server process ends by itself once the client has released everything it held).
#include "OutOfProcess.h"

#include <set>

namespace outproc {
namespace {

// Counts what passes through the task allocator of this process, and every free of a block that
// the allocator did not hand out or has already taken back (a double free).
class AllocationSpy final : public opc::support::ComObject<AllocationSpy, IMallocSpy> {
public:
    void* interfaceFor(REFIID iid) { return IsEqualIID(iid, IID_IMallocSpy) ? static_cast<IMallocSpy*>(this) : nullptr; }
    SIZE_T STDMETHODCALLTYPE PreAlloc(SIZE_T size) override { return size; }
    void* STDMETHODCALLTYPE PostAlloc(void* block) override { return remember(block); }
    void* STDMETHODCALLTYPE PreFree(void* block, BOOL spyed) override { return forget(block, spyed); }
    void STDMETHODCALLTYPE PostFree(BOOL) override {}
    SIZE_T STDMETHODCALLTYPE PreRealloc(void* block, SIZE_T size, void** out, BOOL spyed) override {
        forget(block, spyed);
        *out = block;
        return size;
    }
    void* STDMETHODCALLTYPE PostRealloc(void* block, BOOL) override { return remember(block); }
    void* STDMETHODCALLTYPE PreGetSize(void* block, BOOL) override { return block; }
    SIZE_T STDMETHODCALLTYPE PostGetSize(SIZE_T size, BOOL) override { return size; }
    void* STDMETHODCALLTYPE PreDidAlloc(void* block, BOOL) override { return block; }
    int STDMETHODCALLTYPE PostDidAlloc(void*, BOOL, int actual) override { return actual; }
    void STDMETHODCALLTYPE PreHeapMinimize() override {}
    void STDMETHODCALLTYPE PostHeapMinimize() override {}

    size_t live() { std::lock_guard<std::mutex> guard(lock_); return live_.size(); }
    size_t badFrees() { std::lock_guard<std::mutex> guard(lock_); return badFrees_; }

private:
    void* remember(void* block) {
        std::lock_guard<std::mutex> guard(lock_);
        if (block) live_.insert(block);
        return block;
    }
    void* forget(void* block, BOOL spyed) {
        std::lock_guard<std::mutex> guard(lock_);
        if (block && spyed && live_.erase(block) == 0) ++badFrees_;
        return block;
    }
    std::mutex lock_;
    std::set<void*> live_;
    size_t badFrees_ = 0;
};

// Without the proxy/stub modules COM cannot carry the OPC interfaces; with them it can.
TEST_F(OutOfProcessTest, TheProxyModulesCarryTheInterfaces) {
    ASSERT_EQ(0, regsvr32(L"opcproxy.dll", true));
    {
        ServerProcess process;
        ASSERT_TRUE(process.start());
        ComPtr<IUnknown> object;
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_VelmoraSimulation, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown,
                                         object.putVoid()));
        ComPtr<IOPCServer> server;
        EXPECT_EQ(E_NOINTERFACE, object->QueryInterface(IID_IOPCServer, server.putVoid()));
        object.reset();
        process.kill();
    }
    ASSERT_EQ(0, regsvr32(L"opcproxy.dll"));
    ServerProcess process;
    ASSERT_TRUE(process.start());
    ComPtr<IOPCServer> server = activate();
    ASSERT_TRUE(server);
    server.reset();
    EXPECT_EQ(0, process.exitCode());
}

TEST_F(OutOfProcessTest, StatusCommonGroupsItemsAndSynchronousIo) {
    ServerProcess process;
    ASSERT_TRUE(process.start());
    {
        ComPtr<IOPCServer> server = activate();
        ASSERT_TRUE(server);

        OPCSERVERSTATUS* status = nullptr;
        ASSERT_EQ(S_OK, server->GetStatus(&status));
        EXPECT_EQ(OPC_STATUS_RUNNING, status->dwServerState);
        ASSERT_NE(nullptr, status->szVendorInfo);
        EXPECT_NE(0u, wcslen(status->szVendorInfo));
        CoTaskMemFree(status->szVendorInfo);
        CoTaskMemFree(status);

        auto common = as<IOPCCommon>(server.get(), IID_IOPCCommon);
        EXPECT_EQ(S_OK, common->SetLocaleID(1031));
        LCID lcid = 0;
        EXPECT_EQ(S_OK, common->GetLocaleID(&lcid));
        EXPECT_EQ(1031u, lcid);
        DWORD count = 0;
        TaskMem<LCID> locales;
        EXPECT_EQ(S_OK, common->QueryAvailableLocaleIDs(&count, locales.put()));
        EXPECT_EQ(2u, count);
        TaskMem<wchar_t> text;
        EXPECT_EQ(S_OK, common->GetErrorString(OPC_E_UNKNOWNITEMID, text.put()));
        ASSERT_TRUE(text);
        EXPECT_NE(0u, wcslen(text.get()));
        EXPECT_EQ(S_OK, common->SetClientName(L"outproc"));
        EXPECT_EQ(S_OK, server->GetErrorString(OPC_E_BADTYPE, 1033, text.put()));
        EXPECT_TRUE(text);

        Group group(server.get(), L"sync", 1000,
                    {L"Simulation.Static.R8", L"Simulation.Static.BSTR", L"Simulation.Array.I4", L"No.Such.Item"});
        ASSERT_EQ(4u, group.items.size());
        EXPECT_EQ(OPC_E_UNKNOWNITEMID, group.errors[3]);

        ComPtr<IUnknown> byName;
        EXPECT_EQ(S_OK, server->GetGroupByName(L"sync", IID_IUnknown, byName.put()));
        DWORD rate = 0;
        BOOL active = FALSE;
        TaskMem<wchar_t> name;
        LONG bias = 0;
        FLOAT deadband = 0;
        DWORD groupLcid = 0;
        OPCHANDLE client = 0, serverHandle = 0;
        EXPECT_EQ(S_OK, as<IOPCGroupStateMgt>(byName.get(), IID_IOPCGroupStateMgt)
                            ->GetState(&rate, &active, name.put(), &bias, &deadband, &groupLcid, &client, &serverHandle));
        EXPECT_STREQ(L"sync", name.get());
        EXPECT_EQ(77u, client);
        DWORD requested = 500, revised = 0;
        EXPECT_EQ(S_OK, as<IOPCGroupStateMgt>(byName.get(), IID_IOPCGroupStateMgt)
                            ->SetState(&requested, &revised, nullptr, nullptr, nullptr, nullptr, nullptr));
        EXPECT_EQ(500u, revised);

        // Values of three shapes go over and come back: a real, a text, an array.
        VARIANT values[3];
        values[0] = r8(42.5);
        VariantInit(&values[1]);
        values[1].vt = VT_BSTR;
        values[1].bstrVal = SysAllocString(L"across");
        VariantInit(&values[2]);
        values[2].vt = VT_ARRAY | VT_I4;
        values[2].parray = SafeArrayCreateVector(VT_I4, 0, 3);
        for (LONG i = 0; i < 3; ++i) {
            LONG element = 10 * (i + 1);
            SafeArrayPutElement(values[2].parray, &i, &element);
        }
        TaskMem<HRESULT> writeErrors;
        auto sync = as<IOPCSyncIO>(group.unknown.get(), IID_IOPCSyncIO);
        EXPECT_EQ(S_OK, sync->Write(3, group.items.data(), values, writeErrors.put()));
        for (VARIANT& v : values) VariantClear(&v);

        OPCITEMSTATE* states = nullptr;
        HRESULT* errors = nullptr;
        ASSERT_EQ(S_OK, sync->Read(OPC_DS_DEVICE, 3, group.items.data(), &states, &errors));
        EXPECT_EQ(VT_R8, states[0].vDataValue.vt);
        EXPECT_EQ(42.5, states[0].vDataValue.dblVal);
        EXPECT_EQ(100u, states[0].hClient);
        ASSERT_EQ(VT_BSTR, states[1].vDataValue.vt);
        EXPECT_STREQ(L"across", states[1].vDataValue.bstrVal);
        ASSERT_EQ(VT_ARRAY | VT_I4, states[2].vDataValue.vt);
        LONG upper = -1, last = 0, index = 2;
        SafeArrayGetUBound(states[2].vDataValue.parray, 1, &upper);
        SafeArrayGetElement(states[2].vDataValue.parray, &index, &last);
        EXPECT_EQ(2, upper);
        EXPECT_EQ(30, last);
        for (int i = 0; i < 3; ++i) VariantClear(&states[i].vDataValue);
        CoTaskMemFree(states);
        CoTaskMemFree(errors);

        TaskMem<HRESULT> removed;
        EXPECT_EQ(S_OK, as<IOPCItemMgt>(group.unknown.get(), IID_IOPCItemMgt)->RemoveItems(3, group.items.data(), removed.put()));
        byName.reset();
        sync.reset();
        group.unknown.reset();
        EXPECT_EQ(S_OK, server->RemoveGroup(group.serverHandle, FALSE));
    }
    // Every proxy released: the server saw every object go and ended by itself.
    EXPECT_EQ(0, process.exitCode());
}

// The allocation spy: what the stubs in this process allocate for the callbacks' arrays, they free.
TEST_F(OutOfProcessTest, SubscriptionAndAsynchronousIoCallBackOnRpcThreads) {
    ServerProcess process;
    ASSERT_TRUE(process.start(L"--async-delay 200"));
    auto spy = ComPtr<AllocationSpy>::attach(new AllocationSpy);
    ASSERT_EQ(S_OK, CoRegisterMallocSpy(spy.get()));
    {
        ComPtr<IOPCServer> server = activate();
        ASSERT_TRUE(server);
        Group group(server.get(), L"subscribed", 50, {L"Simulation.Ramp.I4", L"Simulation.Static.R8"});
        ASSERT_EQ(2u, group.items.size());
        auto sink = ComPtr<Sink>::attach(new Sink);
        const DWORD cookie = advise(group.unknown.get(), IID_IOPCDataCallback, static_cast<IOPCDataCallback*>(sink.get()));
        ASSERT_NE(0u, cookie);

        Sink::Call call;
        ASSERT_TRUE(sink->waitFor("data", &call, 2));
        EXPECT_NE(GetCurrentThreadId(), call.thread);  // an RPC thread of this process
        EXPECT_EQ(0u, call.transaction);

        auto async = as<IOPCAsyncIO2>(group.unknown.get(), IID_IOPCAsyncIO2);
        DWORD cancelId = 0;
        TaskMem<HRESULT> errors;
        ASSERT_EQ(S_OK, async->Read(2, group.items.data(), 11, &cancelId, errors.put()));
        ASSERT_TRUE(sink->waitFor("read", &call));
        EXPECT_EQ(11u, call.transaction);
        EXPECT_EQ((std::vector<OPCHANDLE>{100, 101}), call.clients);
        EXPECT_NE(GetCurrentThreadId(), call.thread);

        VARIANT value = r8(7.25);
        ASSERT_EQ(S_OK, async->Write(1, &group.items[1], &value, 12, &cancelId, errors.put()));
        ASSERT_TRUE(sink->waitFor("write", &call));
        EXPECT_EQ(12u, call.transaction);

        ASSERT_EQ(S_OK, async->Refresh2(OPC_DS_CACHE, 13, &cancelId));
        ASSERT_TRUE(sink->waitForTransaction("data", 13, &call));
        EXPECT_EQ(2u, call.clients.size());
        ASSERT_EQ(S_OK, async->Read(1, group.items.data(), 14, &cancelId, errors.put()));
        EXPECT_EQ(S_OK, async->Cancel2(cancelId));
        ASSERT_TRUE(sink->waitFor("cancel", &call));
        EXPECT_EQ(14u, call.transaction);

        BOOL enabled = FALSE;
        EXPECT_EQ(S_OK, async->GetEnable(&enabled));
        EXPECT_TRUE(enabled);

        // The server's shutdown point takes a sink through opccomn_ps.dll.
        const DWORD shutdownCookie = advise(server.get(), IID_IOPCShutdown, static_cast<IOPCShutdown*>(sink.get()));
        EXPECT_NE(0u, shutdownCookie);
        EXPECT_EQ(S_OK, unadvise(server.get(), IID_IOPCShutdown, shutdownCookie));
        EXPECT_EQ(S_OK, unadvise(group.unknown.get(), IID_IOPCDataCallback, cookie));
        async.reset();
        group.unknown.reset();
        EXPECT_EQ(S_OK, server->RemoveGroup(group.serverHandle, FALSE));
    }
    EXPECT_EQ(0, process.exitCode());
    EXPECT_EQ(0u, spy->badFrees());
    EXPECT_EQ(0u, spy->live());
    EXPECT_EQ(S_OK, CoRevokeMallocSpy());
}

// The old browse walks by position through IEnumString; the new one pages with continuation
// points, whose [in, out] string the proxy hands back: the first call passes a constant, later ones
// the point the last call returned, which the caller frees once it has been replaced (as the
// library does). The allocation spy proves that nothing is freed twice and nothing is left over.
TEST_F(OutOfProcessTest, BrowsingWithContinuationPointsAndProperties) {
    ServerProcess process;
    ASSERT_TRUE(process.start(L"--browse-portion 2"));
    {
        ComPtr<IOPCServer> server = activate();
        ASSERT_TRUE(server);

        auto old = as<IOPCBrowseServerAddressSpace>(server.get(), IID_IOPCBrowseServerAddressSpace);
        OPCNAMESPACETYPE organization = OPC_NS_FLAT;
        EXPECT_EQ(S_OK, old->QueryOrganization(&organization));
        EXPECT_EQ(OPC_NS_HIERARCHIAL, organization);
        EXPECT_EQ(S_OK, old->ChangeBrowsePosition(OPC_BROWSE_DOWN, L"Simulation"));
        ComPtr<IEnumString> names;
        EXPECT_EQ(S_OK, old->BrowseOPCItemIDs(OPC_BRANCH, L"", VT_EMPTY, 0, names.put()));
        ASSERT_TRUE(names);
        std::vector<std::wstring> branches;
        LPOLESTR name = nullptr;
        ULONG fetched = 0;
        while (names->Next(1, &name, &fetched) == S_OK && fetched == 1) {
            branches.push_back(name);
            CoTaskMemFree(name);
        }
        EXPECT_NE(branches.end(), std::find(branches.begin(), branches.end(), L"Static"));
        TaskMem<wchar_t> itemId;
        EXPECT_EQ(S_OK, old->GetItemID(const_cast<LPWSTR>(L"Static"), itemId.put()));
        EXPECT_STREQ(L"Simulation.Static", itemId.get());

        auto spy = ComPtr<AllocationSpy>::attach(new AllocationSpy);
        ASSERT_EQ(S_OK, CoRegisterMallocSpy(spy.get()));
        auto browser = as<IOPCBrowse>(server.get(), IID_IOPCBrowse);
        static wchar_t empty[] = L"";
        DWORD propertyIds[] = {1, 5};
        LPWSTR continuation = empty;
        TaskMem<wchar_t> held;
        BOOL more = TRUE;
        int calls = 0;
        std::vector<std::wstring> found;
        while (more && calls < 50) {
            DWORD count = 0;
            OPCBROWSEELEMENT* elements = nullptr;
            const HRESULT hr = browser->Browse(const_cast<LPWSTR>(L"Simulation.Static"), &continuation, 0,
                                               OPC_BROWSE_FILTER_ALL, empty, empty, FALSE, TRUE, 2, propertyIds,
                                               &more, &count, &elements);
            ++calls;
            ASSERT_TRUE(SUCCEEDED(hr)) << std::hex << hr;
            if (continuation != held.get()) held.reset(continuation == empty ? nullptr : continuation);
            EXPECT_LE(count, 2u);
            for (DWORD i = 0; i < count; ++i) {
                found.push_back(elements[i].szItemID);
                EXPECT_EQ(2u, elements[i].ItemProperties.dwNumProperties);
                CoTaskMemFree(elements[i].szName);
                CoTaskMemFree(elements[i].szItemID);
                for (DWORD p = 0; p < elements[i].ItemProperties.dwNumProperties; ++p) {
                    OPCITEMPROPERTY& property = elements[i].ItemProperties.pItemProperties[p];
                    CoTaskMemFree(property.szItemID);
                    CoTaskMemFree(property.szDescription);
                    VariantClear(&property.vValue);
                }
                CoTaskMemFree(elements[i].ItemProperties.pItemProperties);
            }
            CoTaskMemFree(elements);
            if (!held) break;
        }
        held.reset();
        EXPECT_EQ(12u, found.size());  // the twelve Simulation.Static items, two at a time
        EXPECT_EQ(6, calls);
        EXPECT_EQ(0u, spy->badFrees());
        EXPECT_EQ(0u, spy->live());
        EXPECT_EQ(S_OK, CoRevokeMallocSpy());

        // Item properties through both interfaces.
        auto properties = as<IOPCItemProperties>(server.get(), IID_IOPCItemProperties);
        DWORD count = 0;
        DWORD* ids = nullptr;
        LPWSTR* descriptions = nullptr;
        VARTYPE* types = nullptr;
        ASSERT_EQ(S_OK, properties->QueryAvailableProperties(const_cast<LPWSTR>(L"Simulation.Static.R8"), &count, &ids,
                                                             &descriptions, &types));
        EXPECT_GE(count, 2u);
        for (DWORD i = 0; i < count; ++i) CoTaskMemFree(descriptions[i]);
        CoTaskMemFree(ids);
        CoTaskMemFree(descriptions);
        CoTaskMemFree(types);
        VARIANT* data = nullptr;
        HRESULT* errors = nullptr;
        ASSERT_EQ(S_OK, properties->GetItemProperties(const_cast<LPWSTR>(L"Simulation.Static.R8"), 1, propertyIds,
                                                      &data, &errors));
        EXPECT_EQ(VT_I2, data[0].vt);  // property 1: the canonical type
        EXPECT_EQ(VT_R8, data[0].iVal);
        VariantClear(&data[0]);
        CoTaskMemFree(data);
        CoTaskMemFree(errors);

        LPWSTR item = const_cast<LPWSTR>(L"Simulation.Static.R8");
        OPCITEMPROPERTIES* perItem = nullptr;
        ASSERT_EQ(S_OK, browser->GetProperties(1, &item, TRUE, 2, propertyIds, &perItem));
        EXPECT_EQ(2u, perItem[0].dwNumProperties);
        for (DWORD p = 0; p < perItem[0].dwNumProperties; ++p) {
            CoTaskMemFree(perItem[0].pItemProperties[p].szItemID);
            CoTaskMemFree(perItem[0].pItemProperties[p].szDescription);
            VariantClear(&perItem[0].pItemProperties[p].vValue);
        }
        CoTaskMemFree(perItem[0].pItemProperties);
        CoTaskMemFree(perItem);
    }
    EXPECT_EQ(0, process.exitCode());
}

// The security interfaces cross the boundary; the blanket of the proxy is where the platform
// decides. Wine's proxies expose IClientSecurity but answer QueryBlanket and SetBlanket with
// E_NOTIMPL; Windows answers S_OK.
TEST_F(OutOfProcessTest, SecurityInterfacesAndTheProxyBlanket) {
    ServerProcess process;
    ASSERT_TRUE(process.start());
    {
        ComPtr<IOPCServer> server = activate();
        ASSERT_TRUE(server);
        const HRESULT blanketAnswer = underWine() ? E_NOTIMPL : S_OK;
        ComPtr<IClientSecurity> security;
        ASSERT_EQ(S_OK, server->QueryInterface(IID_IClientSecurity, security.putVoid()));
        DWORD authn = 0, authz = 0, level = 0, impersonation = 0, capabilities = 0;
        EXPECT_EQ(blanketAnswer, security->QueryBlanket(server.get(), &authn, &authz, nullptr, &level, &impersonation,
                                                        nullptr, &capabilities));
        EXPECT_EQ(blanketAnswer, security->SetBlanket(server.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                                                      RPC_C_AUTHN_LEVEL_CONNECT, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr,
                                                      EOAC_NONE));
        security.reset();

        auto nt = as<IOPCSecurityNT>(server.get(), IID_IOPCSecurityNT);
        BOOL available = FALSE;
        EXPECT_EQ(S_OK, nt->IsAvailableNT(&available));
        EXPECT_TRUE(available);
        DWORD minimum = 0;
        EXPECT_EQ(S_OK, nt->QueryMinImpersonationLevel(&minimum));
        EXPECT_NE(0u, minimum);
        EXPECT_EQ(S_OK, nt->ChangeUser());

        auto priv = as<IOPCSecurityPrivate>(server.get(), IID_IOPCSecurityPrivate);
        EXPECT_EQ(S_OK, priv->IsAvailablePriv(&available));
        EXPECT_TRUE(available);
        EXPECT_TRUE(FAILED(priv->Logon(L"operator", L"wrong")));
        EXPECT_EQ(S_OK, priv->Logon(L"operator", L"secret"));
        EXPECT_EQ(S_OK, priv->Logoff());
    }
    EXPECT_EQ(0, process.exitCode());
}

// COM starts the registered executable itself when no server process is running.
TEST_F(OutOfProcessTest, ComStartsTheRegisteredExecutable) {
    ComPtr<IOPCServer> server = activate();
    ASSERT_TRUE(server);
    OPCSERVERSTATUS* status = nullptr;
    ASSERT_EQ(S_OK, server->GetStatus(&status));
    CoTaskMemFree(status->szVendorInfo);
    CoTaskMemFree(status);
    EXPECT_EQ(1, serverProcesses());
    server.reset();
    // Released, it ends by itself.
    for (int i = 0; i < 100 && serverProcesses() > 0; ++i) Sleep(100);
    EXPECT_EQ(0, serverProcesses());
}

}  // namespace
}  // namespace outproc
