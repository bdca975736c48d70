package com.velmora.opc.testsupport;

import static com.velmora.opc.testsupport.Codes.*;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.common.OpcShutdown;
import com.velmora.opc.jni.client.da.*;
import java.io.File;
import java.net.URL;
import java.net.URLClassLoader;
import java.nio.file.Path;
import java.util.*;
import java.util.function.LongSupplier;

/**
 * Entry point of the child JVMs of {@link ChildJvm}: scenarios that need a process of their own (a
 * fresh COM start-up, console lines written by the library itself, classes missing, JNI warnings
 * that only the process's own output shows). Each prints what it observed as plain lines; native
 * console lines appear in the same output. No test framework here: the child's class path lacks it.
 */
public final class ChildMain {
    private ChildMain() {}

    public static void main(String[] args) throws Exception {
        switch (args[0]) {
            case "query-missing-interface" -> queryMissingInterface();
            case "log-trace" -> report(() -> OpcDaServer.createLocalServer(null)); // an argument complaint, traced
            case "startup" -> startup();
            case "shutdown" -> shutdown();
            case "bulk" -> bulk(Integer.parseInt(args[1]));
            case "foreign-loader" -> foreignLoader();
            default -> throw new IllegalArgumentException(args[0]);
        }
        System.out.flush();
    }

    private static void queryMissingInterface() {
        long object = TestSupport.createObject();
        try {
            report(() -> ComObjectClient.query(object, IID_IOPCSERVER));
        } finally {
            TestSupport.releaseObject(object);
        }
        System.out.println("live=" + TestSupport.liveObjects());
    }

    private static void report(LongSupplier call) {
        try {
            System.out.println("result=" + call.getAsLong());
        } catch (Throwable e) {
            System.out.println("thrown=" + e.getClass().getName());
        }
        System.out.flush();
    }

    // Start-up in a process where nothing has touched COM yet: what each step logs.
    private static void startup() {
        try (LogCapture log = new LogCapture()) {
            List<String> names = List.of("env-before-thread", "thread", "thread-again", "env", "env-again");
            List<Runnable> steps = List.of(OpcEnv::initEnv, OpcEnv::initThread, OpcEnv::initThread, OpcEnv::initEnv,
                    OpcEnv::initEnv);
            for (int i = 0; i < steps.size(); i++) {
                int before = log.lines().size();
                steps.get(i).run();
                List<LogCapture.Line> added = log.lines().subList(before, log.lines().size());
                System.out.println(names.get(i) + ": " + added.stream().map(l -> l.level() + " " + l.text()).toList());
            }
        }
    }

    // A shutdown request with a reason, then one without, each on a connection of its own.
    private static void shutdown() throws InterruptedException {
        OpcEnv.initThread();
        for (String reason : new String[] {"maintenance", null}) {
            String name = reason == null ? "silent" : "reasoned";
            long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
            Recorder listener = new Recorder();
            long cookie = OpcShutdown.advise(server, listener);
            System.out.println(name + " advised " + (cookie != 0));
            System.out.flush();
            System.out.println(name + " sinks called " + SimControl.shutdown(reason));
            OpcShutdown.unadvise(server, cookie);
            ComObjectClient.release(server);
            Thread.sleep(100);
            boolean onMain = listener.threads().stream().anyMatch(t -> t.getName().equals("main"));
            System.out.println(name + " heard " + listener.calls() + (onMain ? " on main" : ""));
            System.out.flush();
        }
    }

