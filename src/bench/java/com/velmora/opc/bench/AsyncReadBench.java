package com.velmora.opc.bench;

import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import com.velmora.opc.jni.client.da.ReadListener;
import java.util.concurrent.locks.LockSupport;

/**
 * Asynchronous read of 10,000 items of one type (VT_R8, then VT_BSTR) through OpcAsyncIo2.readAsync,
 * timed from the call to the arrival of OnReadCompleted at the group's Java data callback. Beside it:
 * the server's own time from IOPCAsyncIO2::Read to its read completion at a do-nothing native callback
 * (on a twin group with the same items), the floor: the OnReadCompleted call with the same arrays,
 * the texts made from the values, from native code; and the two together: the same read whose native
 * callback makes the floor's call on the server's thread. The server's share is that less the floor.
 * Rounds of the four interleave; medians count.
 *
 * <p>Arguments: [warm-up rounds] [measured rounds].
 */
public final class AsyncReadBench {
    private static final int ITEMS = BenchGroup.ITEMS;
    private static final long TIMEOUT_NANOS = 10_000_000_000L;

    private AsyncReadBench() {}

    public static void main(String[] args) {
        Rounds.readByType(args, "Asynchronous read of " + ITEMS
                + " items (OpcAsyncIo2.readAsync to OnReadCompleted)", "1.25",
                AsyncReadBench::measure);
    }

    static Rounds[] measure(long server, String prefix, boolean numeric, int warmup, int rounds) {
        String[] ids = BenchGroup.ids(prefix, ITEMS);
        try (BenchGroup group = BenchGroup.open(server, "async " + prefix, ids);
                BenchGroup twin = BenchGroup.open(server, "async twin " + prefix, ids)) {
            Completions completions = new Completions();
            long cookie = OpcAsyncIo2.advise(group.asyncIo, completions);
            if (cookie == 0) throw new IllegalStateException("advise made no connection");
            try {
                BenchNatives.disableSubscription(group.asyncIo);
                Rounds total = new Rounds("readAsync", rounds);
                Rounds serverOnly = new Rounds("server", rounds);
                Rounds floor = new Rounds("floor", rounds);
                Rounds together = new Rounds("server and floor", rounds);
                int transaction = 0x6000;
                completions.expect(++transaction);
                OpcAsyncIo2.readAsync(group.asyncIo, ITEMS, transaction, group.serverHandles, completions);
                completions.await();
                Completions.Copy first = completions.copy(numeric);
                for (int r = -warmup; r < rounds; r++) {
                    completions.expect(++transaction);
                    long start = System.nanoTime();
                    OpcAsyncIo2.readAsync(group.asyncIo, ITEMS, transaction, group.serverHandles, completions);
                    long library = completions.await() - start;
                    long[] read = BenchNatives.serverReadAsync(twin.asyncIo, twin.serverHandles, 1);
                    completions.expect(1);
                    long[] handOver = BenchNatives.readCompletedFloor(completions, first.handles, first.kinds,
                            first.numbers, numeric ? null : first.texts, first.qualities, first.timestamps,
                            first.errors, 1);
                    completions.await();
                    completions.expect(1);
                    long[] both = BenchNatives.readAsyncFloor(twin.asyncIo, twin.serverHandles, completions,
                            first.handles, first.kinds, first.numbers, numeric ? null : first.texts, first.qualities,
                            first.timestamps, first.errors, 1);
                    completions.await();
                    if (r < 0) continue;
                    total.add(library);
                    serverOnly.addOnly(read);
                    floor.addOnly(handOver);
                    together.addOnly(both);
                }
                return new Rounds[] {total, serverOnly, floor, together};
            } finally {
                OpcAsyncIo2.unadvise(group.asyncIo, cookie);
            }
        }
    }

    /** The data callback: notes when the awaited read completion arrives and keeps its arrays. */
    private static final class Completions extends QuietCallback implements ReadListener {
        private volatile int awaited;
        private volatile long arrivedAt;
        private volatile Thread waiter;
        private volatile String problem;
        private int[] handles;
        private int[] kinds;
        private String[] values;
        private int[] qualities;
        private long[] timestamps;
        private int[] errors;
        private long chars;

        record Copy(int[] handles, int[] kinds, double[] numbers, String[] texts, int[] qualities, long[] timestamps,
                int[] errors) {}

        void expect(int transaction) {
            awaited = transaction;
            arrivedAt = 0;
        }

        long await() {
            long deadline = System.nanoTime() + TIMEOUT_NANOS;
            waiter = Thread.currentThread();
            try {
                while (arrivedAt == 0 && problem == null) {
                    long left = deadline - System.nanoTime();
                    if (left <= 0) throw new IllegalStateException("no read completion " + awaited);
                    LockSupport.parkNanos(this, left);
                }
            } finally {
                waiter = null;
            }
            if (problem != null) throw new IllegalStateException(problem);
            return arrivedAt;
        }

        /** The arrays of the last completion; the numbers parsed back from the texts for numeric items. */
        Copy copy(boolean numeric) {
            double[] numbers = null;
            if (numeric) {
                numbers = new double[values.length];
                for (int i = 0; i < values.length; i++) numbers[i] = Double.parseDouble(values[i]);
            }
            return new Copy(handles, kinds, numbers, values, qualities, timestamps, errors);
        }

        @Override
        public void OnReturnRead(int hresult, int count, int transactionId, int cancelId, int[] serverHandles,
                int[] errors) {
            if (hresult != 0) problem = "readAsync answered 0x" + Integer.toHexString(hresult);
        }

        @Override
        public void OnReadCompleted(int transactionId, int masterQuality, int masterError, int n, int[] clientHandles,
                int[] valueKinds, String[] values, int[] qualities, long[] timestamps, int[] errors) {
            long now = System.nanoTime();
            if (transactionId != awaited) return;
            if (n != ITEMS || masterError != 0) problem = "read completion of " + n + " items, 0x"
                    + Integer.toHexString(masterError);
            chars += values[0].length() + values[n - 1].length();
            this.handles = clientHandles;
            this.kinds = valueKinds;
            this.values = values;
            this.qualities = qualities;
            this.timestamps = timestamps;
            this.errors = errors;
            arrivedAt = now;
            Thread parked = waiter;
            if (parked != null) LockSupport.unpark(parked);
        }
    }
}
