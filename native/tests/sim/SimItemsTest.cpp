// Items of a group: definition errors, reads of every kind of value, writes and concurrent reads.
#include "SimFixture.h"

#include <atomic>
#include <thread>

namespace {

// Owns what one IOPCSyncIO::Read returns.
struct ReadResult {
    DWORD count = 0;
    OPCITEMSTATE* states = nullptr;
    HRESULT* errors = nullptr;
    HRESULT hr = E_FAIL;
    ReadResult(IOPCItemMgt* group, const std::vector<OPCHANDLE>& handles, OPCDATASOURCE source = OPC_DS_DEVICE) {
        ComPtr<IOPCSyncIO> io;
        group->QueryInterface(IID_IOPCSyncIO, io.putVoid());
        count = DWORD(handles.size());
        hr = io->Read(source, count, const_cast<OPCHANDLE*>(handles.data()), &states, &errors);
    }
    ~ReadResult() {
        for (DWORD i = 0; states && i < count; ++i) VariantClear(&states[i].vDataValue);
        CoTaskMemFree(states);
        CoTaskMemFree(errors);
    }
    const VARIANT& value(int i) const { return states[i].vDataValue; }
};

std::vector<HRESULT> write(IOPCItemMgt* group, std::vector<OPCHANDLE> handles, std::vector<VARIANT> values) {
    ComPtr<IOPCSyncIO> io;
    group->QueryInterface(IID_IOPCSyncIO, io.putVoid());
    HRESULT* errors = nullptr;
    io->Write(DWORD(handles.size()), handles.data(), values.data(), &errors);
    std::vector<HRESULT> out(errors, errors + (errors ? handles.size() : 0));
    CoTaskMemFree(errors);
    return out;
}

VARIANT r8(double v) { VARIANT x; VariantInit(&x); x.vt = VT_R8; x.dblVal = v; return x; }

TEST_F(SimTest, AddItemsReportsEachFailureAndTheCanonicalTypes) {
    auto group = addGroup(u"G");
    std::u16string ids[] = {u"Simulation.Static.R8", u"Simulation.Nothing", u"Simulation..R8", u"",
                            u"Simulation.Static.BOOL", u"Simulation.Array.I2", u"Simulation.Access.WriteOnly"};
    OPCITEMDEF defs[7];
    for (int i = 0; i < 7; ++i) defs[i] = OPCITEMDEF{const_cast<LPWSTR>(u""), ids[i].data(), TRUE, OPCHANDLE(i), 0, nullptr, VT_EMPTY, 0};
    defs[4].vtRequestedDataType = VT_DATE;   // not offered for a boolean
    defs[5].vtRequestedDataType = VT_ARRAY | VT_R8;  // arrays keep their type
    defs[6].szAccessPath = const_cast<LPWSTR>(u"Line1");
    OPCITEMRESULT* results = nullptr;
    HRESULT* errors = nullptr;
    ASSERT_EQ(S_FALSE, group->AddItems(7, defs, &results, &errors));
    EXPECT_EQ(S_OK, errors[0]);
    EXPECT_EQ(VT_R8, results[0].vtCanonicalDataType);
    EXPECT_EQ(DWORD(OPC_READABLE | OPC_WRITEABLE), results[0].dwAccessRights);
    EXPECT_NE(0u, results[0].hServer);
    EXPECT_EQ(nullptr, results[0].pBlob);
    EXPECT_EQ(OPC_E_UNKNOWNITEMID, errors[1]);
    EXPECT_EQ(OPC_E_INVALIDITEMID, errors[2]);
    EXPECT_EQ(OPC_E_INVALIDITEMID, errors[3]);
    EXPECT_EQ(OPC_E_BADTYPE, errors[4]);
    EXPECT_EQ(OPC_E_BADTYPE, errors[5]);
    EXPECT_EQ(OPC_E_UNKNOWNPATH, errors[6]);
    const OPCHANDLE added = results[0].hServer;
    CoTaskMemFree(results);
    CoTaskMemFree(errors);
    EXPECT_EQ("count=7 ids=Simulation.Static.R8,Simulation.Nothing,Simulation..R8,,Simulation.Static.BOOL,"
              "Simulation.Array.I2,Simulation.Access.WriteOnly types=0,0,0,0,7,8197,0 active=1,1,1,1,1,1,1",
              std::string(SimLastCallArgs("IOPCItemMgt::AddItems")));

    // Validation adds nothing: its handle is unknown to RemoveItems; removing twice fails the second time.
    defs[1].szItemID = ids[0].data();
    ASSERT_EQ(S_OK, group->ValidateItems(1, &defs[1], FALSE, &results, &errors));
    EXPECT_EQ(0u, results[0].hServer);
    CoTaskMemFree(results);
    CoTaskMemFree(errors);
    OPCHANDLE handles[] = {added, added + 1};
    ASSERT_EQ(S_FALSE, group->RemoveItems(2, handles, &errors));
    EXPECT_EQ(S_OK, errors[0]);
    EXPECT_EQ(OPC_E_INVALIDHANDLE, errors[1]);
    CoTaskMemFree(errors);
    ASSERT_EQ(S_FALSE, group->RemoveItems(1, handles, &errors));
    EXPECT_EQ(OPC_E_INVALIDHANDLE, errors[0]);
    CoTaskMemFree(errors);

    // Failures the control surface injects, and null results.
    SimFailNext("IOPCItemMgt::AddItems", E_OUTOFMEMORY, 1);
    EXPECT_EQ(E_OUTOFMEMORY, group->AddItems(1, defs, &results, &errors));
    EXPECT_EQ(nullptr, results);
    SimSetNullResults("IOPCItemMgt::AddItems", 1);
    EXPECT_EQ(S_OK, group->AddItems(1, defs, &results, &errors));
    EXPECT_EQ(nullptr, errors);
    EXPECT_EQ(E_INVALIDARG, group->AddItems(0, defs, &results, &errors));
}

TEST_F(SimTest, ReadDeliversEveryKindOfValueWithItsQualityAndErrors) {
    auto group = addGroup(u"G");
    const auto h = addItems(group.get(), {"Simulation.Static.I1", "Simulation.Static.UI4", "Simulation.Static.BOOL",
                                          "Simulation.Static.BSTR", "Simulation.Array.R8", "Simulation.Unsupported.DATE",
                                          "Simulation.Access.WriteOnly", "Simulation.Quality.Bad",
                                          "Simulation.Quality.Uncertain", "Simulation.Ramp.R8"});
    std::vector<OPCHANDLE> handles = h;
    handles.push_back(9999);
    ReadResult read(group.get(), handles);
    ASSERT_EQ(S_FALSE, read.hr);
    EXPECT_EQ(VT_I1, read.value(0).vt);
    EXPECT_EQ(-12, read.value(0).cVal);
    EXPECT_EQ(4000000000u, read.value(1).ulVal);
    EXPECT_EQ(VARIANT_TRUE, read.value(2).boolVal);
    EXPECT_EQ(u"hello", std::u16string(read.value(3).bstrVal, SysStringLen(read.value(3).bstrVal)));
    ASSERT_EQ(VT_ARRAY | VT_R8, read.value(4).vt);
    LONG upper = -1;
    SafeArrayGetUBound(read.value(4).parray, 1, &upper);
    EXPECT_EQ(2, upper);
    LONG index = 2;
    double element = 0;
    SafeArrayGetElement(read.value(4).parray, &index, &element);
    EXPECT_DOUBLE_EQ(-3.14159, element);
    EXPECT_EQ(VT_DATE, read.value(5).vt);
    EXPECT_EQ(OPC_E_BADRIGHTS, read.errors[6]);
    EXPECT_EQ(VT_EMPTY, read.value(6).vt);
    EXPECT_EQ(OPC_QUALITY_COMM_FAILURE, read.states[7].wQuality);
    EXPECT_EQ(OPC_QUALITY_UNCERTAIN, read.states[8].wQuality);
    EXPECT_EQ(OPC_QUALITY_GOOD, read.states[9].wQuality);
    EXPECT_EQ(OPC_E_INVALIDHANDLE, read.errors[10]);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(DWORD(100 + i), read.states[i].hClient);

    // Per-item errors from the control surface; values as null BSTRs and null arrays.
    SimSetItemError("Simulation.Static.I1", OPC_E_RANGE);
    SimSetNullResults("values", 1);
    ReadResult again(group.get(), {h[0], h[3], h[4]});
    EXPECT_EQ(S_FALSE, again.hr);
    EXPECT_EQ(OPC_E_RANGE, again.errors[0]);
    EXPECT_EQ(VT_BSTR, again.value(1).vt);
    EXPECT_EQ(nullptr, again.value(1).bstrVal);
    EXPECT_EQ(VT_ARRAY | VT_R8, again.value(2).vt);
    EXPECT_EQ(nullptr, again.value(2).parray);
}

TEST_F(SimTest, ReadConvertsToTheRequestedTypeAndMarksInactiveCacheReads) {
    auto group = addGroup(u"G");
    const auto asI2 = addItems(group.get(), {"Simulation.Static.R8", "Simulation.Static.UI4"}, VT_I2);
    const auto asText = addItems(group.get(), {"Simulation.Static.I4"}, VT_BSTR);
    ReadResult read(group.get(), {asI2[0], asI2[1], asText[0]}, OPC_DS_CACHE);
    EXPECT_EQ(S_FALSE, read.hr);
    EXPECT_EQ(VT_I2, read.value(0).vt);
    EXPECT_EQ(3, read.value(0).iVal);                // 2.718... rounded
    EXPECT_EQ(DISP_E_OVERFLOW, read.errors[1]);      // 4000000000 does not fit
    EXPECT_EQ(u"-123456", std::u16string(read.value(2).bstrVal));

    HRESULT* errors = nullptr;
    OPCHANDLE one[] = {asI2[0]};
    ASSERT_EQ(S_OK, group->SetActiveState(1, one, FALSE, &errors));
    CoTaskMemFree(errors);
    ReadResult cache(group.get(), {asI2[0]}, OPC_DS_CACHE);
    EXPECT_EQ(OPC_QUALITY_OUT_OF_SERVICE, cache.states[0].wQuality);
    ReadResult device(group.get(), {asI2[0]}, OPC_DS_DEVICE);
    EXPECT_EQ(OPC_QUALITY_GOOD, device.states[0].wQuality);
    EXPECT_STREQ("source=2 count=1 handles=1", SimLastCallArgs("IOPCSyncIO::Read"));

    SimFailNext("IOPCSyncIO::Read", E_FAIL, 1);
    ReadResult failed(group.get(), {asI2[0]});
    EXPECT_EQ(E_FAIL, failed.hr);
    EXPECT_EQ(nullptr, failed.states);
}

TEST_F(SimTest, WrittenValuesReadBackAndRightsAndRangesAreEnforced) {
    auto group = addGroup(u"G");
    const auto h = addItems(group.get(), {"Simulation.Static.UI1", "Simulation.Access.ReadOnly",
                                          "Simulation.Static.BSTR", "Simulation.Array.I4", "Bench.R8.17"});
    VARIANT text; VariantInit(&text);
    text.vt = VT_BSTR;
    text.bstrVal = SysAllocString(OLESTR("12.5"));
    VARIANT empty; VariantInit(&empty);
    EXPECT_EQ((std::vector<HRESULT>{OPC_E_RANGE, OPC_E_BADRIGHTS, S_OK, OPC_E_BADTYPE, S_OK}),
              write(group.get(), h, {r8(256), r8(1), r8(7.25), r8(1), text}));
    EXPECT_EQ((std::vector<HRESULT>{S_OK, OPC_E_BADTYPE}), write(group.get(), {h[0], h[4]}, {r8(254.6), empty}));
    VariantClear(&text);

    SAFEARRAYBOUND bound{2, 0};
    VARIANT array; VariantInit(&array);
    array.vt = VT_ARRAY | VT_R8;
    array.parray = SafeArrayCreate(VT_R8, 1, &bound);
    for (LONG i = 0; i < 2; ++i) {
        double v = 10.0 * (i + 1);
        SafeArrayPutElement(array.parray, &i, &v);
    }
    EXPECT_EQ(std::vector<HRESULT>{S_OK}, write(group.get(), {h[3]}, {array}));
    VariantClear(&array);

    ReadResult read(group.get(), {h[0], h[2], h[3], h[4]});
    EXPECT_EQ(255, read.value(0).bVal);
    EXPECT_EQ(u"7.25", std::u16string(read.value(1).bstrVal));
    LONG index = 1;
    LONG element = 0;
    SafeArrayGetElement(read.value(2).parray, &index, &element);
    EXPECT_EQ(20, element);
    EXPECT_DOUBLE_EQ(12.5, read.value(3).dblVal);

    SimReset();  // restores the device's values
    ReadResult restored(group.get(), {h[0]});
    EXPECT_EQ(200, restored.value(0).bVal);
}

TEST_F(SimTest, SeveralThreadsReadOneGroupOfBenchItems) {
    auto group = addGroup(u"Bench");
    std::vector<std::string> ids;
    for (int i = 0; i < 500; ++i) ids.push_back("Bench.R8." + std::to_string(i * 20));
    const auto handles = addItems(group.get(), ids);
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 4; ++t) {
        readers.emplace_back([&] {
            CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            for (int round = 0; round < 50; ++round) {
                ReadResult read(group.get(), handles);
                for (int i = 0; i < 500; ++i) {
                    if (read.hr != S_OK || read.value(i).dblVal != i * 20 + 0.5) ++wrong;
                }
            }
            CoUninitialize();
        });
    }
    for (auto& reader : readers) reader.join();
    EXPECT_EQ(0, wrong.load());
}

