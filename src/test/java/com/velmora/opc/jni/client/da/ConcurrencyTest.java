package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimFixture;
import java.util.ArrayList;
import java.util.List;
import java.util.Queue;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * One server under load from every side at once: a fast subscription delivering on the server's
 * threads while Java threads read synchronously and other groups subscribe and unsubscribe.
 */
@ExtendWith(LedgerCheck.class)
class ConcurrencyTest {
    private static final long RUN_MILLIS = 1500;

    /** Checks every synchronous read on the thread that made it: all items, in order, on that thread. */
    private static final class ReadChecker implements UpdateReceiver {
        private final int[] expected;
        private final Thread owner = Thread.currentThread();
        private final List<String> problems = new ArrayList<>();
        private int next;

        ReadChecker(int[] expected) {
            this.expected = expected;
        }

        private void item(int handle, boolean synchronous) {
            if (Thread.currentThread() != owner) problems.add("delivered on " + Thread.currentThread().getName());
            if (!synchronous) problems.add("not flagged synchronous");
            if (next >= expected.length || expected[next] != handle) problems.add("handle " + handle + " at " + next);
            next++;
        }

        void endOfRead() {
            if (next != expected.length) problems.add(next + " items in one read");
            next = 0;
        }

        @Override
        public void updateNumeric(int h, double v, long t, int q, int e, boolean s) {
            item(h, s);
        }

        @Override
        public void updateBoolean(int h, boolean v, long t, int q, int e, boolean s) {
            item(h, s);
        }

        @Override
        public void updateString(int h, String v, long t, int q, int e, boolean s) {
            item(h, s);
        }

        @Override
        public void updateError(int h, long t, int q, int e, boolean s) {
            item(h, s);
        }
    }

    @Test
    void readsSubscriptionsAndChurnRunTogether() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long fastGroup = sim.addGroup("fast", 10)[0];
            sim.addItems(sim.query(fastGroup, SimFixture.IID_IOPCITEMMGT), "Simulation.Ramp.R8", "Simulation.Sine.R8",
                    "Simulation.Random.I4");
            long fastIo = sim.query(fastGroup, SimFixture.IID_IOPCASYNCIO2);
            RecordingCallback fast = new RecordingCallback();
            long fastCookie = OpcAsyncIo2.advise(fastIo, fast);

            long readGroup = sim.addGroup("reads")[0];
            int[] readItems = sim.addItems(sim.query(readGroup, SimFixture.IID_IOPCITEMMGT), "Simulation.Static.R8",
                    "Simulation.Static.BSTR", "Simulation.Array.I2", "Simulation.Random.R8", "Simulation.Static.BOOL");
            long syncIo = sim.query(readGroup, SimFixture.IID_IOPCSYNCIO);

            Queue<String> problems = new ConcurrentLinkedQueue<>();
            AtomicInteger reads = new AtomicInteger();
            AtomicInteger cycles = new AtomicInteger();
            long deadline = System.currentTimeMillis() + RUN_MILLIS;
            List<Thread> threads = new ArrayList<>();
            for (int t = 0; t < 4; t++) {
                boolean fromCache = t % 2 == 0;
                threads.add(worker(problems, () -> {
                    ReadChecker checker = new ReadChecker(readItems);
                    while (System.currentTimeMillis() < deadline) {
                        OpcSyncIo.read(syncIo, readItems, fromCache, checker);
                        checker.endOfRead();
                        reads.incrementAndGet();
                    }
                    problems.addAll(checker.problems);
                }));
            }
            for (int t = 0; t < 2; t++) {
                int id = t;
                threads.add(worker(problems, () -> {
                    for (int cycle = 0; System.currentTimeMillis() < deadline; cycle++) {
                        churn(sim.server, "churn-" + id + "-" + cycle, problems);
                        cycles.incrementAndGet();
                    }
                }));
            }
            for (Thread thread : threads) thread.join(30_000);

            OpcAsyncIo2.unadvise(fastIo, fastCookie);
            fast.awaitDeleted();
            assertEquals(List.of(), List.copyOf(problems));
            assertTrue(reads.get() >= 8, "reads " + reads.get());
            assertTrue(cycles.get() >= 2, "subscription cycles " + cycles.get());
            assertTrue(fast.calls().size() >= 10, "data changes " + fast.calls().size());
            assertTrue(fast.calls().stream().allMatch(c -> c.endsWith(" async")));
            assertTrue(fast.threadNames().stream().noneMatch(n -> n.startsWith("worker-") || n.equals("main")),
                    fast.threadNames()::toString);
            assertEquals(1, fast.deleted);
            assertEquals(List.of(), log.texts());
        }
    }

    // One short-lived subscription on a group of its own, from add to remove.
    private static void churn(long server, String name, Queue<String> problems) throws InterruptedException {
        long[] group = OpcDaServer.addGroup(server, name, true, 10, 9, 0, 0f, 0);
        long itemMgt = ComObjectClient.query(group[0], SimFixture.IID_IOPCITEMMGT);
        long asyncIo = ComObjectClient.query(group[0], SimFixture.IID_IOPCASYNCIO2);
        OpcItemMgt.addItems(itemMgt, new String[] {"Simulation.Ramp.I4"}, new int[] {500}, new boolean[] {true},
                new int[1], (ItemResultCollector) (id, h, type, rights, error) -> {});
        RecordingCallback callback = new RecordingCallback();
        long cookie = OpcAsyncIo2.advise(asyncIo, callback);
        for (int i = 0; i < 20 && callback.calls().isEmpty(); i++) Thread.sleep(5);
        OpcAsyncIo2.unadvise(asyncIo, cookie);
        callback.awaitDeleted();
        ComObjectClient.release(asyncIo);
        ComObjectClient.release(itemMgt);
        ComObjectClient.release(group[0]);
        OpcDaServer.removeGroup(server, (int) group[1], true);
        synchronized (callback) {
            if (callback.deleted != 1) problems.add(name + ": " + callback.deleted + " deletion notices");
        }
        if (callback.calls().stream().anyMatch(c -> !c.startsWith("numeric 500 "))) {
            problems.add(name + ": " + callback.calls());
        }
    }

    private interface Work {
        void run() throws Exception;
    }

    private static Thread worker(Queue<String> problems, Work work) {
        Thread thread = new Thread(() -> {
            try {
                OpcEnv.initThread();
                work.run();
            } catch (Throwable e) {
                problems.add(Thread.currentThread().getName() + ": " + e);
            }
        }, "worker-" + System.nanoTime());
        thread.start();
        return thread;
    }
}
