// Items of a group: definition errors, reads of every kind of value, writes and concurrent reads.
#include "SimFixture.h"

#include <atomic>

namespace {

VARIANT text(const char16_t* value) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_BSTR;
    v.bstrVal = SysAllocString(value);
    return v;
}

TEST_F(SimTest, AddItemsReportsEachFailureAndTheCanonicalTypes) {
    auto group = addGroup(u"G");
    std::u16string ids[] = {u"Simulation.Static.R8", u"Simulation.Nothing", u"Simulation..R8", u"",
                            u"Simulation.Static.BOOL", u"Simulation.Array.I2", u"Simulation.Access.WriteOnly"};
    OPCITEMDEF defs[7];
    for (int i = 0; i < 7; ++i) {
        defs[i] = OPCITEMDEF{const_cast<LPWSTR>(u""), ids[i].data(), TRUE, OPCHANDLE(i), 0, nullptr, VT_EMPTY, 0};
    }
    defs[4].vtRequestedDataType = VT_DATE;           // not offered for a boolean
    defs[5].vtRequestedDataType = VT_ARRAY | VT_R8;  // arrays keep their type
    defs[6].szAccessPath = const_cast<LPWSTR>(u"Line1");
    TaskMem<OPCITEMRESULT> results;
    TaskMem<HRESULT> errors;
    ASSERT_EQ(S_FALSE, group->AddItems(7, defs, results.put(), errors.put()));
    EXPECT_EQ(VT_R8, results.get()[0].vtCanonicalDataType);
    EXPECT_EQ(DWORD(OPC_READABLE | OPC_WRITEABLE), results.get()[0].dwAccessRights);
    EXPECT_EQ(nullptr, results.get()[0].pBlob);
    EXPECT_EQ((std::vector<HRESULT>{S_OK, OPC_E_UNKNOWNITEMID, OPC_E_INVALIDITEMID, OPC_E_INVALIDITEMID, OPC_E_BADTYPE,
                                    OPC_E_BADTYPE, OPC_E_UNKNOWNPATH}),
              std::vector<HRESULT>(errors.get(), errors.get() + 7));
    const OPCHANDLE added = results.get()[0].hServer;
    EXPECT_NE(0u, added);
    EXPECT_STREQ("count=7 ids=Simulation.Static.R8,Simulation.Nothing,Simulation..R8,,Simulation.Static.BOOL,"
                 "Simulation.Array.I2,Simulation.Access.WriteOnly types=0,0,0,0,7,8197,0 active=1,1,1,1,1,1,1",
                 SimLastCallArgs("IOPCItemMgt::AddItems"));

    // Validation adds nothing: its handle is unknown to RemoveItems; removing twice fails the second time.
    ASSERT_EQ(S_OK, group->ValidateItems(1, &defs[0], FALSE, results.put(), errors.put()));
    EXPECT_EQ(0u, results.get()[0].hServer);
    OPCHANDLE handles[] = {added, added + 1};
    ASSERT_EQ(S_FALSE, group->RemoveItems(2, handles, errors.put()));
    EXPECT_EQ(S_OK, errors.get()[0]);
    EXPECT_EQ(OPC_E_INVALIDHANDLE, errors.get()[1]);
    ASSERT_EQ(S_FALSE, group->RemoveItems(1, handles, errors.put()));
    EXPECT_EQ(OPC_E_INVALIDHANDLE, errors.get()[0]);

    // Failures the control surface injects, and null results.
    SimFailNext("IOPCItemMgt::AddItems", E_OUTOFMEMORY, 1);
    EXPECT_EQ(E_OUTOFMEMORY, group->AddItems(1, defs, results.put(), errors.put()));
    EXPECT_FALSE(results);
    SimSetNullResults("IOPCItemMgt::AddItems", 1);
    EXPECT_EQ(S_OK, group->AddItems(1, defs, results.put(), errors.put()));
    EXPECT_FALSE(errors);
    EXPECT_EQ(E_INVALIDARG, group->AddItems(0, defs, results.put(), errors.put()));
}

