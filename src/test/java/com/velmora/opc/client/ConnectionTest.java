package com.velmora.opc.client;

import static com.velmora.opc.testsupport.Codes.*;
import static java.util.concurrent.TimeUnit.SECONDS;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.SimControl;
import java.time.Duration;
import java.util.*;
import java.util.concurrent.*;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;

/** The connection under concurrent use and closing, and when its server dies, asks to go, or comes back. */
class ConnectionTest extends OpenClient {
    private static final long STRESS_SECONDS = Long.getLong("opc.stress.seconds", 20);

    /** One use of the connection by a worker; every kind of call that a close can race. */
    private static void use(int kind, int i, OpcServer server, Group group, List<Item> items) throws Exception {
        switch (kind) {
            case 0 -> group.read(i % 2 == 0 ? DataSource.CACHE : DataSource.DEVICE, items);
            case 1 -> group.write(Map.of(items.get(0), i, items.get(2), "v" + i));
            case 2 -> {
                try (Subscription s = group.subscribe(v -> {})) {
                    s.refresh(DataSource.CACHE);
                    s.readAsync(items);
                }
            }
            case 3 -> group.removeItems(group.addItems("Simulation.Static.I4", "Simulation.Random.R8"));
            case 4 -> server.status();
            case 5 -> group.setState(10 + i % 3 * 10, true);
            case 6 -> server.onShutdown(() -> {}).close();
            default -> server.properties("Simulation.Static.R8");
        }
    }

    @Test
    void closingWhileOtherThreadsUseTheServerAndItsGroupsNeitherCrashesNorLeaks() throws Exception {
        int threads = Integer.getInteger("opc.stress.threads", 8);
        ExecutorService pool = Executors.newFixedThreadPool(threads);
        List<Throwable> unexpected = Collections.synchronizedList(new ArrayList<>());
        AtomicInteger refused = new AtomicInteger();
        Random random = new Random(8);
        long end = System.nanoTime() + SECONDS.toNanos(STRESS_SECONDS);
        int rounds = 0;
        try {
            while (System.nanoTime() < end && unexpected.isEmpty()) {
                rounds++;
                OpcServer server = client.connect(SimControl.PROG_ID);
                Group group = server.addGroup("stress", 10);
                List<Item> items = group.addItems("Simulation.Static.R8", "Simulation.Ramp.I4", "Simulation.Static.BSTR");
                CountDownLatch go = new CountDownLatch(1);
                List<Future<?>> workers = new ArrayList<>();
                for (int t = 0; t < threads; t++) {
                    int kind = t % 8;
                    workers.add(pool.submit(() -> {
                        go.await();
                        for (int i = 0; i < 1000; i++) {
                            try {
                                use(kind, i, server, group, items);
                            } catch (IllegalStateException e) {
                                refused.incrementAndGet();  // closed under it: the one allowed failure
                                return null;
                            } catch (Throwable e) {
                                unexpected.add(e);
                                return null;
                            }
                        }
                        return null;
                    }));
                }
                go.countDown();
                Thread.sleep(random.nextInt(40));
                // Half the rounds close the group first, racing the workers; the server's close always races.
                Future<?> groupClose = rounds % 2 == 0 ? pool.submit(group::close) : null;
                server.close();
                if (groupClose != null) groupClose.get(30, SECONDS);
                for (Future<?> worker : workers) worker.get(60, SECONDS);
                assertFalse(server.isOpen());
                assertTrue(group.isClosed());
            }
            // Connecting while the client closes: every connection made is closed with it, or refused.
            for (int r = 0; r < 20; r++) {
                OpcClient racing = OpcClient.open();
                List<Future<OpcServer>> connects = new ArrayList<>();
                for (int t = 0; t < 4; t++) connects.add(pool.submit(() -> racing.connect(SimControl.PROG_ID)));
                racing.close();
                for (Future<OpcServer> connect : connects) {
                    try {
                        assertFalse(connect.get(30, SECONDS).isOpen());
                    } catch (ExecutionException e) {
                        assertInstanceOf(IllegalStateException.class, e.getCause());
                    }
                }
            }
        } finally {
            pool.shutdown();
            assertTrue(pool.awaitTermination(60, SECONDS));
        }
        assertEquals(List.of(), unexpected);
        assertTrue(rounds > 1 && refused.get() > 0, rounds + " rounds, " + refused + " refused");
        assertEquals(0, SimControl.liveObjects("group"));
        assertEquals(0, SimControl.liveObjects("server"));
    }

