package com.velmora.opc.client;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.TestSupport;
import java.util.*;
import java.util.concurrent.*;
import org.junit.jupiter.api.Test;

class OpcClientTest extends OpenClient {

    private static Class<?> typeOf(ItemValue v) {
        return v.value() == null ? null : v.value().getClass();
    }

    @Test
    void readsTypedValuesWithEachItemsFailureAsAValue() {
        try (OpcServer server = client.connect(SimControl.PROG_ID); Group group = server.addGroup("values", 1000)) {
            assertEquals(ServerState.RUNNING, server.status().state());
            List<Item> items = group.addItems("Simulation.Static.R8", "Simulation.Static.BOOL",
                    "Simulation.Static.BSTR", "Simulation.Array.I2", "No.Such.Item", "Simulation.Access.WriteOnly",
                    "Simulation.Quality.Bad", "Simulation.Quality.Uncertain");
            assertEquals(OPC_E_UNKNOWNITEMID, items.get(4).error());
            assertEquals(7, items.stream().filter(Item::isValid).count(), items::toString);

            List<ItemValue> cached = group.read(DataSource.CACHE, items.subList(0, 5));
            assertEquals(items.subList(0, 5).stream().map(Item::itemId).toList(),
                    cached.stream().map(ItemValue::itemId).toList());
            assertEquals(Arrays.asList(Double.class, Boolean.class, String.class, String.class, null),
                    cached.stream().map(OpcClientTest::typeOf).toList());
            assertTrue(cached.subList(0, 4).stream().allMatch(ItemValue::isGood), cached::toString);
            assertNotNull(cached.get(0).timestamp());
            assertEquals(OPC_E_UNKNOWNITEMID, cached.get(4).error());
            // The rejected item never reaches the server.
            assertTrue(SimControl.lastCallArgs("IOPCSyncIO::Read").startsWith("source=1 count=4 "),
                    SimControl.lastCallArgs("IOPCSyncIO::Read"));

            List<ItemValue> device = group.read(DataSource.DEVICE, items.subList(5, 8));
            assertTrue(SimControl.lastCallArgs("IOPCSyncIO::Read").startsWith("source=2 count=3 "));
            assertEquals(OPC_E_BADRIGHTS, device.get(0).error());
            assertTrue(device.get(0).isFailed());
            assertEquals(List.of("bad: comm failure", "uncertain"),
                    device.subList(1, 3).stream().map(ItemValue::qualityText).toList());
            assertFalse(device.get(1).isGood());
        }
    }

    @Test
    void serverFailuresRaiseHresultExceptionsNamingTheCall() {
        HresultException unknown = assertThrows(HresultException.class, () -> client.connect("No.Such.Server.1"));
        assertEquals("OpcEnv::toCLSID", unknown.getOperation());

        try (OpcServer server = client.connect(SimControl.PROG_ID)) {
            SimControl.failNext("IOPCServer::AddGroup", E_FAIL, 1);
            HresultException addGroup = assertThrows(HresultException.class, () -> server.addGroup("g", 1000));
            assertEquals("IOPCServer::AddGroup", addGroup.getOperation());
            assertEquals(E_FAIL, addGroup.getHresult());

            Group group = server.addGroup("g", 1000);
            List<Item> items = group.addItems("Simulation.Static.I4");
            SimControl.failNext("IOPCSyncIO::Read", E_FAIL, 1);
            HresultException read = assertThrows(HresultException.class, () -> group.read(DataSource.CACHE, items));
            assertEquals("IOPCSyncIO::Read", read.getOperation());
            assertFalse(server.errorText(OPC_E_UNKNOWNITEMID).isBlank());
            HresultException text = assertThrows(HresultException.class, () -> server.errorText(0x80001234));
            assertEquals("IOPCCommon::GetErrorString", text.getOperation());
            assertThrows(HresultException.class, () -> server.properties("No.Such.Item"));
            group.close();
            assertEquals(1, SimControl.callCount("IOPCServer::RemoveGroup"));
        }
    }

