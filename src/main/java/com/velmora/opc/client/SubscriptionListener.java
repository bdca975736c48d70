package com.velmora.opc.client;

import java.util.List;
import java.util.Map;
import java.util.function.Consumer;

/**
 * Receives what a {@link Subscription} delivers: the data changes of the group's active items (and
 * the values of its refreshes) one item at a time, and the completions of the asynchronous reads and
 * writes issued through it. Every method runs on a thread of the server's choosing, concurrently with
 * the caller and possibly with the other methods; an exception it throws is logged and dropped.
 *
 * <p>A listener is also a {@code Consumer<ItemValue>} of the changed values, so a lambda given to
 * {@link Group#subscribe} implements {@link #onValue}.
 */
public interface SubscriptionListener extends Consumer<ItemValue> {

    /** One item's new value, or its failure. */
    void onValue(ItemValue value);

    /**
     * The values of an asynchronous read, one per item that the server read, under the transaction id
     * that {@link Subscription#readAsync} returned. May arrive before readAsync has returned.
     */
    default void onReadComplete(int transactionId, List<ItemValue> values) {}

    /**
     * The outcome of an asynchronous write, under the transaction id that {@link Subscription#writeAsync}
     * returned: per item id, 0 when written, else the item's error. May arrive before writeAsync has
     * returned.
     */
    default void onWriteComplete(int transactionId, Map<String, Integer> errors) {}

    @Override
    default void accept(ItemValue value) {
        onValue(value);
    }
}
