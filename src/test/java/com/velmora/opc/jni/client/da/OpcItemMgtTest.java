package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.testsupport.*;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcItemMgtTest {

    private static int handle(Recorder results, int index) {
        return (int) results.records().get(index).args()[1];
    }

    @Test
    void validateAndAddDeliverOneResultPerItemInOrderAndPassRequestedTypesUnchanged() {
        try (SimFixture sim = SimFixture.open()) {
            long itemMgt = sim.group("g", 1000).itemMgt();
            String[] ids = {"Simulation.Static.R8", "No.Such.Item", "Simulation.Access.ReadOnly", "Simulation.Array.R8",
                "Simulation.Static.I2", "Simulation.Static.I4"};
            int[] types = {0, 0, VT_BSTR, VT_ARRAY | VT_R8, VT_ARRAY | VT_R8, VT_R8};
            Recorder validated = new Recorder();
            OpcItemMgt.validateItems(itemMgt, ids, new int[6], new boolean[6], types, validated);
            assertEquals(0, SimControl.callCount("IOPCItemMgt::AddItems"));
            Recorder added = new Recorder();
            OpcItemMgt.addItems(itemMgt, ids, new int[] {1, 2, 3, 4, 5, 6},
                    new boolean[] {true, false, true, true, true, true}, types, added);
            assertEquals("count=6 ids=" + String.join(",", ids) + " types=0,0,8,8197,8197,5 active=1,0,1,1,1,1",
                    SimControl.lastCallArgs("IOPCItemMgt::AddItems"));
            assertEquals(List.of("item Simulation.Static.R8 type=5 rights=3 error=0",
                    "item No.Such.Item type=0 rights=0 error=" + OPC_E_UNKNOWNITEMID,
                    "item Simulation.Access.ReadOnly type=5 rights=1 error=0",
                    "item Simulation.Array.R8 type=8197 rights=3 error=0",
                    "item Simulation.Static.I2 type=0 rights=0 error=" + OPC_E_BADTYPE,
                    "item Simulation.Static.I4 type=3 rights=3 error=0"), added.calls());
            assertEquals(added.calls().stream().map(c -> c.replaceAll(" type=\\d+ rights=\\d+", "")).toList(),
                    validated.calls().stream().map(c -> c.replaceAll(" type=\\d+ rights=\\d+", "")).toList());
            assertSame(ids[0], added.records().get(0).args()[0]);

            int[] handles = {handle(added, 0), handle(added, 2), 999_999};
            assertArrayEquals(new int[] {0, 0, OPC_E_INVALIDHANDLE},
                    OpcItemMgt.setActiveState(itemMgt, handles, false));
            assertTrue(SimControl.lastCallArgs("IOPCItemMgt::SetActiveState").contains("active=0"),
                    SimControl.lastCallArgs("IOPCItemMgt::SetActiveState"));
            assertArrayEquals(new int[] {0, 0, OPC_E_INVALIDHANDLE}, OpcItemMgt.removeItems(itemMgt, handles));
            assertArrayEquals(new int[] {OPC_E_INVALIDHANDLE}, OpcItemMgt.removeItems(itemMgt, new int[] {handles[0]}));
        }
    }

    @Test
    void argumentAndResultProblemsAreLoggedAndServerFailuresRaised() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long itemMgt = sim.group("g", 1000).itemMgt();
            OpcItemMgt.addItems(itemMgt, null, new int[0], new boolean[0], new int[0], new Recorder());
            OpcItemMgt.addItems(itemMgt, new String[0], new int[0], new boolean[0], new int[0], new Recorder());
            OpcItemMgt.validateItems(0, new String[1], new int[1], new boolean[1], new int[1], new Recorder());
            OpcItemMgt.validateItems(itemMgt, new String[0], new int[0], new boolean[0], new int[0], new Recorder());
            assertNull(OpcItemMgt.removeItems(itemMgt, null));
            assertNull(OpcItemMgt.removeItems(itemMgt, new int[0]));
            assertNull(OpcItemMgt.setActiveState(0, new int[] {1}, true));
            assertNull(OpcItemMgt.setActiveState(itemMgt, new int[0], true));
            for (String method : List.of("AddItems", "ValidateItems", "RemoveItems", "SetActiveState")) {
                assertEquals(0, SimControl.callCount("IOPCItemMgt::" + method), method);
            }

            // A null id is sent as the empty id, which the server refuses.
            Recorder results = new Recorder();
            OpcItemMgt.validateItems(itemMgt, new String[] {"Simulation.Static.BSTR", null}, new int[2], new boolean[2],
                    new int[2], results);
            OpcItemMgt.addItems(itemMgt, new String[] {null}, new int[1], new boolean[1], new int[1], results);
            assertEquals("item Simulation.Static.BSTR type=8 rights=3 error=0", results.calls().get(0));
            assertTrue(results.calls().subList(1, 3).stream().allMatch(c -> c.matches("item null .* error=-\\d+")),
                    results.calls()::toString);
            SimControl.setNullResults("IOPCItemMgt::AddItems", true);
            OpcItemMgt.addItems(itemMgt, new String[] {"Simulation.Static.I4"}, new int[1], new boolean[1], new int[1],
                    results);
            SimControl.setNullResults("IOPCItemMgt::RemoveItems", true);
            assertNull(OpcItemMgt.removeItems(itemMgt, new int[] {1}));
            SimControl.failNext("IOPCItemMgt::ValidateItems", E_FAIL, 1);
            fails("IOPCItemMgt::validateItems", () -> OpcItemMgt.validateItems(itemMgt,
                    new String[] {"Simulation.Static.R8"}, new int[1], new boolean[1], new int[1], new Recorder()));

            assertEquals(3, results.calls().size());
            assertEquals(List.of("ItemMgmt::AddItems->incoming argument is not valid",
                    "ItemMgmt::AddItems->No of items to be added is 0 or mgt is NULL",
                    "ItemMgmt::ValidateItems ->incoming argument is null",
                    "ItemMgmt::ValidateItems ->GetArrayLength is zero",
                    "ItemMgmt::RemoveItems-> Server Handles is NULL or mgt is NULL",
                    "ItemMgmt::RemoveItems-> Server Handles is not NULL, but contains no elements",
                    "OpcItemMgt::setActiveState->mgt is NULL",
                    "OpcItemMgt::setActiveState->GetArrayLength is zero",
                    "ItemMgt::AddItems- Item Id inside Item ID array is null",
                    "ItemMgmt::AddItems->HRESULTS is null",
                    "ItemMgmt::Remove Items -HRESULTs array is null ",
                    "ItemMgmt::ValidateItems ->Hresults is null"), log.texts());
        }
    }

    @Test
    void collectorsThatThrowOrLackTheirMethodStillHaveTheItemsAdded() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long itemMgt = sim.group("g", 1000).itemMgt();
            String[] ids = {"Simulation.Static.R8", "Simulation.Static.I4"};
            Recorder throwing = new Recorder("item ");
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcItemMgt.addItems(itemMgt, ids, new int[2], new boolean[2], new int[2], throwing));
            assertEquals(throwing.calls().get(0), thrown.getMessage());
            assertEquals(2, throwing.calls().size());
            assertArrayEquals(new int[] {0, 0}, OpcItemMgt.removeItems(itemMgt,
                    new int[] {handle(throwing, 0), handle(throwing, 1)}));

            assertThrows(NoSuchMethodError.class,
                    () -> OpcItemMgt.addItems(itemMgt, ids, new int[2], new boolean[2], new int[2], new Object()));
            assertEquals(2, SimControl.callCount("IOPCItemMgt::AddItems"));
            assertEquals(List.of("ItemMgmt::AddItems->Method is null"), log.texts());
        }
    }

    @Test
    void tenThousandItemsPassEveryPerItemPathWithoutJniWarnings() {
        // A child process: its own output is where the JVM reports local references left to pile up.
        ChildJvm.Result child = ChildJvm.run("bulk", "10000");
        assertEquals(0, child.exitCode(), child.output());
        child.assertPrinted("added 10000", "read 10000", "changed all true other 0", "completed 10000", "deleted 1",
                "removed 10000 failed 0", "live objects 0");
    }
}