    @Test
    void itemsAndTheGroupChangeStateKeepingTheRestAndItemsAreRemovedOnce() {
        try (OpcServer server = client.connect(SimControl.PROG_ID); Group group = server.addGroup("items", 1000)) {
            List<Item> items = group.addItems("Simulation.Static.R8", "No.Such.Item");
            assertEquals(List.of(0, OPC_E_UNKNOWNITEMID), group.setActive(items, false));
            assertEquals("bad: out of service", group.read(DataSource.CACHE, items).get(0).qualityText());

            GroupState before = group.state();
            assertEquals(List.of("items", 1000, true, group.serverGroupHandle()),
                    List.of(before.name(), before.updateRate(), before.active(), before.serverGroupHandle()));
            int granted = group.setState(250, false);
            GroupState after = group.state();
            assertEquals(List.of(granted, granted, false, before.clientGroupHandle(), before.localeId()),
                    List.of(group.updateRate(), after.updateRate(), after.active(), after.clientGroupHandle(),
                            after.localeId()));

            assertEquals(List.of(0, OPC_E_UNKNOWNITEMID), group.removeItems(items));
            assertEquals(OPC_E_INVALIDHANDLE, (int) group.removeItems(items).get(0));
            assertThrows(IllegalArgumentException.class, () -> group.addItems("A", null));
        }
    }

    @Test
    void writesConvertToTheCanonicalTypeAndReadBack() {
        try (OpcServer server = client.connect(SimControl.PROG_ID); Group group = server.addGroup("w", 1000)) {
            List<Item> items = group.addItems("Simulation.Static.R8", "Simulation.Static.I4", "Simulation.Static.BOOL",
                    "Simulation.Static.BSTR", "Simulation.Array.I4", "Simulation.Array.R8",
                    "Simulation.Access.ReadOnly", "No.Such.Item");
            assertEquals(List.of(0, 0, 0, 0, 0, OPC_E_RANGE, OPC_E_BADRIGHTS, OPC_E_UNKNOWNITEMID), List.of(
                    group.write(items.get(0), 12.5), group.write(items.get(1), "42"),
                    group.write(items.get(2), "false"), group.write(items.get(3), "x,y"),
                    group.write(items.get(4), new int[] {1, -2, 3}), group.write(items.get(5), "1.5,a"),
                    group.write(items.get(6), 1), group.write(items.get(7), 1)));
            List<ItemValue> values = group.read(DataSource.DEVICE, items.subList(0, 6));
            assertEquals(List.of(12.5, 42.0, false, "x,y", "1,-2,3", "1.3,2.0,-3.1"),
                    values.stream().map(ItemValue::value).toList());
            assertThrows(IllegalArgumentException.class, () -> group.write(items.get(0), null));
        }
    }

    @Test
    void discoveryFindsTheSimulationServerByCategory() {
        TestSupport.assumeNotWine(TestSupport.WINE_NO_REMOTE_ACTIVATION);
        BOpcDeviceDiscoveryResult sim = client.discover(null).stream()
                .filter(r -> SimControl.PROG_ID.equals(r.getProgId())).findFirst().orElseThrow();
        assertEquals(List.of(SimControl.CLSID, "localhost", OpcClient.CATEGORY_DA20),
                List.of(sim.getClsid(), sim.getHost(), sim.getCategory()));
        assertTrue(client.discover("localhost", OpcClient.CATEGORY_DA30).stream()
                .anyMatch(r -> SimControl.CLSID.equals(r.getClsid())));
        assertEquals(List.of(), client.discover("localhost", "{00000000-0000-0000-0000-00000000ABCD}"));
        List<String> categories = client.discover(null, OpcClient.CATEGORY_DA10, OpcClient.CATEGORY_DA20,
                OpcClient.CATEGORY_DA30).stream().filter(r -> SimControl.CLSID.equals(r.getClsid()))
                .map(BOpcDeviceDiscoveryResult::getCategory).toList();
        assertEquals(List.of(OpcClient.CATEGORY_DA10), categories);
        // A remote server named by ProgID is found in that host's server list.
        SimControl.clearCalls();
        try (OpcServer server = client.connect(SimControl.PROG_ID, "localhost")) {
            assertTrue(SimControl.callCount("IOPCServerList2::EnumClassesOfCategories") > 0);
            assertEquals(ServerState.RUNNING, server.status().state());
        }
    }

