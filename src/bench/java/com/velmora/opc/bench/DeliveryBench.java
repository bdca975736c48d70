package com.velmora.opc.bench;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import java.util.concurrent.locks.LockSupport;

/**
 * Subscription updates of 10,000 VT_R8 items, every item changing at every update, delivered through
 * OpcAsyncIo2.advise to a Java listener. Per update it times the library's delivery at the listener
 * (first to last item), reads the server's own time for the update (collecting and clearing the
 * values, without the callback), and after it runs the floor: the same update calls with the same
 * arguments from a native thread attached once, woken from its timer as the server's thread is. It
 * also times attaching and detaching a thread, which the library pays once per update on top of the
 * item deliveries.
 *
 * <p>Arguments: [warm-up updates] [measured updates] [attach-and-detach pairs].
 */
public final class DeliveryBench {
    private static final int ITEMS = BenchGroup.ITEMS;
    private static final String PREFIX = "Bench.R8.";
    /** Room between updates for the floor's round and the reading of the server's time. */
    private static final int UPDATE_RATE_MS = 50;
    private static final long TIMEOUT_NANOS = 10_000_000_000L;

    private DeliveryBench() {}

    public static void main(String[] args) {
        int warmup = args.length > 0 ? Integer.parseInt(args[0]) : 30;
        int rounds = args.length > 1 ? Integer.parseInt(args[1]) : 101;
        int pairs = args.length > 2 ? Integer.parseInt(args[2]) : 2000;
        System.out.printf("Subscription updates of %d VT_R8 items, all changed at every update (OpcAsyncIo2.advise,"
                + " %d ms), median of %d updates after %d warm-up updates%n", ITEMS, UPDATE_RATE_MS, rounds, warmup);
        BenchGroup.prepareProcess();
        long server = BenchGroup.connect();
        Rounds[] measured;
        try {
            measured = measure(server, warmup, rounds);
        } finally {
            ComObjectClient.release(server);
        }
        BenchNatives.attachDetach(pairs / 10, true);
        long fresh = Rounds.median(BenchNatives.attachDetach(pairs, true));
        long reused = Rounds.median(BenchNatives.attachDetach(pairs, false));

        double delivery = measured[0].perItem(ITEMS - 1);
        double serverOnly = measured[1].perItem(ITEMS);
        double floor = measured[2].perItem(ITEMS);
        double library = delivery + (double) reused / ITEMS;
        System.out.printf("  delivered %s M items/s (%s ns per item, first to last item of an update at the listener)%n",
                Rounds.fixed(1e3 / delivery), Rounds.fixed(delivery));
        System.out.printf("  server %s ns per item (%s us per update, callbacks excluded); floor %s ns per item%n",
                Rounds.fixed(serverOnly), Rounds.fixed(measured[1].median() / 1000.0), Rounds.fixed(floor));
        System.out.printf("  ratio %s = (total - server) / floor, total = server + delivery + attach/detach per update;"
                + " target <= 1.10 (delivery alone: %s)%n", Rounds.ratioText(Rounds.ratio(serverOnly + library,
                        serverOnly, floor)), Rounds.ratioText(delivery / floor));
        System.out.printf("  attach + detach per callback: %s us on a fresh native thread, %s us on one thread"
                + " over and over (%s ns per item of a %d-item update)%n", Rounds.fixed(fresh / 1000.0),
                Rounds.fixed(reused / 1000.0), Rounds.fixed((double) reused / ITEMS), ITEMS);
    }

