package com.velmora.opc.client;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.TestSupport;
import java.util.*;
import java.util.concurrent.*;
import org.junit.jupiter.api.Test;

class SubscriptionTest extends OpenClient {

    /** Everything a subscription delivered, with the threads it came on. */
    private static final class Listener implements SubscriptionListener {
        final BlockingQueue<ItemValue> values = new LinkedBlockingQueue<>();
        final BlockingQueue<Object[]> reads = new LinkedBlockingQueue<>();
        final BlockingQueue<Object[]> writes = new LinkedBlockingQueue<>();
        final Set<Thread> threads = ConcurrentHashMap.newKeySet();
        volatile RuntimeException toThrow;

        // The thread is noted before the call is queued: whoever takes the call from its queue sees
        // its thread among the threads.
        private <T> void heard(BlockingQueue<T> queue, T call) {
            threads.add(Thread.currentThread());
            queue.add(call);
            if (toThrow != null) throw toThrow;
        }

        @Override
        public void onValue(ItemValue value) {
            heard(values, value);
        }

        @Override
        public void onReadComplete(int transactionId, List<ItemValue> read) {
            heard(reads, new Object[] {transactionId, read, Thread.currentThread()});
        }

        @Override
        public void onWriteComplete(int transactionId, Map<String, Integer> errors) {
            heard(writes, new Object[] {transactionId, errors, Thread.currentThread()});
        }
    }

    private static <T> T next(BlockingQueue<T> queue, String what) throws InterruptedException {
        T next = queue.poll(5, TimeUnit.SECONDS);
        assertNotNull(next, "no " + what);
        return next;
    }

    /** Takes the update that follows subscribing: one value per readable item. */
    private static void awaitFirstUpdate(Listener listener, int items) throws InterruptedException {
        for (int i = 0; i < items; i++) next(listener.values, "value of the first update");
        assertTrue(listener.values.isEmpty());
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
        List<Listener> listeners = List.of(new Listener(), new Listener(), new Listener());
        long connectionsBefore = SimControl.connections(null);
        OpcServer server = client.connect(SimControl.PROG_ID);
        List<Group> groups = new ArrayList<>();
        List<Subscription> subscriptions = new ArrayList<>();
        for (Listener listener : listeners) {
            Group group = server.addGroup("group " + groups.size(), 50);
            group.addItems("Simulation.Ramp.I4", "No.Such.Item");
            groups.add(group);
            subscriptions.add(group.subscribe(listener));
        }
        ShutdownRegistration registration = server.onShutdown(() -> {});
        assertEquals(connectionsBefore + 4, SimControl.connections(null));

        // A listener that throws is logged and keeps receiving.
        listeners.get(0).toThrow = new IllegalStateException("listener failed");
        for (Listener listener : listeners) {
            assertEquals("Simulation.Ramp.I4", next(listener.values, "data change").itemId());
        }
        next(listeners.get(0).values, "data change after a failing listener call");

        subscriptions.get(0).close();
        subscriptions.get(0).close();
        groups.get(1).close();
        server.close();
        for (Subscription s : subscriptions) {
            assertTrue(s.isClosed() && s.isDisconnected());
            assertEquals(1, s.deletionNotices());
        }
        assertTrue(registration.isClosed());
        assertEquals(1, registration.deletionNotices());
        assertFalse(registration.isRequested());
        assertEquals(connectionsBefore, SimControl.connections(null));

        int seen = listeners.stream().mapToInt(l -> l.values.size()).sum();
        Thread.sleep(200);
        assertEquals(seen, listeners.stream().mapToInt(l -> l.values.size()).sum(), "values after close");
        Set<Thread> threads = new HashSet<>();
        listeners.forEach(l -> threads.addAll(l.threads));
        assertDetached(threads);
        assertThrows(IllegalStateException.class, () -> subscriptions.get(0).refresh(DataSource.CACHE));
        assertThrows(IllegalStateException.class, () -> groups.get(2).subscribe(listeners.get(2)));
    }

