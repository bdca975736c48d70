package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a server's IOPCSecurityNT handle. */
public final class OpcNTSecurity {
    static {
        NativeLibrary.load();
    }

    private OpcNTSecurity() {}

    public static native boolean isAvailableNT(long nt);

    public static native long queryImpersonationLevel(long nt);

    public static native long changeUser(long nt, String user, String password);
}
