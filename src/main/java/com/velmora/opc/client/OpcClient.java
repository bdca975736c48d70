package com.velmora.opc.client;

import com.velmora.opc.OpcException;
import com.velmora.opc.jni.client.da.OpcDaServer;

/** Entry point: connects to an OPC Data Access server on this host or on another one. */
public final class OpcClient {
    private OpcClient() {}

    /** Connects to a server on this host by ProgID (e.g. "Velmora.Simulation.1") or braced CLSID. */
    public static OpcServer connect(String server) {
        return connect(server, null);
    }

    /** Connects to a server on the named host; a null or empty host means this host. */
    public static OpcServer connect(String server, String host) {
        if (server == null || server.isEmpty()) throw new IllegalArgumentException("no server named");
        ComThreads.prepare();
        boolean local = host == null || host.isEmpty();
        long handle = local ? OpcDaServer.createLocalServer(server) : OpcDaServer.createRemoteServer(server, host);
        if (handle == 0) {
            throw new OpcException("could not create server " + server + (local ? "" : " on " + host));
        }
        return new OpcServer(new NativeHandle(handle, "server " + server), server, local ? null : host);
    }
}
