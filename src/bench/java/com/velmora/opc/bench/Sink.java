package com.velmora.opc.bench;

import java.util.concurrent.locks.LockSupport;

/**
 * The receiver of every benchmark: it counts and sums what it is given and notes the time of the
 * item it was waiting for. Optionally it records the arguments of its calls, so that a floor can
 * repeat exactly the calls that the library made.
 */
final class Sink extends QuietCallback {
    private int expected;
    private int count;
    private double sum;
    private long chars;
    private Recording recording;
    private long startedAt;
    private volatile long finishedAt;
    private volatile boolean finished;
    private volatile Thread waiter;

    /** Starts a round that ends with the {@code items}-th call. */
    void expect(int items) {
        expected = items;
        count = 0;
        finished = false;
    }

    /** Records the next {@code items} calls. */
    Recording record(int items) {
        recording = new Recording(items);
        return recording;
    }

    void stopRecording() {
        recording = null;
    }

    int count() {
        return count;
    }

    boolean finished() {
        return finished;
    }

    long finishedAt() {
        return finishedAt;
    }

    /**
     * Waits for the round's end up to the timeout, parked rather than spinning so that the delivering
     * thread keeps a processor to itself; the end is timed by the thread of the last call.
     */
    boolean awaitFinish(long timeoutNanos) {
        long deadline = System.nanoTime() + timeoutNanos;
        waiter = Thread.currentThread();
        try {
            while (!finished) {
                long left = deadline - System.nanoTime();
                if (left <= 0) return false;
                LockSupport.parkNanos(this, left);
            }
            return true;
        } finally {
            waiter = null;
        }
    }

    /** Keeps the sums alive so that nothing the receiver does can be left out. */
    double checksum() {
        return sum + chars;
    }

    /** When the first call of the round arrived. */
    long startedAt() {
        return startedAt;
    }

    private void counted() {
        if (++count == 1) startedAt = System.nanoTime();
        if (count == expected) {
            finishedAt = System.nanoTime();
            finished = true;
            Thread parked = waiter;
            if (parked != null) LockSupport.unpark(parked);
        }
    }

    @Override
    public void updateNumeric(int handle, double value, long timestamp, int quality, int error, boolean sync) {
        if (recording != null) recording.add(handle, value, null, timestamp, quality, error);
        sum += value;
        counted();
    }

    @Override
    public void updateString(int handle, String value, long timestamp, int quality, int error, boolean sync) {
        if (recording != null) recording.add(handle, 0, value, timestamp, quality, error);
        chars += value.length();
        counted();
    }

    @Override
    public void updateBoolean(int handle, boolean value, long timestamp, int quality, int error, boolean sync) {
        if (recording != null) recording.unexpected("updateBoolean");
        counted();
    }

    @Override
    public void updateError(int handle, long timestamp, int quality, int error, boolean sync) {
        if (recording != null) recording.unexpected("updateError");
        counted();
    }

    /** The arguments of a run of update calls, in call order. */
    static final class Recording {
        final int[] handles;
        final double[] values;
        final String[] texts;
        final long[] timestamps;
        final int[] qualities;
        final int[] errors;
        private int size;
        private String unexpected;

        Recording(int items) {
            handles = new int[items];
            values = new double[items];
            texts = new String[items];
            timestamps = new long[items];
            qualities = new int[items];
            errors = new int[items];
        }

        void add(int handle, double value, String text, long timestamp, int quality, int error) {
            if (size == handles.length) {
                unexpected = "more than " + handles.length + " calls";
                return;
            }
            handles[size] = handle;
            values[size] = value;
            texts[size] = text;
            timestamps[size] = timestamp;
            qualities[size] = quality;
            errors[size] = error;
            size++;
        }

        void unexpected(String method) {
            if (unexpected == null) unexpected = method + " called";
        }

        /** Throws unless every item arrived once through the expected method with a good result. */
        void check(boolean numeric) {
            if (unexpected != null) throw new IllegalStateException("recorded run: " + unexpected);
            if (size != handles.length) {
                throw new IllegalStateException("recorded run: " + size + " of " + handles.length + " calls");
            }
            for (int i = 0; i < size; i++) {
                if (errors[i] != 0 || (numeric ? texts[i] != null : texts[i] == null)) {
                    throw new IllegalStateException("recorded run: item " + i + " arrived as error "
                            + Integer.toHexString(errors[i]) + (numeric ? " or as a string" : " or as a number"));
                }
            }
        }
    }
}
