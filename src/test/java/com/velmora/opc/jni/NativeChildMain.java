package com.velmora.opc.jni;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.client.common.OpcShutdown;
import com.velmora.opc.jni.client.common.ShutdownListener;
import com.velmora.opc.jni.client.da.DataCallback;
import com.velmora.opc.jni.client.da.ItemResultCollector;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.jni.client.da.OpcItemMgt;
import com.velmora.opc.jni.client.da.OpcSyncIo;
import com.velmora.opc.jni.client.da.ReadListener;
import com.velmora.opc.jni.client.da.UpdateReceiver;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * Scenarios that need a process of their own: a fresh COM start-up, console lines written by the
 * library itself, and JNI warnings that only the process's own output shows. Each prints what it
 * observed as plain lines for the parent test to check.
 */
public final class NativeChildMain {
    private NativeChildMain() {}

    public static void main(String[] args) throws Exception {
        switch (args[0]) {
            case "startup" -> startup();
            case "shutdown" -> shutdown();
            case "bulk" -> bulk(Integer.parseInt(args[1]));
            default -> throw new IllegalArgumentException(args[0]);
        }
        System.out.flush();
    }

    // Start-up in a process where nothing has touched COM yet.
    private static void startup() {
        try (LogCapture log = new LogCapture()) {
            step(log, "env-before-thread", OpcEnv::initEnv);
            step(log, "thread", OpcEnv::initThread);
            step(log, "thread-again", OpcEnv::initThread);
            step(log, "env", OpcEnv::initEnv);
            step(log, "env-again", OpcEnv::initEnv);
        }
    }

    private static void step(LogCapture log, String name, Runnable call) {
        int before = log.lines().size();
        call.run();
        List<LogCapture.Line> lines = log.lines();
        List<String> added = new ArrayList<>();
        for (LogCapture.Line line : lines.subList(before, lines.size())) added.add(line.level() + " " + line.text());
        System.out.println(name + ": " + added);
    }

    /** Listener that prints what reaches it. */
    private static final class PrintingListener implements ShutdownListener {
        private final String name;

        PrintingListener(String name) {
            this.name = name;
        }

        @Override
        public void shutdownRequest(String reason) {
            boolean main = Thread.currentThread().getName().equals("main");
            System.out.println(name + " request " + reason + (main ? " on main" : " on another thread"));
        }

        @Override
        public void shutdownDeleted() {
            System.out.println(name + " deleted");
        }
    }

    // A shutdown request with a reason, then one without, each on a connection of its own.
    private static void shutdown() {
        OpcEnv.initThread();
        for (String reason : new String[] {"maintenance", null}) {
            String name = reason == null ? "silent" : "reasoned";
            long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
            long cookie = OpcShutdown.advise(server, new PrintingListener(name));
            System.out.println(name + " advised " + (cookie != 0));
            System.out.flush();
            int called = SimControl.shutdown(reason);
            System.out.println(name + " sinks called " + called);
            OpcShutdown.unadvise(server, cookie);
            ComObjectClient.release(server);
            System.out.println(name + " released");
            System.out.flush();
        }
    }

    /** Counts what a subscription delivers. */
    private static final class CountingCallback implements DataCallback {
        final AtomicInteger strings = new AtomicInteger();
        final AtomicInteger others = new AtomicInteger();
        final AtomicInteger completed = new AtomicInteger();
        final AtomicInteger deleted = new AtomicInteger();

        @Override
        public void updateNumeric(int h, double v, long t, int q, int e, boolean s) {
            others.incrementAndGet();
        }

        @Override
        public void updateBoolean(int h, boolean v, long t, int q, int e, boolean s) {
            others.incrementAndGet();
        }

        @Override
        public void updateString(int h, String v, long t, int q, int e, boolean s) {
            strings.incrementAndGet();
        }

        @Override
        public void updateError(int h, long t, int q, int e, boolean s) {
            others.incrementAndGet();
        }