    @Test
    void browsingDescribesTheAddressSpace() {
        try (OpcServer server = client.connect(SimControl.PROG_ID)) {
            List<BrowseElement> root = server.browse("");
            assertTrue(root.stream().anyMatch(e -> e.name().equals("Simulation") && e.hasChildren()), root::toString);
            BrowseElement r8 = server.browse("Simulation.Static").stream()
                    .filter(e -> "Simulation.Static.R8".equals(e.itemId())).findFirst().orElseThrow();
            assertEquals(List.of("item", "R8", "rw"),
                    List.of(r8.kind(), VarTypes.name(r8.canonicalType()), r8.access()));
            assertEquals("r", server.browse("Simulation.Access").stream()
                    .filter(e -> e.name().equals("ReadOnly")).findFirst().orElseThrow().access());
            List<Integer> ids = server.properties("Simulation.Static.R8").stream().map(ItemProperty::id).toList();
            assertTrue(ids.containsAll(List.of(1, 2, 3, 4, 5)), ids::toString);
        }
    }

    @Test
    void aServerWithoutTheNewerBrowseInterfaceIsBrowsedByPosition() {
        TestSupport.assumeInProcess("the proxy keeps answering for IOPCBrowse once it has it, whatever the server says later");
        try (OpcServer server = client.connect(SimControl.PROG_ID)) {
            List<String> newer = server.browse("Simulation.Static").stream()
                    .map(e -> e.kind() + " " + e.name() + " " + e.itemId()).sorted().toList();
            SimControl.setWithoutBrowse(true);
            List<String> older = server.browse("Simulation.Static").stream()
                    .map(e -> e.kind() + " " + e.name() + " " + e.itemId()).sorted().toList();
            assertEquals(newer, older);
            assertTrue(server.browse(null).stream().anyMatch(e -> e.name().equals("Simulation") && e.hasChildren()));
            assertEquals(List.of(), server.browse("No.Such.Branch"));
            assertEquals(1, SimControl.callCount("IOPCBrowse::Browse"));
        }
        // An object without the interface is named with it, not reported as a failed query.
        try (NativeHandle probe = new NativeHandle(TestSupport.createObject(), "probe")) {
            assertEquals("probe has no IOPCBrowse",
                    assertThrows(MissingInterfaceException.class, () -> probe.query(Iids.IOPC_BROWSE, "IOPCBrowse"))
                            .getMessage());
        }
    }

