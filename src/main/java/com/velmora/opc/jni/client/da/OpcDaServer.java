package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Server creation, status and groups, over a server's IOPCServer handle. */
public final class OpcDaServer {
    static {
        NativeLibrary.load();
    }

    private OpcDaServer() {}

    /** A braced CLSID or a ProgID; returns the IOPCServer handle, 0 on failure. */
    public static native long createLocalServer(String clsid);

    public static native long createRemoteServer(String clsid, String host);

    /** Hands the status record to a {@link ServerStatusReceiver}. */
    public static native void getStatus(long server, Object status);

    /** {group IUnknown handle, server group handle, revised update rate}, or null. */
    public static native long[] addGroup(long server, String name, boolean active, int requestedUpdateRate,
            int clientGroupHandle, int timeBias, float percentDeadband, int localeId);

    public static native void removeGroup(long server, int serverGroupHandle, boolean force);
}
