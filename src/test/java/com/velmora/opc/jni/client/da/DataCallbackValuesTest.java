package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * Values that reach Java through the data callback: one update call per item for data changes,
 * kinds and texts for read completions, and what null strings and null arrays become on that path.
 */
@ExtendWith(LedgerCheck.class)
class DataCallbackValuesTest {
    private static final String[] ITEMS = {"Simulation.Static.BSTR", "Simulation.Static.UI4", "Simulation.Array.UI4",
        "Simulation.Array.BSTR", "Simulation.Array.I1", "Simulation.Unsupported.CY", "Simulation.Static.BOOL",
        "Simulation.Array.UI2"};

    private static void awaitCalls(RecordingReceiver receiver, int atLeast) throws InterruptedException {
        for (int i = 0; i < 250 && receiver.calls().size() < atLeast; i++) Thread.sleep(20);
        Thread.sleep(50);
        assertEquals(atLeast, receiver.calls().size(), receiver.calls()::toString);
    }

    @Test
    void everyTypeTakesItsWayOnTheCallbackPath() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long group = sim.addGroup("values", 60_000)[0];
            int[] items = sim.addItems(sim.query(group, SimFixture.IID_IOPCITEMMGT), ITEMS);
            long asyncIo = sim.query(group, SimFixture.IID_IOPCASYNCIO2);
            RecordingCallback callback = new RecordingCallback();
            long before = System.currentTimeMillis() - 1000;
            long cookie = OpcAsyncIo2.advise(asyncIo, callback);

            // The first update after connecting sends every item once.
            awaitCalls(callback, 8);
            assertEquals(List.of(
                    "string 100 [hello] q192 e0 async",
                    "numeric 101 4.0E9 q192 e0 async",
                    "string 102 [4294967295,0,7] q192 e0 async",
                    "string 103 [ab,c] q192 e0 async",
                    "error 104 q192 e0 async",
                    "error 105 q192 e0 async",
                    "boolean 106 true q192 e0 async",
                    "string 107 [0,65535] q192 e0 async"), callback.calls());
            assertTrue(callback.timestamps.stream().allMatch(t -> t > before), callback.timestamps::toString);

            OpcAsyncIo2.readAsync(asyncIo, 8, 11, items, (ReadListener) (hr, n, tx, id, h, e) -> {});
            assertEquals("read 11 0 0 8 [100, 101, 102, 103, 104, 105, 106, 107] [3, 1, 3, 3, 4, 4, 2, 3] "
                    + "[hello, 4e+09, 4294967295,0,7, ab,c, , , true, 0,65535] "
                    + "[192, 192, 192, 192, 192, 192, 192, 192] [0, 0, 0, 0, 0, 0, 0, 0]",
                    callback.await(c -> c.startsWith("read 11 ")));

            // Null strings and null arrays: a data change skips the null string and delivers empty
            // texts for the arrays; a read completion gives empty texts for all of them.
            SimControl.setNullResults("values", true);
            OpcAsyncIo2.refresh(asyncIo, true);
            awaitCalls(callback, 8 + 1 + 7);
            assertEquals(List.of(
                    "numeric 101 4.0E9 q192 e0 async",
                    "string 102 [] q192 e0 async",
                    "string 103 [] q192 e0 async",
                    "error 104 q192 e0 async",
                    "error 105 q192 e0 async",
                    "boolean 106 true q192 e0 async",
                    "string 107 [] q192 e0 async"), callback.calls().subList(9, 16));
            OpcAsyncIo2.readAsync(asyncIo, 8, 12, items, (ReadListener) (hr, n, tx, id, h, e) -> {});
            assertEquals("read 12 0 0 8 [100, 101, 102, 103, 104, 105, 106, 107] [3, 1, 3, 3, 4, 4, 2, 3] "
                    + "[, 4e+09, , , , , true, ] "
                    + "[192, 192, 192, 192, 192, 192, 192, 192] [0, 0, 0, 0, 0, 0, 0, 0]",
                    callback.await(c -> c.startsWith("read 12 ")));

            OpcAsyncIo2.unadvise(asyncIo, cookie);
            callback.awaitDeleted();
            List<LogCapture.Line> nullArrays = List.of(
                    new LogCapture.Line("TRACE", "OpcAsyncIo2::OnDataChange SafeArray -ulong is null"),
                    new LogCapture.Line("TRACE", "OpcAsyncIo2::OnDataChange SafeArray -BSTR is null"),
                    new LogCapture.Line("TRACE", "OpcAsyncIo2::OnDataChange SafeArray -ushort is null"));
            assertEquals(List.of(nullArrays, nullArrays).stream().flatMap(List::stream).toList(), log.lines());
        }
    }
}
