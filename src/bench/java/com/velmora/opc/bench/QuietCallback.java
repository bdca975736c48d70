package com.velmora.opc.bench;

import com.velmora.opc.jni.client.da.DataCallback;

/** A data callback that ignores every call: the base of the benchmarks' own callbacks. */
class QuietCallback implements DataCallback {
    @Override
    public void updateNumeric(int handle, double value, long timestamp, int quality, int error, boolean sync) {}

    @Override
    public void updateString(int handle, String value, long timestamp, int quality, int error, boolean sync) {}

    @Override
    public void updateBoolean(int handle, boolean value, long timestamp, int quality, int error, boolean sync) {}

    @Override
    public void updateError(int handle, long timestamp, int quality, int error, boolean sync) {}

    @Override
    public void OnReadCompleted(int transactionId, int masterQuality, int masterError, int n, int[] clientHandles,
            int[] valueKinds, String[] values, int[] qualities, long[] timestamps, int[] errors) {}

    @Override
    public void OnWriteCompleted(int transactionId, int groupHandle, int masterError, int n, int[] clientHandles,
            int[] errors) {}

    @Override
    public void asyncCallbackDeleted() {}
}
