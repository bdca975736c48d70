package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.testsupport.*;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcItemPropertiesTest {
    private static final String R8 = "Simulation.Static.R8";
    private static final int VALUE = 2;
    private static final int DESCRIPTION = 101;

    @Test
    void listingDeliversEveryPropertyInOrderAndGoesOnPastAThrowingCollector() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long props = sim.query(sim.server, IID_IOPCITEMPROPERTIES);
            Recorder listed = new Recorder();
            OpcItemProperties.queryAvailableProperties(props, R8, listed);
            assertEquals(List.of(1, 2, 3, 4, 5, 6, 100, 101, 102, 103),
                    listed.calls().stream().map(c -> Integer.parseInt(c.split(" ")[1])).toList());
            assertEquals("property 2 Item Value 12", listed.calls().get(1));
            assertEquals("property 103 Low EU 5", listed.calls().get(9));

            Recorder throwing = new Recorder("property");
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcItemProperties.queryAvailableProperties(props, R8, throwing));
            assertEquals(listed.calls().get(0), thrown.getMessage());
            assertEquals(listed.calls(), throwing.calls());
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
            SimFixture.Group g = sim.group("g", 1000, "Simulation.Static.BOOL");
            assertEquals(0, OpcSyncIo.writeBoolean(g.syncIo(), g.items()[0], false));
            assertFalse(OpcItemProperties.getBooleanProperty(props, "Simulation.Static.BOOL", VALUE));

            SimControl.setNullResults("values", true);
            SimControl.clearCalls();
            assertEquals("", OpcItemProperties.getStringProperty(props, "Simulation.Static.BSTR", VALUE));
            assertEquals(1, SimControl.callCount("IOPCItemProperties::GetItemProperties"));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void failuresRaiseTheirOwnOperationTextsAndMissingArgumentsAreLogged() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long props = sim.query(sim.server, IID_IOPCITEMPROPERTIES);
            String call = "IOPCItemProperties::GetItemProperties";
            assertEquals(0xC0040203, fails(call + "2", () -> OpcItemProperties.getBooleanProperty(props, R8, 9999))
                    .getHresult());
            assertEquals(OPC_E_UNKNOWNITEMID,
                    fails(call, () -> OpcItemProperties.getStringProperty(props, "No.Such", VALUE)).getHresult());
            assertEquals(OPC_E_UNKNOWNITEMID, fails("IOPCItemProperties::QueryAvailableProperties",
                    () -> OpcItemProperties.queryAvailableProperties(props, "No.Such", null)).getHresult());

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
            assertEquals(List.of("ERROR"), log.levels());
        }
    }
}
