package com.velmora.opc.bench;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import com.velmora.opc.jni.client.da.OpcSyncIo;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.locks.LockSupport;

/**
 * Memory over a long run: one million OpcSyncIo.read calls (of ten items each), then one million
 * delivered data changes (updates of 1,000 items, every item changing at every update). The process's
 * resident set and the COM runtime's live allocations are sampled every tenth of each run; the figure
 * is the growth from the end of the first tenth (the warm-up) to the end. Run the JVM with a fixed,
 * pre-touched heap (bench.sh does) so that the resident set shows what native code keeps.
 *
 * <p>Arguments: [read calls] [delivered changes].
 */
public final class MemoryBench {
    private static final String PREFIX = "Bench.R8.";
    private static final int READ_ITEMS = 10;
    private static final int UPDATE_ITEMS = 1_000;
    private static final int SAMPLES = 10;
    private static final long TIMEOUT_NANOS = 10_000_000_000L;

    private MemoryBench() {}

    public static void main(String[] args) {
        long calls = args.length > 0 ? Long.parseLong(args[0]) : 1_000_000;
        long changes = args.length > 1 ? Long.parseLong(args[1]) : 1_000_000;
        System.out.printf("Memory over %d read calls (%d items each) and %d delivered changes (%d-item updates):"
                + " resident set (MB) and live COM allocations, sampled every tenth%n", calls, READ_ITEMS, changes,
                UPDATE_ITEMS);
        BenchGroup.prepareProcess();
        BenchNatives.requireSimulation();
        long server = BenchGroup.connect();
        try {
            reads(server, calls);
            changes(server, changes);
        } finally {
            ComObjectClient.release(server);
        }
        System.out.println("growth = resident set at the end - after the first tenth; target < 1 MB");
    }

    private static void reads(long server, long calls) {
        Samples samples = new Samples("read calls");
        try (BenchGroup group = BenchGroup.open(server, "memory reads", BenchGroup.ids(PREFIX, READ_ITEMS))) {
            Sink sink = new Sink();
            long step = Math.max(1, calls / SAMPLES);
            for (long i = 1; i <= calls; i++) {
                sink.expect(READ_ITEMS);
                OpcSyncIo.read(group.syncIo, group.serverHandles, true, sink);
                if (!sink.finished()) throw new IllegalStateException("a read delivered " + sink.count() + " items");
                if (i % step == 0) samples.take(i);
            }
        }
        samples.report();
    }

    private static void changes(long server, long changes) {
        Samples samples = new Samples("changes");
        long updates = Math.max(1, changes / UPDATE_ITEMS);
        try (BenchGroup group = BenchGroup.open(server, "memory changes", BenchGroup.ids(PREFIX, UPDATE_ITEMS), 10)) {
            Counter counter = new Counter();
            BenchNatives.changeEveryTick(PREFIX, true);
            long cookie = 0;
            try {
                cookie = OpcAsyncIo2.advise(group.asyncIo, counter);
                if (cookie == 0) throw new IllegalStateException("advise made no connection");
                long step = Math.max(1, updates / SAMPLES);
                long next = step;
                while (next <= updates) {
                    counter.await(next * UPDATE_ITEMS);
                    samples.take(counter.items);
                    next += step;
                }
            } finally {
                if (cookie != 0) OpcAsyncIo2.unadvise(group.asyncIo, cookie);
                BenchNatives.changeEveryTick(PREFIX, false);
            }
        }
        samples.report();
    }

    /** Resident set and ledger samples of one run. */
    private static final class Samples {
        private final String what;
        private final StringBuilder line = new StringBuilder();
        private long warmRss = -1;
        private long lastRss;
        private long warmLedger;
        private long lastLedger;
        private long maxRss;

        Samples(String what) {
            this.what = what;
        }

        void take(long done) {
            long rss = residentKb();
            long ledger = ledger();
            if (warmRss < 0) {
                warmRss = rss;
                warmLedger = ledger;
            }
            lastRss = rss;
            lastLedger = ledger;
            maxRss = Math.max(maxRss, rss);
            line.append(String.format(java.util.Locale.ROOT, " %.1f", rss / 1024.0));
        }

        void report() {
            System.out.printf("  %-10s RSS MB:%s%n", what, line);
            System.out.printf("  %-10s growth %s MB after warm-up (peak %s MB); live COM allocations %d after warm-up,"
                    + " %d at the end%n", what, Rounds.fixed((lastRss - warmRss) / 1024.0),
                    Rounds.fixed(maxRss / 1024.0), warmLedger, lastLedger);
        }
    }

    /** VmRSS of this process in kB, or -1 where /proc is not there. */
    static long residentKb() {
        try {
            for (String line : Files.readAllLines(Path.of("/proc/self/status"))) {
                if (line.startsWith("VmRSS:")) return Long.parseLong(line.replaceAll("[^0-9]", ""));
            }
        } catch (IOException | NumberFormatException e) {
            return -1;
        }
        return -1;
    }

    /** Live task-memory blocks, BSTRs and SAFEARRAYs of the COM runtime together; -1 without a ledger. */
    static long ledger() {
        long sum = 0;
        for (int kind = 0; kind < 3; kind++) {
            long live = BenchNatives.ledgerLive(kind);
            if (live < 0) return -1;
            sum += live;
        }
        return sum;
    }

    /** Counts delivered items; wakes the waiter when the awaited count is reached. */
    private static final class Counter extends QuietCallback {
        private volatile long items;
        private volatile long awaited = Long.MAX_VALUE;
        private volatile Thread waiter;
        private double sum;

        void await(long count) {
            long deadline = System.nanoTime() + TIMEOUT_NANOS;
            awaited = count;
            waiter = Thread.currentThread();
            try {
                while (items < count) {
                    long left = deadline - System.nanoTime();
                    if (left <= 0) throw new IllegalStateException("only " + items + " of " + count + " changes came");
                    LockSupport.parkNanos(this, Math.min(left, 1_000_000));
                }
            } finally {
                waiter = null;
            }
        }

        @Override
        public void updateNumeric(int handle, double value, long timestamp, int quality, int error, boolean sync) {
            sum += value;
            long now = items + 1;
            items = now;
            if (now >= awaited) {
                Thread parked = waiter;
                if (parked != null) LockSupport.unpark(parked);
            }
        }
    }
}