    @Test
    void listenersMayCloseTheConnectionFromTheServersThreads() throws Exception {
        OpcServer server = client.connect(SimControl.PROG_ID);
        Group group = server.addGroup("self", 20);
        group.addItems("Simulation.Ramp.I4");
        CountDownLatch closed = new CountDownLatch(1);
        group.subscribe(v -> {
            server.close();
            closed.countDown();
        });
        assertTrue(closed.await(5, SECONDS));
        assertTrue(group.isClosed());
        assertFalse(server.isOpen());
    }

    @Test
    void aServerThatAsksToGoOrDiesIsLetGoOfQuietly() throws Exception {
        try (OpcServer server = client.connect(SimControl.PROG_ID)) {
            Group group = server.addGroup("gone", 100);
            List<Item> items = group.addItems("Simulation.Static.R8");
            group.subscribe(v -> {});
            CountDownLatch asked = new CountDownLatch(1);
            ShutdownRegistration registration = server.onShutdown(asked::countDown);
            // The request reaches the listener, and closing need not wait for the server.
            assertEquals(1, SimControl.shutdown("maintenance"));
            assertTrue(asked.await(5, SECONDS));
            long start = System.nanoTime();
            registration.close();
            assertTrue(System.nanoTime() - start < SECONDS.toNanos(2), "closing waited for a listener that went");

            SimControl.setDown(true);
            HresultException read = assertThrows(HresultException.class, () -> group.read(DataSource.CACHE, items));
            assertEquals(RPC_E_DISCONNECTED, read.getHresult());
            start = System.nanoTime();
            server.close();  // unadvise and removeGroup fail with the server gone: not an error
            assertTrue(System.nanoTime() - start < SECONDS.toNanos(2), "closing waited for a dead server");
            assertTrue(group.isClosed());
        }
    }

    @Test
    void aReconnectingConnectionMakesItsGroupsItemsAndSubscriptionsAgain() throws Exception {
        BlockingQueue<String> events = new LinkedBlockingQueue<>();
        ConnectionListener listener = new ConnectionListener() {
            @Override
            public void onLost(OpcServer server, Throwable cause) {
                events.add("lost");
            }

            @Override
            public void onReconnectFailed(OpcServer server, int attempt, Throwable cause, Duration next) {
                events.add("failed " + (cause instanceof HresultException e ? e.getHresult() == RPC_E_DISCONNECTED : cause));
            }

            @Override
            public void onReconnected(OpcServer server) {
                events.add("reconnected");
            }
        };
        ConnectionOptions options = ConnectionOptions.DEFAULT.statusPoll(Duration.ofMillis(50))
                .reconnect(Duration.ofMillis(20), Duration.ofMillis(100)).listener(listener);
        BlockingQueue<ItemValue> values = new LinkedBlockingQueue<>();
        AtomicInteger shutdowns = new AtomicInteger();
        try (OpcServer server = client.connect(SimControl.PROG_ID, null, options);
                Group group = server.addGroup("kept", 20)) {
            List<Item> items = group.addItems(List.of(ItemDefinition.of("Simulation.Ramp.I4"),
                    ItemDefinition.of("Simulation.Static.R8", VT_BSTR)));
            group.subscribe(values::add);
            server.onShutdown(shutdowns::incrementAndGet);
            assertNotNull(values.poll(5, SECONDS));

            SimControl.setDown(true);
            assertEquals("lost", events.poll(5, SECONDS));
            assertFalse(server.isOpen());
            assertThrows(ConnectionLostException.class, () -> group.read(DataSource.CACHE, items));
            assertEquals("failed true", events.poll(5, SECONDS));
            SimControl.setDown(false);
            String event;
            do {
                event = events.poll(5, SECONDS);
            } while (event != null && event.startsWith("failed"));
            assertEquals("reconnected", event);

            // The old items read on the new server, in their requested types, and data changes flow again.
            values.clear();
            assertNotNull(values.poll(5, SECONDS));
            List<ItemValue> read = group.read(DataSource.DEVICE, items);
            assertTrue(read.stream().allMatch(ItemValue::isGood), read::toString);
            assertInstanceOf(String.class, read.get(1).value());
            assertEquals(List.of(2, 2), List.of(SimControl.callCount("IOPCServer::AddGroup"),
                    SimControl.callCount("IOPCItemMgt::AddItems")));

            // The new server's shutdown request reaches the listener and is a loss too, followed by a reconnection.
            assertTrue(SimControl.shutdown("maintenance") >= 2);
            assertEquals("lost", events.poll(5, SECONDS));
            assertEquals("reconnected", events.poll(5, SECONDS));
            assertEquals(1, shutdowns.get());
            assertTrue(server.isOpen());
        }
        assertNull(events.poll(200, TimeUnit.MILLISECONDS));
    }
}
