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
    private static final String R8 = "Simulation.Static.R8";
    private static final int VALUE = 2;
    private static final int DESCRIPTION = 101;

    record Property(int id, String description, int type) {}

    @Test
    void listingDeliversEveryPropertyInOrderAndGoesOnPastAThrowingCollector() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long props = sim.query(sim.server, IID_IOPCITEMPROPERTIES);
            List<Property> listed = new ArrayList<>();
            OpcItemProperties.queryAvailableProperties(props, R8,
                    (PropertyCollector) (id, text, type) -> listed.add(new Property(id, text, type)));
            assertEquals(List.of(1, 2, 3, 4, 5, 6, 100, 101, 102, 103), listed.stream().map(Property::id).toList());
            assertEquals(new Property(2, "Item Value", 12), listed.get(1));
            assertEquals(new Property(103, "Low EU", 5), listed.get(9));

            List<Integer> offered = new ArrayList<>();
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcItemProperties.queryAvailableProperties(props, R8, (PropertyCollector) (id, text, type) -> {
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
            assertEquals(-100.0, OpcItemProperties.getNumericProperty(props, "Simulation.Sine.R8", 103));
            assertEquals(4000000000.0, OpcItemProperties.getNumericProperty(props, "Simulation.Static.UI4", VALUE));
            assertEquals("Simulated item " + R8, OpcItemProperties.getStringProperty(props, R8, DESCRIPTION));
            assertNull(OpcItemProperties.getStringProperty(props, R8, 102));
            assertEquals("[OpcEnv::getNumericValue] Variant is not analog.", assertThrows(NumberFormatException.class,
                    () -> OpcItemProperties.getNumericProperty(props, R8, DESCRIPTION)).getMessage());

            assertTrue(OpcItemProperties.getBooleanProperty(props, "Simulation.Static.BOOL", VALUE));
            long group = sim.addGroup("g")[0];
            int handle = sim.addItems(sim.query(group, SimFixture.IID_IOPCITEMMGT), "Simulation.Static.BOOL")[0];
            assertEquals(0, OpcSyncIo.writeBoolean(sim.query(group, SimFixture.IID_IOPCSYNCIO), handle, false));
            assertFalse(OpcItemProperties.getBooleanProperty(props, "Simulation.Static.BOOL", VALUE));

            SimControl.setNullResults("values", true);
            SimControl.clearCalls();
            assertEquals("", OpcItemProperties.getStringProperty(props, "Simulation.Static.BSTR", VALUE));
            assertEquals(1, SimControl.callCount("IOPCItemProperties::GetItemProperties"));
            assertEquals(List.of(), log.texts());
        }
    }

    private static void assertFails(int hr, String operation, Executable call) {
        HresultException failed = assertThrows(HresultException.class, call);
        assertEquals(hr, failed.getHresult());
        assertEquals(operation, failed.getOperation());
    }

    @Test
    void failuresRaiseTheirOwnOperationTextsAndMissingArgumentsAreLogged() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long props = sim.query(sim.server, IID_IOPCITEMPROPERTIES);
            String call = "IOPCItemProperties::GetItemProperties";
            assertFails(0xC0040203, call + "2", () -> OpcItemProperties.getBooleanProperty(props, R8, 9999));
            assertFails(0xC0040007, call, () -> OpcItemProperties.getStringProperty(props, "No.Such", VALUE));
            assertFails(0xC0040007, "IOPCItemProperties::QueryAvailableProperties",
                    () -> OpcItemProperties.queryAvailableProperties(props, "No.Such", null));

            OpcItemProperties.queryAvailableProperties(props, null, null);
            assertEquals(0.0, OpcItemProperties.getNumericProperty(0, R8, VALUE));
            assertTrue(OpcItemProperties.getBooleanProperty(props, null, VALUE));
            assertNull(OpcItemProperties.getStringProperty(0, R8, VALUE));
            OpcItemProperties.queryAvailableProperties(props, R8, null);
            assertThrows(NoSuchMethodError.class, () -> OpcItemProperties.queryAvailableProperties(props, R8, "x"));
            assertEquals(List.of("Query Available Properties - Incoming id string/peer is null",
                    "OpcItemProperties::getNumericProperty->argument is null",
                    "OpcItemProperties::getBooleanProperty->item is null",
                    "OpcItemProperties::getStringProperty->argument is null",
                    "OpcItemProperties::QueryAvailableProperties->datatypes is null",
                    "OpcItemProperties::QueryAvailableProperties->Method is null"), log.texts());
            assertEquals(List.of("ERROR"), log.lines().stream().map(LogCapture.Line::level).distinct().toList());
        }
    }
}
