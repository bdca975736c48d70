package com.velmora.opc.bench;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import java.util.concurrent.locks.LockSupport;

/**
 * Data changes of 1, 10, 100, 1,000 and 10,000 items per callback: one group per size, every item
 * changing at every update, delivered through OpcAsyncIo2.advise to a Java listener. Per update: the
 * library's whole callback as the server's thread saw it (the attach and detach of that thread
 * included), the server's own time for the update, and the floor: a native thread (the same one for
 * every update, as a server's callback thread) waking from its timer after the group's update period,
 * then attaching, making the same update calls and detaching.
 * Printed as a table of medians.
 *
 * <p>Arguments: [warm-up updates] [measured updates].
 */
public final class SmallUpdatesBench {
    private static final String PREFIX = "Bench.R8.";
    private static final int[] SIZES = {1, 10, 100, 1_000, 10_000};
    private static final long TIMEOUT_NANOS = 10_000_000_000L;
    private static final long POLL_NANOS = 2_000_000;

    private SmallUpdatesBench() {}

    public static void main(String[] args) {
        int warmup = args.length > 0 ? Integer.parseInt(args[0]) : 30;
        int rounds = args.length > 1 ? Integer.parseInt(args[1]) : 301;  // 3 s of 10 ms updates per size
        System.out.printf("Data changes of 1 to 10,000 items per callback (OpcAsyncIo2.advise), median of %d updates"
                + " after %d warm-up updates per size%n", rounds, warmup);
        BenchGroup.prepareProcess();
        BenchNatives.requireSimulation();
        long server = BenchGroup.connect();
        try {
            System.out.printf("  %6s  %12s  %10s  %10s  %12s  %s%n", "items", "callback us", "ns/item", "server us",
                    "floor us", "ratio");
            for (int size : SIZES) {
                Rounds[] measured = measure(server, size, warmup, rounds);
                double callback = measured[0].median() / 1000.0;
                double serverOnly = measured[1].median() / 1000.0;
                double floor = measured[2].median() / 1000.0;
                System.out.printf("  %6d  %12s  %10s  %10s  %12s  ratio %s%n", size, Rounds.fixed(callback),
                        Rounds.fixed(callback * 1000 / size), Rounds.fixed(serverOnly), Rounds.fixed(floor),
                        Rounds.ratioText(callback / floor));
            }
        } finally {
            ComObjectClient.release(server);
        }
        System.out.println("callback = the library's OnDataChange from call to return, as the server's thread saw it;"
                + " floor = a native thread waking from its timer, attaching, making the same update calls and detaching;"
                + " ratio = callback / floor; target <= 1.25");
    }

    /** {callback, server, floor calls} in nanoseconds per update, for updates of `size` items. */
    static Rounds[] measure(long server, int size, int warmup, int rounds) {
        int rate = size >= 10_000 ? 50 : 10;
        try (BenchGroup group = BenchGroup.open(server, "updates " + size, BenchGroup.ids(PREFIX, size), rate)) {
            Listener listener = new Listener(size);
            BenchNatives.changeEveryTick(PREFIX, true);
            long cookie = 0;
            try {
                cookie = OpcAsyncIo2.advise(group.asyncIo, listener);
                if (cookie == 0) throw new IllegalStateException("advise made no connection");
                int seen = listener.await(1);
                Sink.Recording calls = listener.first;
                calls.check(true);
                Rounds callback = new Rounds("callback", rounds);
                Rounds serverOnly = new Rounds("server", rounds);
                Rounds floor = new Rounds("floor", rounds);
                Sink floorSink = new Sink();
                for (int r = -warmup; r < rounds; r++) {
                    seen = listener.await(seen + 1);
                    // The server notes its times once the callback has returned; the floor runs after it,
                    // so that the two never share the processors.
                    LockSupport.parkNanos(2_000_000);
                    double inCallback = BenchNatives.lastCallbackMicros();
                    double tick = BenchNatives.lastTickMicros();
                    floorSink.expect(size);
                    long[] upcalls = BenchNatives.callbackFloor(floorSink, calls.handles, calls.values,
                            calls.timestamps, calls.qualities, calls.errors, rate, 1);
                    if (!floorSink.finished()) throw new IllegalStateException("the floor made " + floorSink.count());
                    if (r < 0) continue;
                    callback.add(Math.round(inCallback * 1000));
                    serverOnly.add(Math.round(tick * 1000));
                    floor.addOnly(upcalls);
                }
                if (listener.failures != 0) throw new IllegalStateException(listener.failures + " items failed");
                return new Rounds[] {callback, serverOnly, floor};
            } finally {
                if (cookie != 0) OpcAsyncIo2.unadvise(group.asyncIo, cookie);
                BenchNatives.changeEveryTick(PREFIX, false);
            }
        }
    }

    /** Counts the items of each update (size update calls in a row) and records the first update. */
    private static final class Listener extends QuietCallback {
        final Sink.Recording first;
        private final int size;
        private int count;
        private int failures;
        private double sum;
        private volatile int completed;

        Listener(int size) {
            this.size = size;
            this.first = new Sink.Recording(size);
        }

        /**
         * Waits until at least `update` updates arrived in full; answers how many have. It polls: the
         * callback wakes no one, since the floor's update calls wake no one either (a wake-up is a
         * system call inside the timed callback).
         */
        int await(int update) {
            long deadline = System.nanoTime() + TIMEOUT_NANOS;
            while (completed < update) {
                if (System.nanoTime() > deadline) throw new IllegalStateException("update " + update + " did not arrive");
                LockSupport.parkNanos(this, POLL_NANOS);
            }
            return completed;
        }

        @Override
        public void updateNumeric(int handle, double value, long timestamp, int quality, int error, boolean sync) {
            if (completed == 0) first.add(handle, value, null, timestamp, quality, error);
            if (error != 0) failures++;
            sum += value;
            if (++count == size) {
                count = 0;
                completed = completed + 1;
            }
        }

        @Override
        public void updateString(int handle, String value, long timestamp, int quality, int error, boolean sync) {
            failures++;
        }

        @Override
        public void updateBoolean(int handle, boolean value, long timestamp, int quality, int error, boolean sync) {
            failures++;
        }

        @Override
        public void updateError(int handle, long timestamp, int quality, int error, boolean sync) {
            failures++;
        }
    }
}
