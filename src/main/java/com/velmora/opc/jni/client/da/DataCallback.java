package com.velmora.opc.jni.client.da;

/**
 * The Java side of a group subscription: data changes arrive through the {@link UpdateReceiver}
 * methods, completions of asynchronous reads and writes through the methods here. Called on COM
 * threads, concurrently with each other and with Java threads.
 */
public interface DataCallback extends UpdateReceiver {
    /** Value kinds: 1 numeric, 2 boolean, 3 string or array text, 4 not deliverable. */
    int KIND_NUMERIC = 1;
    int KIND_BOOLEAN = 2;
    int KIND_STRING = 3;
    int KIND_NONE = 4;

    void OnReadCompleted(int transactionId, int masterQuality, int masterError, int count, int[] clientHandles,
            int[] valueKinds, String[] values, int[] qualities, long[] timestamps, int[] errors);

    void OnWriteCompleted(int transactionId, int groupHandle, int masterError, int count, int[] clientHandles,
            int[] errors);

    /** The native callback object has been destroyed; no further calls follow. */
    void asyncCallbackDeleted();
}
