package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a server's IOPCSecurityPrivate handle. */
public final class OpcPrivateSecurity {
    static {
        NativeLibrary.load();
    }

    private OpcPrivateSecurity() {}

    public static native boolean isAvailablePrivate(long priv);

    public static native long logon(long priv, String user, String password);

    public static native boolean logoff(long priv);
}
