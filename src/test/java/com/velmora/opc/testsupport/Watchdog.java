package com.velmora.opc.testsupport;

import java.util.Map;
import java.util.concurrent.*;
import org.junit.jupiter.api.extension.*;

/**
 * Prints every thread's stack to the error stream when a test is still running after
 * {@code opc.test.watchdog.seconds} (default 180), and again at each further period: a test that
 * hangs in a native or cross-process call shows where, in the run's own log (the innermost frames of
 * each thread). Registered for every test class, like {@link LedgerCheck}.
 */
public final class Watchdog implements BeforeEachCallback, AfterEachCallback {
    private static final long SECONDS = Long.getLong("opc.test.watchdog.seconds", 180);
    private static final int FRAMES = 16;  // the test's own frames come before the test engine's
    private static final ScheduledExecutorService TIMER = Executors.newSingleThreadScheduledExecutor(r -> {
        Thread t = new Thread(r, "opc-test-watchdog");
        t.setDaemon(true);
        return t;
    });
    private static final ExtensionContext.Namespace NS = ExtensionContext.Namespace.create(Watchdog.class);

    @Override
    public void beforeEach(ExtensionContext context) {
        String test = context.getRequiredTestClass().getSimpleName() + "." + context.getRequiredTestMethod().getName();
        long started = System.nanoTime();
        ScheduledFuture<?> dump = TIMER.scheduleAtFixedRate(() -> dump(test, started), SECONDS, SECONDS, TimeUnit.SECONDS);
        context.getStore(NS).put("dump", dump);
    }

    @Override
    public void afterEach(ExtensionContext context) {
        ScheduledFuture<?> dump = context.getStore(NS).remove("dump", ScheduledFuture.class);
        if (dump != null) dump.cancel(false);
    }

    private static void dump(String test, long started) {
        StringBuilder out = new StringBuilder("watchdog: " + test + " still running after "
                + TimeUnit.NANOSECONDS.toSeconds(System.nanoTime() - started) + " s; the threads:\n");
        for (Map.Entry<Thread, StackTraceElement[]> entry : Thread.getAllStackTraces().entrySet()) {
            Thread thread = entry.getKey();
            out.append("\"").append(thread.getName()).append("\" ").append(thread.getState()).append('\n');
            StackTraceElement[] frames = entry.getValue();
            for (int i = 0; i < Math.min(frames.length, FRAMES); i++) out.append("    at ").append(frames[i]).append('\n');
        }
        System.err.print(out);
        System.err.flush();
    }
}
