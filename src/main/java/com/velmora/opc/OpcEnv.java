package com.velmora.opc;

import com.velmora.opc.jni.NativeLibrary;

/**
 * Process and thread start-up of the native library, and the four log sinks through which the
 * library reports its diagnostics. The sinks route to {@link System.Logger} under the name
 * {@value #LOGGER_NAME}, so an application chooses the backend.
 */
public final class OpcEnv {
    public static final String LOGGER_NAME = "com.velmora.opc";

    private static final System.Logger LOG = System.getLogger(LOGGER_NAME);

    static {
        NativeLibrary.load();
    }

    private OpcEnv() {}

    /** Once per process: COM security and registration of the proxy/stub modules. */
    public static native void initEnv();

    /** On every thread that calls natives: joins the multithreaded apartment. */
    public static native void initThread();

    public static void logError(String text) {
        LOG.log(System.Logger.Level.ERROR, text);
    }

    public static void logWarning(String text) {
        LOG.log(System.Logger.Level.WARNING, text);
    }

    public static void logTrace(String text) {
        LOG.log(System.Logger.Level.TRACE, text);
    }

    public static void logMessage(String text) {
        LOG.log(System.Logger.Level.INFO, text);
    }
}
