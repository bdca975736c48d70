package com.velmora.opc.client;

import com.velmora.opc.jni.client.da.DataCallback;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import java.util.Map;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.function.Consumer;

/**
 * Data changes of a group's active items, delivered to a listener on the server's threads until
 * closed. Closing disconnects and waits briefly for the last callback to finish.
 */
public final class Subscription implements AutoCloseable {
    private final Group group;
    private final long asyncIo;
    private final long cookie;
    private final Receiver receiver;
    private boolean closed;

    private Subscription(Group group, long asyncIo, long cookie, Receiver receiver) {
        this.group = group;
        this.asyncIo = asyncIo;
        this.cookie = cookie;
        this.receiver = receiver;
    }

    static Subscription open(Group group, long asyncIo, Map<Integer, String> itemIds, Consumer<ItemValue> listener) {
        Receiver receiver = new Receiver(itemIds, listener);
        long cookie = OpcAsyncIo2.advise(asyncIo, receiver);
        if (cookie == 0) throw new com.velmora.opc.OpcException("the group accepted no subscription");
        return new Subscription(group, asyncIo, cookie, receiver);
    }

    public synchronized boolean isClosed() {
        return closed;
    }

    @Override
    public void close() {
        synchronized (this) {
            if (closed) return;
            closed = true;
        }
        try {
            ComThreads.prepare();
            OpcAsyncIo2.unadvise(asyncIo, cookie);
            receiver.awaitDeleted();
        } finally {
            group.forget(this);
        }
    }

    /** The Java side of the native callback object. */
    private static final class Receiver implements DataCallback {
        private final Map<Integer, String> itemIds;
        private final Consumer<ItemValue> listener;
        private final CountDownLatch deleted = new CountDownLatch(1);

        Receiver(Map<Integer, String> itemIds, Consumer<ItemValue> listener) {
            this.itemIds = itemIds;
            this.listener = listener;
        }

        private void deliver(int clientHandle, Object value, long timestamp, int quality, int error) {
            listener.accept(new ItemValue(itemIds.get(clientHandle), value, quality, ServerStatus.time(timestamp),
                    error));
        }

        void awaitDeleted() {
            try {
                deleted.await(5, TimeUnit.SECONDS);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        }

        @Override
        public void updateNumeric(int h, double value, long timestamp, int quality, int error, boolean sync) {
            deliver(h, value, timestamp, quality, error);
        }

        @Override
        public void updateBoolean(int h, boolean value, long timestamp, int quality, int error, boolean sync) {
            deliver(h, value, timestamp, quality, error);
        }

        @Override
        public void updateString(int h, String value, long timestamp, int quality, int error, boolean sync) {
            deliver(h, value, timestamp, quality, error);
        }

        @Override
        public void updateError(int h, long timestamp, int quality, int error, boolean sync) {
            deliver(h, null, timestamp, quality, error);
        }

        @Override
        public void OnReadCompleted(int transactionId, int masterQuality, int masterError, int count,
                int[] clientHandles, int[] valueKinds, String[] values, int[] qualities, long[] timestamps,
                int[] errors) {
            // Asynchronous reads are not issued through a subscription.
        }

        @Override
        public void OnWriteCompleted(int transactionId, int groupHandle, int masterError, int count,
                int[] clientHandles, int[] errors) {
            // Asynchronous writes are not issued through a subscription.
        }

        @Override
        public void asyncCallbackDeleted() {
            deleted.countDown();
        }
    }
}