    // Many items through every path that loops over items on the Java side of the library.
    private static void bulk(int n) throws InterruptedException {
        OpcEnv.initThread();
        long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
        long[] group = OpcDaServer.addGroup(server, "bulk", true, 60_000, 1, 0, 0f, 0);
        long itemMgt = ComObjectClient.query(group[0], IID_IOPCITEMMGT);
        long syncIo = ComObjectClient.query(group[0], IID_IOPCSYNCIO);
        long asyncIo = ComObjectClient.query(group[0], IID_IOPCASYNCIO2);
        String[] ids = new String[n];
        for (int i = 0; i < n; i++) ids[i] = "Bench.Str." + i;
        boolean[] active = new boolean[n];
        Arrays.fill(active, true);
        Recorder added = new Recorder();
        OpcItemMgt.addItems(itemMgt, ids, new int[n], active, new int[n], added);
        int[] handles = added.records().stream().filter(r -> r.text().endsWith(" error=0"))
                .mapToInt(r -> (int) r.args()[1]).toArray();
        System.out.println("added " + handles.length);

        Recorder read = new Recorder();
        OpcSyncIo.read(syncIo, handles, true, read);
        System.out.println("read " + read.count("string "));

        Recorder.Callback callback = new Recorder.Callback();
        long cookie = OpcAsyncIo2.advise(asyncIo, callback);
        OpcAsyncIo2.refresh(asyncIo, true);
        OpcAsyncIo2.readAsync(asyncIo, n, 1, handles, new Recorder());
        long end = System.currentTimeMillis() + 20_000;
        while ((callback.count("string ") < n || callback.count("read ") == 0) && System.currentTimeMillis() < end) {
            Thread.sleep(20);
        }
        OpcAsyncIo2.unadvise(asyncIo, cookie);
        while (callback.count("deleted") == 0 && System.currentTimeMillis() < end) Thread.sleep(20);
        long strings = callback.count("string ");
        System.out.println("changed all " + (strings >= n) + " other "
                + (callback.calls().size() - strings - callback.count("read ") - callback.count("deleted")));
        System.out.println("completed " + callback.calls().stream().filter(c -> c.startsWith("read "))
                .mapToInt(c -> Integer.parseInt(c.split(" ")[4])).sum());
        System.out.println("deleted " + callback.count("deleted"));

        int[] removed = OpcItemMgt.removeItems(itemMgt, handles);
        long failed = Arrays.stream(removed).filter(e -> e != 0).count();
        System.out.println("removed " + removed.length + " failed " + failed);
        for (long handle : new long[] {asyncIo, syncIo, itemMgt, group[0]}) ComObjectClient.release(handle);
        OpcDaServer.removeGroup(server, (int) group[1], true);
        ComObjectClient.release(server);
        System.out.println("live objects " + SimControl.liveObjects(null));
    }

    // The library's classes loaded by a class loader of the application's own (as an application
    // server or a plug-in host loads them), beside the system one: the log lines that the server's
    // threads write must still reach the application's logger.
    private static void foreignLoader() throws Exception {
        List<URL> urls = new ArrayList<>();
        for (String entry : System.getProperty("java.class.path").split(File.pathSeparator)) {
            urls.add(Path.of(entry).toUri().toURL());
        }
        try (URLClassLoader loader = new URLClassLoader(urls.toArray(URL[]::new), ClassLoader.getPlatformClassLoader())) {
            Class<?> copy = loader.loadClass(ChildMain.class.getName());
            System.out.println("own loader " + (copy.getClassLoader() == loader));
            copy.getMethod("callbackLogLines").invoke(null);
        }
    }

    /** Null array values logged by a data change and a read completion, on the server's threads. */
    public static void callbackLogLines() throws InterruptedException {
        OpcEnv.initThread();
        try (LogCapture log = new LogCapture()) {
            long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
            long[] group = OpcDaServer.addGroup(server, "loader", true, 60_000, 1, 0, 0f, 0);
            long itemMgt = ComObjectClient.query(group[0], IID_IOPCITEMMGT);
            long asyncIo = ComObjectClient.query(group[0], IID_IOPCASYNCIO2);
            Recorder added = new Recorder();
            OpcItemMgt.addItems(itemMgt, new String[] {"Simulation.Array.BSTR"}, new int[] {7}, new boolean[] {true},
                    new int[1], added);
            int[] handles = {(int) added.records().get(0).args()[1]};
            SimControl.setNullResults("values", true);
            Recorder.Callback callback = new Recorder.Callback();
            long cookie = OpcAsyncIo2.advise(asyncIo, callback);
            callback.await("string 7 ");
            OpcAsyncIo2.readAsync(asyncIo, 1, 9, handles, new Recorder());
            callback.await("read 9 ");
            OpcAsyncIo2.unadvise(asyncIo, cookie);
            callback.await("deleted");
            List<String> lines = log.lines().stream().map(l -> l.level() + " " + l.text()).toList();
            System.out.println("logged " + lines.size() + " " + new TreeSet<>(lines));
            SimControl.reset();
            OpcItemMgt.removeItems(itemMgt, handles);
            for (long handle : new long[] {asyncIo, itemMgt, group[0]}) ComObjectClient.release(handle);
            OpcDaServer.removeGroup(server, (int) group[1], true);
            ComObjectClient.release(server);
        }
        System.out.flush();
    }
}
