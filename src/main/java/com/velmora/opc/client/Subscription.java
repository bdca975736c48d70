package com.velmora.opc.client;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.OpcException;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.jni.client.da.DataCallback;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import com.velmora.opc.jni.client.da.ReadListener;
import com.velmora.opc.jni.client.da.WriteListener;
import java.util.ArrayList;
import java.util.Collections;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * A group's connection to a {@link SubscriptionListener}: data changes of the group's active items
 * arrive at the group's update rate, and the completions of the refreshes, asynchronous reads and
 * writes issued here arrive under their transaction ids. Closing disconnects and waits (bounded) for
 * the server to let go of the callback, after which the listener hears nothing more. Safe for
 * concurrent use, as its {@link Group} is; the listener runs on the server's threads. On a
 * reconnecting connection the subscription is connected again when the connection is.
 */
public final class Subscription implements AutoCloseable {
    private static final System.Logger LOG = System.getLogger(OpcEnv.LOGGER_NAME);
    private static final int S_FALSE = 1;
    private static final int E_FAIL = 0x80004005;

    private final Group group;
    private final SubscriptionListener listener;
    private final AtomicInteger lastTransaction = new AtomicInteger();
    // The connection to the server's callback; replaced under the connection's exclusive lock.
    private volatile Link link;
    private volatile boolean closed;

    /** One advise: the group's IOPCAsyncIO2 handle (the group owns it), the cookie and the Java receiver. */
    private record Link(long asyncIo, long cookie, Receiver receiver) {}

    Subscription(Group group, SubscriptionListener listener) {
        this.group = group;
        this.listener = listener;
    }

    /** Connects a new callback through the group's IOPCAsyncIO2 handle. */
    void attach(long asyncIo, Map<Integer, String> itemIds) {
        Receiver receiver = new Receiver(itemIds, listener);
        long cookie = OpcAsyncIo2.advise(asyncIo, receiver);
        if (cookie == 0) throw new OpcException("group " + group.name() + " accepted no subscription");
        link = new Link(asyncIo, cookie, receiver);
    }

    /** The connection is lost: the callback is gone with it (exclusive lock held). */
    void detach() {
        link = null;
    }

    private Link link() {
        if (closed) throw new IllegalStateException("the subscription of group " + group.name() + " is closed");
        Link current = link;
        if (current == null) throw new ConnectionLostException("the subscription of group " + group.name() + " is not connected");
        return current;
    }

    /**
     * Asks the server for the current values of all active items of the group; they arrive through
     * {@link SubscriptionListener#onValue} like any data change. Raises HresultException when the
     * server refuses (for instance when no item is active).
     */
    public void refresh(DataSource source) {
        group.subscriptionCall(() -> {
            OpcAsyncIo2.refresh(link().asyncIo(), source == DataSource.CACHE);
            return null;
        });
    }

    /**
     * Starts an asynchronous read of the items from the device; the values arrive through
     * {@link SubscriptionListener#onReadComplete} under the returned transaction id. Raises
     * HresultException when the server refuses the whole read.
     */
    public Transaction readAsync(List<Item> items) {
        return group.subscriptionCall(() -> issueRead(items));
    }

    private Transaction issueRead(List<Item> items) {
        Link current = link();
        Map<String, Integer> rejected = new LinkedHashMap<>();
        List<Item> sent = new ArrayList<>();
        for (Item item : items) {
            if (item.isValid()) {
                sent.add(item);
            } else {
                rejected.put(item.itemId(), item.error());
            }
        }
        int transactionId = nextTransactionId();
        if (sent.isEmpty()) return new Transaction(transactionId, 0, rejected);
        int[] handles = sent.stream().mapToInt(group::serverHandle).toArray();
        Issued issued = new Issued();
        OpcAsyncIo2.readAsync(current.asyncIo(), handles.length, transactionId, handles, (ReadListener) issued::set);
        return issued.transaction("IOPCAsyncIO2::Read", transactionId, sent, rejected);
    }

    /**
     * Starts an asynchronous write of one value per item, each converted to the item's canonical type
     * as {@link Group#write} does; the outcome arrives through {@link SubscriptionListener#onWriteComplete}
     * under the returned transaction id. Raises HresultException when the server refuses the whole write.
     */
    public Transaction writeAsync(Map<Item, ?> values) {
        for (Object value : values.values()) {
            if (value == null) throw new IllegalArgumentException("no value to write");
        }
        return group.subscriptionCall(() -> issueWrite(values));
    }

    private Transaction issueWrite(Map<Item, ?> values) {
        Link current = link();
        Map<String, Integer> rejected = new LinkedHashMap<>();
        List<Item> sent = new ArrayList<>();
        List<String> texts = new ArrayList<>();
        for (Map.Entry<Item, ?> entry : values.entrySet()) {
            Item item = entry.getKey();
            if (entry.getValue() == null) throw new IllegalArgumentException("no value to write to " + item.itemId());
            int type = item.canonicalType();
            String text = item.isValid() ? VarTypes.writeText(type, entry.getValue()) : null;
            if (text == null) {
                rejected.put(item.itemId(), !item.isValid() ? item.error()
                        : VarTypes.isWritable(type) ? VarTypes.OPC_E_RANGE : VarTypes.OPC_E_BADTYPE);
            } else {
                sent.add(item);
                texts.add(text);
            }
        }
        int transactionId = nextTransactionId();
        if (sent.isEmpty()) return new Transaction(transactionId, 0, rejected);
        int[] handles = sent.stream().mapToInt(group::serverHandle).toArray();
        int[] types = sent.stream().mapToInt(Item::canonicalType).toArray();
        Issued issued = new Issued();
        WriteListener listener = (synchronous, hr, count, id, cancelId, serverHandles, errors) ->
                issued.set(hr, count, id, cancelId, serverHandles, errors);
        OpcAsyncIo2.writeAsync(current.asyncIo(), handles.length, transactionId, handles, types, texts.toArray(String[]::new),
                listener);
        return issued.transaction("IOPCAsyncIO2::Write", transactionId, sent, rejected);
    }

