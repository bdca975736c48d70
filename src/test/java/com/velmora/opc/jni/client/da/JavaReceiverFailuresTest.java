package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * Java objects handed to the natives that throw or lack their method: the caller sees the Java
 * exception, every item still gets its call, and nothing the server returned is left behind.
 */
@ExtendWith(LedgerCheck.class)
class JavaReceiverFailuresTest {

    @Test
    void aThrowingUpdateReceiverStillGetsEveryItemOfARead() {
        try (SimFixture sim = SimFixture.open()) {
            long group = sim.addGroup("g")[0];
            int[] items = sim.addItems(sim.query(group, SimFixture.IID_IOPCITEMMGT), "Simulation.Static.BSTR",
                    "Simulation.Array.BSTR", "Simulation.Static.R8");
            long syncIo = sim.query(group, SimFixture.IID_IOPCSYNCIO);
            RecordingReceiver throwing = new RecordingReceiver() {
                @Override
                public void updateString(int h, String v, long t, int q, int e, boolean s) {
                    super.updateString(h, v, t, q, e, s);
                    throw new IllegalStateException("string " + h);
                }
            };
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcSyncIo.read(syncIo, items, true, throwing));
            assertEquals("string " + items[0], thrown.getMessage());
            assertEquals(3, throwing.calls().size(), throwing.calls()::toString);
        }
    }

    @Test
    void aThrowingResultCollectorStillGetsEveryItem() {
        try (SimFixture sim = SimFixture.open()) {
            long itemMgt = sim.query(sim.addGroup("g")[0], SimFixture.IID_IOPCITEMMGT);
            List<Integer> handles = new ArrayList<>();
            ItemResultCollector throwing = (id, handle, type, rights, error) -> {
                handles.add(handle);
                throw new IllegalArgumentException(id);
            };
            String[] ids = {"Simulation.Static.R8", "Simulation.Static.I4"};
            IllegalArgumentException thrown = assertThrows(IllegalArgumentException.class,
                    () -> OpcItemMgt.addItems(itemMgt, ids, new int[2], new boolean[2], new int[2], throwing));
            assertEquals(ids[0], thrown.getMessage());
            assertEquals(2, handles.size());
            // The items were added all the same.
            assertArrayEquals(new int[] {0, 0}, OpcItemMgt.removeItems(itemMgt, new int[] {handles.get(0), handles.get(1)}));

            // A collector without addResult: the items are added, nothing is delivered.
            try (LogCapture log = new LogCapture()) {
                assertThrows(NoSuchMethodError.class,
                        () -> OpcItemMgt.addItems(itemMgt, ids, new int[2], new boolean[2], new int[2], new Object()));
                assertEquals(List.of("ItemMgmt::AddItems->Method is null"), log.texts());
            }
            assertEquals(2, SimControl.callCount("IOPCItemMgt::AddItems"));
        }
    }

    @Test
    void statusAndReadIssueReceiversThatThrowOrLackTheirMethod() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            ServerStatusReceiver throwing = (start, current, last, state, groups, band, major, minor, build, vendor) -> {
                throw new IllegalStateException(vendor);
            };
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcDaServer.getStatus(sim.server, throwing));
            assertEquals("Velmora Simulation Server", thrown.getMessage());
            assertThrows(NoSuchMethodError.class, () -> OpcDaServer.getStatus(sim.server, new Object()));

            long group = sim.addGroup("g")[0];
            int[] items = sim.addItems(sim.query(group, SimFixture.IID_IOPCITEMMGT), "Simulation.Static.R8");
            long asyncIo = sim.query(group, SimFixture.IID_IOPCASYNCIO2);
            RecordingCallback callback = new RecordingCallback();
            long cookie = OpcAsyncIo2.advise(asyncIo, callback);
            ReadListener refusing = (hr, n, tx, id, h, e) -> {
                throw new IllegalStateException("issued " + tx);
            };
            thrown = assertThrows(IllegalStateException.class, () -> OpcAsyncIo2.readAsync(asyncIo, 1, 3, items, refusing));
            assertEquals("issued 3", thrown.getMessage());
            callback.await(c -> c.startsWith("read 3 "));
            OpcAsyncIo2.unadvise(asyncIo, cookie);
            callback.awaitDeleted();
            assertEquals(List.of("OpcDaServer::getStatus- status class construcor or vendorinfo is null"), log.texts());
        }
    }
}
