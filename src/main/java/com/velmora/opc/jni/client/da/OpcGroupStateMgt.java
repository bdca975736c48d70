package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a group's IOPCGroupStateMgt handle. */
public final class OpcGroupStateMgt {
    static {
        NativeLibrary.load();
    }

    private OpcGroupStateMgt() {}

    /** Hands the group's state to a {@link GroupStateReceiver}. */
    public static native void getState(long groupStateMgt, Object groupStateReceiver);

    /** Returns the revised update rate. */
    public static native int setState(long groupStateMgt, int updateRate, boolean active, int timeBias,
            float percentDeadband, int lcid, int clientGroupHandle);
}
