package com.velmora.opc.outproc;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;
import static com.velmora.opc.outproc.OutOfProcess.*;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.*;
import com.velmora.opc.testsupport.*;
import java.util.*;
import org.junit.jupiter.api.*;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * The simulation server in a process of its own (opc_sim_server.exe, registered as LocalServer32
 * only), reached from this JVM through the proxy/stub modules: activation starts one process per
 * client, callbacks arrive on RPC threads, browsing goes in portions of seven (the server-facing
 * classes run against one shared server process in the Windows JVM stage as well). Each test runs
 * twice and leaves no task memory in the JVM; the simulation server's own objects live in the other
 * process.
 */
@ExtendWith(OutOfProcess.LocalServerOnly.class)
class OutOfProcessServerTest {
    @Test
    void theNativesReachTheServerInItsOwnProcess() throws Exception {
        runTwiceLeavingNoTaskMemory(this::theNativesReachTheServerInItsOwnProcessOnce);
    }

    private void theNativesReachTheServerInItsOwnProcessOnce() throws Exception {
        awaitNoServerProcess();
        OpcEnv.initThread();
        long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
        assertNotEquals(0, server);
        List<Long> handles = new ArrayList<>();
        try {
            assertEquals(1, serverProcesses().size(), "activation started one server process");
            Recorder status = new Recorder();
            OpcDaServer.getStatus(server, status);
            assertTrue(status.last().matches("status -?\\d+ 1 \\d+ -?\\d+ 1\\.2\\.30 Velmora Simulation Server"),
                    status.last());

            long[] group = OpcDaServer.addGroup(server, "remote", true, 50, 77, 0, 0f, 1033);
            assertNotNull(group);
            handles.add(group[0]);
            long itemMgt = ComObjectClient.query(group[0], IID_IOPCITEMMGT);
            handles.add(itemMgt);
            long syncIo = ComObjectClient.query(group[0], IID_IOPCSYNCIO);
            handles.add(syncIo);
            long asyncIo = ComObjectClient.query(group[0], IID_IOPCASYNCIO2);
            handles.add(asyncIo);
            Recorder added = new Recorder();
            OpcItemMgt.addItems(itemMgt, new String[] {"Simulation.Static.R8", "Simulation.Ramp.I4"},
                    new int[] {100, 101}, new boolean[] {true, true}, new int[2], added);
            assertEquals(2, added.count("item "));
            int[] items = added.records().stream().mapToInt(r -> {
                assertTrue(r.text().endsWith(" error=0"), r.text());
                return (int) r.args()[1];
            }).toArray();

            assertEquals(0, OpcSyncIo.writeNumeric(syncIo, items[0], 5, 42.5));
            Recorder read = new Recorder();
            OpcSyncIo.read(syncIo, new int[] {items[0]}, false, read);
            assertTrue(read.last().matches("numeric \\d+ 42\\.5 q192 e0 sync"), read.last());

            // Data changes come on the server's calls into this process: RPC threads, not the caller's.
            Recorder.Callback changes = new Recorder.Callback();
            long cookie = OpcAsyncIo2.advise(asyncIo, changes);
            assertNotEquals(0, cookie);
            changes.awaitCount("numeric 101 ", 3);
            assertFalse(changes.threadsOf("numeric 101 ").contains(Thread.currentThread()));
            OpcAsyncIo2.unadvise(asyncIo, cookie);
            changes.await("deleted");

            // Browse answers seven elements at a time; the natives follow the continuation points.
            long browser = ComObjectClient.query(server, IID_IOPCBROWSE);
            handles.add(browser);
            Recorder found = new Recorder();
            OpcBrowse.browse(browser, "Simulation.Static", found);
            List<String> elements = found.calls();
            assertTrue(elements.size() > BROWSE_PORTION, elements::toString);
            assertEquals(elements.size(), new HashSet<>(elements).size(), elements::toString);
            assertTrue(elements.stream().anyMatch(e -> e.startsWith("R8=Simulation.Static.R8 item")), elements::toString);
            OpcDaServer.removeGroup(server, (int) group[1], true);
        } finally {
            Collections.reverse(handles);
            handles.forEach(ComObjectClient::release);
            ComObjectClient.release(server);
        }
        awaitNoServerProcess();
    }
}
