package com.velmora.opc.testsupport;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.jni.client.da.*;
import java.util.*;
import org.junit.jupiter.api.function.Executable;

/**
 * A simulation server reached through the raw natives, for the tests of the declaration classes.
 * Every handle it hands out is released, and every group removed, on close.
 */
public final class SimFixture implements AutoCloseable {
    /** A group with its interfaces and the server handles of its items (client handles 100, 101, ...). */
    public record Group(long unknown, int handle, long itemMgt, long syncIo, long asyncIo, int[] items) {}

    public final long server;
    private final Deque<Long> handles = new ArrayDeque<>();
    private final Deque<Integer> groups = new ArrayDeque<>();

    private SimFixture(long server) {
        this.server = server;
    }

    /** Skips the test when the simulation server is not built; otherwise resets it. */
    public static void require() {
        assumeTrue(SimControl.available(), SimControl::problem);
        SimControl.reset();
    }

    /** The simulation server reached through the natives; skips the test when it is not built. */
    public static SimFixture open() {
        require();
        OpcEnv.initThread();
        long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
        assertNotEquals(0, server);
        SimControl.clearCalls();
        return new SimFixture(server);
    }

    /** The HresultException the call raises, after checking its operation text. */
    public static HresultException fails(String operation, Executable call) {
        HresultException failed = assertThrows(HresultException.class, call);
        assertEquals(operation, failed.getOperation());
        return failed;
    }

    /** A handle of another interface of an object; released on close. */
    public long query(long handle, String iid) {
        long derived = ComObjectClient.query(handle, iid);
        assertNotEquals(0, derived, iid);
        handles.push(derived);
        return derived;
    }

    /** An active group with a rate of one second: {group IUnknown, server group handle, revised rate}. */
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

    /** An active group with the items added active, and its item, synchronous and asynchronous interfaces. */
    public Group group(String name, int updateRate, String... ids) {
        long[] group = addGroup(name, updateRate);
        long itemMgt = query(group[0], IID_IOPCITEMMGT);
        int[] items = ids.length == 0 ? new int[0] : addItems(itemMgt, ids);
        return new Group(group[0], (int) group[1], itemMgt, query(group[0], IID_IOPCSYNCIO),
                query(group[0], IID_IOPCASYNCIO2), items);
    }

    /** Adds the items, active, with client handles 100, 101, ...; answers their server handles. */
    public int[] addItems(long itemMgt, String... ids) {
        int[] clientHandles = new int[ids.length];
        boolean[] active = new boolean[ids.length];
        for (int i = 0; i < ids.length; i++) {
            clientHandles[i] = 100 + i;
            active[i] = true;
        }
        Recorder results = new Recorder();
        OpcItemMgt.addItems(itemMgt, ids, clientHandles, active, new int[ids.length], results);
        assertEquals(ids.length, results.count("item "));
        return results.records().stream().mapToInt(r -> {
            assertTrue(r.text().endsWith(" error=0"), r.text());
            return (int) r.args()[1];
        }).toArray();
    }

    /** The items' values read from the device, as "kind value", e.g. "numeric 12.0". */
    public static List<String> readBack(long syncIo, int... handles) {
        Recorder values = new Recorder();
        OpcSyncIo.read(syncIo, handles, false, values);
        return values.calls().stream()
                .map(c -> c.replaceFirst("^(\\w+) -?\\d+ ", "$1 ").replaceFirst(" q\\d+ e-?\\d+ sync$", "")).toList();
    }

    @Override
    public void close() {
        while (!handles.isEmpty()) ComObjectClient.release(handles.pop());
        while (!groups.isEmpty()) OpcDaServer.removeGroup(server, groups.pop(), true);
        ComObjectClient.release(server);
    }
}
