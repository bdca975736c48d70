package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a group's IOPCAsyncIO2 handle. */
public final class OpcAsyncIo2 {
    static {
        NativeLibrary.load();
    }

    private OpcAsyncIo2() {}

    /** Subscribes a {@link DataCallback}; returns the connection cookie, 0 when none was made. */
    public static native long advise(long asyncIo, Object callback);

    public static native void unadvise(long asyncIo, long cookie);

    public static native void refresh(long asyncIo, boolean fromCache);

    /** The issue result goes to the {@link ReadListener} at once, the values later to the data callback. */
    public static native void readAsync(long asyncIo, int count, int transactionId, int[] serverHandles,
            Object readListener);

    /** 0 done, 1 no handle, -1 after a failure. */
    public static native int cancel2(long asyncIo, int[] firstCancelIds, int[] secondCancelIds);

    public static native int writeAsync(long asyncIo, int count, int transactionId, int[] serverHandles,
            int[] dataTypes, String[] values, Object writeListener);
}
