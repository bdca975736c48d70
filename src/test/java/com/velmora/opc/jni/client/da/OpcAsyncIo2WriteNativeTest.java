package com.velmora.opc.jni.client.da;

import static com.velmora.opc.jni.client.da.OpcSyncIoWriteNativeTest.E_FAIL;
import static com.velmora.opc.jni.client.da.OpcSyncIoWriteNativeTest.OPC_E_BADRIGHTS;
import static com.velmora.opc.jni.client.da.OpcSyncIoWriteNativeTest.S_FALSE;
import static com.velmora.opc.jni.client.da.OpcSyncIoWriteNativeTest.VT_ARRAY;
import static com.velmora.opc.jni.client.da.OpcSyncIoWriteNativeTest.VT_BOOL;
import static com.velmora.opc.jni.client.da.OpcSyncIoWriteNativeTest.VT_R8;
import static com.velmora.opc.jni.client.da.OpcSyncIoWriteNativeTest.readBack;
import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;

import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class OpcAsyncIo2WriteNativeTest {
    private static final int CONNECT_E_NOCONNECTION = 0x80040200;

    @Test
    void theIssueIsReportedAtOnceAndTheCompletionCarriesTheSameTransaction() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long unknown = sim.addGroup("w", 60_000)[0];
            int[] h = sim.addItems(sim.query(unknown, SimFixture.IID_IOPCITEMMGT), "Simulation.Static.R8",
                    "Simulation.Array.BOOL", "Simulation.Access.ReadOnly");
            long asyncIo = sim.query(unknown, SimFixture.IID_IOPCASYNCIO2);
            int[] types = {VT_R8, VT_ARRAY | VT_BOOL, VT_R8};
            String[] values = {"2.5", "true,false,TRUE", "1"};
            OpcSyncIoWriteNativeTest.Returns returns = new OpcSyncIoWriteNativeTest.Returns();

            // Nothing subscribed yet: the server refuses the write as a whole, and only the listener hears of it.
            assertEquals(CONNECT_E_NOCONNECTION, OpcAsyncIo2.writeAsync(asyncIo, 3, 76, h, types, values, returns));
            assertArrayEquals(new Object[] {false, CONNECT_E_NOCONNECTION, 3, 76, 0, h, null}, returns.last());

            RecordingCallback callback = new RecordingCallback();
            long cookie = OpcAsyncIo2.advise(asyncIo, callback);
            assertEquals(S_FALSE, OpcAsyncIo2.writeAsync(asyncIo, 3, 77, h, types, values, returns));
            Object[] call = returns.last();
            assertNotEquals(0, call[4]);
            call[4] = 0;
            assertArrayEquals(new Object[] {false, S_FALSE, 3, 77, 0, h, new int[] {0, 0, OPC_E_BADRIGHTS}}, call);
            assertEquals("write 77 0 2 [100, 101] [0, 0]", callback.await(c -> c.startsWith("write ")));
            assertEquals(List.of("numeric 2.5", "string [true,false,false]"),
                    readBack(sim.query(unknown, SimFixture.IID_IOPCSYNCIO), h[0], h[1]));

            SimControl.failNext("IOPCAsyncIO2::Write", E_FAIL, 1);
            assertEquals(E_FAIL, OpcAsyncIo2.writeAsync(asyncIo, 1, 78, h, types, values, returns));
            assertArrayEquals(new Object[] {false, E_FAIL, 1, 78, 0, h, null}, returns.last());
            assertEquals(0, OpcAsyncIo2.writeAsync(0, 1, 79, h, types, values, returns));
            assertEquals(3, returns.calls.size());
            assertEquals(3, SimControl.callCount("IOPCAsyncIO2::Write"));
            assertEquals(List.of("OpcEnv::write->asio is null"), log.texts());

            OpcAsyncIo2.unadvise(asyncIo, cookie);
            callback.awaitDeleted();
            assertEquals(1, callback.calls().stream().filter(c -> c.startsWith("write ")).count());
        }
    }
}