    /**
     * Asks the server to cancel outstanding reads or writes by cancel id. The server may already have
     * completed them; a cancelled one gets no completion.
     */
    public void cancel(int... cancelIds) {
        if (cancelIds.length == 0) return;
        int[] ids = cancelIds.clone();
        group.subscriptionCall(() -> OpcAsyncIo2.cancel2(link().asyncIo(), ids, null));
    }

    public void cancel(Transaction transaction) {
        cancel(transaction.cancelId());
    }

    public boolean isClosed() {
        return closed;
    }

    /** Whether the server has let go of the callback object (after close, or when the group went). */
    public boolean isDisconnected() {
        Link current = link;
        return current == null || current.receiver().deleted.getCount() == 0;
    }

    /** How many times the server's callback object told of its end: 1 after a clean close. */
    int deletionNotices() {
        Link current = link;
        return current == null ? 0 : current.receiver().deletions.get();
    }

    /**
     * Disconnects; once the server has let go of the callback (waited for up to a few seconds, unless
     * called from a listener), no further listener call follows. Later calls do nothing. A close that
     * races the group's or the server's close waits for it.
     */
    @Override
    public void close() {
        List<CountDownLatch> waits = new ArrayList<>();
        RuntimeException failure = group.exclusive(() -> closeLocked(waits));
        group.server().awaitReleases(waits);
        if (failure != null) throw failure;
    }

    /** Disconnects under the connection's exclusive lock; the callback's end goes to `waits`. */
    RuntimeException closeLocked(List<CountDownLatch> waits) {
        if (closed) return null;
        closed = true;
        group.forget(this);
        Link current = link;
        if (current == null || !group.server().isReachable()) return null;
        return group.server().quietly(() -> OpcAsyncIo2.unadvise(current.asyncIo(), current.cookie()),
                current.receiver().deleted, waits);
    }

    private int nextTransactionId() {
        // 0 is the transaction id of refreshes.
        int id = lastTransaction.incrementAndGet();
        return id != 0 ? id : lastTransaction.incrementAndGet();
    }

    /** What the server answered when a read or write was issued; the answer comes on the calling thread. */
    private static final class Issued {
        private boolean answered;
        private int hresult;
        private int cancelId;
        private int[] errors;

        void set(int hr, int count, int transactionId, int cancel, int[] serverHandles, int[] itemErrors) {
            answered = true;
            hresult = hr;
            cancelId = cancel;
            errors = itemErrors;
        }

        Transaction transaction(String operation, int transactionId, List<Item> sent, Map<String, Integer> rejected) {
            if (!answered) throw new OpcException(operation + " was not issued");
            if (hresult < 0) throw new HresultException(hresult, operation);
            if (hresult == S_FALSE) {
                for (int i = 0; i < sent.size(); i++) {
                    int error = errors == null ? E_FAIL : i < errors.length ? errors[i] : E_FAIL;
                    if (error < 0) rejected.put(sent.get(i).itemId(), error);
                }
            }
            return new Transaction(transactionId, cancelId, rejected);
        }
    }

    /** The Java side of the native callback object. */
    private static final class Receiver implements DataCallback {
        private final Map<Integer, String> itemIds;
        private final SubscriptionListener listener;
        private final CountDownLatch deleted = new CountDownLatch(1);
        private final AtomicInteger deletions = new AtomicInteger();

        Receiver(Map<Integer, String> itemIds, SubscriptionListener listener) {
            this.itemIds = itemIds;
            this.listener = listener;
        }

        private void call(Runnable listenerCall) {
            Callbacks.run(listenerCall, "a subscription listener");
        }

        private void deliver(int clientHandle, Object value, long timestamp, int quality, int error) {
            ItemValue v = new ItemValue(itemIds.get(clientHandle), value, quality, ServerStatus.time(timestamp), error);
            call(() -> listener.onValue(v));
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
            List<ItemValue> read = new ArrayList<>(count);
            for (int i = 0; i < count; i++) {
                Object value = errors[i] < 0 ? null : VarTypes.fromKind(valueKinds[i], values[i]);
                read.add(new ItemValue(itemIds.get(clientHandles[i]), value, qualities[i],
                        ServerStatus.time(timestamps[i]), errors[i]));
            }
            List<ItemValue> all = Collections.unmodifiableList(read);
            call(() -> listener.onReadComplete(transactionId, all));
        }

        @Override
        public void OnWriteCompleted(int transactionId, int groupHandle, int masterError, int count,
                int[] clientHandles, int[] errors) {
            Map<String, Integer> written = new LinkedHashMap<>();
            for (int i = 0; i < count; i++) written.put(itemIds.get(clientHandles[i]), errors[i]);
            Map<String, Integer> all = Collections.unmodifiableMap(written);
            call(() -> listener.onWriteComplete(transactionId, all));
        }

        @Override
        public void asyncCallbackDeleted() {
            deletions.incrementAndGet();
            deleted.countDown();
        }
    }
}
