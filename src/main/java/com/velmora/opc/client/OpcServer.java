package com.velmora.opc.client;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.OpcException;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.jni.client.common.OpcCommon;
import com.velmora.opc.jni.client.da.AddressSpaceCollector;
import com.velmora.opc.jni.client.da.BrowseElementCollector;
import com.velmora.opc.jni.client.da.OpcBrowse;
import com.velmora.opc.jni.client.da.OpcBrowseServerAddressSpace;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.jni.client.da.OpcItemProperties;
import com.velmora.opc.jni.client.da.OpcNTSecurity;
import com.velmora.opc.jni.client.da.OpcPrivateSecurity;
import com.velmora.opc.jni.client.da.PropertyCollector;
import com.velmora.opc.jni.client.da.ServerStatusReceiver;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.RejectedExecutionException;
import java.util.concurrent.ScheduledExecutorService;
import java.util.concurrent.ScheduledThreadPoolExecutor;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicReference;
import java.util.concurrent.locks.ReentrantReadWriteLock;
import java.util.function.Supplier;

/**
 * A connection to one OPC Data Access server. Safe for concurrent use, with its groups, items and
 * subscriptions: calls share the connection, while closing (of the connection, a group, a
 * subscription or a shutdown listener) and reconnection wait for the calls under way and hold off new
 * ones. A call that races a close completes first or fails with IllegalStateException; no call ever
 * reaches a handle that was given up. Closing disconnects the shutdown listeners, closes the groups
 * still open and gives up the server reference; once the server is gone, it does so without asking it.
 *
 * <p>With {@link ConnectionOptions} the connection notices the loss of its server (a shutdown
 * request, a call failing with a disconnection code, or a failed status poll), tells a
 * {@link ConnectionListener}, and can reconnect with back-off, making its groups, items,
 * subscriptions and shutdown listeners again.
 */
public final class OpcServer implements AutoCloseable {
    private static final System.Logger LOG = System.getLogger(OpcEnv.LOGGER_NAME);
    private static final AtomicInteger MONITORS = new AtomicInteger();

    private enum State { OPEN, LOST, CLOSED }

    private final OpcClient client;
    private final String name;
    private final String host;
    private final String target;
    private final ConnectionOptions options;
    private final ReentrantReadWriteLock lock = new ReentrantReadWriteLock();
    private volatile State state = State.OPEN;
    private volatile NativeHandle server;
    private final List<Group> groups = new ArrayList<>();
    private final List<ShutdownRegistration> shutdownListeners = new ArrayList<>();
    private final AtomicInteger nextGroupHandle = new AtomicInteger(1);
    private final Object browsing = new Object();
    private final ScheduledExecutorService monitor;
    private final AtomicBoolean lossPending = new AtomicBoolean();
    private ShutdownRegistration lossWatch;
    private volatile String clientName;
    private volatile Integer localeId;

    /** Connects (the target is a CLSID or ProgID that the host's activation knows). */
    OpcServer(OpcClient client, String name, String host, String target, ConnectionOptions options) {
        this.client = client;
        this.name = name;
        this.host = host;
        this.target = target;
        this.options = options;
        this.server = create();
        if (!options.monitored()) {
            monitor = null;
            return;
        }
        ScheduledThreadPoolExecutor executor = new ScheduledThreadPoolExecutor(1, r -> {
            Thread t = new Thread(r, "opc-connection-" + MONITORS.incrementAndGet() + " " + name);
            t.setDaemon(true);
            return t;
        });
        executor.setRemoveOnCancelPolicy(true);
        monitor = executor;
        try {
            lossWatch = new ShutdownRegistration(this, () -> lost(new OpcException("server " + name
                    + " asked its clients to let go of it")));
            lossWatch.attach(server.get());
        } catch (RuntimeException e) {
            lossWatch = null;  // a server without the shutdown notice is still watched by the poll
            LOG.log(System.Logger.Level.DEBUG, "server " + name + " takes no shutdown listener", e);
        }
        Duration poll = options.statusPoll();
        if (poll != null && !poll.isZero()) {
            long every = Math.max(1, poll.toMillis());
            executor.scheduleWithFixedDelay(this::poll, every, every, TimeUnit.MILLISECONDS);
        }
    }

    private NativeHandle create() {
        long handle = host == null ? OpcDaServer.createLocalServer(target) : OpcDaServer.createRemoteServer(target, host);
        if (handle == 0) throw new OpcException("could not create server " + name + (host == null ? "" : " on " + host));
        return new NativeHandle(handle, "server " + name);
    }

