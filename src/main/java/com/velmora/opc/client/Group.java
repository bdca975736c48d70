package com.velmora.opc.client;

import com.velmora.opc.OpcException;
import com.velmora.opc.jni.client.da.GroupStateReceiver;
import com.velmora.opc.jni.client.da.ItemResultCollector;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.jni.client.da.OpcGroupStateMgt;
import com.velmora.opc.jni.client.da.OpcItemMgt;
import com.velmora.opc.jni.client.da.OpcSyncIo;
import com.velmora.opc.jni.client.da.UpdateReceiver;
import com.velmora.opc.jni.client.da.WriteListener;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.CountDownLatch;
import java.util.function.Supplier;

/**
 * A group on a server, with its items. Safe for concurrent use: calls run side by side, and a call
 * that races {@link #close} (or the server's close) either completes before the group's handles are
 * given up or fails with IllegalStateException. Closing releases the interface handles the group
 * obtained and removes it from the server. A group of a reconnecting connection is made again, with
 * its items and subscriptions, when the connection is; its {@link Item}s stay valid (their server
 * handles are looked up anew).
 */
public final class Group implements AutoCloseable {
    private static final int E_FAIL = 0x80004005;

    private final OpcServer server;
    private final String name;
    private final int clientGroupHandle;
    // What the group was asked to be; kept for reconnection, changed by setState.
    private volatile boolean active;
    private volatile int requestedRate;
    private volatile int timeBias;
    private volatile float percentDeadband;
    private volatile int localeId;

    // Replaced only under the connection's exclusive lock; the derived handles made lazily under this.
    private NativeHandle group;
    private volatile int serverGroupHandle;
    private volatile int updateRate;
    private NativeHandle itemMgt;
    private NativeHandle syncIo;
    private NativeHandle asyncIo;
    private NativeHandle stateMgt;

    private final Map<Integer, String> itemIds = new ConcurrentHashMap<>();
    private final Map<Integer, Entry> entries = new ConcurrentHashMap<>();
    private final List<Subscription> subscriptions = new ArrayList<>();
    private int nextClientHandle = 1;
    private volatile boolean closed;

    /** An item as added, for reconnection and for its current server handle. */
    private static final class Entry {
        final String itemId;
        final int requestedType;
        volatile boolean active;
        volatile int serverHandle;

        Entry(String itemId, int requestedType, boolean active, int serverHandle) {
            this.itemId = itemId;
            this.requestedType = requestedType;
            this.active = active;
            this.serverHandle = serverHandle;
        }
    }

    Group(OpcServer server, String name, int clientGroupHandle, boolean active, int requestedRate, int timeBias,
            float percentDeadband, int localeId) {
        this.server = server;
        this.name = name;
        this.clientGroupHandle = clientGroupHandle;
        this.active = active;
        this.requestedRate = requestedRate;
        this.timeBias = timeBias;
        this.percentDeadband = percentDeadband;
        this.localeId = localeId;
    }

    /** Creates the group on the server (the connection's lock is held). */
    void create(long serverHandle) {
        long[] result = OpcDaServer.addGroup(serverHandle, name, active, requestedRate, clientGroupHandle, timeBias,
                percentDeadband, localeId);
        if (result == null || result.length != 3 || result[0] == 0) throw noGroup(name);
        group = new NativeHandle(result[0], "group " + name);
        serverGroupHandle = (int) result[1];
        updateRate = (int) result[2];
    }

    public String name() {
        return name;
    }

    /** The server's handle of the group (a new one after a reconnection). */
    public int serverGroupHandle() {
        return serverGroupHandle;
    }

    /** The update rate the server granted, in milliseconds. */
    public int updateRate() {
        return updateRate;
    }

    /** The group's state as the server reports it now. */
    public GroupState state() {
        return call(() -> {
            GroupState[] state = new GroupState[1];
            GroupStateReceiver receiver = (rate, isActive, groupName, bias, deadband, lcid, client, serverHandle) ->
                    state[0] = new GroupState(groupName, rate, isActive, bias, deadband, lcid, client, serverHandle);
            OpcGroupStateMgt.getState(stateMgt().get(), receiver);
            if (state[0] == null) throw new OpcException("the server reported no state for group " + name);
            return state[0];
        });
    }

