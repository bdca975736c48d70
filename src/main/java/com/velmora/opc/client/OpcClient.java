package com.velmora.opc.client;

import com.velmora.opc.OpcException;
import com.velmora.opc.jni.client.common.OpcServerList2;
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

    /** Component category of OPC Data Access 2.0 servers. */
    public static final String CATEGORY_DA20 = "{63D5F432-CFE4-11D1-B2C8-0060083BA1FB}";
    /** Component category of OPC Data Access 3.0 servers. */
    public static final String CATEGORY_DA30 = "{CC603642-66D7-48F1-B69A-B625E73652D7}";

    /** The OPC Data Access 2.0 servers registered on a host ("localhost" when null or empty). */
    public List<BOpcDeviceDiscoveryResult> discover(String host) {
        return discover(host, CATEGORY_DA20);
    }

    /** The servers of a component category (braced GUID text) registered on a host. */
    public List<BOpcDeviceDiscoveryResult> discover(String host, String category) {
        ComThreads.prepare();
        String target = host == null || host.isEmpty() ? "localhost" : host;
        BOpcDeviceDiscoveryResult[] found = OpcServerList2.discoverServers(target, category);
        if (found == null) return List.of();
        List<BOpcDeviceDiscoveryResult> servers = new ArrayList<>();
        for (BOpcDeviceDiscoveryResult server : found) {
            if (server != null) servers.add(server);
        }
        return List.copyOf(servers);
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
