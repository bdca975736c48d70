package com.velmora.opc.testsupport;

import java.io.File;

/**
 * The simulation server's control surface: failure injection, per-item errors, null results, the
 * record of the calls it received and its live object counts. Method names are
 * "Interface::Method", e.g. "IOPCSyncIO::Read". With the system property opc.test.server=outproc the
 * server is a process of its own (opc_sim_server.exe --shared, registered as LocalServer32), steered
 * through its control object.
 */
public final class SimControl {
    public static final String PROG_ID = "Velmora.Simulation.1";
    public static final String CLSID = "{6A1F3C52-9B47-4E8D-A2C1-5D3E7F901B24}";

    private static final boolean OUT_OF_PROCESS = "outproc".equals(System.getProperty("opc.test.server"));
    private static final String PROBLEM;

    static {
        TestSupport.ledgerLiveCount(TestSupport.TASK_MEMORY); // loads the test-support library
        File module = new File(TestSupport.nativeDir(), System.mapLibraryName("opc_sim"));
        PROBLEM = OUT_OF_PROCESS ? openOutOfProcess()
                : module.isFile() ? open(module.getAbsolutePath()) : "no simulation module at " + module;
    }

    private SimControl() {}

    /** Whether the server runs in a process of its own (opc.test.server=outproc). */
    public static boolean outOfProcess() {
        return OUT_OF_PROCESS;
    }

    /** Whether the simulation module is built and its control surface bound. */
    public static boolean available() {
        return PROBLEM == null;
    }

    /** Why the control surface is not available, or null. */
    public static String problem() {
        return PROBLEM;
    }

    private static native String open(String modulePath);

    private static native String openOutOfProcess();

    /** Makes the method return hr, `times` times (-1 until cleared, 0 clears). */
    public static native void failNext(String method, int hr, int times);

    public static native void setItemError(String itemId, int hr);

    public static native void setNullResults(String method, boolean on);

    public static native int callCount(String method);

    /** "key=value" pairs of the method's last call, "" when none. */
    public static native String lastCallArgs(String method);

    public static native void clearCalls();

    /** Live COM objects by kind ("server", "group", "enum", "connectionpoint", "factory"); null for all. */
    public static native long liveObjects(String kind);

    /** Sends a shutdown request to every connected sink; returns how many were called. */
    public static native int shutdown(String reason);

    /** Delay in milliseconds before asynchronous requests run on the server's thread; 0 runs them at once. */
    public static native void setAsyncDelay(int milliseconds);

    /**
     * While on, the server acts as one whose process died: every method answers RPC_E_DISCONNECTED, no
     * update is sent, and going down drops every connected shutdown and data callback. Off (and reset)
     * lets it answer again.
     */
    public static native void setDown(boolean on);

    /** While on, servers have no IOPCBrowse, as OPC DA 2 servers; reset switches it off. */
    public static native void setWithoutBrowse(boolean on);

    /** Clears failures, item errors, null results, calls and the asynchronous delay, and restores every item value. */
    public static native void reset();

    /**
     * While on, asynchronous reads, writes and refreshes complete on the calling thread before the
     * server's method returns (OnReadComplete, OnWriteComplete, OnDataChange inline); off by default.
     */
    public static native void setInlineCompletion(boolean on);

    /**
     * Sends OnWriteComplete on the server's thread to every data callback of every group holding any
     * of the items (comma-separated ids): their client handles, each with itemError. Returns, after
     * the calls are done, the number of callbacks called.
     */
    public static native int sendWriteComplete(int transactionId, int masterError, String itemIds, int itemError);

    /** Live connection-point connections: "datacallback", "shutdown", or null for all. */
    public static native long connections(String kind);

    /**
     * Calls the server made to client callbacks since the last reset, by method: "OnDataChange",
     * "OnReadComplete", "OnWriteComplete", "OnCancelComplete", "ShutdownRequest".
     */
    public static native long callbacksMade(String method);

    /**
     * Answers IOPCBrowse::Browse with at most this many elements per call, with a continuation point
     * while more remain; 0 (the default, restored by reset) answers at once.
     */
    public static native void setBrowsePortion(int elements);
}