    /**
     * Changes the update rate and activity, keeping the other state; returns the rate the server
     * granted.
     */
    public int setState(int requestedUpdateRate, boolean isActive) {
        return call(() -> {
            GroupState now = state();
            return setState(requestedUpdateRate, isActive, now.timeBias(), now.percentDeadband(), now.localeId());
        });
    }

    /**
     * Changes the whole state: update rate, activity, time bias (minutes), percent deadband and locale;
     * returns the rate the server granted.
     */
    public int setState(int requestedUpdateRate, boolean isActive, int bias, float deadband, int locale) {
        return call(() -> {
            int granted = OpcGroupStateMgt.setState(stateMgt().get(), requestedUpdateRate, isActive, bias, deadband,
                    locale, clientGroupHandle);
            requestedRate = requestedUpdateRate;
            active = isActive;
            timeBias = bias;
            percentDeadband = deadband;
            localeId = locale;
            updateRate = granted;
            return granted;
        });
    }

    /**
     * Adds items by item id, active, in their canonical types. Every id gets an {@link Item}, in
     * order; rejected ones carry the server's error.
     */
    public List<Item> addItems(String... ids) {
        for (String id : ids) {
            if (id == null) throw new IllegalArgumentException("null item id");
        }
        return addItems(Arrays.stream(ids).map(ItemDefinition::of).toList());
    }

    /** Adds items with their requested types and activity; one {@link Item} per definition, in order. */
    public List<Item> addItems(List<ItemDefinition> definitions) {
        return call(() -> {
            int n = definitions.size();
            if (n == 0) return List.of();
            int[] clientHandles = new int[n];
            synchronized (this) {
                for (int i = 0; i < n; i++) clientHandles[i] = nextClientHandle++;
            }
            for (int i = 0; i < n; i++) itemIds.put(clientHandles[i], definitions.get(i).itemId());
            List<Item> results = itemCall(definitions, clientHandles, false);
            for (int i = 0; i < n; i++) {
                Item item = results.get(i);
                ItemDefinition d = definitions.get(i);
                if (item.isValid()) {
                    entries.put(item.clientHandle(), new Entry(d.itemId(), d.requestedType(), d.active(),
                            item.serverHandle()));
                } else {
                    itemIds.remove(item.clientHandle());
                }
            }
            return results;
        });
    }

    /**
     * Asks the server whether it would accept the items, without adding them: one {@link Item} per
     * definition, in order, with the type and access rights the server would give it, or its error.
     * The items it returns have no server handle and cannot be read or written.
     */
    public List<Item> validateItems(List<ItemDefinition> definitions) {
        return call(() -> {
            List<Item> results = itemCall(definitions, new int[definitions.size()], true);
            List<Item> unusable = new ArrayList<>(results.size());
            for (Item item : results) {
                unusable.add(new Item(item.itemId(), 0, 0, item.canonicalType(), item.accessRights(), item.error()));
            }
            return List.copyOf(unusable);
        });
    }

    private List<Item> itemCall(List<ItemDefinition> definitions, int[] clientHandles, boolean validate) {
        int n = definitions.size();
        if (n == 0) return List.of();
        String[] ids = new String[n];
        boolean[] activeFlags = new boolean[n];
        int[] types = new int[n];
        for (int i = 0; i < n; i++) {
            ItemDefinition d = definitions.get(i);
            ids[i] = d.itemId();
            activeFlags[i] = d.active();
            types[i] = d.requestedType();
        }
        List<Item> results = new ArrayList<>(n);
        ItemResultCollector collector = (itemId, serverHandle, canonicalType, accessRights, error) -> {
            int i = results.size();
            if (i < n) results.add(new Item(ids[i], clientHandles[i], serverHandle, canonicalType, accessRights, error));
        };
        long handle = itemMgt().get();
        if (validate) {
            OpcItemMgt.validateItems(handle, ids, clientHandles, activeFlags, types, collector);
        } else {
            OpcItemMgt.addItems(handle, ids, clientHandles, activeFlags, types, collector);
        }
        // Items the server gave no result for are unusable: report them as failed.
        for (int i = results.size(); i < n; i++) results.add(new Item(ids[i], clientHandles[i], 0, 0, 0, E_FAIL));
        return List.copyOf(results);
    }

