package com.velmora.opc.client;

import com.velmora.opc.OpcException;
import com.velmora.opc.jni.client.da.GroupStateReceiver;
import com.velmora.opc.jni.client.da.ItemResultCollector;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.jni.client.da.OpcGroupStateMgt;
import com.velmora.opc.jni.client.da.OpcItemMgt;
import com.velmora.opc.jni.client.da.OpcSyncIo;
import com.velmora.opc.jni.client.da.UpdateReceiver;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;

/**
 * A group on a server, with its items. Closing it releases the interface handles it obtained and
 * removes the group from the server. Not safe for concurrent use.
 */
public final class Group implements AutoCloseable {
    private static final int E_FAIL = 0x80004005;

    private final OpcServer server;
    private final NativeHandle group;
    private final String name;
    private final int serverGroupHandle;
    private final int clientGroupHandle;
    private int updateRate;
    private NativeHandle itemMgt;
    private NativeHandle syncIo;
    private NativeHandle asyncIo;
    private NativeHandle stateMgt;
    private final Map<Integer, String> itemIds = new ConcurrentHashMap<>();
    private final List<Subscription> subscriptions = new ArrayList<>();
    private int nextClientHandle = 1;
    private boolean closed;

    Group(OpcServer server, NativeHandle group, String name, int clientGroupHandle, int serverGroupHandle,
            int updateRate) {
        this.server = server;
        this.group = group;
        this.name = name;
        this.clientGroupHandle = clientGroupHandle;
        this.serverGroupHandle = serverGroupHandle;
        this.updateRate = updateRate;
    }

    public String name() {
        return name;
    }

    public int serverGroupHandle() {
        return serverGroupHandle;
    }

    /** The update rate the server granted, in milliseconds. */
    public int updateRate() {
        return updateRate;
    }

    /** The group's state as the server reports it now. */
    public GroupState state() {
        ensureOpen();
        ComThreads.prepare();
        GroupState[] state = new GroupState[1];
        GroupStateReceiver receiver = (rate, active, groupName, bias, deadband, lcid, client, serverHandle) ->
                state[0] = new GroupState(groupName, rate, active, bias, deadband, lcid, client, serverHandle);
        OpcGroupStateMgt.getState(stateMgt().get(), receiver);
        if (state[0] == null) throw new OpcException("the server reported no state for group " + name);
        return state[0];
    }

    /**
     * Changes the update rate and activity, keeping the other state; returns the rate the server
     * granted.
     */
    public int setState(int requestedUpdateRate, boolean active) {
        GroupState now = state();
        updateRate = OpcGroupStateMgt.setState(stateMgt().get(), requestedUpdateRate, active, now.timeBias(),
                now.percentDeadband(), now.localeId(), clientGroupHandle);
        return updateRate;
    }

    /**
     * Adds items by item id, active, in their canonical types. Every id gets an {@link Item}, in
     * order; rejected ones carry the server's error.
     */
    public List<Item> addItems(String... itemIds) {
        ensureOpen();
        for (String id : itemIds) {
            if (id == null) throw new IllegalArgumentException("null item id");
        }
        ComThreads.prepare();
        int n = itemIds.length;
        if (n == 0) return List.of();
        int[] clientHandles = new int[n];
        boolean[] active = new boolean[n];
        for (int i = 0; i < n; i++) {
            clientHandles[i] = nextClientHandle++;
            active[i] = true;
        }
        List<Item> results = new ArrayList<>(n);
        ItemResultCollector collector = (itemId, serverHandle, canonicalType, accessRights, error) -> {
            int i = results.size();
            if (i < n) results.add(new Item(itemIds[i], clientHandles[i], serverHandle, canonicalType,
                    accessRights, error));
        };
        for (int i = 0; i < n; i++) this.itemIds.put(clientHandles[i], itemIds[i]);
        OpcItemMgt.addItems(itemMgt().get(), itemIds.clone(), clientHandles, active, new int[n], collector);
        // Items the server gave no result for are unusable: report them as failed.
        for (int i = results.size(); i < n; i++) results.add(new Item(itemIds[i], clientHandles[i], 0, 0, 0, E_FAIL));
        return List.copyOf(results);
    }

    /** Removes items from the group; one result per item, in order (0, or the item's error). */
    public List<Integer> removeItems(List<Item> items) {
        return perItem(items, handles -> OpcItemMgt.removeItems(itemMgt().get(), handles), true);
    }

