package com.velmora.opc.outproc;

import static com.velmora.opc.outproc.OutOfProcess.*;
import static com.velmora.opc.testsupport.Codes.*;
import static java.util.concurrent.TimeUnit.SECONDS;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.client.*;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.jni.client.da.*;
import com.velmora.opc.testsupport.*;
import java.time.Duration;
import java.util.*;
import java.util.concurrent.*;
import java.util.stream.IntStream;
import org.junit.jupiter.api.*;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * A server process killed from this JVM while it delivers data changes and while a call is under way:
 * the JVM runs on, calls fail with the RPC disconnection codes, the dead proxies release cleanly, and
 * a connection that watches its server reports the loss and comes back once the server can start
 * again (activation starts a new process).
 * Each test runs twice and leaves no task memory in the JVM.
 */
@ExtendWith(OutOfProcess.LocalServerOnly.class)
class OutOfProcessKillTest {
    static void assertDisconnection(HresultException failure) {
        assertTrue(isDisconnection(failure.getHresult()),
                () -> Integer.toHexString(failure.getHresult()) + " from " + failure.getOperation());
    }

    @Test
    void killedMidSubscriptionTheNativesFailAsDisconnected() throws Exception {
        runTwiceLeavingNoTaskMemory(this::killedMidSubscriptionTheNativesFailAsDisconnectedOnce);
    }

    private void killedMidSubscriptionTheNativesFailAsDisconnectedOnce() throws Exception {
        awaitNoServerProcess();
        OpcEnv.initThread();
        long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
        assertNotEquals(0, server);
        long[] group = OpcDaServer.addGroup(server, "doomed", true, 20, 77, 0, 0f, 1033);
        long itemMgt = ComObjectClient.query(group[0], IID_IOPCITEMMGT);
        long syncIo = ComObjectClient.query(group[0], IID_IOPCSYNCIO);
        long asyncIo = ComObjectClient.query(group[0], IID_IOPCASYNCIO2);
        try {
            Recorder added = new Recorder();
            OpcItemMgt.addItems(itemMgt, new String[] {"Simulation.Ramp.I4"}, new int[] {100}, new boolean[] {true},
                    new int[1], added);
            int item = (int) added.records().get(0).args()[1];
            Recorder.Callback changes = new Recorder.Callback();
            long cookie = OpcAsyncIo2.advise(asyncIo, changes);
            changes.awaitCount("numeric 100 ", 2);

            killTheServer();
            assertDisconnection(assertThrows(HresultException.class, () -> OpcDaServer.getStatus(server, new Recorder())));
            assertDisconnection(assertThrows(HresultException.class,
                    () -> OpcSyncIo.read(syncIo, new int[] {item}, true, new Recorder())));
            assertDisconnection(assertThrows(HresultException.class, () -> OpcAsyncIo2.unadvise(asyncIo, cookie)));
            assertDisconnection(assertThrows(HresultException.class,
                    () -> OpcDaServer.removeGroup(server, (int) group[1], true)));
        } finally {
            ComObjectClient.release(asyncIo);
            ComObjectClient.release(syncIo);
            ComObjectClient.release(itemMgt);
            ComObjectClient.release(group[0]);
            ComObjectClient.release(server);
        }
        awaitNoServerProcess();
    }

    @Test
    void killedMidCallTheCallFailsAsDisconnected() throws Exception {
        runTwiceLeavingNoTaskMemory(this::killedMidCallTheCallFailsAsDisconnectedOnce);
    }

    private void killedMidCallTheCallFailsAsDisconnectedOnce() throws Exception {
        awaitNoServerProcess();
        try (OpcClient client = OpcClient.open(); OpcServer server = client.connect(SimControl.PROG_ID)) {
            Group group = server.addGroup("busy", 1000);
            List<Item> items = group.addItems(IntStream.range(0, 5000).mapToObj(i -> "Bench.R8." + i).toArray(String[]::new));
            CompletableFuture<Throwable> failure = CompletableFuture.supplyAsync(() -> {
                try {
                    for (int i = 0; i < 100_000; i++) group.read(DataSource.DEVICE, items);
                    return null;
                } catch (Throwable e) {
                    return e;
                }
            });
            Thread.sleep(300);
            killTheServer();
            Throwable thrown = failure.get(30, SECONDS);
            assertInstanceOf(HresultException.class, thrown);
            assertDisconnection((HresultException) thrown);
            assertDisconnection(assertThrows(HresultException.class, server::status));
        }
        awaitNoServerProcess();
    }

    @Test
    void aWatchedConnectionReportsTheLossAndComesBackWithANewProcess() throws Exception {
        runTwiceLeavingNoTaskMemory(this::aWatchedConnectionReportsTheLossAndComesBackWithANewProcessOnce);
    }

    private void aWatchedConnectionReportsTheLossAndComesBackWithANewProcessOnce() throws Exception {
        awaitNoServerProcess();
        BlockingQueue<String> events = new LinkedBlockingQueue<>();
        ConnectionListener listener = new ConnectionListener() {
            @Override
            public void onLost(OpcServer server, Throwable cause) {
                events.add("lost " + (cause instanceof HresultException e && isDisconnection(e.getHresult())));
            }

            @Override
            public void onReconnectFailed(OpcServer server, int attempt, Throwable cause, Duration next) {
                events.add("failed " + (cause instanceof HresultException e ? Integer.toHexString(e.getHresult()) : cause));
            }

            @Override
            public void onReconnected(OpcServer server) {
                events.add("reconnected");
            }
        };
        ConnectionOptions options = ConnectionOptions.DEFAULT.statusPoll(Duration.ofMillis(200))
                .reconnect(Duration.ofMillis(100), Duration.ofMillis(500)).listener(listener);
        BlockingQueue<ItemValue> values = new LinkedBlockingQueue<>();
        try (OpcClient client = OpcClient.open();
             OpcServer server = client.connect(SimControl.PROG_ID, null, options);
             Group group = server.addGroup("watched", 50)) {
            List<Item> items = group.addItems("Simulation.Ramp.I4");
            group.subscribe(values::add);
            assertNotNull(values.poll(5, SECONDS));
            long first = theServerProcess().pid();

            // Killed, and unable to start again for a while: the attempts fail until it can.
            removeLocalServer();
            killTheServer();
            assertEquals("lost true", events.poll(10, SECONDS));
            assertThrows(ConnectionLostException.class, () -> group.read(DataSource.CACHE, items));
            assertEquals("failed " + Integer.toHexString(REGDB_E_CLASSNOTREG), events.poll(10, SECONDS));
            setLocalServerCommand(file("opc_sim_server.exe").getPath() + " --browse-portion " + BROWSE_PORTION);
            String event;
            do {
                event = events.poll(10, SECONDS);
            } while (event != null && event.startsWith("failed "));
            assertEquals("reconnected", event);
            assertNotEquals(first, theServerProcess().pid(), "a new server process");
            values.clear();
            assertNotNull(values.poll(5, SECONDS), "no data change after reconnecting");
            assertTrue(group.read(DataSource.CACHE, items).get(0).isGood());
        }
        awaitNoServerProcess();
    }
}