    @Test
    void theServersServicesGroupSettingsBatchWritesAndValidation() {
        try (OpcServer server = client.connect(SimControl.PROG_ID)) {
            server.setClientName("line 4");
            assertEquals("name=line 4", SimControl.lastCallArgs("IOPCCommon::SetClientName"));
            assertTrue(server.availableLocales().containsAll(List.of(1033, 1031)));
            server.setLocale(1031);
            assertEquals(1031, server.locale());
            assertEquals(-100.0, server.numericProperty("Simulation.Sine.R8", 103));
            assertEquals("Simulated item Simulation.Static.R8", server.stringProperty("Simulation.Static.R8", 101));
            assertTrue(server.booleanProperty("Simulation.Static.BOOL", 2));
            // In process there is no proxy whose identity could change.
            assertEquals(SecurityResult.OTHER, server.changeUser("plant\\operator", "secret"));
            assertEquals(SecurityResult.OTHER, server.logon("operator", "secret"));

            Group group = server.addGroup("settings", false, 500, 2.5f, 60, 1031);
            GroupState state = group.state();
            assertEquals(List.of(false, 60, 2.5f, 1031), List.of(state.active(), state.timeBias(),
                    state.percentDeadband(), state.localeId()));
            group.setState(500, true, -30, 5f, 1033);
            state = group.state();
            assertEquals(List.of(true, -30, 5f, 1033), List.of(state.active(), state.timeBias(),
                    state.percentDeadband(), state.localeId()));

            int added = SimControl.callCount("IOPCItemMgt::AddItems");
            List<Item> checked = group.validateItems(List.of(ItemDefinition.of("Simulation.Static.I4"),
                    ItemDefinition.of("No.Such.Item")));
            assertEquals(List.of(VT_I4, OPC_E_UNKNOWNITEMID), List.of(checked.get(0).canonicalType(), checked.get(1).error()));
            assertEquals(added, SimControl.callCount("IOPCItemMgt::AddItems"));

            List<Item> items = group.addItems(List.of(ItemDefinition.of("Simulation.Static.I4", VT_BSTR),
                    ItemDefinition.of("Simulation.Static.BSTR"), ItemDefinition.of("Simulation.Access.ReadOnly"),
                    ItemDefinition.of("No.Such.Item")));
            Map<Item, Object> values = new LinkedHashMap<>();
            values.put(items.get(0), 7);
            values.put(items.get(1), "batch");
            values.put(items.get(2), 1.5);
            values.put(items.get(3), 1);
            assertEquals(List.of(0, 0, OPC_E_BADRIGHTS, OPC_E_UNKNOWNITEMID), List.copyOf(group.write(values).values()));
            assertTrue(SimControl.lastCallArgs("IOPCSyncIO::Write").startsWith("count=3 "));
            assertEquals(Arrays.asList("7", "batch"), group.read(DataSource.DEVICE, items.subList(0, 2)).stream()
                    .map(ItemValue::value).toList());
        }
    }

    @Test
    void threadsReadConcurrentlyEachThroughItsOwnConnection() throws Exception {
        Callable<Integer> worker = () -> {
            int good = 0;
            try (OpcServer server = client.connect(SimControl.PROG_ID); Group group = server.addGroup("worker", 1000)) {
                List<Item> items = group.addItems("Simulation.Random.R8", "Simulation.Array.BSTR");
                for (int i = 0; i < 25; i++) {
                    for (ItemValue v : group.read(DataSource.DEVICE, items)) good += v.isGood() ? 1 : 0;
                }
            }
            return good;
        };
        ExecutorService pool = Executors.newFixedThreadPool(4);
        try {
            for (Future<Integer> run : pool.invokeAll(Collections.nCopies(4, worker))) assertEquals(50, run.get());
        } finally {
            pool.shutdown();
        }
    }

    @Test
    void closingEndsTheUseOfWhatWasOpenedThroughItAndReleasesItOnce() {
        OpcClient other = OpcClient.open();
        OpcServer first = other.connect(SimControl.PROG_ID);
        OpcServer second = other.connect(SimControl.CLSID);
        Group kept = first.addGroup("kept", 1000);
        List<Item> items = kept.addItems("Simulation.Static.R4");
        List<ItemValue> changes = new CopyOnWriteArrayList<>();
        kept.subscribe(changes::add);
        first.addGroup("closed", 1000).close();
        second.addGroup("left open", 1000).addItems("Simulation.Static.R8");
        first.close();
        first.close();
        kept.close();
        assertTrue(kept.isClosed());
        assertEquals(2, SimControl.callCount("IOPCServer::RemoveGroup"));
        assertThrows(IllegalStateException.class, () -> kept.read(DataSource.CACHE, items));
        assertThrows(IllegalStateException.class, first::status);

        other.close();
        assertFalse(second.isOpen());
        assertEquals(3, SimControl.callCount("IOPCServer::RemoveGroup"));
        assertThrows(IllegalStateException.class, () -> other.connect(SimControl.PROG_ID));
    }
}