    @Test
    void readAndWriteCompletionsReachTheListenerByItemUnderTheirTransactionIds() throws Exception {
        Listener listener = new Listener();
        try (OpcServer server = client.connect(SimControl.PROG_ID); Group group = server.addGroup("async", 3_600_000)) {
            List<Item> items = group.addItems("Simulation.Static.R8", "Simulation.Static.BSTR",
                    "Simulation.Static.BOOL", "Simulation.Array.I4", "No.Such.Item", "Simulation.Access.WriteOnly",
                    "Simulation.Access.ReadOnly");
            Subscription subscription = group.subscribe(listener);
            awaitFirstUpdate(listener, 5); // the readable items; then nothing more for an hour

            Transaction read = subscription.readAsync(items.subList(0, 6));
            assertEquals(Map.of("No.Such.Item", OPC_E_UNKNOWNITEMID, "Simulation.Access.WriteOnly", OPC_E_BADRIGHTS),
                    read.rejected());
            Object[] completion = next(listener.reads, "read completion");
            assertEquals(read.transactionId(), completion[0]);
            @SuppressWarnings("unchecked")
            List<ItemValue> values = (List<ItemValue>) completion[1];
            assertEquals(List.of("Simulation.Static.R8", "Simulation.Static.BSTR", "Simulation.Static.BOOL",
                    "Simulation.Array.I4"), values.stream().map(ItemValue::itemId).toList());
            assertEquals(List.of(Double.class, String.class, Boolean.class, String.class),
                    values.stream().map(v -> v.value().getClass()).toList());
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
            completion = next(listener.writes, "write completion");
            assertEquals(written.transactionId(), completion[0]);
            assertEquals(Map.of("Simulation.Static.R8", 0, "Simulation.Static.BSTR", 0, "Simulation.Array.I4", 0),
                    completion[1]);
            assertEquals(List.of(12.5, "x,y", "4,-5"), group.read(DataSource.DEVICE, List.of(items.get(0), items.get(1),
                    items.get(3))).stream().map(ItemValue::value).toList());

            // A completion the server sends on its own names the items by id.
            assertEquals(1, SimControl.sendWriteComplete(77, 1, "Simulation.Static.BSTR,Simulation.Static.R8",
                    OPC_E_BADRIGHTS));
            completion = next(listener.writes, "server's write completion");
            assertEquals(77, completion[0]);
            assertEquals(List.of(Map.entry("Simulation.Static.BSTR", OPC_E_BADRIGHTS),
                    Map.entry("Simulation.Static.R8", OPC_E_BADRIGHTS)),
                    List.copyOf(((Map<?, ?>) completion[1]).entrySet()));

            // A cancelled read completes never; a refused one raises the server's error.
            SimControl.setAsyncDelay(300);
            Transaction cancelled = subscription.readAsync(items.subList(0, 1));
            subscription.cancel(cancelled);
            assertEquals("cancel=" + cancelled.cancelId(), SimControl.lastCallArgs("IOPCAsyncIO2::Cancel2"));
            Thread.sleep(500);
            assertTrue(listener.reads.isEmpty(), "a completion of the cancelled read");
            SimControl.failNext("IOPCAsyncIO2::Read", E_FAIL, 1);
            HresultException refused = assertThrows(HresultException.class, () -> subscription.readAsync(items));
            assertEquals("IOPCAsyncIO2::Read", refused.getOperation());
            assertEquals(E_FAIL, refused.getHresult());
            assertEquals(0, subscription.readAsync(items.subList(4, 5)).cancelId(), "nothing to send");
        }
        assertDetached(listener.threads);
    }

    @Test
    void inlineCompletionsRunOnTheCallingThreadWhichStaysAsItWas() throws Exception {
        TestSupport.assumeInProcess("completions made inside a call come back on an RPC thread, not the caller's");
        Thread caller = Thread.currentThread();
        Listener listener = new Listener();
        try (OpcServer server = client.connect(SimControl.PROG_ID);
                Group group = server.addGroup("inline", 3_600_000)) {
            List<Item> items = group.addItems("Simulation.Static.I4", "Simulation.Static.BSTR");
            Subscription subscription = group.subscribe(listener);
            awaitFirstUpdate(listener, 2);
            listener.threads.clear();
            SimControl.setInlineCompletion(true);

            Transaction read = subscription.readAsync(items);
            Object[] completion = listener.reads.poll();
            assertNotNull(completion, "the read completed before readAsync returned");
            assertEquals(read.transactionId(), completion[0]);
            subscription.writeAsync(Map.of(items.get(0), 42));
            assertNotNull(listener.writes.poll(), "the write completed before writeAsync returned");

            // A listener that throws on the calling thread leaves no exception behind for the caller.
            listener.toThrow = new IllegalStateException("listener failed");
            subscription.refresh(DataSource.CACHE);
            assertEquals(2, listener.values.size());
            subscription.readAsync(items);
            listener.toThrow = null;
            assertEquals(Set.of(caller), listener.threads);

            // The thread is still the same attached Java thread: it calls natives and Java as before.
            assertEquals(42.0, group.read(DataSource.DEVICE, items).get(0).value());
            SimControl.setInlineCompletion(false);
        }
        assertSame(caller, Thread.currentThread());
    }

    @Test
    void aShutdownRequestReachesTheListenerOnceAndEndsItsRegistrationWithoutANotice() throws Exception {
        List<Thread> listenerThreads = new CopyOnWriteArrayList<>();
        CountDownLatch requested = new CountDownLatch(1);
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
