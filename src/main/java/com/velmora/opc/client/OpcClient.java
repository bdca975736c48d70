package com.velmora.opc.client;

import com.velmora.opc.OpcException;
import com.velmora.opc.jni.client.da.OpcDaServer;
import java.util.ArrayList;
import java.util.List;

/**
 * Entry point: connects to OPC Data Access servers on this host or on another one. Closing the
 * client closes every server connection still open through it.
 */
public final class OpcClient implements AutoCloseable {
    private final List<OpcServer> servers = new ArrayList<>();
    private boolean closed;

    private OpcClient() {}

    /** Prepares the calling thread (and, once, the process) for COM. */
    public static OpcClient open() {
        ComThreads.prepare();
        return new OpcClient();
    }

    /** Connects to a server on this host by ProgID (e.g. "Velmora.Simulation.1") or braced CLSID. */
    public OpcServer connect(String server) {
        return connect(server, null);
    }

    /** Connects to a server on the named host; a null or empty host means this host. */
    public OpcServer connect(String server, String host) {
        if (server == null || server.isEmpty()) throw new IllegalArgumentException("no server named");
        synchronized (servers) {
            if (closed) throw new IllegalStateException("client is closed");
        }
        ComThreads.prepare();
        boolean local = host == null || host.isEmpty();
        long handle = local ? OpcDaServer.createLocalServer(server) : OpcDaServer.createRemoteServer(server, host);
        if (handle == 0) {
            throw new OpcException("could not create server " + server + (local ? "" : " on " + host));
        }
        OpcServer connection = new OpcServer(this, new NativeHandle(handle, "server " + server), server,
                local ? null : host);
        synchronized (servers) {
            servers.add(connection);
        }
        return connection;
    }

    void forget(OpcServer server) {
        synchronized (servers) {
            servers.remove(server);
        }
    }

    @Override
    public void close() {
        List<OpcServer> open;
        synchronized (servers) {
            closed = true;
            open = new ArrayList<>(servers);
        }
        RuntimeException failure = null;
        for (OpcServer server : open) {
            try {
                server.close();
            } catch (RuntimeException e) {
                if (failure == null) failure = e;
            }
        }
        if (failure != null) throw failure;
    }
}
