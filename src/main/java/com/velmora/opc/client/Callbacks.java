package com.velmora.opc.client;

import com.velmora.opc.OpcEnv;

/**
 * Runs the application's listeners on the server's threads. While one runs, its thread is marked: a
 * close made from it does not wait for the server to let go of a callback (the server cannot while
 * the call is on), and the last release of a server goes to another thread (a server may end its own
 * threads when released).
 */
final class Callbacks {
    private static final System.Logger LOG = System.getLogger(OpcEnv.LOGGER_NAME);
    private static final ThreadLocal<Boolean> IN_CALLBACK = new ThreadLocal<>();

    private Callbacks() {}

    static boolean onCallbackThread() {
        return IN_CALLBACK.get() != null;
    }

    /** Runs a listener call; what it throws is logged and dropped. */
    static void run(Runnable listenerCall, String what) {
        Boolean outer = IN_CALLBACK.get();
        IN_CALLBACK.set(Boolean.TRUE);
        try {
            listenerCall.run();
        } catch (RuntimeException | Error e) {
            LOG.log(System.Logger.Level.WARNING, what + " failed", e);
        } finally {
            if (outer == null) IN_CALLBACK.remove();
        }
    }
}
