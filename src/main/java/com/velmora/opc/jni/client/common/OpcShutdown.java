package com.velmora.opc.jni.client.common;

import com.velmora.opc.jni.NativeLibrary;

/** Connects a {@link ShutdownListener} to a server's shutdown connection point. */
public final class OpcShutdown {
    static {
        NativeLibrary.load();
    }

    private OpcShutdown() {}

    /** Returns the connection cookie, 0 when no connection was made. */
    public static native long advise(long server, Object shutdownListener);

    public static native void unadvise(long server, long cookie);
}
