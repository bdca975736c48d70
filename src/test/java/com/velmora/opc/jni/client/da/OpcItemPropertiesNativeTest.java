package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;
import org.junit.jupiter.api.function.Executable;

@ExtendWith(LedgerCheck.class)
class OpcItemPropertiesNativeTest {
    private static final String IID_IOPCITEMPROPERTIES = "{39C13A72-011E-11D0-9675-0020AFD8ADB3}";
    private static final int OPC_E_UNKNOWNITEMID = 0xC0040007;
    private static final int OPC_E_INVALID_PID = 0xC0040203;
    private static final int E_ACCESSDENIED = 0x80070005;
    private static final int VALUE = 2;
    private static final int EU_UNITS = 100;
    private static final int DESCRIPTION = 101;
    private static final int HIGH_EU = 102;
    private static final int LOW_EU = 103;

    record Property(int id, String description, int type) {}

    static final class Properties implements PropertyCollector {
        final List<Property> calls = new ArrayList<>();

        @Override
        public void addProperty(int id, String description, int type) {
            calls.add(new Property(id, description, type));
        }
    }

    @Test
    void listingDeliversEachPropertyInTheServersOrderWithItsType() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long props = sim.query(sim.server, IID_IOPCITEMPROPERTIES);
            Properties analog = new Properties();
            OpcItemProperties.queryAvailableProperties(props, "Simulation.Static.R8", analog);
            assertEquals(List.of(1, 2, 3, 4, 5, 6, 100, 101, 102, 103),
                    analog.calls.stream().map(Property::id).toList());
            assertEquals(new Property(1, "Item Canonical DataType", 2), analog.calls.get(0));
            assertEquals(new Property(2, "Item Value", 12), analog.calls.get(1));
            assertEquals(new Property(4, "Item Timestamp", 7), analog.calls.get(3));
            assertEquals(new Property(103, "Low EU", 5), analog.calls.get(9));

            Properties text = new Properties();
            OpcItemProperties.queryAvailableProperties(props, "Simulation.Static.BSTR", text);
            assertEquals(8, text.calls.size());

