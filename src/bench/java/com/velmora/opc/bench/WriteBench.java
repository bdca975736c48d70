package com.velmora.opc.bench;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import com.velmora.opc.jni.client.da.OpcSyncIo;
import com.velmora.opc.jni.client.da.WriteListener;
import java.util.concurrent.locks.LockSupport;

/**
 * Batch write of 10,000 items of mixed types (numbers as VT_R8 and VT_I4, booleans, strings, arrays
 * of VT_R8 and VT_I4) through OpcSyncIo.writeArray, and through OpcAsyncIo2.writeAsync up to its
 * completion at the group's data callback. Beside each: the server's own time for the same write of
 * ready VARIANTs, and the floor: the same value texts parsed into the same VARIANTs from native code
 * and the per-item results handed over in one call. Rounds of the three interleave; medians count.
 *
 * <p>Arguments: [warm-up rounds] [measured rounds].
 */
public final class WriteBench {
    private static final int ITEMS = BenchGroup.ITEMS;
    private static final int VT_I4 = 3;
    private static final int VT_R8 = 5;
    private static final int VT_BSTR = 8;
    private static final int VT_BOOL = 11;
    private static final int VT_ARRAY = 0x2000;
    private static final long TIMEOUT_NANOS = 10_000_000_000L;

    private WriteBench() {}

    /** The items and their value texts: per four items a number, a boolean, a string and an array. */
    static final class Batch {
        final String[] ids = new String[ITEMS];
        final int[] types = new int[ITEMS];
        final String[] values = new String[ITEMS];

        Batch() {
            for (int i = 0; i < ITEMS; i++) {
                boolean even = (i / 4) % 2 == 0;
                switch (i % 4) {
                    case 0 -> set(i, "Bench.R8." + i, even ? VT_R8 : VT_I4, even ? (i + 0.25) + "" : "" + (i * 3));
                    case 1 -> set(i, "Simulation.Static.BOOL", VT_BOOL, even ? "true" : "false");
                    case 2 -> set(i, "Bench.Str." + i, VT_BSTR, "text " + i);
                    default -> set(i, even ? "Simulation.Array.R8" : "Simulation.Array.I4",
                            VT_ARRAY | (even ? VT_R8 : VT_I4), even ? "1.5,-2.25," + i : i + ",-7,42,0");
                }
            }
        }

        private void set(int i, String id, int type, String value) {
            ids[i] = id;
            types[i] = type;
            values[i] = value;
        }
    }

    public static void main(String[] args) {
        int warmup = args.length > 0 ? Integer.parseInt(args[0]) : 20;
        int rounds = args.length > 1 ? Integer.parseInt(args[1]) : 51;
        System.out.printf("Batch write of %d items of mixed types (numbers, booleans, strings, arrays), ns per item,"
                + " median of %d rounds after %d warm-up rounds%n", ITEMS, rounds, warmup);
        BenchGroup.prepareProcess();
        BenchNatives.requireSimulation();
        long server = BenchGroup.connect();
        Batch batch = new Batch();
        try {
            report("writeArray", measureSync(server, batch, warmup, rounds));
            report("writeAsync", measureAsync(server, batch, warmup, rounds));
        } finally {
            ComObjectClient.release(server);
        }
        System.out.println("ratio = (total - server) / floor; floor = the texts parsed into the VARIANTs and the"
                + " per-item results handed over, from native code; target <= 1.25");
    }

    private static void report(String path, Rounds[] measured) {
        Rounds.report(String.format("%-10s", path), ITEMS, measured);
    }

    static Rounds[] measureSync(long server, Batch batch, int warmup, int rounds) {
        try (BenchGroup group = BenchGroup.open(server, "write", batch.ids)) {
            Results results = new Results();
            Rounds total = new Rounds("writeArray", rounds);
            Rounds serverOnly = new Rounds("server", rounds);
            Rounds floor = new Rounds("floor", rounds);
            for (int r = -warmup; r < rounds; r++) {
                results.expect();
                long start = System.nanoTime();
                int hr = OpcSyncIo.writeArray(group.syncIo, ITEMS, group.serverHandles, batch.types, batch.values,
                        results);
                long library = System.nanoTime() - start;
                results.check(hr);
                long[] write = BenchNatives.serverWrite(group.syncIo, group.serverHandles, batch.types, batch.values, 1);
                results.expect();
                long[] handOver = BenchNatives.writeFloor(results, true, group.serverHandles, batch.types,
                        batch.values, 1);
                results.check(0);
                if (r < 0) continue;
                total.add(library);
                serverOnly.addOnly(write);
                floor.addOnly(handOver);
            }
            return new Rounds[] {total, serverOnly, floor};
        }
    }