    /** The ProgID or CLSID this connection was made with. */
    public String name() {
        return name;
    }

    /** The host named at connection, or null for this host. */
    public String host() {
        return host;
    }

    /** Open: neither closed nor lost. */
    public boolean isOpen() {
        return state == State.OPEN;
    }

    /** Whether the connection has lost its server and is not (yet) reconnected. */
    public boolean isLost() {
        return state == State.LOST;
    }

    public ServerStatus status() {
        return call(() -> {
            AtomicReference<ServerStatus> result = new AtomicReference<>();
            ServerStatusReceiver receiver = (start, current, lastUpdate, serverState, groupCount, bandWidth, major,
                    minor, build, vendor) -> result.set(new ServerStatus(ServerStatus.time(start),
                            ServerStatus.time(current), ServerStatus.time(lastUpdate), ServerState.of(serverState),
                            serverState, Integer.toUnsignedLong(groupCount), Integer.toUnsignedLong(bandWidth), major,
                            minor, build, vendor));
            OpcDaServer.getStatus(handle(), receiver);
            if (result.get() == null) throw new OpcException("server " + name + " gave no status");
            return result.get();
        });
    }

    /** The server's text for an error code, in the server's locale; null when it has none. */
    public String errorText(int hresult) {
        return call(() -> {
            try (NativeHandle common = server.query(Iids.IOPC_COMMON, "IOPCCommon")) {
                return OpcCommon.getErrorString(common.get(), hresult);
            }
        });
    }

    /** Tells the server the client's name (kept for reconnection). */
    public void setClientName(String clientName) {
        if (clientName == null) throw new IllegalArgumentException("no client name");
        run(() -> {
            try (NativeHandle common = server.query(Iids.IOPC_COMMON, "IOPCCommon")) {
                OpcCommon.setClientName(common.get(), clientName);
            }
            this.clientName = clientName;
        });
    }

    /** The locale the server uses for this client's texts. */
    public int locale() {
        return call(() -> {
            try (NativeHandle common = server.query(Iids.IOPC_COMMON, "IOPCCommon")) {
                return OpcCommon.getLocaleId(common.get());
            }
        });
    }

    /** Sets the locale of the server's texts for this client (kept for reconnection). */
    public void setLocale(int lcid) {
        run(() -> {
            try (NativeHandle common = server.query(Iids.IOPC_COMMON, "IOPCCommon")) {
                OpcCommon.setLocaleId(common.get(), lcid);
            }
            localeId = lcid;
        });
    }

    /** The locales the server offers. */
    public List<Integer> availableLocales() {
        return call(() -> {
            try (NativeHandle common = server.query(Iids.IOPC_COMMON, "IOPCCommon")) {
                int[] locales = OpcCommon.availableLocales(common.get());
                return locales == null ? List.<Integer>of() : Arrays.stream(locales).boxed().toList();
            }
        });
    }

    /**
     * The elements under a branch of the server's address space ("" for the root). With the OPC DA 3.0
     * browse interface each element carries its item's type and access rights; a server that has only
     * the older position-based interface is browsed through that (type 0 and no rights then; a flat
     * name space lists every item at the root and has no branches).
     */
    public List<BrowseElement> browse(String branchItemId) {
        String branch = branchItemId == null ? "" : branchItemId;
        return call(() -> {
            List<BrowseElement> elements = new ArrayList<>();
            NativeHandle browser;
            try {
                browser = server.query(Iids.IOPC_BROWSE, "IOPCBrowse");
            } catch (MissingInterfaceException e) {
                return browseByPosition(branch);
            }
            BrowseElementCollector collector = (elementName, itemId, isItem, hasChildren, type, readable, writable) ->
                    elements.add(new BrowseElement(elementName, itemId, isItem, hasChildren, type, readable, writable));
            try (browser) {
                OpcBrowse.browse(browser.get(), branch, collector);
            }
            return List.copyOf(elements);
        });
    }