    /** {delivery (first to last item), server per update, floor} rounds, one per measured update. */
    static Rounds[] measure(long server, int warmup, int rounds) {
        BenchNatives.requireSimulation();
        try (BenchGroup group = BenchGroup.open(server, "delivery", BenchGroup.ids(PREFIX, ITEMS), UPDATE_RATE_MS)) {
            Updates updates = new Updates(ITEMS, warmup + rounds + 1);
            BenchNatives.changeEveryTick(PREFIX, true);
            long cookie = 0;
            try {
                cookie = OpcAsyncIo2.advise(group.asyncIo, updates);
                if (cookie == 0) throw new IllegalStateException("advise made no connection");
                updates.await(1);
                Sink.Recording calls = updates.firstUpdate;
                calls.check(true);

                Rounds delivery = new Rounds("delivery", rounds);
                Rounds serverOnly = new Rounds("server", rounds);
                Rounds floor = new Rounds("floor", rounds);
                Sink floorSink = new Sink();
                for (int r = -warmup; r < rounds; r++) {
                    int update = r + warmup + 2;
                    updates.await(update);
                    floorSink.expect(ITEMS);
                    // The floor's thread wakes from its timer, as the server's does, halfway to the next update.
                    long[] upcalls = BenchNatives.attachedThreadFloor(floorSink, calls.handles, calls.values,
                            calls.timestamps, calls.qualities, calls.errors, UPDATE_RATE_MS / 2, 1);
                    if (!floorSink.finished()) {
                        throw new IllegalStateException("the floor made " + floorSink.count() + " calls");
                    }
                    // The server notes its time once the callback has returned.
                    LockSupport.parkNanos(2_000_000);
                    double tickMicros = BenchNatives.lastTickMicros();
                    if (r < 0) continue;
                    delivery.add(updates.spread(update));
                    serverOnly.add(Math.round(tickMicros * 1000));
                    floor.addOnly(upcalls);
                }
                if (updates.failures() != 0) {
                    throw new IllegalStateException(updates.failures() + " items arrived as errors or not as numbers");
                }
                if (Double.isNaN(updates.checksum() + floorSink.checksum())) System.out.println("(NaN among the values)");
                return new Rounds[] {delivery, serverOnly, floor};
            } finally {
                if (cookie != 0) OpcAsyncIo2.unadvise(group.asyncIo, cookie);
                BenchNatives.changeEveryTick(PREFIX, false);
            }
        }
    }

    /**
     * The benchmark's listener: it counts the items of each update (an update is ITEMS update calls in a
     * row), notes the time from its first to its last item, and records the calls of the first update
     * for the floor. Updates come one at a time on the server's thread.
     */
    static final class Updates extends QuietCallback {
        private final int items;
        private final long[] spreads;
        private final long[] ends;
        final Sink.Recording firstUpdate;
        private int count;
        private long startedAt;
        private double sum;
        private int failures;
        private volatile int completed;
        private volatile Thread waiter;

        Updates(int items, int maxUpdates) {
            this.items = items;
            this.spreads = new long[maxUpdates + 1];
            this.ends = new long[maxUpdates + 1];
            this.firstUpdate = new Sink.Recording(items);
        }

        /** Waits for the n-th update (1 is the first) to have reached the listener in full. */
        void await(int update) {
            long deadline = System.nanoTime() + TIMEOUT_NANOS;
            waiter = Thread.currentThread();
            try {
                while (completed < update) {
                    long left = deadline - System.nanoTime();
                    if (left <= 0) throw new IllegalStateException("update " + update + " did not arrive: "
                            + completed + " updates and " + count + " items of the next");
                    LockSupport.parkNanos(this, left);
                }
            } finally {
                waiter = null;
            }
        }

        /** Nanoseconds from the first to the last item of the n-th update. */
        long spread(int update) {
            return spreads[update];
        }

        /** When the last item of the n-th update reached the listener (System.nanoTime). */
        long endedAt(int update) {
            return ends[update];
        }

        int failures() {
            return failures;
        }

        double checksum() {
            return sum;
        }

        /** The clock is read at the first and the last item of an update only, as the floor's receiver reads it. */
        private void counted() {
            if (count == items) count = 0;
            if (++count == 1) startedAt = System.nanoTime();
            if (count == items) {
                long now = System.nanoTime();
                int done = completed + 1;
                if (done < spreads.length) {
                    spreads[done] = now - startedAt;
                    ends[done] = now;
                }
                completed = done;
                Thread parked = waiter;
                if (parked != null) LockSupport.unpark(parked);
            }
        }

        @Override
        public void updateNumeric(int handle, double value, long timestamp, int quality, int error, boolean sync) {
            if (completed == 0) firstUpdate.add(handle, value, null, timestamp, quality, error);
            if (error != 0) failures++;
            sum += value;
            counted();
        }

        @Override
        public void updateString(int handle, String value, long timestamp, int quality, int error, boolean sync) {
            failures++;
            counted();
        }

        @Override
        public void updateBoolean(int handle, boolean value, long timestamp, int quality, int error, boolean sync) {
            failures++;
            counted();
        }

        @Override
        public void updateError(int handle, long timestamp, int quality, int error, boolean sync) {
            failures++;
            counted();
        }
    }
}