    /** Removes items from the group; one result per item, in order (0, or the item's error). */
    public List<Integer> removeItems(List<Item> items) {
        return call(() -> perItem(items, handles -> OpcItemMgt.removeItems(itemMgt().get(), handles), true, false));
    }

    /** Switches items on or off for cache updates and data changes; one result per item, in order. */
    public List<Integer> setActive(List<Item> items, boolean isActive) {
        return call(() -> perItem(items, handles -> OpcItemMgt.setActiveState(itemMgt().get(), handles, isActive),
                false, isActive));
    }

    private List<Integer> perItem(List<Item> items, java.util.function.Function<int[], int[]> call, boolean removing,
            boolean isActive) {
        List<Item> valid = items.stream().filter(Item::isValid).toList();
        int[] errors = valid.isEmpty() ? new int[0] : call.apply(valid.stream().mapToInt(this::serverHandle).toArray());
        List<Integer> results = new ArrayList<>(items.size());
        int next = 0;
        for (Item item : items) {
            if (!item.isValid()) {
                results.add(item.error());
                continue;
            }
            int result = errors == null || next >= errors.length ? E_FAIL : errors[next];
            next++;
            if (result >= 0) {
                if (removing) {
                    itemIds.remove(item.clientHandle());
                    entries.remove(item.clientHandle());
                } else {
                    Entry entry = entries.get(item.clientHandle());
                    if (entry != null) entry.active = isActive;
                }
            }
            results.add(result);
        }
        return List.copyOf(results);
    }

    /** The item's server handle now (items keep theirs from when they were added). */
    int serverHandle(Item item) {
        Entry entry = entries.get(item.clientHandle());
        return entry != null ? entry.serverHandle : item.serverHandle();
    }

    /**
     * Reads the items synchronously; one value per item, in order. Items that the server rejected
     * are not sent to the server and come back with their error.
     */
    public List<ItemValue> read(DataSource source, List<Item> items) {
        return call(() -> {
            List<Item> valid = items.stream().filter(Item::isValid).toList();
            Map<Integer, ItemValue> byHandle = new HashMap<>();
            if (!valid.isEmpty()) {
                int[] handles = valid.stream().mapToInt(this::serverHandle).toArray();
                Map<Integer, String> ids = new HashMap<>();
                for (int i = 0; i < handles.length; i++) ids.put(handles[i], valid.get(i).itemId());
                OpcSyncIo.read(syncIo().get(), handles, source == DataSource.CACHE, new Collector(ids, byHandle));
            }
            List<ItemValue> values = new ArrayList<>(items.size());
            for (Item item : items) {
                ItemValue value = item.isValid() ? byHandle.get(serverHandle(item)) : null;
                if (value == null) {
                    value = new ItemValue(item.itemId(), null, 0, null, item.isValid() ? E_FAIL : item.error());
                }
                values.add(value);
            }
            return List.copyOf(values);
        });
    }

    /**
     * Writes one value synchronously, converted to the item's canonical type: a Boolean, a Number,
     * a String (for strings, arrays as comma-separated text, or the text of a number or boolean),
     * or a Java array of numbers, booleans or strings. Returns the server's result for the item
     * (0 when written, else its error, e.g. OPC_E_BADRIGHTS); a value that does not convert is
     * OPC_E_RANGE. A failed server call raises HresultException.
     */
    public int write(Item item, Object value) {
        if (value == null) throw new IllegalArgumentException("no value to write to " + item.itemId());
        return call(() -> {
            if (!item.isValid()) return item.error();
            long io = syncIo().get();
            int handle = serverHandle(item);
            int type = item.canonicalType();
            int result;
            if (VarTypes.isArray(type)) {
                result = OpcSyncIo.writeString(io, handle, VarTypes.arrayText(value), type);
            } else if (type == VarTypes.VT_BSTR) {
                result = OpcSyncIo.writeString(io, handle, String.valueOf(value), type);
            } else if (type == VarTypes.VT_BOOL) {
                Boolean flag = VarTypes.toBoolean(value);
                if (flag == null) return VarTypes.OPC_E_RANGE;
                result = OpcSyncIo.writeBoolean(io, handle, flag);
            } else if (VarTypes.isNumeric(type)) {
                Double number = VarTypes.toDouble(value);
                if (number == null) return VarTypes.OPC_E_RANGE;
                result = OpcSyncIo.writeNumeric(io, handle, type, number);
            } else {
                return VarTypes.OPC_E_BADTYPE;
            }
            if (result == -1) throw new OpcException("the value for " + item.itemId() + " was not written");
            return result;
        });
    }

