package com.velmora.opc.bench;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.ItemResultCollector;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.jni.client.da.OpcItemMgt;

/**
 * A group of the simulation server with all its items, set up through the library's natives, and
 * the interface handles that the benchmarks drive. Closing releases every handle and the group.
 */
final class BenchGroup implements AutoCloseable {
    static final String SERVER = "Velmora.Simulation.1";
    static final int ITEMS = 10_000;

    private static final String IID_IOPC_ITEM_MGT = "{39C13A54-011E-11D0-9675-0020AFD8ADB3}";
    private static final String IID_IOPC_SYNC_IO = "{39C13A52-011E-11D0-9675-0020AFD8ADB3}";
    private static final String IID_IOPC_ASYNC_IO2 = "{39C13A71-011E-11D0-9675-0020AFD8ADB3}";
    /** An hour: the server sends no subscription update of its own while a benchmark runs. */
    private static final int UPDATE_RATE_MS = 3_600_000;
    private static final int LOCALE_EN_US = 1033;

    private static boolean prepared;

    final long server;
    final int serverGroupHandle;
    final int[] clientHandles;
    final int[] serverHandles;
    final long syncIo;
    final long asyncIo;
    private final long group;
    private final long itemMgt;

    private BenchGroup(long server, long[] group, int[] clientHandles, int[] serverHandles, long itemMgt,
            long syncIo, long asyncIo) {
        this.server = server;
        this.group = group[0];
        this.serverGroupHandle = (int) group[1];
        this.clientHandles = clientHandles;
        this.serverHandles = serverHandles;
        this.itemMgt = itemMgt;
        this.syncIo = syncIo;
        this.asyncIo = asyncIo;
    }

    /** The ids "prefix0" .. "prefix(n-1)". */
    static String[] ids(String prefix, int n) {
        String[] ids = new String[n];
        for (int i = 0; i < n; i++) ids[i] = prefix + i;
        return ids;
    }

    /** Prepares the process for the natives, once per process: for the benchmark mains. */
    static synchronized void prepareProcess() {
        OpcEnv.initThread();
        if (!prepared) {
            OpcEnv.initEnv();
            prepared = true;
        }
    }

    /** Connects to the simulation server from this thread; the caller releases the handle. */
    static long connect() {
        OpcEnv.initThread();
        long server = OpcDaServer.createLocalServer(SERVER);
        if (server == 0) throw new IllegalStateException("no simulation server " + SERVER);
        return server;
    }

    /**
     * An active group on the server with the items, every one of which must be accepted; no
     * subscription update of its own comes while a benchmark runs.
     */
    static BenchGroup open(long server, String name, String[] itemIds) {
        return open(server, name, itemIds, UPDATE_RATE_MS);
    }

    /** The same with the update rate in milliseconds. */
    static BenchGroup open(long server, String name, String[] itemIds, int updateRateMs) {
        long[] group = OpcDaServer.addGroup(server, name, true, updateRateMs, 1, 0, 0f, LOCALE_EN_US);
        if (group == null) throw new IllegalStateException("no group " + name);
        int n = itemIds.length;
        int[] clientHandles = new int[n];
        boolean[] active = new boolean[n];
        for (int i = 0; i < n; i++) {
            clientHandles[i] = 100_000 + i;
            active[i] = true;
        }
        long itemMgt = ComObjectClient.query(group[0], IID_IOPC_ITEM_MGT);
        int[] serverHandles = new int[n];
        int[] added = {0};
        ItemResultCollector collector = (itemId, serverHandle, type, access, error) -> {
            if (error == 0 && added[0] < n) serverHandles[added[0]] = serverHandle;
            added[0] += error == 0 ? 1 : n + 1;
        };
        OpcItemMgt.addItems(itemMgt, itemIds, clientHandles, active, new int[n], collector);
        BenchGroup opened = new BenchGroup(server, group, clientHandles, serverHandles, itemMgt,
                ComObjectClient.query(group[0], IID_IOPC_SYNC_IO), ComObjectClient.query(group[0], IID_IOPC_ASYNC_IO2));
        if (added[0] != n || opened.syncIo == 0 || opened.asyncIo == 0 || itemMgt == 0) {
            opened.close();
            throw new IllegalStateException("group " + name + ": not every item or interface was obtained");
        }
        return opened;
    }

    @Override
    public void close() {
        for (long handle : new long[] {asyncIo, syncIo, itemMgt, group}) {
            if (handle != 0) ComObjectClient.release(handle);
        }
        OpcDaServer.removeGroup(server, serverGroupHandle, true);
    }
}
