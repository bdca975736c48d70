package com.velmora.opc.testsupport;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.jni.client.da.OpcItemMgt;
import java.util.ArrayDeque;
import java.util.Deque;

/**
 * A simulation server reached through the raw natives, for the tests of the declaration classes.
 * Every handle it hands out is released, and every group removed, on close.
 */
public final class SimFixture implements AutoCloseable {
    public static final String IID_IOPCITEMMGT = "{39C13A54-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCSYNCIO = "{39C13A52-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCASYNCIO2 = "{39C13A71-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCGROUPSTATEMGT = "{39C13A50-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCCOMMON = TestSupport.IID_IOPCCOMMON;

    public final long server;
    private final Deque<Long> handles = new ArrayDeque<>();
    private final Deque<Integer> groups = new ArrayDeque<>();

    private SimFixture(long server) {
        this.server = server;
    }

    /** Skips the test when the simulation server is not built. */
    public static SimFixture open() {
        assumeTrue(SimControl.available(), SimControl::problem);
        OpcEnv.initThread();
        SimControl.reset();
        long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
        assertNotEquals(0, server);
        SimControl.clearCalls();
        return new SimFixture(server);
    }

    /** A handle of another interface of an object; released on close. */
    public long query(long handle, String iid) {
        long derived = ComObjectClient.query(handle, iid);
        assertNotEquals(0, derived, iid);
        handles.push(derived);
        return derived;
    }

    /** An active group: {group IUnknown, server group handle, revised rate}; removed on close. */
    public long[] addGroup(String name) {
        return addGroup(name, 1000);
    }

    /** An active group with the requested update rate in milliseconds; removed on close. */
    public long[] addGroup(String name, int updateRate) {
        long[] group = OpcDaServer.addGroup(server, name, true, updateRate, 77, 0, 0f, 1033);
        assertNotNull(group);
        handles.push(group[0]);
        groups.push((int) group[1]);
        return group;
    }

    /** Adds the items, active, with client handles 100, 101, ...; answers their server handles. */
    public int[] addItems(long itemMgt, String... ids) {
        int[] serverHandles = new int[ids.length];
        int[] clientHandles = new int[ids.length];
        boolean[] active = new boolean[ids.length];
        for (int i = 0; i < ids.length; i++) {
            clientHandles[i] = 100 + i;
            active[i] = true;
        }
        int[] next = {0};
        OpcItemMgt.addItems(itemMgt, ids, clientHandles, active, new int[ids.length],
                (com.velmora.opc.jni.client.da.ItemResultCollector) (id, handle, type, rights, error) -> {
                    assertEquals(0, error, id);
                    serverHandles[next[0]++] = handle;
                });
        assertEquals(ids.length, next[0]);
        return serverHandles;
    }

    @Override
    public void close() {
        while (!handles.isEmpty()) ComObjectClient.release(handles.pop());
        while (!groups.isEmpty()) OpcDaServer.removeGroup(server, groups.pop(), true);
        ComObjectClient.release(server);
    }
}
