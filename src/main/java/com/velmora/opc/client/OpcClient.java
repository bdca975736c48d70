package com.velmora.opc.client;

import com.velmora.opc.jni.client.common.OpcServerList2;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Entry point: connects to OPC Data Access servers on this host or on another one. Closing the
 * client closes every server connection still open through it. Safe for concurrent use: a connect
 * that races close either completes before close closes its connection or fails with
 * IllegalStateException.
 */
public final class OpcClient implements AutoCloseable {
    /** Component category of OPC Data Access 1.0 servers. */
    public static final String CATEGORY_DA10 = "{63D5F430-CFE4-11D1-B2C8-0060083BA1FB}";
    /** Component category of OPC Data Access 2.0 servers. */
    public static final String CATEGORY_DA20 = "{63D5F432-CFE4-11D1-B2C8-0060083BA1FB}";
    /** Component category of OPC Data Access 3.0 servers. */
    public static final String CATEGORY_DA30 = "{CC603642-66D7-48F1-B69A-B625E73652D7}";

    private final List<OpcServer> servers = new ArrayList<>();
    private int connecting;
    private boolean closed;

    private OpcClient() {}

    /** Prepares the calling thread (and, once, the process) for COM. */
    public static OpcClient open() {
        ComThreads.prepare();
        return new OpcClient();
    }

    /** Connects to a server on this host by ProgID (e.g. "Velmora.Simulation.1") or braced CLSID. */
    public OpcServer connect(String server) {
        return connect(server, null, ConnectionOptions.DEFAULT);
    }

    /** Connects to a server on the named host; a null or empty host means this host. */
    public OpcServer connect(String server, String host) {
        return connect(server, host, ConnectionOptions.DEFAULT);
    }

    /**
     * Connects with options for noticing the server's loss and reconnecting. A server on another host
     * may be named by ProgID: it is looked up in that host's list of OPC Data Access servers.
     */
    public OpcServer connect(String server, String host, ConnectionOptions options) {
        if (server == null || server.isEmpty()) throw new IllegalArgumentException("no server named");
        if (options == null) throw new IllegalArgumentException("no connection options");
        synchronized (servers) {
            if (closed) throw new IllegalStateException("client is closed");
            connecting++;
        }
        OpcServer connection = null;
        try {
            ComThreads.prepare();
            boolean local = host == null || host.isEmpty();
            String target = local || server.startsWith("{") ? server : remoteClsid(server, host);
            connection = new OpcServer(this, server, local ? null : host, target, options);
        } finally {
            synchronized (servers) {
                connecting--;
                if (connection != null) servers.add(connection);
                servers.notifyAll();
            }
        }
        return connection;
    }

    /** The CLSID of a ProgID in a remote host's server list (the local registry does not know it). */
    private String remoteClsid(String progId, String host) {
        for (BOpcDeviceDiscoveryResult found : discover(host, CATEGORY_DA30, CATEGORY_DA20, CATEGORY_DA10)) {
            if (progId.equalsIgnoreCase(found.getProgId())
                    || progId.equalsIgnoreCase(found.getVersionIndependentProgId())) {
                return found.getClsid();
            }
        }
        throw new com.velmora.opc.OpcException("host " + host + " lists no OPC server " + progId);
    }

    /** The OPC Data Access 2.0 servers registered on a host ("localhost" when null or empty). */
    public List<BOpcDeviceDiscoveryResult> discover(String host) {
        return discover(host, CATEGORY_DA20);
    }

    /**
     * The servers of one or more component categories (braced GUID text) registered on a host, each
     * server once (under the first category that lists it).
     */
    public List<BOpcDeviceDiscoveryResult> discover(String host, String... categories) {
        ComThreads.prepare();
        String target = host == null || host.isEmpty() ? "localhost" : host;
        Map<String, BOpcDeviceDiscoveryResult> found = new LinkedHashMap<>();
        for (String category : categories) {
            BOpcDeviceDiscoveryResult[] listed = OpcServerList2.discoverServers(target, category);
            if (listed == null) continue;
            for (BOpcDeviceDiscoveryResult server : listed) {
                if (server != null) found.putIfAbsent(server.getClsid(), server);
            }
        }
        return List.copyOf(found.values());
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
            // Connections being made finish first, so that none escapes the close.
            boolean interrupted = false;
            while (connecting > 0) {
                try {
                    servers.wait();
                } catch (InterruptedException e) {
                    interrupted = true;
                }
            }
            if (interrupted) Thread.currentThread().interrupt();
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