TEST_F(SimTest, ItemManagementChangesHandlesTypesAndRefusesWhatDoesNotFit) {
    auto group = addGroup(u"G");
    const auto h = addItems(group.get(), {"Simulation.Static.R8", "Simulation.Array.I2"});
    OPCHANDLE handles[] = {h[0], h[1], 999};
    OPCHANDLE clients[] = {7, 8, 9};
    HRESULT* errors = nullptr;
    ASSERT_EQ(S_FALSE, group->SetClientHandles(3, handles, clients, &errors));
    EXPECT_EQ(OPC_E_INVALIDHANDLE, errors[2]);
    CoTaskMemFree(errors);
    VARTYPE types[] = {VT_BSTR, VT_BSTR};
    ASSERT_EQ(S_FALSE, group->SetDatatypes(2, handles, types, &errors));
    EXPECT_EQ(S_OK, errors[0]);
    EXPECT_EQ(OPC_E_BADTYPE, errors[1]);
    CoTaskMemFree(errors);

    ReadResult read(group.get(), {h[0], h[1]});
    EXPECT_EQ(7u, read.states[0].hClient);
    EXPECT_EQ(VT_BSTR, read.value(0).vt);
    EXPECT_EQ(u"2.718281828", std::u16string(read.value(0).bstrVal));
    EXPECT_EQ(VT_ARRAY | VT_I2, read.value(1).vt);

    // Text that is no number cannot be written to a number, and no enumerator is offered.
    VARIANT text; VariantInit(&text);
    text.vt = VT_BSTR;
    text.bstrVal = SysAllocString(OLESTR("abc"));
    EXPECT_EQ(std::vector<HRESULT>{OPC_E_BADTYPE}, write(group.get(), {h[0]}, {text}));
    VariantClear(&text);
    ComPtr<IUnknown> enumerator;
    EXPECT_EQ(E_NOTIMPL, group->CreateEnumerator(IID_IEnumOPCItemAttributes, enumerator.put()));
}

