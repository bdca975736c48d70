package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import com.velmora.opc.testsupport.TestSupport;
import java.util.HashSet;
import java.util.List;
import java.util.Set;
import java.util.stream.Collectors;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * The life of the native data callback: how a connection is made or refused, every way it ends
 * (each with exactly one deletion notice), the threads it calls Java on, and Java callbacks that
 * misbehave.
 */
@ExtendWith(LedgerCheck.class)
class CallbackLifecycleTest {
    private static final int E_FAIL = 0x80004005;
    private static final int E_NOINTERFACE = 0x80004002;
    private static final int CONNECT_E_ADVISELIMIT = 0x80040201;

    private record Group(long itemMgt, long asyncIo, int[] items) {}

    private static Group group(SimFixture sim, int rate, String... ids) {
        long unknown = sim.addGroup("g", rate)[0];
        long itemMgt = sim.query(unknown, SimFixture.IID_IOPCITEMMGT);
        return new Group(itemMgt, sim.query(unknown, SimFixture.IID_IOPCASYNCIO2), sim.addItems(itemMgt, ids));
    }

    private static int deleted(RecordingCallback callback) {
        synchronized (callback) {
            return callback.deleted;
        }
    }

    /** The deletion count once a late second notice would have had time to come. */
    private static int settledDeletions(RecordingCallback callback) throws InterruptedException {
        callback.awaitDeleted();
        Thread.sleep(100);
        return deleted(callback);
    }

    private static long count(RecordingReceiver receiver, String prefix) {
        return receiver.calls().stream().filter(c -> c.startsWith(prefix)).count();
    }

    private static void awaitCount(RecordingReceiver receiver, String prefix, long atLeast) throws InterruptedException {
        for (int i = 0; i < 250 && count(receiver, prefix) < atLeast; i++) Thread.sleep(20);
        assertTrue(count(receiver, prefix) >= atLeast, () -> "fewer than " + atLeast + " '" + prefix + "' in "
                + receiver.calls());
    }

