package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.testsupport.*;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Queue;
import java.util.concurrent.ConcurrentLinkedQueue;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;

/**
 * One server under load from every side at once: a fast subscription delivering on the server's
 * threads while Java threads read synchronously and other groups subscribe and unsubscribe.
 */
class ConcurrencyTest {
    private static final long RUN_MILLIS = 1500;

    @Test
    void readsSubscriptionsAndChurnRunTogether() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group fast = sim.group("fast", 10, "Simulation.Ramp.R8", "Simulation.Sine.R8",
                    "Simulation.Random.I4");
            Recorder.Callback changes = new Recorder.Callback();
            long fastCookie = OpcAsyncIo2.advise(fast.asyncIo(), changes);
            SimFixture.Group reads = sim.group("reads", 1000, "Simulation.Static.R8", "Simulation.Static.BSTR",
                    "Simulation.Array.I2", "Simulation.Random.R8", "Simulation.Static.BOOL");
            // Every read: all items, in order, flagged synchronous, on the thread that made it.
            List<String> expected = Arrays.stream(reads.items()).mapToObj(h -> h + " sync").toList();

            Queue<String> problems = new ConcurrentLinkedQueue<>();
            AtomicInteger readCount = new AtomicInteger();
            AtomicInteger cycles = new AtomicInteger();
            long deadline = System.currentTimeMillis() + RUN_MILLIS;
            List<Thread> threads = new ArrayList<>();
            for (int t = 0; t < 4; t++) {
                boolean fromCache = t % 2 == 0;
                threads.add(worker(problems, () -> {
                    while (System.currentTimeMillis() < deadline) {
                        Recorder read = new Recorder();
                        OpcSyncIo.read(reads.syncIo(), reads.items(), fromCache, read);
                        List<String> seen = read.calls().stream()
                                .map(c -> c.split(" ")[1] + (c.endsWith(" sync") ? " sync" : " async")).toList();
                        if (!seen.equals(expected)) problems.add("read " + read.calls());
                        if (read.threads().stream().anyMatch(th -> th != Thread.currentThread())) {
                            problems.add("delivered on " + read.threads());
                        }
                        readCount.incrementAndGet();
                    }
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

            OpcAsyncIo2.unadvise(fast.asyncIo(), fastCookie);
            assertEquals(1, changes.settledDeletions());
            assertEquals(List.of(), List.copyOf(problems));
            assertTrue(readCount.get() >= 8, "reads " + readCount.get());
            assertTrue(cycles.get() >= 2, "subscription cycles " + cycles.get());
            assertTrue(changes.count("numeric ") >= 10, "data changes " + changes.calls().size());
            long flaggedAsync = changes.calls().stream().filter(c -> c.endsWith(" async")).count();
            assertEquals(changes.calls().size() - 1, flaggedAsync, changes.calls()::toString); // all but the deletion
            // Changes come on the server's threads, attached only while they deliver.
            List<Thread> delivering = changes.threadsOf("numeric ");
            assertTrue(delivering.stream().noneMatch(th -> th.getName().startsWith("worker-")
                    || th.getName().equals("main")), delivering::toString);
            for (int i = 0; i < 100 && delivering.stream().anyMatch(Thread::isAlive); i++) Thread.sleep(20);
            assertTrue(delivering.stream().noneMatch(Thread::isAlive), delivering::toString);
            assertEquals(List.of(), log.texts());
        }
    }

    // One short-lived subscription on a group of its own, from add to remove.
    private static void churn(long server, String name, Queue<String> problems) throws InterruptedException {
        long[] group = OpcDaServer.addGroup(server, name, true, 10, 9, 0, 0f, 0);
        long itemMgt = ComObjectClient.query(group[0], IID_IOPCITEMMGT);
        long asyncIo = ComObjectClient.query(group[0], IID_IOPCASYNCIO2);
        OpcItemMgt.addItems(itemMgt, new String[] {"Simulation.Ramp.I4"}, new int[] {500}, new boolean[] {true},
                new int[1], new Recorder());
        Recorder.Callback callback = new Recorder.Callback();
        long cookie = OpcAsyncIo2.advise(asyncIo, callback);
        for (int i = 0; i < 20 && callback.calls().isEmpty(); i++) Thread.sleep(5);
        OpcAsyncIo2.unadvise(asyncIo, cookie);
        callback.awaitCount("deleted", 1);
        for (long handle : new long[] {asyncIo, itemMgt, group[0]}) ComObjectClient.release(handle);
        OpcDaServer.removeGroup(server, (int) group[1], true);
        if (callback.count("deleted") != 1) problems.add(name + ": " + callback.count("deleted") + " deletion notices");
        if (callback.calls().stream().anyMatch(c -> !c.startsWith("numeric 500 ") && !c.equals("deleted"))) {
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
