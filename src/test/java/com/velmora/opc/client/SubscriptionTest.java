package com.velmora.opc.client;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.SimControl;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class SubscriptionTest {
    private static final int E_FAIL = 0x80004005;
    private static final int OPC_E_UNKNOWNITEMID = 0xC0040007;
    private static final int OPC_E_BADRIGHTS = 0xC0040006;
    private static final int OPC_E_RANGE = 0xC004000B;

    private OpcClient client;

    /** Everything a subscription delivered, with the threads it came on. */
    private static final class Recorder implements SubscriptionListener {
        final BlockingQueue<ItemValue> values = new LinkedBlockingQueue<>();
        final BlockingQueue<Object[]> reads = new LinkedBlockingQueue<>();
        final BlockingQueue<Object[]> writes = new LinkedBlockingQueue<>();
        final Set<Thread> threads = ConcurrentHashMap.newKeySet();
        volatile RuntimeException toThrow;

        private void seen() {
            threads.add(Thread.currentThread());
            if (toThrow != null) throw toThrow;
        }

        @Override
        public void onValue(ItemValue value) {
            values.add(value);
            seen();
        }

        @Override
        public void onReadComplete(int transactionId, List<ItemValue> read) {
            reads.add(new Object[] {transactionId, read, Thread.currentThread()});
            seen();
        }

        @Override
        public void onWriteComplete(int transactionId, Map<String, Integer> errors) {
            writes.add(new Object[] {transactionId, errors, Thread.currentThread()});
            seen();
        }
    }

    @BeforeEach
    void simulationServer() {
        assumeTrue(SimControl.available(), SimControl::problem);
        SimControl.reset();
        client = OpcClient.open();
    }

    @AfterEach
    void closeClient() {
        if (client != null) client.close();
        SimControl.reset();
    }

    private static <T> T next(BlockingQueue<T> queue, String what) throws InterruptedException {
        T next = queue.poll(5, TimeUnit.SECONDS);
        assertNotNull(next, "no " + what);
        return next;
    }

    /** Takes the update that follows subscribing: one value per readable item. */
    private static void awaitFirstUpdate(Recorder recorder, int items) throws InterruptedException {
        for (int i = 0; i < items; i++) next(recorder.values, "value of the first update");
        assertTrue(recorder.values.isEmpty());
    }

    private static void assertDetached(Set<Thread> threads) throws InterruptedException {
        assertFalse(threads.isEmpty());
        assertFalse(threads.contains(Thread.currentThread()));
        for (Thread thread : threads) {
            thread.join(2000);
            assertFalse(thread.isAlive(), "server thread still attached: " + thread);
        }
    }

    @Test
    void closingASubscriptionItsGroupOrItsServerEndsTheCallbackOnceAndLeavesNoThreadAttached() throws Exception {
        Recorder byItself = new Recorder();
        Recorder byGroup = new Recorder();
        Recorder byServer = new Recorder();
        long connectionsBefore = SimControl.connections(null);
        OpcServer server = client.connect(SimControl.PROG_ID);
        Group first = server.addGroup("first", 50);
        Group second = server.addGroup("second", 50);
        Group third = server.addGroup("third", 50);
        for (Group g : List.of(first, second, third)) g.addItems("Simulation.Ramp.I4", "No.Such.Item");
        Subscription closedItself = first.subscribe(byItself);
        Subscription closedByGroup = second.subscribe(byGroup);
        Subscription closedByServer = third.subscribe(byServer);
        ShutdownRegistration registration = server.onShutdown(() -> {});
        assertEquals(connectionsBefore + 4, SimControl.connections(null));

        // A listener that throws is logged and keeps receiving.
        byItself.toThrow = new IllegalStateException("listener failed");
        for (Recorder r : List.of(byItself, byGroup, byServer)) {
            ItemValue change = next(r.values, "data change");
            assertEquals("Simulation.Ramp.I4", change.itemId());
        }
        next(byItself.values, "data change after a failing listener call");

        closedItself.close();
        closedItself.close();
        second.close();
        server.close();
        for (Subscription s : List.of(closedItself, closedByGroup, closedByServer)) {
            assertTrue(s.isClosed() && s.isDisconnected());
            assertEquals(1, s.deletionNotices());
        }
        assertTrue(registration.isClosed());
        assertEquals(1, registration.deletionNotices());
        assertFalse(registration.isRequested());
        assertEquals(connectionsBefore, SimControl.connections(null));

        int seen = byItself.values.size() + byGroup.values.size() + byServer.values.size();
        Thread.sleep(200);
        assertEquals(seen, byItself.values.size() + byGroup.values.size() + byServer.values.size(),
                "values after close");
        Set<Thread> threads = ConcurrentHashMap.newKeySet();
        List.of(byItself, byGroup, byServer).forEach(r -> threads.addAll(r.threads));
        assertDetached(threads);
        assertThrows(IllegalStateException.class, () -> closedItself.refresh(DataSource.CACHE));
        assertThrows(IllegalStateException.class, () -> third.subscribe(byServer));
    }

    @Test
    void readAndWriteCompletionsReachTheListenerByItemUnderTheirTransactionIds() throws Exception {
        Recorder recorder = new Recorder();
        try (OpcServer server = client.connect(SimControl.PROG_ID); Group group = server.addGroup("async", 3_600_000)) {
            List<Item> items = group.addItems("Simulation.Static.R8", "Simulation.Static.BSTR", "Simulation.Static.BOOL",
                    "Simulation.Array.I4", "No.Such.Item", "Simulation.Access.WriteOnly", "Simulation.Access.ReadOnly");
            Subscription subscription = group.subscribe(recorder);
            awaitFirstUpdate(recorder, 5); // the readable items; then nothing more for an hour

            Transaction read = subscription.readAsync(items.subList(0, 6));
            assertEquals(Map.of("No.Such.Item", OPC_E_UNKNOWNITEMID, "Simulation.Access.WriteOnly", OPC_E_BADRIGHTS),
                    read.rejected());
            Object[] completion = next(recorder.reads, "read completion");
            assertEquals(read.transactionId(), completion[0]);
            @SuppressWarnings("unchecked")
            List<ItemValue> values = (List<ItemValue>) completion[1];
            assertEquals(List.of("Simulation.Static.R8", "Simulation.Static.BSTR", "Simulation.Static.BOOL",
                    "Simulation.Array.I4"), values.stream().map(ItemValue::itemId).toList());
            assertTrue(values.get(0).value() instanceof Double && values.get(2).value() instanceof Boolean
                    && values.get(1).value() instanceof String && values.get(3).value() instanceof String, values::toString);
            assertTrue(values.stream().allMatch(ItemValue::isGood), values::toString);

            Map<Item, Object> writes = new LinkedHashMap<>();
            writes.put(items.get(0), 12.5);
            writes.put(items.get(1), "x,y");
            writes.put(items.get(2), "maybe");
            writes.put(items.get(3), new int[] {4, -5});
            writes.put(items.get(6), 1);
            Transaction written = subscription.writeAsync(writes);
            assertNotEquals(read.transactionId(), written.transactionId());
            assertEquals(Map.of("Simulation.Static.BOOL", OPC_E_RANGE, "Simulation.Access.ReadOnly", OPC_E_BADRIGHTS),
                    written.rejected());
            completion = next(recorder.writes, "write completion");
            assertEquals(written.transactionId(), completion[0]);
            assertEquals(Map.of("Simulation.Static.R8", 0, "Simulation.Static.BSTR", 0, "Simulation.Array.I4", 0),
                    completion[1]);
            assertEquals(List.of(12.5, "x,y", "4,-5"), group.read(DataSource.DEVICE, List.of(items.get(0), items.get(1),
                    items.get(3))).stream().map(ItemValue::value).toList());

            // A completion the server sends on its own names the items by id.
            assertEquals(1, SimControl.sendWriteComplete(77, 1, "Simulation.Static.BSTR,Simulation.Static.R8",
                    OPC_E_BADRIGHTS));
            completion = next(recorder.writes, "server's write completion");
            assertEquals(77, completion[0]);
            assertEquals(List.of("Simulation.Static.BSTR", "Simulation.Static.R8"),
                    List.copyOf(((Map<?, ?>) completion[1]).keySet()));
            assertEquals(Set.of(OPC_E_BADRIGHTS), Set.copyOf(((Map<?, ?>) completion[1]).values()));

            // Refreshed values arrive as data changes: one per active item.
            subscription.refresh(DataSource.DEVICE);
            Set<String> refreshed = ConcurrentHashMap.newKeySet();
            for (int i = 0; i < 5; i++) refreshed.add(next(recorder.values, "refreshed value").itemId());
            assertTrue(refreshed.contains("Simulation.Static.R8"), refreshed::toString);

            // A cancelled read completes never; a refused one raises the server's error.
            SimControl.setAsyncDelay(300);
            Transaction cancelled = subscription.readAsync(items.subList(0, 1));
            subscription.cancel(cancelled);
            assertEquals("cancel=" + cancelled.cancelId(), SimControl.lastCallArgs("IOPCAsyncIO2::Cancel2"));
            Thread.sleep(500);
            assertTrue(recorder.reads.isEmpty(), "a completion of the cancelled read");
            SimControl.failNext("IOPCAsyncIO2::Read", E_FAIL, 1);
            HresultException refused = assertThrows(HresultException.class, () -> subscription.readAsync(items));
            assertEquals("IOPCAsyncIO2::Read", refused.getOperation());
            assertEquals(E_FAIL, refused.getHresult());
            assertEquals(0, subscription.readAsync(items.subList(4, 5)).cancelId(), "nothing to send");
        }
        assertDetached(recorder.threads);
    }

    @Test
    void inlineCompletionsRunOnTheCallingThreadWhichStaysAsItWas() throws Exception {
        Thread caller = Thread.currentThread();
        Recorder recorder = new Recorder();
        try (OpcServer server = client.connect(SimControl.PROG_ID); Group group = server.addGroup("inline", 3_600_000)) {
            List<Item> items = group.addItems("Simulation.Static.I4", "Simulation.Static.BSTR");
            Subscription subscription = group.subscribe(recorder);
            awaitFirstUpdate(recorder, 2);
            recorder.threads.clear();
            SimControl.setInlineCompletion(true);

            Transaction read = subscription.readAsync(items);
            Object[] completion = recorder.reads.poll();
            assertNotNull(completion, "the read completed before readAsync returned");
            assertEquals(read.transactionId(), completion[0]);
            assertSame(caller, completion[2]);

            subscription.writeAsync(Map.of(items.get(0), 42));
            completion = recorder.writes.poll();
            assertNotNull(completion, "the write completed before writeAsync returned");
            assertSame(caller, completion[2]);

            // A listener that throws on the calling thread leaves no exception behind for the caller.
            recorder.toThrow = new IllegalStateException("listener failed");
            subscription.refresh(DataSource.CACHE);
            assertEquals(2, recorder.values.size());
            subscription.readAsync(items);
            recorder.toThrow = null;
            assertEquals(Set.of(caller), recorder.threads);

            // The thread is still the same attached Java thread: it calls natives and Java as before.
            assertSame(caller, Thread.currentThread());
            assertTrue(caller.isAlive());
            assertEquals(42.0, group.read(DataSource.DEVICE, items).get(0).value());
            SimControl.setInlineCompletion(false);
        }
        assertSame(caller, Thread.currentThread());
    }

    @Test
    void aShutdownRequestReachesTheListenerOnceAndEndsItsRegistrationWithoutANotice() throws Exception {
        CountDownLatch requested = new CountDownLatch(1);
        List<Thread> listenerThreads = new ArrayList<>();
        OpcServer server = client.connect(SimControl.PROG_ID);
        ShutdownRegistration heard = server.onShutdown(() -> {
            listenerThreads.add(Thread.currentThread());
            requested.countDown();
        });
        assertEquals(1, SimControl.shutdown("maintenance"));
        assertTrue(requested.await(5, TimeUnit.SECONDS));
        assertTrue(heard.isRequested());
        heard.close();
        assertEquals(0, heard.deletionNotices());

        ShutdownRegistration closedAlone = server.onShutdown(() -> {});
        ShutdownRegistration closedWithServer = server.onShutdown(() -> {});
        closedAlone.close();
        assertEquals(1, closedAlone.deletionNotices());
        server.close();
        assertTrue(closedWithServer.isClosed());
        assertEquals(1, closedWithServer.deletionNotices());
        assertEquals(1, listenerThreads.size());
        assertDetached(Set.copyOf(listenerThreads));
        assertThrows(IllegalStateException.class, () -> server.onShutdown(() -> {}));
    }
}