    /**
     * Writes many items synchronously in one call to the server, each value converted as
     * {@link #write(Item, Object)} does. Returns one result per item, in the map's order: 0 when
     * written, else the item's error (items the server rejected earlier and values that do not
     * convert are not sent). A failed server call raises HresultException.
     */
    public Map<Item, Integer> write(Map<Item, ?> values) {
        return call(() -> {
            Map<Item, Integer> results = new LinkedHashMap<>();
            List<Item> sent = new ArrayList<>();
            List<String> texts = new ArrayList<>();
            for (Map.Entry<Item, ?> e : values.entrySet()) {
                Item item = e.getKey();
                if (e.getValue() == null) throw new IllegalArgumentException("no value to write to " + item.itemId());
                int type = item.canonicalType();
                String text = item.isValid() ? VarTypes.writeText(type, e.getValue()) : null;
                if (text == null) {
                    results.put(item, !item.isValid() ? item.error()
                            : VarTypes.isWritable(type) ? VarTypes.OPC_E_RANGE : VarTypes.OPC_E_BADTYPE);
                } else {
                    results.put(item, 0);
                    sent.add(item);
                    texts.add(text);
                }
            }
            if (sent.isEmpty()) return results;
            int[] handles = sent.stream().mapToInt(this::serverHandle).toArray();
            int[] types = sent.stream().mapToInt(Item::canonicalType).toArray();
            int[][] errors = new int[1][];
            WriteListener listener = (synchronous, hr, count, id, cancelId, serverHandles, itemErrors) ->
                    errors[0] = itemErrors;
            int hr = OpcSyncIo.writeArray(syncIo().get(), handles.length, handles, types, texts.toArray(String[]::new),
                    listener);
            if (hr == -1) throw new OpcException("the values were not written");
            if (errors[0] != null) {
                for (int i = 0; i < sent.size(); i++) {
                    results.put(sent.get(i), i < errors[0].length ? errors[0][i] : E_FAIL);
                }
            }
            return results;
        });
    }

    /**
     * Subscribes a listener to the data changes of the group's active items at the group's update
     * rate, and to the completions of the refreshes, reads and writes issued through the returned
     * subscription. The listener runs on the server's threads, concurrently with the caller.
     */
    public Subscription subscribe(SubscriptionListener listener) {
        if (listener == null) throw new IllegalArgumentException("no listener");
        return call(() -> {
            Subscription subscription = new Subscription(this, listener);
            subscription.attach(asyncIo().get(), itemIds);
            synchronized (subscriptions) {
                subscriptions.add(subscription);
            }
            return subscription;
        });
    }

    /** Subscribes to the data changes only; see {@link #subscribe(SubscriptionListener)}. */
    public Subscription subscribe(java.util.function.Consumer<ItemValue> listener) {
        if (listener == null) throw new IllegalArgumentException("no listener");
        if (listener instanceof SubscriptionListener full) return subscribe(full);
        return subscribe((SubscriptionListener) listener::accept);
    }

    void forget(Subscription subscription) {
        synchronized (subscriptions) {
            subscriptions.remove(subscription);
        }
    }

    public boolean isClosed() {
        return closed;
    }

    /** Releases this group's handles and removes it from the server; later calls do nothing. */
    @Override
    public void close() {
        List<CountDownLatch> waits = new ArrayList<>();
        RuntimeException failure = server.exclusive(() -> closeLocked(waits));
        server.awaitReleases(waits);
        if (failure != null) throw failure;
    }

    /** Closes the group under the connection's exclusive lock; the latches to wait for go to `waits`. */
    RuntimeException closeLocked(List<CountDownLatch> waits) {
        if (closed) return null;
        closed = true;
        List<Subscription> open;
        synchronized (subscriptions) {
            open = new ArrayList<>(subscriptions);
        }
        RuntimeException failure = null;
        for (Subscription subscription : open) {
            RuntimeException f = subscription.closeLocked(waits);
            if (failure == null) failure = f;
        }
        releaseHandles();
        server.forget(this);
        if (server.isReachable()) {
            RuntimeException f = server.quietly(() -> OpcDaServer.removeGroup(server.handle(), serverGroupHandle, false),
                    null, waits);
            if (failure == null) failure = f;
        }
        return failure;
    }

