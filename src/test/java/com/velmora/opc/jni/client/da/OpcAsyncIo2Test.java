package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
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
class OpcAsyncIo2Test {
    private static final int E_FAIL = 0x80004005;
    private static final int OPC_E_BADRIGHTS = 0xC0040006;
    private static final int OPC_E_INVALIDHANDLE = 0xC0040001;

    private record Group(long asyncIo, int[] items) {}

    private static Group group(SimFixture sim, int rate, String... ids) {
        long unknown = sim.addGroup("g", rate)[0];
        int[] items = sim.addItems(sim.query(unknown, SimFixture.IID_IOPCITEMMGT), ids);
        return new Group(sim.query(unknown, SimFixture.IID_IOPCASYNCIO2), items);
    }

    @Test
    void aSubscriptionDeliversChangesOnComThreadsUntilUnadvised() {
        try (SimFixture sim = SimFixture.open()) {
            Group g = group(sim, 50, "Simulation.Ramp.I4", "Simulation.Static.BSTR");
            RecordingCallback callback = new RecordingCallback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), callback);
            assertNotEquals(0, cookie);
            assertEquals(1, SimControl.callCount("IOPCAsyncIO2::SetEnable"));

            callback.await(c -> c.startsWith("numeric 100 ") && c.endsWith(" async"));
            OpcAsyncIo2.refresh(g.asyncIo(), true);
            assertEquals("source=1 transaction=0", SimControl.lastCallArgs("IOPCAsyncIO2::Refresh2"));
            callback.await(c -> c.equals("string 101 [hello] q192 e0 async"));
            String testThread = Thread.currentThread().getName();
            assertTrue(callback.threadNames().stream().noneMatch(testThread::equals), callback.threadNames()::toString);

            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            callback.awaitDeleted();
            assertEquals(1, callback.deleted);
        }
    }

    @Test
    void readAsyncAnswersOnTheCallerThenCompletesThroughTheCallback() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, 60_000, "Simulation.Static.R8", "Simulation.Static.BOOL", "Simulation.Array.I2");
            RecordingCallback callback = new RecordingCallback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), callback);
            List<Object[]> returns = new ArrayList<>();
            ReadListener listener = (hr, count, transaction, cancelId, handles, errors) ->
                    returns.add(new Object[] {hr, count, transaction, cancelId, handles, errors});

            int[] handles = g.items();
            OpcAsyncIo2.readAsync(g.asyncIo(), 3, 42, handles, listener);
            assertEquals(1, returns.size());
            assertEquals(0, returns.get(0)[0]);
            assertEquals(42, returns.get(0)[2]);
            assertSame(handles, returns.get(0)[4]);
            assertNull(returns.get(0)[5]);
            String done = callback.await(c -> c.startsWith("read 42 "));
            assertEquals("read 42 0 0 3 [100, 101, 102] [1, 2, 3] [2.71828, true, -5,0,7] [192, 192, 192] [0, 0, 0]",
                    done);

            // A read error of one item arrives with the completion; an unknown handle with the issue.
            SimControl.setItemError("Simulation.Static.BOOL", OPC_E_BADRIGHTS);
            OpcAsyncIo2.readAsync(g.asyncIo(), 2, 43, handles, listener);
            assertEquals(0, returns.get(1)[0]);
            assertTrue(callback.await(c -> c.startsWith("read 43 ")).endsWith(" [0, " + OPC_E_BADRIGHTS + "]"));
            OpcAsyncIo2.readAsync(g.asyncIo(), 2, 44, new int[] {handles[0], 999_999}, listener);
            assertEquals(1, returns.get(2)[0]);
            assertArrayEquals(new int[] {0, OPC_E_INVALIDHANDLE}, (int[]) returns.get(2)[5]);
            callback.await(c -> c.startsWith("read 44 "));

            SimControl.failNext("IOPCAsyncIO2::Read", E_FAIL, 1);
            OpcAsyncIo2.readAsync(g.asyncIo(), 1, 45, handles, listener);
            assertEquals(E_FAIL, returns.get(3)[0]);
            assertNull(returns.get(3)[5]);

            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            callback.awaitDeleted();
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void argumentProblemsAreLoggedAndCancelGoesThroughEveryId() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, 60_000, "Simulation.Static.R8");
            RecordingCallback callback = new RecordingCallback();
            ReadListener listener = (hr, count, transaction, cancelId, handles, errors) -> callback.calls.add("returned");

            assertEquals(0, OpcAsyncIo2.advise(0, callback));
            OpcAsyncIo2.unadvise(0, 1);
            OpcAsyncIo2.refresh(0, true);
            OpcAsyncIo2.readAsync(g.asyncIo(), 0, 1, g.items(), listener);
            OpcAsyncIo2.readAsync(0, 1, 1, g.items(), listener);
            assertEquals(1, OpcAsyncIo2.cancel2(0, new int[] {1}, null));
            assertEquals(0, OpcAsyncIo2.cancel2(g.asyncIo(), null, null));
            assertEquals(0, SimControl.callCount("IOPCAsyncIO2::Cancel2") + SimControl.callCount("IOPCAsyncIO2::Read"));
            assertEquals(0, OpcAsyncIo2.cancel2(g.asyncIo(), new int[] {4, 5}, new int[] {6}));
            assertEquals(3, SimControl.callCount("IOPCAsyncIO2::Cancel2"));

            HresultException unknownCookie = assertThrows(HresultException.class,
                    () -> OpcAsyncIo2.unadvise(g.asyncIo(), 0x100000007L));
            assertEquals("IConnectionPoint::Unadvise", unknownCookie.getOperation());
            assertEquals(List.of(), callback.calls());
            assertEquals(0, callback.deleted);
            assertEquals(List.of("OpcAsyncIo2::advise- argument is NULL",
                    "IConnectionPoint::Unadvise argument is null",
                    "OpcAsyncIO2::readAsync -> serverHandles is null or count is zero",
                    "OpcAsyncIO2::readAsync->asio is null",
                    "OpcAsyncIO2::cancel2->asio is null",
                    "IConnectionPoint::Unadvise failed"), log.texts());
        }
    }
}
