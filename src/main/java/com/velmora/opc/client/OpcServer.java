package com.velmora.opc.client;

import com.velmora.opc.jni.client.common.OpcCommon;
import com.velmora.opc.jni.client.da.BrowseElementCollector;
import com.velmora.opc.jni.client.da.OpcBrowse;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.jni.client.da.OpcItemProperties;
import com.velmora.opc.jni.client.da.PropertyCollector;
import com.velmora.opc.jni.client.da.ServerStatusReceiver;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.atomic.AtomicReference;

/**
 * A connection to one OPC Data Access server. Closing it disconnects its shutdown listeners, closes
 * the groups still open and then gives up the server reference.
 */
public final class OpcServer implements AutoCloseable {
    private final OpcClient client;
    private final NativeHandle server;
    private final String name;
    private final String host;
    private final List<Group> groups = new ArrayList<>();
    private final List<ShutdownRegistration> shutdownListeners = new ArrayList<>();
    private int nextGroupHandle = 1;

    OpcServer(OpcClient client, NativeHandle server, String name, String host) {
        this.client = client;
        this.server = server;
        this.name = name;
        this.host = host;
    }

    /** The ProgID or CLSID this connection was made with. */
    public String name() {
        return name;
    }

    /** The host named at connection, or null for this host. */
    public String host() {
        return host;
    }

    public boolean isOpen() {
        return server.isOpen();
    }

    public ServerStatus status() {
        ComThreads.prepare();
        AtomicReference<ServerStatus> result = new AtomicReference<>();
        ServerStatusReceiver receiver = (start, current, lastUpdate, state, groupCount, bandWidth, major, minor,
                build, vendor) -> result.set(new ServerStatus(ServerStatus.time(start),
                        ServerStatus.time(current), ServerStatus.time(lastUpdate), ServerState.of(state), state,
                        Integer.toUnsignedLong(groupCount), Integer.toUnsignedLong(bandWidth), major, minor, build,
                        vendor));
        OpcDaServer.getStatus(handle(), receiver);
        if (result.get() == null) throw new com.velmora.opc.OpcException("server " + name + " gave no status");
        return result.get();
    }

    /** The server's text for an error code, in the server's locale; null when it has none. */
    public String errorText(int hresult) {
        ComThreads.prepare();
        try (NativeHandle common = server.query(Iids.IOPC_COMMON, "IOPCCommon")) {
            return OpcCommon.getErrorString(common.get(), hresult);
        }
    }

    /**
     * The elements under a branch of the server's address space ("" for the root), with each
     * item's type and access rights. Needs a server with the OPC DA 3.0 browse interface.
     */
    public List<BrowseElement> browse(String branchItemId) {
        ComThreads.prepare();
        List<BrowseElement> elements = new ArrayList<>();
        BrowseElementCollector collector = (name, itemId, isItem, hasChildren, type, readable, writable) ->
                elements.add(new BrowseElement(name, itemId, isItem, hasChildren, type, readable, writable));
        try (NativeHandle browser = server.query(Iids.IOPC_BROWSE, "IOPCBrowse")) {
            OpcBrowse.browse(browser.get(), branchItemId == null ? "" : branchItemId, collector);
        }
        return List.copyOf(elements);
    }

    /** The properties the server offers for an item. */
    public List<ItemProperty> properties(String itemId) {
        ComThreads.prepare();
        List<ItemProperty> properties = new ArrayList<>();
        PropertyCollector collector = (id, description, type) -> properties.add(new ItemProperty(id, description, type));
        try (NativeHandle props = server.query(Iids.IOPC_ITEM_PROPERTIES, "IOPCItemProperties")) {
            OpcItemProperties.queryAvailableProperties(props.get(), itemId, collector);
        }
        return List.copyOf(properties);
    }

    /** Adds an active group with the requested update rate in milliseconds. */
    public Group addGroup(String groupName, int updateRate) {
        return addGroup(groupName, true, updateRate, 0f);
    }

    public Group addGroup(String groupName, boolean active, int updateRate, float percentDeadband) {
        ComThreads.prepare();
        int clientGroupHandle = nextGroupHandle++;
        long[] result = OpcDaServer.addGroup(handle(), groupName, active, updateRate, clientGroupHandle, 0,
                percentDeadband, 0);
        if (result == null || result.length != 3 || result[0] == 0) throw Group.noGroup(groupName);
        Group group = new Group(this, new NativeHandle(result[0], "group " + groupName), groupName,
                clientGroupHandle, (int) result[1], (int) result[2]);
        synchronized (groups) {
            groups.add(group);
        }
        return group;
    }

    /**
     * Connects a listener to the server's shutdown notice: it runs once, on a server thread, when the
     * server asks its clients to let go of it (the server's reason goes to the process's console). The
     * listener should hand the work of closing to another thread rather than close the server itself.
     * Closing the registration or the server disconnects it.
     */
    public ShutdownRegistration onShutdown(Runnable listener) {
        ComThreads.prepare();
        ShutdownRegistration registration = ShutdownRegistration.open(this, listener);
        synchronized (shutdownListeners) {
            shutdownListeners.add(registration);
        }
        return registration;
    }

    void forget(ShutdownRegistration registration) {
        synchronized (shutdownListeners) {
            shutdownListeners.remove(registration);
        }
    }

    long handle() {
        return server.get();
    }

    void forget(Group group) {
        synchronized (groups) {
            groups.remove(group);
        }
    }

    @Override
    public void close() {
        List<Runnable> closers = new ArrayList<>();
        synchronized (shutdownListeners) {
            shutdownListeners.forEach(r -> closers.add(r::close));
        }
        synchronized (groups) {
            groups.forEach(g -> closers.add(g::close));
        }
        RuntimeException failure = null;
        for (Runnable close : closers) {
            try {
                close.run();
            } catch (RuntimeException e) {
                if (failure == null) failure = e;
            }
        }
        server.close();
        client.forget(this);
        if (failure != null) throw failure;
    }
}
