package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class OpcSyncIoTest {
    private static final int E_FAIL = 0x80004005;
    private static final int OPC_E_BADRIGHTS = 0xC0040006;

    /** A group with the items added; the handles of the group's IOPCSyncIO and of the items. */
    private record Group(long syncIo, int[] items) {}

    private static Group group(SimFixture sim, String... ids) {
        long unknown = sim.addGroup("g")[0];
        int[] items = sim.addItems(sim.query(unknown, SimFixture.IID_IOPCITEMMGT), ids);
        return new Group(sim.query(unknown, SimFixture.IID_IOPCSYNCIO), items);
    }

    @Test
    void everyItemReachesItsMethodInRequestOrderWithItsServerHandle() {
        try (SimFixture sim = SimFixture.open()) {
            Group g = group(sim, "Simulation.Static.I2", "Simulation.Static.BOOL", "Simulation.Static.BSTR",
                    "Simulation.Array.R8", "Simulation.Unsupported.I8", "Simulation.Access.WriteOnly",
                    "Simulation.Quality.Bad", "Simulation.Array.BOOL", "Simulation.Static.UI4");
            int[] h = g.items();
            RecordingReceiver receiver = new RecordingReceiver();
            long before = System.currentTimeMillis() - 1000;
            OpcSyncIo.read(g.syncIo(), h, false, receiver);

            assertEquals(List.of(
                    "numeric " + h[0] + " -1234.0 q192 e0 sync",
                    "boolean " + h[1] + " true q192 e0 sync",
                    "string " + h[2] + " [hello] q192 e0 sync",
                    "string " + h[3] + " [1.3,2.0,-3.1] q192 e0 sync",
                    "error " + h[4] + " q192 e0 sync",
                    "error " + h[5] + " q0 e" + OPC_E_BADRIGHTS + " sync",
                    "numeric " + h[6] + " -1.0 q24 e0 sync",
                    "string " + h[7] + " [true,false] q192 e0 sync",
                    "numeric " + h[8] + " 4.0E9 q192 e0 sync"), receiver.calls());
            assertTrue(receiver.timestamps.get(0) > before, "timestamp " + receiver.timestamps.get(0));
            assertTrue(SimControl.lastCallArgs("IOPCSyncIO::Read").startsWith("source=2 count=9 handles=" + h[0] + ","));

            OpcSyncIo.read(g.syncIo(), new int[] {h[2], h[0]}, true, receiver);
            assertEquals("source=1 count=2 handles=" + h[2] + "," + h[0], SimControl.lastCallArgs("IOPCSyncIO::Read"));
            assertEquals("string " + h[2] + " [hello] q192 e0 sync", receiver.calls().get(9));
        }
    }

    @Test
    void nullStringsAndArraysArriveEmptyAndPerItemErrorsAsUpdateError() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, "Simulation.Static.BSTR", "Simulation.Array.R8", "Simulation.Array.I4",
                    "Simulation.Static.R8");
            int[] h = g.items();
            SimControl.setNullResults("values", true);
            SimControl.setItemError("Simulation.Static.R8", OPC_E_BADRIGHTS);
            RecordingReceiver receiver = new RecordingReceiver();
            OpcSyncIo.read(g.syncIo(), h, true, receiver);
            assertEquals(List.of(
                    "string " + h[0] + " [] q192 e0 sync",
                    "string " + h[1] + " [] q192 e0 sync",
                    "string " + h[2] + " [] q192 e0 sync",
                    "error " + h[3] + " q0 e" + OPC_E_BADRIGHTS + " sync"), receiver.calls());
            assertEquals(List.of("OpcSyncIO::read -> SafeArray -double is null",
                    "OpcSyncIO::read -> SafeArray -char is null"), log.texts());
        }
    }

    @Test
    void failuresBeforeAndAfterTheServerCall() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, "Simulation.Static.R8");
            RecordingReceiver receiver = new RecordingReceiver();

            OpcSyncIo.read(0, g.items(), true, receiver);
            OpcSyncIo.read(g.syncIo(), null, true, receiver);
            OpcSyncIo.read(g.syncIo(), new int[0], true, receiver);
            assertEquals(0, SimControl.callCount("IOPCSyncIO::Read"));

            OpcSyncIo.read(g.syncIo(), g.items(), true, null);
            // A receiver without all four methods gets nothing; the failed look-up is what Java sees.
            Object partial = new Object() {
                @SuppressWarnings("unused")
                public void updateNumeric(int h, double v, long t, int q, int e, boolean s) {
                    receiver.updateNumeric(h, v, t, q, e, s);
                }
            };
            assertThrows(NoSuchMethodError.class, () -> OpcSyncIo.read(g.syncIo(), g.items(), true, partial));
            SimControl.setNullResults("IOPCSyncIO::Read", true);
            OpcSyncIo.read(g.syncIo(), g.items(), true, receiver);
            assertEquals(3, SimControl.callCount("IOPCSyncIO::Read"));
            assertEquals(List.of(), receiver.calls());
            assertEquals(List.of("OpcSyncIo:read->argument is null",
                    "OpcSyncIO::read -> serverHandles is null",
                    "OpcSyncIO::read -> GetArrayLength is zero",
                    "OpcSyncIO::read -> readResults or hresults is null",
                    "OpcSyncIO::read -> jni method ids are null",
                    "OpcSyncIO::read -> readResults or hresults is null"), log.texts());
        }
    }

    @Test
    void aFailedReadRaisesHresultExceptionAndDeliversNothing() {
        try (SimFixture sim = SimFixture.open()) {
            Group g = group(sim, "Simulation.Static.R8");
            RecordingReceiver receiver = new RecordingReceiver();
            SimControl.failNext("IOPCSyncIO::Read", E_FAIL, 1);
            HresultException failed = assertThrows(HresultException.class,
                    () -> OpcSyncIo.read(g.syncIo(), g.items(), false, receiver));
            assertEquals(E_FAIL, failed.getHresult());
            assertEquals("IOPCSyncIO::Read", failed.getOperation());
            assertEquals(List.of(), receiver.calls());
        }
    }
}
