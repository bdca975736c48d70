package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a group's IOPCSyncIO handle. */
public final class OpcSyncIo {
    static {
        NativeLibrary.load();
    }

    private OpcSyncIo() {}

    /** Hands every item's value to an {@link UpdateReceiver} before returning. */
    public static native void read(long syncIo, int[] serverHandles, boolean fromCache, Object receiver);

    /** Per-item results go to a {@link WriteListener}; -1 after a failure. */
    public static native int writeArray(long syncIo, int count, int[] serverHandles, int[] dataTypes,
            String[] values, Object writeListener);

    public static native int writeBoolean(long syncIo, int serverHandle, boolean value);

    public static native int writeNumeric(long syncIo, int serverHandle, int dataType, double value);

    public static native int writeString(long syncIo, int serverHandle, String value, int dataType);
}