    @Test
    void aRefusedConnectionDeletesItsCallbackBeforeAdviseReturns() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, 60_000, "Simulation.Static.R8");
            RecordingCallback callback = new RecordingCallback();

            SimControl.failNext("IConnectionPoint::Advise", CONNECT_E_ADVISELIMIT, 1);
            HresultException refused = assertThrows(HresultException.class, () -> OpcAsyncIo2.advise(g.asyncIo(), callback));
            assertEquals("OpcAsyncIo2:: IConnectionPoint::Advise", refused.getOperation());
            assertEquals(CONNECT_E_ADVISELIMIT, refused.getHresult());
            assertEquals(1, deleted(callback));
            assertEquals(0, SimControl.callCount("IOPCAsyncIO2::SetEnable"));
            assertEquals(List.of(new LogCapture.Line("ERROR", "OpcAsyncIo2:: IConnectionPoint::Advise failed")),
                    log.lines());

            // Failures before the connection point is reached make no callback object at all.
            SimControl.failNext("IConnectionPointContainer::FindConnectionPoint", E_FAIL, 1);
            HresultException noPoint = assertThrows(HresultException.class, () -> OpcAsyncIo2.advise(g.asyncIo(), callback));
            assertEquals("IConnectionPointContainer::FindConnectionPoint", noPoint.getOperation());
            long plain = TestSupport.createObject();
            try {
                HresultException noContainer = assertThrows(HresultException.class,
                        () -> OpcAsyncIo2.advise(plain, callback));
                assertEquals("IUknown::QueryInterface#IConnectionPointContainer", noContainer.getOperation());
                assertEquals(E_NOINTERFACE, noContainer.getHresult());
                HresultException notAGroup = assertThrows(HresultException.class, () -> OpcAsyncIo2.unadvise(plain, 1));
                assertEquals("IOPCAsyncIO2::QueryInterface#IConnectionPointContainer", notAGroup.getOperation());
                assertEquals(1, TestSupport.refCount(plain));
            } finally {
                TestSupport.releaseObject(plain);
            }
            assertEquals(1, deleted(callback));
            assertEquals(List.of(), callback.calls());
        }
    }

    @Test
    void everyWayAConnectionEndsGivesExactlyOneDeletionNotice() throws InterruptedException {
        try (SimFixture sim = SimFixture.open()) {
            // Unadvise: only the low 32 bits of the cookie reach the server.
            Group g = group(sim, 60_000, "Simulation.Static.R8");
            RecordingCallback byCookie = new RecordingCallback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), byCookie);
            assertTrue(cookie > 0 && cookie <= 0xFFFFFFFFL, "cookie " + cookie);
            assertEquals("enable=1", SimControl.lastCallArgs("IOPCAsyncIO2::SetEnable"));
            OpcAsyncIo2.unadvise(g.asyncIo(), cookie | 0x3_0000_0000L);
            assertEquals("cookie=" + cookie, SimControl.lastCallArgs("IConnectionPoint::Unadvise"));
            assertEquals(1, settledDeletions(byCookie));

            // The group removed from the server: the connection ends when the last handle goes.
            long[] removed = OpcDaServer.addGroup(sim.server, "removed", true, 60_000, 1, 0, 0f, 0);
            long removedIo = ComObjectClient.query(removed[0], SimFixture.IID_IOPCASYNCIO2);
            RecordingCallback byRemoval = new RecordingCallback();
            assertNotEquals(0, OpcAsyncIo2.advise(removedIo, byRemoval));
            OpcDaServer.removeGroup(sim.server, (int) removed[1], true);
            Thread.sleep(50);
            assertEquals(0, deleted(byRemoval));
            ComObjectClient.release(removedIo);
            ComObjectClient.release(removed[0]);
            assertEquals(1, settledDeletions(byRemoval));

            // The server released while its group is still connected.
            long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
            long[] owned = OpcDaServer.addGroup(server, "owned", true, 60_000, 1, 0, 0f, 0);
            long ownedIo = ComObjectClient.query(owned[0], SimFixture.IID_IOPCASYNCIO2);
            RecordingCallback byServer = new RecordingCallback();
            assertNotEquals(0, OpcAsyncIo2.advise(ownedIo, byServer));
            ComObjectClient.release(ownedIo);
            ComObjectClient.release(owned[0]);
            Thread.sleep(50);
            assertEquals(0, deleted(byServer));
            ComObjectClient.release(server);
            assertEquals(1, settledDeletions(byServer));
        }
    }

    @Test
    void callbackThreadsAreServerThreadsAttachedOnlyWhileTheyDeliver() throws InterruptedException {
        try (SimFixture sim = SimFixture.open()) {
            Group g = group(sim, 10, "Simulation.Ramp.I4");
            RecordingCallback callback = new RecordingCallback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), callback);
            awaitCount(callback, "numeric 100 ", 3);
            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            assertEquals(1, settledDeletions(callback));

            assertTrue(callback.calls().stream().allMatch(c -> c.endsWith(" async")), callback.calls()::toString);
            Set<String> callbackThreads = new HashSet<>(callback.threadNames());
            assertFalse(callbackThreads.contains(Thread.currentThread().getName()), callbackThreads::toString);
            // Once the connection is over, no thread the library attached is still known to the JVM.
            Set<String> stillAttached = Set.of();
            for (int i = 0; i < 100; i++) {
                stillAttached = Thread.getAllStackTraces().keySet().stream().map(Thread::getName)
                        .filter(callbackThreads::contains).collect(Collectors.toSet());
                if (stillAttached.isEmpty()) break;
                Thread.sleep(20);
            }
            assertEquals(Set.of(), stillAttached);
        }
    }

    @Test
    void misbehavingJavaCallbacksCostOnlyTheirOwnCalls() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, 60_000, "Simulation.Static.R8", "Simulation.Static.BSTR");
            // An exception from one update does not stop the items after it, nor later deliveries.
            RecordingCallback throwing = new RecordingCallback() {
                @Override
                public synchronized void updateNumeric(int h, double v, long t, int q, int e, boolean s) {
                    super.updateNumeric(h, v, t, q, e, s);
                    throw new IllegalStateException("refused by the test");
                }
            };
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), throwing);
            OpcAsyncIo2.refresh(g.asyncIo(), true);
            awaitCount(throwing, "string 101 ", 1);
            OpcAsyncIo2.refresh(g.asyncIo(), true);
            awaitCount(throwing, "numeric 100 ", 2);
            awaitCount(throwing, "string 101 ", 2);
            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            assertEquals(1, settledDeletions(throwing));

            // An update receiver without the completion and deletion methods still gets data changes.
            RecordingReceiver updatesOnly = new RecordingReceiver();
            cookie = OpcAsyncIo2.advise(g.asyncIo(), updatesOnly);
            OpcAsyncIo2.refresh(g.asyncIo(), false);
            awaitCount(updatesOnly, "string 101 ", 1);
            int[] issued = {-1};
            OpcAsyncIo2.readAsync(g.asyncIo(), 2, 5, g.items(), (ReadListener) (hr, n, tx, id, h, e) -> issued[0] = hr);
            assertEquals(0, issued[0]);
            Thread.sleep(100);
            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void refreshReadAndCancelReachTheServerAsAsked() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, 60_000, "Simulation.Static.R8");
            RecordingCallback callback = new RecordingCallback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), callback);
            OpcAsyncIo2.refresh(g.asyncIo(), false);
            assertEquals("source=2 transaction=0", SimControl.lastCallArgs("IOPCAsyncIO2::Refresh2"));

            // A cancelled read never completes; the one after it does.
            SimControl.setAsyncDelay(300);
            int[] cancelId = {0};
            ReadListener listener = (hr, n, tx, id, h, e) -> cancelId[0] = id;
            OpcAsyncIo2.readAsync(g.asyncIo(), 1, 7, g.items(), listener);
            assertNotEquals(0, cancelId[0]);
            assertEquals(0, OpcAsyncIo2.cancel2(g.asyncIo(), new int[] {cancelId[0]}, new int[0]));
            assertEquals("cancel=" + cancelId[0], SimControl.lastCallArgs("IOPCAsyncIO2::Cancel2"));
            OpcAsyncIo2.readAsync(g.asyncIo(), 1, 8, g.items(), listener);
            callback.await(c -> c.startsWith("read 8 "));
            assertEquals(0, count(callback, "read 7 "));

            // Without a listener the read is issued all the same and completes.
            SimControl.setAsyncDelay(0);
            OpcAsyncIo2.readAsync(g.asyncIo(), 1, 9, g.items(), null);
            callback.await(c -> c.startsWith("read 9 "));
            assertEquals("count=1 handles=" + g.items()[0] + " transaction=9",
                    SimControl.lastCallArgs("IOPCAsyncIO2::Read"));

            // Nothing active, nothing to refresh.
            OpcItemMgt.setActiveState(g.itemMgt(), g.items(), false);
            HresultException idle = assertThrows(HresultException.class, () -> OpcAsyncIo2.refresh(g.asyncIo(), true));
            assertEquals("IOPCAsyncIO2::Refresh2", idle.getOperation());
            assertEquals(E_FAIL, idle.getHresult());

            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            assertEquals(1, settledDeletions(callback));
            assertEquals(List.of(new LogCapture.Line("ERROR", "OpcAsyncIO2::readAsync - jclass object clazz is null"),
                    new LogCapture.Line("TRACE", "IOPCAsyncIO2::Refresh2- check returned false")), log.lines());
        }
    }
}
