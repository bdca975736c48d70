package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
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

@ExtendWith(LedgerCheck.class)
class OpcItemMgtTest {
    private static final int E_FAIL = 0x80004005;
    private static final int OPC_E_UNKNOWNITEMID = 0xC0040007;
    private static final int OPC_E_INVALIDHANDLE = 0xC0040001;
    private static final int VT_R8 = 5;
    private static final int VT_BSTR = 8;

    /** One addResult call. */
    record Result(String itemId, int serverHandle, int type, int rights, int error) {}

    static final class Results implements ItemResultCollector {
        final List<Result> calls = new ArrayList<>();

        @Override
        public void addResult(String itemId, int serverHandle, int type, int rights, int error) {
            calls.add(new Result(itemId, serverHandle, type, rights, error));
        }
    }

    @Test
    void addItemsDeliversOneResultPerItemInOrderRejectedOnesIncluded() {
        try (SimFixture sim = SimFixture.open()) {
            long itemMgt = sim.query(sim.addGroup("g")[0], SimFixture.IID_IOPCITEMMGT);
            String[] ids = {"Simulation.Static.R8", "No.Such.Item", "Simulation.Access.ReadOnly"};
            Results results = new Results();
            OpcItemMgt.addItems(itemMgt, ids, new int[] {1, 2, 3}, new boolean[] {true, false, true},
                    new int[] {0, 0, VT_BSTR}, results);

            assertEquals("count=3 ids=Simulation.Static.R8,No.Such.Item,Simulation.Access.ReadOnly types=0,0,8 "
                    + "active=1,0,1", SimControl.lastCallArgs("IOPCItemMgt::AddItems"));
            assertEquals(3, results.calls.size());
            assertSame(ids[0], results.calls.get(0).itemId());
            assertEquals(VT_R8, results.calls.get(0).type());
            assertEquals(3, results.calls.get(0).rights());
            assertEquals(0, results.calls.get(0).error());
            assertEquals(OPC_E_UNKNOWNITEMID, results.calls.get(1).error());
            assertEquals(1, results.calls.get(2).rights());

            int[] handles = {results.calls.get(0).serverHandle(), results.calls.get(2).serverHandle(), 999_999};
            assertArrayEquals(new int[] {0, 0, OPC_E_INVALIDHANDLE}, OpcItemMgt.setActiveState(itemMgt, handles, false));
            assertTrue(SimControl.lastCallArgs("IOPCItemMgt::SetActiveState").contains("active=0"),
                    SimControl.lastCallArgs("IOPCItemMgt::SetActiveState"));
            assertArrayEquals(new int[] {0, 0, OPC_E_INVALIDHANDLE}, OpcItemMgt.removeItems(itemMgt, handles));
            assertArrayEquals(new int[] {OPC_E_INVALIDHANDLE}, OpcItemMgt.removeItems(itemMgt, new int[] {handles[0]}));
        }
    }

    @Test
    void validateItemsLeavesNothingOnTheServerAndGoesOnAfterAFailedCall() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long itemMgt = sim.query(sim.addGroup("g")[0], SimFixture.IID_IOPCITEMMGT);
            Results results = new Results();
            OpcItemMgt.validateItems(itemMgt, new String[] {"Simulation.Static.BSTR", null}, new int[2],
                    new boolean[2], new int[2], results);
            assertEquals(2, results.calls.size());
            assertEquals(VT_BSTR, results.calls.get(0).type());
            assertEquals(0, results.calls.get(0).error());
            assertNull(results.calls.get(1).itemId());
            assertTrue(results.calls.get(1).error() < 0);

            SimControl.failNext("IOPCItemMgt::ValidateItems", E_FAIL, 1);
            HresultException failed = assertThrows(HresultException.class, () -> OpcItemMgt.validateItems(itemMgt,
                    new String[] {"Simulation.Static.R8"}, new int[1], new boolean[1], new int[1], new Results()));
            assertEquals("IOPCItemMgt::validateItems", failed.getOperation());
            assertEquals(List.of("ItemMgmt::ValidateItems ->Hresults is null"), log.texts());
        }
    }

    @Test
    void argumentAndResultProblemsAreLoggedNotThrown() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long itemMgt = sim.query(sim.addGroup("g")[0], SimFixture.IID_IOPCITEMMGT);
            OpcItemMgt.addItems(itemMgt, null, new int[0], new boolean[0], new int[0], new Results());
            OpcItemMgt.addItems(itemMgt, new String[0], new int[0], new boolean[0], new int[0], new Results());
            OpcItemMgt.validateItems(0, new String[1], new int[1], new boolean[1], new int[1], new Results());
            OpcItemMgt.validateItems(itemMgt, new String[0], new int[0], new boolean[0], new int[0], new Results());
            assertNull(OpcItemMgt.removeItems(itemMgt, null));
            assertNull(OpcItemMgt.removeItems(itemMgt, new int[0]));
            assertNull(OpcItemMgt.setActiveState(0, new int[] {1}, true));
            assertNull(OpcItemMgt.setActiveState(itemMgt, new int[0], true));
            assertEquals(0, SimControl.callCount("IOPCItemMgt::AddItems")
                    + SimControl.callCount("IOPCItemMgt::ValidateItems")
                    + SimControl.callCount("IOPCItemMgt::RemoveItems")
                    + SimControl.callCount("IOPCItemMgt::SetActiveState"));

            // A null id is sent as the empty id; a null collector still adds the items.
            Results results = new Results();
            OpcItemMgt.addItems(itemMgt, new String[] {null}, new int[1], new boolean[1], new int[1], results);
            assertTrue(results.calls.get(0).error() < 0);
            SimControl.setNullResults("IOPCItemMgt::AddItems", true);
            OpcItemMgt.addItems(itemMgt, new String[] {"Simulation.Static.I4"}, new int[1], new boolean[1],
                    new int[1], results);
            SimControl.setNullResults("IOPCItemMgt::RemoveItems", true);
            assertNull(OpcItemMgt.removeItems(itemMgt, new int[] {1}));

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
                    "ItemMgmt::Remove Items -HRESULTs array is null "), log.texts());
        }
    }
}