    private void releaseHandles() {
        for (NativeHandle h : new NativeHandle[] {stateMgt, asyncIo, syncIo, itemMgt, group}) {
            if (h != null) h.close();
        }
        stateMgt = asyncIo = syncIo = itemMgt = group = null;
    }

    /** The connection is lost: gives up every handle without asking the server (exclusive lock held). */
    void detach() {
        synchronized (subscriptions) {
            subscriptions.forEach(Subscription::detach);
        }
        releaseHandles();
    }

    /** Makes the group again on a new connection, with its items and subscriptions (exclusive lock held). */
    void attach(long serverHandle) {
        create(serverHandle);
        List<Integer> handles = new ArrayList<>(entries.keySet());
        handles.sort(null);
        if (!handles.isEmpty()) {
            List<ItemDefinition> definitions = new ArrayList<>();
            int[] clientHandles = new int[handles.size()];
            for (int i = 0; i < clientHandles.length; i++) {
                Entry e = entries.get(handles.get(i));
                clientHandles[i] = handles.get(i);
                definitions.add(new ItemDefinition(e.itemId, e.requestedType, e.active));
            }
            List<Item> added = itemCall(definitions, clientHandles, false);
            for (Item item : added) {
                // An item the new server refuses keeps its old handle, which the server will reject per item.
                if (item.isValid()) entries.get(item.clientHandle()).serverHandle = item.serverHandle();
            }
        }
        synchronized (subscriptions) {
            for (Subscription s : subscriptions) s.attach(asyncIo().get(), itemIds);
        }
    }

    private <T> T call(Supplier<T> work) {
        return server.call(() -> {
            if (closed) throw new IllegalStateException("group " + name + " is closed");
            return work.get();
        });
    }

    /** Runs a subscription's call on this group's connection (shared lock, group open). */
    <T> T subscriptionCall(Supplier<T> work) {
        return call(work);
    }

    /** Runs a subscription's close under the connection's exclusive lock. */
    RuntimeException exclusive(Supplier<RuntimeException> work) {
        return server.exclusive(work);
    }

    OpcServer server() {
        return server;
    }

    private synchronized NativeHandle itemMgt() {
        if (itemMgt == null) itemMgt = group.query(Iids.IOPC_ITEM_MGT, "IOPCItemMgt");
        return itemMgt;
    }

    private synchronized NativeHandle stateMgt() {
        if (stateMgt == null) stateMgt = group.query(Iids.IOPC_GROUP_STATE_MGT, "IOPCGroupStateMgt");
        return stateMgt;
    }

    private synchronized NativeHandle syncIo() {
        if (syncIo == null) syncIo = group.query(Iids.IOPC_SYNC_IO, "IOPCSyncIO");
        return syncIo;
    }

    private synchronized NativeHandle asyncIo() {
        if (asyncIo == null) asyncIo = group.query(Iids.IOPC_ASYNC_IO2, "IOPCAsyncIO2");
        return asyncIo;
    }

    /** Collects the values of a synchronous read by server handle. */
    private static final class Collector implements UpdateReceiver {
        private final Map<Integer, String> ids;
        private final Map<Integer, ItemValue> values;

        Collector(Map<Integer, String> ids, Map<Integer, ItemValue> values) {
            this.ids = ids;
            this.values = values;
        }

        private void put(int handle, Object value, long timestamp, int quality, int error) {
            values.put(handle, new ItemValue(ids.get(handle), value, quality, ServerStatus.time(timestamp), error));
        }

        @Override
        public void updateNumeric(int h, double value, long timestamp, int quality, int error, boolean sync) {
            put(h, value, timestamp, quality, error);
        }

        @Override
        public void updateBoolean(int h, boolean value, long timestamp, int quality, int error, boolean sync) {
            put(h, value, timestamp, quality, error);
        }

        @Override
        public void updateString(int h, String value, long timestamp, int quality, int error, boolean sync) {
            put(h, value, timestamp, quality, error);
        }

        @Override
        public void updateError(int h, long timestamp, int quality, int error, boolean sync) {
            put(h, null, timestamp, quality, error);
        }
    }

    static OpcException noGroup(String name) {
        return new OpcException("the server created no group " + name);
    }
}