    /** Switches items on or off for cache updates and data changes; one result per item, in order. */
    public List<Integer> setActive(List<Item> items, boolean active) {
        return perItem(items, handles -> OpcItemMgt.setActiveState(itemMgt().get(), handles, active), false);
    }

    private List<Integer> perItem(List<Item> items, java.util.function.Function<int[], int[]> call, boolean removing) {
        ensureOpen();
        ComThreads.prepare();
        List<Item> valid = items.stream().filter(Item::isValid).toList();
        int[] errors = valid.isEmpty() ? new int[0] : call.apply(valid.stream().mapToInt(Item::serverHandle).toArray());
        List<Integer> results = new ArrayList<>(items.size());
        int next = 0;
        for (Item item : items) {
            if (!item.isValid()) {
                results.add(item.error());
                continue;
            }
            int result = errors == null || next >= errors.length ? E_FAIL : errors[next];
            next++;
            if (removing && result >= 0) itemIds.remove(item.clientHandle());
            results.add(result);
        }
        return List.copyOf(results);
    }

    /**
     * Reads the items synchronously; one value per item, in order. Items that the server rejected
     * are not sent to the server and come back with their error.
     */
    public List<ItemValue> read(DataSource source, List<Item> items) {
        ensureOpen();
        ComThreads.prepare();
        List<Item> valid = items.stream().filter(Item::isValid).toList();
        Map<Integer, ItemValue> byHandle = new HashMap<>();
        if (!valid.isEmpty()) {
            int[] handles = valid.stream().mapToInt(Item::serverHandle).toArray();
            Map<Integer, String> ids = new HashMap<>();
            for (Item item : valid) ids.put(item.serverHandle(), item.itemId());
            OpcSyncIo.read(syncIo().get(), handles, source == DataSource.CACHE, new Collector(ids, byHandle));
        }
        List<ItemValue> values = new ArrayList<>(items.size());
        for (Item item : items) {
            ItemValue value = item.isValid() ? byHandle.get(item.serverHandle()) : null;
            if (value == null) value = new ItemValue(item.itemId(), null, 0, null, item.isValid() ? E_FAIL : item.error());
            values.add(value);
        }
        return List.copyOf(values);
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
        ensureOpen();
        if (!item.isValid()) return item.error();
        ComThreads.prepare();
        long io = syncIo().get();
        int handle = item.serverHandle();
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
    }

    /**
     * Subscribes a listener to the data changes of the group's active items at the group's update
     * rate, and to the completions of the refreshes, reads and writes issued through the returned
     * subscription. The listener runs on the server's threads, concurrently with the caller.
     */
    public Subscription subscribe(SubscriptionListener listener) {
        ensureOpen();
        ComThreads.prepare();
        if (asyncIo == null) asyncIo = group.query(Iids.IOPC_ASYNC_IO2, "IOPCAsyncIO2");
        Subscription subscription = Subscription.open(this, asyncIo.get(), itemIds, listener);
        synchronized (subscriptions) {
            subscriptions.add(subscription);
        }
        return subscription;
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
        if (closed) return;
        closed = true;
        List<Subscription> open;
        synchronized (subscriptions) {
            open = new ArrayList<>(subscriptions);
        }
        RuntimeException failure = null;
        for (Subscription subscription : open) {
            try {
                subscription.close();
            } catch (RuntimeException e) {
                if (failure == null) failure = e;
            }
        }
        releaseAndRemove();
        if (failure != null) throw failure;
    }

    private void releaseAndRemove() {
        try {
            if (stateMgt != null) stateMgt.close();
            if (asyncIo != null) asyncIo.close();
            if (syncIo != null) syncIo.close();
            if (itemMgt != null) itemMgt.close();
            group.close();
        } finally {
            server.forget(this);
            if (server.isOpen()) {
                ComThreads.prepare();
                OpcDaServer.removeGroup(server.handle(), serverGroupHandle, false);
            }
        }
    }

    private NativeHandle itemMgt() {
        if (itemMgt == null) itemMgt = group.query(Iids.IOPC_ITEM_MGT, "IOPCItemMgt");
        return itemMgt;
    }

    private NativeHandle stateMgt() {
        if (stateMgt == null) stateMgt = group.query(Iids.IOPC_GROUP_STATE_MGT, "IOPCGroupStateMgt");
        return stateMgt;
    }

    private NativeHandle syncIo() {
        if (syncIo == null) syncIo = group.query(Iids.IOPC_SYNC_IO, "IOPCSyncIO");
        return syncIo;
    }

    private void ensureOpen() {
        if (closed) throw new IllegalStateException("group " + name + " is closed");
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