            // A collector that throws: every property is still offered and the first exception wins.
            List<Integer> offered = new ArrayList<>();
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcItemProperties.queryAvailableProperties(props, "Simulation.Static.R8",
                            (PropertyCollector) (id, description, type) -> {
                                offered.add(id);
                                throw new IllegalStateException("property " + id);
                            }));
            assertEquals("property 1", thrown.getMessage());
            assertEquals(10, offered.size());
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void readersConvertNumbersBooleansAndStrings() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long props = sim.query(sim.server, IID_IOPCITEMPROPERTIES);
            assertEquals(100.0, OpcItemProperties.getNumericProperty(props, "Simulation.Sine.R8", HIGH_EU));
            assertEquals(-100.0, OpcItemProperties.getNumericProperty(props, "Simulation.Sine.R8", LOW_EU));
            assertEquals(4000000000.0, OpcItemProperties.getNumericProperty(props, "Simulation.Static.UI4", VALUE));
            assertEquals("Simulated item Simulation.Static.R8",
                    OpcItemProperties.getStringProperty(props, "Simulation.Static.R8", DESCRIPTION));
            assertEquals("", OpcItemProperties.getStringProperty(props, "Simulation.Static.R8", EU_UNITS));
            assertNull(OpcItemProperties.getStringProperty(props, "Simulation.Static.R8", HIGH_EU));

            assertTrue(OpcItemProperties.getBooleanProperty(props, "Simulation.Static.BOOL", VALUE));
            long group = sim.addGroup("g")[0];
            long syncIo = sim.query(group, SimFixture.IID_IOPCSYNCIO);
            int handle = sim.addItems(sim.query(group, SimFixture.IID_IOPCITEMMGT), "Simulation.Static.BOOL")[0];
            assertEquals(0, OpcSyncIo.writeBoolean(syncIo, handle, false));
            assertFalse(OpcItemProperties.getBooleanProperty(props, "Simulation.Static.BOOL", VALUE));

            NumberFormatException notAnalog = assertThrows(NumberFormatException.class,
                    () -> OpcItemProperties.getNumericProperty(props, "Simulation.Static.R8", DESCRIPTION));
            assertEquals("[OpcEnv::getNumericValue] Variant is not analog.", notAnalog.getMessage());

            SimControl.setNullResults("values", true);
            SimControl.clearCalls();
            assertEquals("", OpcItemProperties.getStringProperty(props, "Simulation.Static.BSTR", VALUE));
            assertEquals(1, SimControl.callCount("IOPCItemProperties::GetItemProperties"));
            assertEquals("id=Simulation.Static.BSTR count=1 ids=2",
                    SimControl.lastCallArgs("IOPCItemProperties::GetItemProperties"));
            assertEquals(List.of(), log.texts());
        }
    }

    private static void assertFails(int hr, String operation, Executable call) {
        HresultException failed = assertThrows(HresultException.class, call);
        assertEquals(hr, failed.getHresult());
        assertEquals(operation, failed.getOperation());
    }

    @Test
    void failedCallsAndFailedPropertiesRaiseTheirOwnOperationTexts() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long props = sim.query(sim.server, IID_IOPCITEMPROPERTIES);
            String item = "Simulation.Static.R8";
            String call = "IOPCItemProperties::GetItemProperties";
            String property = "IOPCItemProperties::GetItemProperties2";
            assertFails(OPC_E_INVALID_PID, property, () -> OpcItemProperties.getNumericProperty(props, item, 9999));
            assertFails(OPC_E_INVALID_PID, property, () -> OpcItemProperties.getBooleanProperty(props, item, 9999));
            assertFails(OPC_E_INVALID_PID, property, () -> OpcItemProperties.getStringProperty(props, item, 9999));
            assertFails(OPC_E_UNKNOWNITEMID, call, () -> OpcItemProperties.getNumericProperty(props, "No.Such", 1));
            SimControl.failNext(call, E_ACCESSDENIED, 2);
            assertFails(E_ACCESSDENIED, call, () -> OpcItemProperties.getBooleanProperty(props, item, VALUE));
            assertFails(E_ACCESSDENIED, call, () -> OpcItemProperties.getStringProperty(props, item, DESCRIPTION));
            assertFails(OPC_E_UNKNOWNITEMID, "IOPCItemProperties::QueryAvailableProperties",
                    () -> OpcItemProperties.queryAvailableProperties(props, "No.Such", new Properties()));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void missingArgumentsAndCollectorsAreLoggedAsErrorsWithTheDefaultResult() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long props = sim.query(sim.server, IID_IOPCITEMPROPERTIES);
            OpcItemProperties.queryAvailableProperties(0, "Simulation.Static.R8", new Properties());
            OpcItemProperties.queryAvailableProperties(props, null, new Properties());
            assertEquals(0.0, OpcItemProperties.getNumericProperty(0, "Simulation.Static.R8", VALUE));
            assertEquals(0.0, OpcItemProperties.getNumericProperty(props, null, VALUE));
            assertTrue(OpcItemProperties.getBooleanProperty(0, "Simulation.Static.BOOL", VALUE));
            assertTrue(OpcItemProperties.getBooleanProperty(props, null, VALUE));
            assertNull(OpcItemProperties.getStringProperty(0, "Simulation.Static.BSTR", VALUE));
            assertNull(OpcItemProperties.getStringProperty(props, null, VALUE));
            assertEquals(0, SimControl.callCount("IOPCItemProperties::GetItemProperties")
                    + SimControl.callCount("IOPCItemProperties::QueryAvailableProperties"));

            OpcItemProperties.queryAvailableProperties(props, "Simulation.Static.R8", null);
            assertThrows(NoSuchMethodError.class,
                    () -> OpcItemProperties.queryAvailableProperties(props, "Simulation.Static.R8", new Object()));

            assertEquals(List.of("Query Available Properties - Incoming id string/peer is null",
                    "Query Available Properties - Incoming id string/peer is null",
                    "OpcItemProperties::getNumericProperty->argument is null",
                    "OpcItemProperties::getNumericProperty->item is null",
                    "OpcItemProperties::getBooleanProperty->argument is null",
                    "OpcItemProperties::getBooleanProperty->item is null",
                    "OpcItemProperties::getStringProperty->argument is null",
                    "OpcItemProperties::getStringProperty->item is null",
                    "OpcItemProperties::QueryAvailableProperties->datatypes is null",
                    "OpcItemProperties::QueryAvailableProperties->Method is null"), log.texts());
            assertEquals(List.of("ERROR"), log.lines().stream().map(LogCapture.Line::level).distinct().toList());
        }
    }
}
