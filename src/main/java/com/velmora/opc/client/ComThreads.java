package com.velmora.opc.client;

import com.velmora.opc.OpcEnv;

/**
 * Prepares the process once and every calling thread once for COM, before any native call. No thread
 * gets past {@link #prepare} before the process set-up has finished: a thread that comes while another
 * runs it waits for it.
 */
final class ComThreads {
    private static final ThreadLocal<Boolean> THREAD_READY = ThreadLocal.withInitial(() -> Boolean.FALSE);
    private static final Object PROCESS_LOCK = new Object();
    private static volatile boolean processReady;

    private ComThreads() {}

    static void prepare() {
        if (!THREAD_READY.get()) {
            OpcEnv.initThread();
            THREAD_READY.set(Boolean.TRUE);
        }
        if (processReady) return;
        // Process set-up after the thread's: COM security needs an initialised thread.
        synchronized (PROCESS_LOCK) {
            if (!processReady) {
                OpcEnv.initEnv();
                processReady = true;
            }
        }
    }
}