        @Override
        public void OnReadCompleted(int transactionId, int masterQuality, int masterError, int count,
                int[] clientHandles, int[] valueKinds, String[] values, int[] qualities, long[] timestamps,
                int[] errors) {
            completed.addAndGet(count);
        }

        @Override
        public void OnWriteCompleted(int transactionId, int groupHandle, int masterError, int count,
                int[] clientHandles, int[] errors) {}

        @Override
        public void asyncCallbackDeleted() {
            deleted.incrementAndGet();
        }
    }

    // Many items through every path that loops over items on the Java side of the library. Raw
    // natives only: the child has no test framework on its class path.
    private static void bulk(int n) throws InterruptedException {
        OpcEnv.initThread();
        long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
        long[] group = OpcDaServer.addGroup(server, "bulk", true, 60_000, 1, 0, 0f, 0);
        long itemMgt = ComObjectClient.query(group[0], SimFixture.IID_IOPCITEMMGT);
        long syncIo = ComObjectClient.query(group[0], SimFixture.IID_IOPCSYNCIO);
        long asyncIo = ComObjectClient.query(group[0], SimFixture.IID_IOPCASYNCIO2);
        String[] ids = new String[n];
        for (int i = 0; i < n; i++) ids[i] = "Bench.Str." + i;
        int[] handles = new int[n];
        AtomicInteger added = new AtomicInteger();
        OpcItemMgt.addItems(itemMgt, ids, new int[n], filled(n), new int[n],
                (ItemResultCollector) (id, h, type, rights, error) -> {
                    if (error == 0) handles[added.getAndIncrement()] = h;
                });
        System.out.println("added " + added.get());

        AtomicInteger read = new AtomicInteger();
        OpcSyncIo.read(syncIo, handles, true, new UpdateReceiver() {
            @Override
            public void updateNumeric(int h, double v, long t, int q, int e, boolean s) {}

            @Override
            public void updateBoolean(int h, boolean v, long t, int q, int e, boolean s) {}

            @Override
            public void updateString(int h, String v, long t, int q, int e, boolean s) {
                read.incrementAndGet();
            }

            @Override
            public void updateError(int h, long t, int q, int e, boolean s) {}
        });
        System.out.println("read " + read.get());

        CountingCallback callback = new CountingCallback();
        long cookie = OpcAsyncIo2.advise(asyncIo, callback);
        OpcAsyncIo2.refresh(asyncIo, true);
        OpcAsyncIo2.readAsync(asyncIo, n, 1, handles, (ReadListener) (hr, count, tx, cancel, h, errors) -> {});
        long end = System.currentTimeMillis() + 20_000;
        while ((callback.strings.get() < n || callback.completed.get() < n) && System.currentTimeMillis() < end) {
            Thread.sleep(20);
        }
        OpcAsyncIo2.unadvise(asyncIo, cookie);
        while (callback.deleted.get() == 0 && System.currentTimeMillis() < end) Thread.sleep(20);
        System.out.println("changed all " + (callback.strings.get() >= n) + " other " + callback.others.get());
        System.out.println("completed " + callback.completed.get());
        System.out.println("deleted " + callback.deleted.get());

        int[] removed = OpcItemMgt.removeItems(itemMgt, handles);
        int failed = 0;
        for (int error : removed) if (error != 0) failed++;
        System.out.println("removed " + removed.length + " failed " + failed);
        for (long handle : new long[] {asyncIo, syncIo, itemMgt, group[0]}) ComObjectClient.release(handle);
        OpcDaServer.removeGroup(server, (int) group[1], true);
        ComObjectClient.release(server);
        System.out.println("live objects " + SimControl.liveObjects(null));
    }

    private static boolean[] filled(int n) {
        boolean[] all = new boolean[n];
        java.util.Arrays.fill(all, true);
        return all;
    }
}