TEST_F(SimTest, ItemPropertiesListAndReadWhatEachItemHas) {
    ComPtr<IOPCItemProperties> properties;
    ASSERT_EQ(S_OK, server->QueryInterface(IID_IOPCItemProperties, properties.putVoid()));
    auto listed = [&](const char16_t* id) {
        DWORD count = 0;
        DWORD* ids = nullptr;
        LPWSTR* texts = nullptr;
        VARTYPE* types = nullptr;
        std::vector<std::pair<DWORD, VARTYPE>> out;
        EXPECT_EQ(S_OK, properties->QueryAvailableProperties(const_cast<LPWSTR>(id), &count, &ids, &texts, &types));
        for (DWORD i = 0; i < count; ++i) {
            out.emplace_back(ids[i], types[i]);
            CoTaskMemFree(texts[i]);
        }
        CoTaskMemFree(ids);
        CoTaskMemFree(texts);
        CoTaskMemFree(types);
        return out;
    };
    const auto analog = listed(u"Simulation.Sine.R8");
    const auto text = listed(u"Simulation.Static.BSTR");
    EXPECT_EQ(analog.size(), text.size() + 2);  // the engineering range
    EXPECT_EQ((std::pair<DWORD, VARTYPE>{OPC_PROPERTY_HIGH_EU, VT_R8}), analog[analog.size() - 2]);

    DWORD ids[] = {OPC_PROPERTY_LOW_EU, OPC_PROPERTY_VALUE, OPC_PROPERTY_DATATYPE, 4711};
    VARIANT* values = nullptr;
    HRESULT* errors = nullptr;
    ASSERT_EQ(S_FALSE, properties->GetItemProperties(const_cast<LPWSTR>(u"Simulation.Sine.R8"), 4, ids, &values, &errors));
    EXPECT_DOUBLE_EQ(-100.0, values[0].dblVal);
    EXPECT_EQ(VT_R8, values[1].vt);
    EXPECT_EQ(VT_R8, values[2].iVal);
    EXPECT_EQ(OPC_E_INVALID_PID, errors[3]);
    for (int i = 0; i < 4; ++i) VariantClear(&values[i]);
    CoTaskMemFree(values);
    CoTaskMemFree(errors);
    EXPECT_EQ(OPC_E_UNKNOWNITEMID,
              properties->GetItemProperties(const_cast<LPWSTR>(u"Simulation.None"), 1, ids, &values, &errors));
    EXPECT_EQ(nullptr, values);
}

}  // namespace
