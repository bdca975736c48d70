package com.velmora.opc.jni.client.da;

/**
 * Receives the outcome of a write of several items. Per-item errors are present only when the
 * server reported a partial failure; otherwise null.
 */
public interface WriteListener {
    void OnReturnWrite(boolean synchronous, int hresult, int count, int transactionId, int cancelId,
            int[] serverHandles, int[] errors);
}
