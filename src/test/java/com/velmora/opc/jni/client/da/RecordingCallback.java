package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.fail;

import java.util.Arrays;
import java.util.List;
import java.util.function.Predicate;

/** A data callback that records updates and completions as text and lets a test wait for them. */
class RecordingCallback extends RecordingReceiver implements DataCallback {
    int deleted;

    @Override
    public synchronized void OnReadCompleted(int transactionId, int masterQuality, int masterError, int count,
            int[] clientHandles, int[] valueKinds, String[] values, int[] qualities, long[] timestamps,
            int[] errors) {
        calls.add("read " + transactionId + " " + masterQuality + " " + masterError + " " + count + " "
                + Arrays.toString(clientHandles) + " " + Arrays.toString(valueKinds) + " " + Arrays.toString(values)
                + " " + Arrays.toString(qualities) + " " + Arrays.toString(errors));
        threads.add(Thread.currentThread().getName());
        notifyAll();
    }

    @Override
    public synchronized void OnWriteCompleted(int transactionId, int groupHandle, int masterError, int count,
            int[] clientHandles, int[] errors) {
        calls.add("write " + transactionId + " " + masterError + " " + count + " " + Arrays.toString(clientHandles)
                + " " + Arrays.toString(errors));
        threads.add(Thread.currentThread().getName());
        notifyAll();
    }

    @Override
    public synchronized void asyncCallbackDeleted() {
        deleted++;
        notifyAll();
    }

    @Override
    public synchronized void updateNumeric(int h, double v, long t, int q, int e, boolean s) {
        super.updateNumeric(h, v, t, q, e, s);
        notifyAll();
    }

    @Override
    public synchronized void updateString(int h, String v, long t, int q, int e, boolean s) {
        super.updateString(h, v, t, q, e, s);
        notifyAll();
    }

    /** Waits up to five seconds for a recorded call that matches. */
    synchronized String await(Predicate<String> match) {
        long end = System.currentTimeMillis() + 5000;
        while (true) {
            for (String call : calls) {
                if (match.test(call)) return call;
            }
            long left = end - System.currentTimeMillis();
            if (left <= 0) fail("no matching call in " + calls);
            try {
                wait(left);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                fail("interrupted");
            }
        }
    }

    synchronized void awaitDeleted() {
        long end = System.currentTimeMillis() + 5000;
        while (deleted == 0 && System.currentTimeMillis() < end) {
            try {
                wait(100);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                return;
            }
        }
    }

    synchronized List<String> threadNames() {
        return List.copyOf(threads);
    }
}