TEST_F(SimTest, ReadDeliversEveryKindOfValueWithItsQualityAndErrors) {
    auto group = addGroup(u"G");
    auto h = addItems(group.get(), {"Simulation.Static.I1", "Simulation.Static.UI4", "Simulation.Static.BOOL",
                                    "Simulation.Static.BSTR", "Simulation.Array.R8", "Simulation.Unsupported.DATE",
                                    "Simulation.Access.WriteOnly", "Simulation.Quality.Bad",
                                    "Simulation.Quality.Uncertain", "Simulation.Ramp.R8"});
    h.push_back(9999);
    ReadResult read(group.get(), h);
    ASSERT_EQ(S_FALSE, read.hr);
    EXPECT_EQ(VT_I1, read.value(0).vt);
    EXPECT_EQ(-12, read.value(0).cVal);
    EXPECT_EQ(4000000000u, read.value(1).ulVal);
    EXPECT_EQ(VARIANT_TRUE, read.value(2).boolVal);
    EXPECT_EQ(u"hello", std::u16string(read.value(3).bstrVal, SysStringLen(read.value(3).bstrVal)));
    ASSERT_EQ(VT_ARRAY | VT_R8, read.value(4).vt);
    LONG index = 2;
    double element = 0;
    EXPECT_EQ(S_OK, SafeArrayGetUBound(read.value(4).parray, 1, &index));
    EXPECT_EQ(2, index);
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
    EXPECT_EQ(3, read.value(0).iVal);            // 2.718... rounded
    EXPECT_EQ(DISP_E_OVERFLOW, read.errors[1]);  // 4000000000 does not fit
    EXPECT_EQ(u"-123456", std::u16string(read.value(2).bstrVal));

    TaskMem<HRESULT> errors;
    OPCHANDLE one[] = {asI2[0]};
    ASSERT_EQ(S_OK, group->SetActiveState(1, one, FALSE, errors.put()));
    EXPECT_EQ(OPC_QUALITY_OUT_OF_SERVICE, ReadResult(group.get(), {asI2[0]}, OPC_DS_CACHE).states[0].wQuality);
    EXPECT_EQ(OPC_QUALITY_GOOD, ReadResult(group.get(), {asI2[0]}, OPC_DS_DEVICE).states[0].wQuality);
    EXPECT_STREQ("source=2 count=1 handles=1", SimLastCallArgs("IOPCSyncIO::Read"));

    SimFailNext("IOPCSyncIO::Read", E_FAIL, 1);
    ReadResult failed(group.get(), {asI2[0]});
    EXPECT_EQ(E_FAIL, failed.hr);
    EXPECT_EQ(nullptr, failed.states);
}

TEST_F(SimTest, WrittenValuesReadBackAndRightsRangesAndTypesAreEnforced) {
    auto group = addGroup(u"G");
    const auto h = addItems(group.get(), {"Simulation.Static.UI1", "Simulation.Access.ReadOnly",
                                          "Simulation.Static.BSTR", "Simulation.Array.I4", "Bench.R8.17"});
    VARIANT number = text(OLESTR("12.5"));
    VARIANT empty;
    VariantInit(&empty);
    EXPECT_EQ((std::vector<HRESULT>{OPC_E_RANGE, OPC_E_BADRIGHTS, S_OK, OPC_E_BADTYPE, S_OK}),
              write(group.get(), h, {r8(256), r8(1), r8(7.25), r8(1), number}));
    EXPECT_EQ((std::vector<HRESULT>{S_OK, OPC_E_BADTYPE}), write(group.get(), {h[0], h[4]}, {r8(254.6), empty}));
    VariantClear(&number);
    VARIANT word = text(OLESTR("abc"));  // text that is no number cannot be written to a number
    EXPECT_EQ(std::vector<HRESULT>{OPC_E_BADTYPE}, write(group.get(), {h[4]}, {word}));
    VariantClear(&word);

    SAFEARRAYBOUND bound{2, 0};
    VARIANT array;
    VariantInit(&array);
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
    EXPECT_EQ(200, ReadResult(group.get(), {h[0]}).value(0).bVal);
}

TEST_F(SimTest, ItemManagementChangesHandlesAndTypesAndRefusesWhatDoesNotFit) {
    auto group = addGroup(u"G");
    const auto h = addItems(group.get(), {"Simulation.Static.R8", "Simulation.Array.I2"});
    OPCHANDLE handles[] = {h[0], h[1], 999};
    OPCHANDLE clients[] = {7, 8, 9};
    TaskMem<HRESULT> errors;
    ASSERT_EQ(S_FALSE, group->SetClientHandles(3, handles, clients, errors.put()));
    EXPECT_EQ(OPC_E_INVALIDHANDLE, errors.get()[2]);
    VARTYPE types[] = {VT_BSTR, VT_BSTR};
    ASSERT_EQ(S_FALSE, group->SetDatatypes(2, handles, types, errors.put()));
    EXPECT_EQ(S_OK, errors.get()[0]);
    EXPECT_EQ(OPC_E_BADTYPE, errors.get()[1]);

    ReadResult read(group.get(), {h[0], h[1]});
    EXPECT_EQ(7u, read.states[0].hClient);
    EXPECT_EQ(VT_BSTR, read.value(0).vt);
    EXPECT_EQ(u"2.718281828", std::u16string(read.value(0).bstrVal));
    EXPECT_EQ(VT_ARRAY | VT_I2, read.value(1).vt);
    ComPtr<IUnknown> enumerator;
    EXPECT_EQ(E_NOTIMPL, group->CreateEnumerator(IID_IEnumOPCItemAttributes, enumerator.put()));
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

}  // namespace
