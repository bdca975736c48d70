package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.jni.NativeChildMain;
import com.velmora.opc.testsupport.ChildJvm;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import com.velmora.opc.testsupport.TestSupport;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/** Item batches as the server sees them: requested types bit for bit, and batches of many items. */
@ExtendWith(LedgerCheck.class)
class ItemBatchesTest {
    private static final int VT_R8 = 5;
    private static final int VT_ARRAY_R8 = 0x2005;
    private static final int OPC_E_BADTYPE = 0xC0040004;

    @Test
    void requestedTypesReachTheServerUnchanged() {
        try (SimFixture sim = SimFixture.open()) {
            long itemMgt = sim.query(sim.addGroup("types")[0], SimFixture.IID_IOPCITEMMGT);
            List<String> results = new ArrayList<>();
            ItemResultCollector collector = (id, handle, type, rights, error) ->
                    results.add(id + " type=" + type + " error=" + error);
            String[] ids = {"Simulation.Array.R8", "Simulation.Static.R8", "Simulation.Static.I4"};
            int[] types = {VT_ARRAY_R8, VT_ARRAY_R8, VT_R8};

            OpcItemMgt.validateItems(itemMgt, ids, new int[3], new boolean[3], types, collector);
            assertEquals(0, SimControl.callCount("IOPCItemMgt::AddItems"));
            OpcItemMgt.addItems(itemMgt, ids, new int[] {1, 2, 3}, new boolean[] {true, true, true}, types, collector);
            assertEquals("count=3 ids=Simulation.Array.R8,Simulation.Static.R8,Simulation.Static.I4 types=8197,8197,5 "
                    + "active=1,1,1", SimControl.lastCallArgs("IOPCItemMgt::AddItems"));
            List<String> expected = List.of("Simulation.Array.R8 type=8197 error=0",
                    "Simulation.Static.R8 type=0 error=" + OPC_E_BADTYPE, "Simulation.Static.I4 type=3 error=0");
            assertEquals(expected.get(0), results.get(0));
            assertTrue(results.get(1).endsWith("error=" + OPC_E_BADTYPE), results::toString);
            assertEquals(expected.get(2), results.get(2));
            assertEquals(results.subList(0, 3).stream().map(r -> r.replaceAll(" type=\\d+", "")).toList(),
                    results.subList(3, 6).stream().map(r -> r.replaceAll(" type=\\d+", "")).toList());
        }
    }

    @Test
    void tenThousandItemsPassEveryPerItemPathWithoutJniWarnings() {
        // A child process: its own output is where the JVM reports local references left to pile up.
        ChildJvm.Result child = ChildJvm.run(NativeChildMain.class, TestSupport.nativeDir(), Set.of(), "bulk", "10000");
        assertEquals(0, child.exitCode(), child.output());
        for (String line : List.of("added 10000", "read 10000", "changed all true other 0", "completed 10000",
                "deleted 1", "removed 10000 failed 0", "live objects 0")) {
            assertTrue(child.printed(line), () -> line + " in\n" + child.output());
        }
    }
}