    private List<BrowseElement> browseByPosition(String branch) {
        List<BrowseElement> elements = new ArrayList<>();
        try (NativeHandle browser = server.query(Iids.IOPC_BROWSE_SERVER_ADDRESS_SPACE,
                "IOPCBrowse or IOPCBrowseServerAddressSpace")) {
            long b = browser.get();
            // The browse position is the server object's: one walk at a time on this connection.
            synchronized (browsing) {
                boolean flat = OpcBrowseServerAddressSpace.queryOrganization(b) == 2;
                if (flat) {
                    if (!branch.isEmpty()) return List.of();
                    OpcBrowseServerAddressSpace.getItems(b, "", true, (AddressSpaceCollector) (n, id) ->
                            elements.add(new BrowseElement(n, id, true, false, 0, false, false)));
                    return List.copyOf(elements);
                }
                OpcBrowseServerAddressSpace.getGroups(b, branch, (AddressSpaceCollector) (n, id) ->
                        elements.add(new BrowseElement(n, id, false, true, 0, false, false)));
                OpcBrowseServerAddressSpace.getItems(b, branch, false, (AddressSpaceCollector) (n, id) ->
                        elements.add(new BrowseElement(n, id, true, false, 0, false, false)));
            }
        }
        // A branch the server does not know moves the walk to the root: what it lists is not under it.
        if (!branch.isEmpty() && elements.stream().noneMatch(e -> e.itemId() != null && e.itemId().startsWith(branch))) {
            return List.of();
        }
        return List.copyOf(elements);
    }

    /** The properties the server offers for an item. */
    public List<ItemProperty> properties(String itemId) {
        return call(() -> {
            List<ItemProperty> properties = new ArrayList<>();
            PropertyCollector collector = (id, description, type) ->
                    properties.add(new ItemProperty(id, description, type));
            try (NativeHandle props = server.query(Iids.IOPC_ITEM_PROPERTIES, "IOPCItemProperties")) {
                OpcItemProperties.queryAvailableProperties(props.get(), itemId, collector);
            }
            return List.copyOf(properties);
        });
    }

    /** A numeric property's value (e.g. 102, high EU); a failure raises HresultException. */
    public double numericProperty(String itemId, int propertyId) {
        return withProperties(h -> OpcItemProperties.getNumericProperty(h, itemId, propertyId));
    }

    /** A boolean property's value. */
    public boolean booleanProperty(String itemId, int propertyId) {
        return withProperties(h -> OpcItemProperties.getBooleanProperty(h, itemId, propertyId));
    }

    /** A property's value as text (e.g. 101, the item's description); null when the server gave none. */
    public String stringProperty(String itemId, int propertyId) {
        return withProperties(h -> OpcItemProperties.getStringProperty(h, itemId, propertyId));
    }

    private <T> T withProperties(java.util.function.LongFunction<T> read) {
        return call(() -> {
            try (NativeHandle props = server.query(Iids.IOPC_ITEM_PROPERTIES, "IOPCItemProperties")) {
                return read.apply(props.get());
            }
        });
    }

    /**
     * Switches the identity under which this client's calls reach the server (NT access control;
     * needs the server's IOPCSecurityNT).
     */
    public SecurityResult changeUser(String user, String password) {
        if (user == null || password == null) throw new IllegalArgumentException("no user or password");
        return call(() -> {
            try (NativeHandle nt = server.query(Iids.IOPC_SECURITY_NT, "IOPCSecurityNT")) {
                return SecurityResult.ofChangeUser(OpcNTSecurity.changeUser(nt.get(), user, password));
            }
        });
    }

    /** Logs on with the server's private credentials (needs the server's IOPCSecurityPrivate). */
    public SecurityResult logon(String user, String password) {
        if (user == null || password == null) throw new IllegalArgumentException("no user or password");
        return call(() -> {
            try (NativeHandle priv = server.query(Iids.IOPC_SECURITY_PRIVATE, "IOPCSecurityPrivate")) {
                return SecurityResult.ofLogon(OpcPrivateSecurity.logon(priv.get(), user, password));
            }
        });
    }

    /** Ends a private logon; whether the server answered S_OK. */
    public boolean logoff() {
        return call(() -> {
            try (NativeHandle priv = server.query(Iids.IOPC_SECURITY_PRIVATE, "IOPCSecurityPrivate")) {
                return OpcPrivateSecurity.logoff(priv.get());
            }
        });
    }

    /** Adds an active group with the requested update rate in milliseconds. */
    public Group addGroup(String groupName, int updateRate) {
        return addGroup(groupName, true, updateRate, 0f);
    }

    public Group addGroup(String groupName, boolean active, int updateRate, float percentDeadband) {
        return addGroup(groupName, active, updateRate, percentDeadband, 0, 0);
    }

    /**
     * Adds a group: its name, activity, requested update rate (ms), percent deadband, time bias
     * (minutes) and locale (0 for the server's default).
     */
    public Group addGroup(String groupName, boolean active, int updateRate, float percentDeadband, int timeBias,
            int lcid) {
        if (groupName == null) throw new IllegalArgumentException("no group name");
        return call(() -> {
            Group group = new Group(this, groupName, nextGroupHandle.getAndIncrement(), active, updateRate, timeBias,
                    percentDeadband, lcid);
            group.create(handle());
            synchronized (groups) {
                groups.add(group);
            }
            return group;
        });
    }