    static Rounds[] measureAsync(long server, Batch batch, int warmup, int rounds) {
        try (BenchGroup group = BenchGroup.open(server, "write async", batch.ids);
                BenchGroup twin = BenchGroup.open(server, "write async twin", batch.ids)) {
            Results results = new Results();
            long cookie = OpcAsyncIo2.advise(group.asyncIo, results);
            if (cookie == 0) throw new IllegalStateException("advise made no connection");
            try {
                BenchNatives.disableSubscription(group.asyncIo);
                Rounds total = new Rounds("writeAsync", rounds);
                Rounds serverOnly = new Rounds("server", rounds);
                Rounds floor = new Rounds("floor", rounds);
                for (int r = -warmup; r < rounds; r++) {
                    int transaction = 0x7000 + r + warmup;
                    results.expectCompletion(transaction);
                    long start = System.nanoTime();
                    OpcAsyncIo2.writeAsync(group.asyncIo, ITEMS, transaction, group.serverHandles, batch.types,
                            batch.values, results);
                    long library = results.awaitCompletion() - start;
                    long[] write = BenchNatives.serverWriteAsync(twin.asyncIo, twin.serverHandles, batch.types,
                            batch.values, 1);
                    results.expectCompletion(0);
                    long[] handOver = BenchNatives.writeFloor(results, false, group.clientHandles, batch.types,
                            batch.values, 1);
                    results.awaitCompletion();
                    if (r < 0) continue;
                    total.add(library);
                    serverOnly.addOnly(write);
                    floor.addOnly(handOver);
                }
                return new Rounds[] {total, serverOnly, floor};
            } finally {
                OpcAsyncIo2.unadvise(group.asyncIo, cookie);
            }
        }
    }

    /** Receives the write results: the synchronous outcome and the asynchronous completion. */
    private static final class Results extends QuietCallback implements WriteListener {
        private int returned;
        private int failures;
        private volatile int awaited;
        private volatile long completedAt;
        private volatile Thread waiter;

        void expect() {
            returned = 0;
            failures = 0;
        }

        void check(int hresult) {
            if (returned != ITEMS || failures != 0 || hresult != 0) {
                throw new IllegalStateException("write: " + returned + " results, " + failures + " failed, hresult 0x"
                        + Integer.toHexString(hresult));
            }
        }

        void expectCompletion(int transaction) {
            awaited = transaction;
            completedAt = 0;
        }

        /** When the awaited completion arrived in full. */
        long awaitCompletion() {
            long deadline = System.nanoTime() + TIMEOUT_NANOS;
            waiter = Thread.currentThread();
            try {
                while (completedAt == 0) {
                    long left = deadline - System.nanoTime();
                    if (left <= 0) throw new IllegalStateException("no write completion " + awaited);
                    LockSupport.parkNanos(this, left);
                }
            } finally {
                waiter = null;
            }
            if (failures != 0) throw new IllegalStateException(failures + " items failed to write");
            return completedAt;
        }

        @Override
        public void OnReturnWrite(boolean synchronous, int hresult, int count, int transactionId, int cancelId,
                int[] serverHandles, int[] errors) {
            if (!synchronous) {
                if (hresult != 0) failures = count;
                return;
            }
            returned = count;
            if (errors != null) for (int error : errors) failures += error != 0 ? 1 : 0;
        }

        @Override
        public void OnWriteCompleted(int transactionId, int groupHandle, int masterError, int count,
                int[] clientHandles, int[] errors) {
            if (transactionId != awaited) return;
            int failed = 0;
            for (int error : errors) failed += error != 0 ? 1 : 0;
            failures += failed + (count == ITEMS ? 0 : 1);
            completedAt = System.nanoTime();
            Thread parked = waiter;
            if (parked != null) LockSupport.unpark(parked);
        }
    }
}
