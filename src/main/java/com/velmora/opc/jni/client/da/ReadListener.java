package com.velmora.opc.jni.client.da;

/** Receives the result of issuing an asynchronous read; the values follow through the data callback. */
public interface ReadListener {
    void OnReturnRead(int hresult, int count, int transactionId, int cancelId, int[] serverHandles, int[] errors);
}