    /**
     * Connects a listener to the server's shutdown notice: it runs on a server thread when the server
     * asks its clients to let go of it (the server's reason, if it gave one, goes to the process's
     * console). Closing the registration or the server disconnects it.
     */
    public ShutdownRegistration onShutdown(Runnable listener) {
        if (listener == null) throw new IllegalArgumentException("no listener");
        return call(() -> {
            ShutdownRegistration registration = new ShutdownRegistration(this, listener);
            registration.attach(handle());
            synchronized (shutdownListeners) {
                shutdownListeners.add(registration);
            }
            return registration;
        });
    }

    void forget(ShutdownRegistration registration) {
        synchronized (shutdownListeners) {
            shutdownListeners.remove(registration);
        }
    }

    void forget(Group group) {
        synchronized (groups) {
            groups.remove(group);
        }
    }

    /** The server handle; only under the connection's lock. */
    long handle() {
        NativeHandle current = server;
        if (current == null) throw new ConnectionLostException("server " + name + " is not connected");
        return current.get();
    }

    /** Whether the server may be asked (under the lock): neither lost nor closed. */
    boolean isReachable() {
        return state == State.OPEN && server != null;
    }

    /** Runs a call under the shared lock, the connection open. */
    <T> T call(Supplier<T> work) {
        ReentrantReadWriteLock.ReadLock read = lock.readLock();
        read.lock();
        try {
            if (state == State.CLOSED) throw new IllegalStateException("server " + name + " is closed");
            if (state == State.LOST) throw new ConnectionLostException("the connection to server " + name + " is lost");
            ComThreads.prepare();
            return work.get();
        } catch (HresultException e) {
            if (Disconnection.is(e.getHresult())) lost(e);
            throw e;
        } finally {
            read.unlock();
        }
    }

    private void run(Runnable work) {
        call(() -> {
            work.run();
            return null;
        });
    }

    /** Runs a close or a reconnection alone on the connection. */
    <T> T exclusive(Supplier<T> work) {
        if (lock.getReadHoldCount() > 0) {
            throw new IllegalStateException("server " + name + ": cannot close or reconnect within a call on it");
        }
        lock.writeLock().lock();
        try {
            ComThreads.prepare();
            return work.get();
        } finally {
            lock.writeLock().unlock();
        }
    }

    /**
     * Runs a disconnecting call of a close; a server that is gone is not an error then. The callback's
     * end is waited for only when the server took the call (a dead server's callbacks go when COM
     * notices, which may take minutes).
     */
    RuntimeException quietly(Runnable disconnect, CountDownLatch ended, List<CountDownLatch> waits) {
        try {
            disconnect.run();
            if (ended != null) waits.add(ended);
            return null;
        } catch (HresultException e) {
            if (!Disconnection.is(e.getHresult())) return e;
            LOG.log(System.Logger.Level.DEBUG, "server " + name + " is gone: " + e.getMessage());
            return null;
        } catch (RuntimeException e) {
            return e;
        }
    }

    /** Waits (bounded) for the server to let go of callbacks, unless on a callback's own thread. */
    void awaitReleases(List<CountDownLatch> waits) {
        if (Callbacks.onCallbackThread()) return;
        for (CountDownLatch latch : waits) {
            if (!Waits.await(latch, Waits.CLOSE_TIMEOUT_MILLIS)) {
                LOG.log(System.Logger.Level.WARNING, "server " + name + " kept a callback after it was disconnected");
            }
        }
    }

    // --- loss and reconnection, on the monitor thread ---

    /** A sign that the server is gone; handled once, on the monitor thread. */
    void lost(Throwable cause) {
        if (monitor == null || state != State.OPEN || !lossPending.compareAndSet(false, true)) return;
        try {
            monitor.execute(() -> handleLoss(cause));
        } catch (RejectedExecutionException e) {
            lossPending.set(false);  // closed meanwhile
        }
    }

    private void poll() {
        if (state != State.OPEN) return;
        try {
            status();
        } catch (IllegalStateException | ConnectionLostException e) {
            // closed or lost meanwhile
        } catch (HresultException e) {
            if (!Disconnection.is(e.getHresult())) lost(e);  // a server that cannot say its status is gone too
        } catch (RuntimeException e) {
            lost(e);
        }
    }

