package com.velmora.opc.bench;

import com.velmora.opc.jni.NativeLibrary;
import java.io.File;

/**
 * Natives of the benchmark library (libopc_bench, next to libopc). Every timing native returns the
 * nanoseconds of each round it ran; a round covers all the items it was given.
 */
public final class BenchNatives {
    static {
        NativeLibrary.load();
        System.load(new File(libraryDir(), System.mapLibraryName("opc_bench")).getAbsolutePath());
    }

    private BenchNatives() {}

    /** The folder of libopc: the benchmark library lies beside it. */
    static File libraryDir() {
        String configured = System.getProperty(NativeLibrary.PATH_PROPERTY);
        if (configured == null || configured.isBlank()) {
            configured = System.getProperty("opc.native.dir", "build/native/lib");
        }
        File path = new File(configured);
        return path.isDirectory() ? path : path.getAbsoluteFile().getParentFile();
    }

    private static String simulationProblem;
    private static boolean simulationOpened;

    /**
     * Binds the simulation server's controls from the module beside libopc (the instance the server
     * runs in); throws IllegalStateException when they cannot be bound.
     */
    static synchronized void requireSimulation() {
        if (!simulationOpened) {
            File module = new File(libraryDir(), System.mapLibraryName("opc_sim"));
            simulationProblem = module.isFile() ? openSimulation(module.getAbsolutePath()) : "no " + module;
            simulationOpened = true;
        }
        if (simulationProblem != null) throw new IllegalStateException(simulationProblem);
    }

    /** Binds the controls of the simulation module at the path; null when done, else why not. */
    private static native String openSimulation(String modulePath);

    /** While on, every item whose id starts with the prefix changes at every update of every group. */
    public static native void changeEveryTick(String prefix, boolean on);

    /** Microseconds the server spent on its last subscription update, without the time inside the callbacks. */
    public static native double lastTickMicros();

    /** Microseconds the data callbacks of the last subscription update took, as the server's thread saw them. */
    public static native double lastCallbackMicros();

    /** The branch "Bench.Many" with that many leaves "0" .. "leaves-1"; 0 removes it. */
    public static native void benchBranch(int leaves);

    /** At most that many elements per IOPCBrowse::Browse answer; 0 answers at once. */
    public static native void browsePortion(int elements);

    /** Live blocks of the COM runtime's allocation ledger (0 task memory, 1 BSTR, 2 SAFEARRAY); -1 without a ledger. */
    public static native long ledgerLive(int kind);

    /**
     * Each value text read from the array and parsed into its VARIANT, the VARIANTs cleared, and the
     * per-item results handed over in one call: OnReturnWrite of a write listener (synchronous) or
     * OnWriteCompleted of a data callback.
     */
    public static native long[] writeFloor(Object receiver, boolean synchronous, int[] handles, int[] types,
            String[] values, int rounds);

    /**
     * One OnReadCompleted call with new arrays of the same contents as the library's: the texts made
     * from the numbers (6 significant digits) when numbers is given, else from the texts.
     */
    public static native long[] readCompletedFloor(Object receiver, int[] handles, int[] kinds, double[] numbers,
            String[] texts, int[] qualities, long[] timestamps, int[] errors, int rounds);

    /** One add call per element with new Strings of its name and item id; withFlags: the seven-argument add. */
    public static native long[] addFloor(Object receiver, boolean withFlags, String[] names, String[] itemIds,
            int rounds);

    /** IOPCAsyncIO2::Read of the handles up to its read completion at a do-nothing native callback. */
    public static native long[] serverReadAsync(long asyncIo, int[] serverHandles, int rounds);

    /**
     * IOPCAsyncIO2::Read of the handles up to the floor's OnReadCompleted call of the receiver, made on
     * the server's callback thread (attached and detached) by a native callback.
     */
    public static native long[] readAsyncFloor(long asyncIo, int[] serverHandles, Object receiver, int[] handles,
            int[] kinds, double[] numbers, String[] texts, int[] qualities, long[] timestamps, int[] errors,
            int rounds);

    /** IOPCSyncIO::Write of the values (parsed once before the rounds) with the results freed. */
    public static native long[] serverWrite(long syncIo, int[] serverHandles, int[] types, String[] values,
            int rounds);

    /** IOPCAsyncIO2::Write of the values (parsed once) up to its write completion at a do-nothing native callback. */
    public static native long[] serverWriteAsync(long asyncIo, int[] serverHandles, int[] types, String[] values,
            int rounds);

    /**
     * IOPCBrowse::Browse of the branch to its last continuation point, every answer freed, and with a
     * receiver its add(name, itemId, true, false, 5, true, true) per element; one more value at the
     * end: the element count.
     */
    public static native long[] serverBrowse(long browser, String itemId, Object receiver, int rounds);

    /**
     * ChangeBrowsePosition to the branch, BrowseOPCItemIDs of its leaves, Next and GetItemID per name,
     * all freed, and with a receiver its add(name, itemId) per name; one more value at the end: the
     * name count.
     */
    public static native long[] serverBrowseItemIds(long browser, String path, Object receiver, int rounds);

    /** updateNumeric once per element, on this thread, with the given arguments. */
    public static native long[] numericFloor(Object receiver, int[] handles, double[] values, long[] timestamps,
            int[] qualities, int[] errors, boolean synchronous, int rounds);

    /** updateString once per element with a new String made from the text's UTF-16 units, released after the call. */
    public static native long[] stringFloor(Object receiver, int[] handles, String[] values, long[] timestamps,
            int[] qualities, int[] errors, boolean synchronous, int rounds);

    /**
     * Per round: IOPCSyncIO::Read of the server handles, then the floor's update calls (numeric when
     * values are given, else string ones from the texts; synchronous flag true), each value cleared after
     * its call, then the results freed.
     */
    public static native long[] readFloor(long syncIo, int[] serverHandles, boolean fromCache, Object receiver,
            int[] handles, double[] values, String[] texts, long[] timestamps, int[] qualities, int[] errors,
            int rounds);

    /**
     * updateNumeric (synchronous flag false) once per element, from the floor's native thread attached
     * once for all rounds, each round after a wait of idleMillis on its timer.
     */
    public static native long[] attachedThreadFloor(Object receiver, int[] handles, double[] values,
            long[] timestamps, int[] qualities, int[] errors, int idleMillis, int rounds);

    /**
     * Per round, on one native thread for all rounds: a wait of idleMillis on its timer, then (timed)
     * attach, updateNumeric (synchronous flag false) once per element, detach; as a server's callback
     * thread wakes for and delivers one data change.
     */
    public static native long[] callbackFloor(Object receiver, int[] handles, double[] values, long[] timestamps,
            int[] qualities, int[] errors, int idleMillis, int rounds);

    /** The time of each attach-and-detach: a fresh native thread each time, or one thread over and over. */
    public static native long[] attachDetach(int count, boolean freshThreads);

    /** IOPCSyncIO::Read of the handles with the results freed, without Java in between. */
    public static native long[] serverRead(long syncIo, int[] serverHandles, boolean fromCache, int rounds);

    /** Writes first + i to the i-th item. */
    public static native void writeNumbers(long syncIo, int[] serverHandles, double first);

    /** IOPCAsyncIO2::SetEnable(FALSE) once a callback is connected: data changes then come from refreshes only. */
    public static native void disableSubscription(long asyncIo);

    /**
     * Connects a do-nothing native callback (disabling subscription updates) and times Refresh2 from
     * the cache up to the data change of {@code expected} items reaching it.
     */
    public static native long[] serverRefresh(long asyncIo, int expected, int rounds);
}
