package com.velmora.opc.client;

import com.velmora.opc.OpcEnv;
import java.util.concurrent.atomic.AtomicBoolean;

/** Prepares the process once and every calling thread once for COM, before any native call. */
final class ComThreads {
    private static final ThreadLocal<Boolean> THREAD_READY = ThreadLocal.withInitial(() -> Boolean.FALSE);
    private static final AtomicBoolean PROCESS_READY = new AtomicBoolean();

    private ComThreads() {}

    static void prepare() {
        if (!THREAD_READY.get()) {
            OpcEnv.initThread();
            THREAD_READY.set(Boolean.TRUE);
        }
        // Process set-up after the thread's: COM security needs an initialised thread.
        if (PROCESS_READY.compareAndSet(false, true)) OpcEnv.initEnv();
    }
}