    private void handleLoss(Throwable cause) {
        List<NativeHandle> released = new ArrayList<>();
        boolean changed = exclusive(() -> {
            lossPending.set(false);
            if (state != State.OPEN) return false;
            state = State.LOST;
            detachAll(released);
            return true;
        });
        if (!changed) return;
        LOG.log(System.Logger.Level.WARNING, "lost the connection to server " + name + ": " + cause.getMessage());
        released.forEach(this::release);
        tell(l -> l.onLost(this, cause));
        if (options.reconnect()) schedule(1, options.firstDelay());
    }

    private void detachAll(List<NativeHandle> released) {
        if (lossWatch != null) lossWatch.detach();
        synchronized (shutdownListeners) {
            shutdownListeners.forEach(ShutdownRegistration::detach);
        }
        synchronized (groups) {
            groups.forEach(Group::detach);
        }
        if (server != null) released.add(server);
        server = null;
    }

    private void schedule(int attempt, Duration delay) {
        try {
            monitor.schedule(() -> reconnect(attempt, delay), delay.toMillis(), TimeUnit.MILLISECONDS);
        } catch (RejectedExecutionException e) {
            // closed meanwhile
        }
    }

    private void reconnect(int attempt, Duration delay) {
        List<NativeHandle> released = new ArrayList<>();
        RuntimeException failure = exclusive(() -> {
            if (state != State.LOST) return null;
            try {
                attachAll();
                state = State.OPEN;
                return null;
            } catch (RuntimeException e) {
                detachAll(released);
                return e;
            }
        });
        released.forEach(this::release);
        if (state == State.OPEN && failure == null) {
            LOG.log(System.Logger.Level.INFO, "reconnected to server " + name);
            tell(l -> l.onReconnected(this));
        } else if (failure != null && state == State.LOST) {
            Duration next = delay.multipliedBy(2);
            if (next.compareTo(options.maxDelay()) > 0) next = options.maxDelay();
            Duration wait = next;
            tell(l -> l.onReconnectFailed(this, attempt, failure, wait));
            schedule(attempt + 1, next);
        }
    }

    private void attachAll() {
        server = create();
        long handle = server.get();
        if (clientName != null || localeId != null) {
            try (NativeHandle common = server.query(Iids.IOPC_COMMON, "IOPCCommon")) {
                if (clientName != null) OpcCommon.setClientName(common.get(), clientName);
                if (localeId != null) OpcCommon.setLocaleId(common.get(), localeId);
            }
        }
        if (lossWatch != null) lossWatch.attach(handle);
        synchronized (shutdownListeners) {
            for (ShutdownRegistration r : shutdownListeners) r.attach(handle);
        }
        synchronized (groups) {
            for (Group g : groups) g.attach(handle);
        }
    }

    private void tell(java.util.function.Consumer<ConnectionListener> event) {
        ConnectionListener listener = options.listener();
        if (listener == null) return;
        try {
            event.accept(listener);
        } catch (RuntimeException | Error e) {
            LOG.log(System.Logger.Level.WARNING, "a connection listener failed", e);
        }
    }

    /** Gives up a server reference; from a callback's thread on another thread (the server may end its threads). */
    private void release(NativeHandle handle) {
        if (!Callbacks.onCallbackThread()) {
            handle.close();
            return;
        }
        Thread releaser = new Thread(() -> {
            ComThreads.prepare();
            handle.close();
        }, "opc-release " + name);
        releaser.setDaemon(true);
        releaser.start();
    }

    @Override
    public void close() {
        List<CountDownLatch> waits = new ArrayList<>();
        List<NativeHandle> released = new ArrayList<>();
        RuntimeException failure = exclusive(() -> {
            if (state == State.CLOSED) return null;
            RuntimeException first = null;
            List<ShutdownRegistration> registrations;
            synchronized (shutdownListeners) {
                registrations = new ArrayList<>(shutdownListeners);
            }
            if (lossWatch != null) registrations.add(lossWatch);
            for (ShutdownRegistration r : registrations) {
                RuntimeException f = r.closeLocked(waits);
                if (first == null) first = f;
            }
            List<Group> open;
            synchronized (groups) {
                open = new ArrayList<>(groups);
            }
            for (Group g : open) {
                RuntimeException f = g.closeLocked(waits);
                if (first == null) first = f;
            }
            state = State.CLOSED;
            if (server != null) released.add(server);
            server = null;
            return first;
        });
        if (monitor != null) monitor.shutdownNow();
        released.forEach(this::release);
        awaitReleases(waits);
        client.forget(this);
        if (failure != null) throw failure;
    }
}
