package com.velmora.opc.jni.client.common;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a server's IOPCCommon handle. */
public final class OpcCommon {
    static {
        NativeLibrary.load();
    }

    private OpcCommon() {}

    public static native int[] availableLocales(long common);

    public static native String getErrorString(long common, int error);

    public static native int getLocaleId(long common);

    public static native void setClientName(long common, String name);

    public static native void setLocaleId(long common, int localeId);
}
