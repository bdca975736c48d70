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

    /** updateNumeric once per element, on this thread, with the given arguments. */
    public static native long[] numericFloor(Object receiver, int[] handles, double[] values, long[] timestamps,
            int[] qualities, int[] errors, boolean synchronous, int rounds);

    /** updateString once per element with a new String made from the text's UTF-16 units, released after the call. */
    public static native long[] stringFloor(Object receiver, int[] handles, String[] values, long[] timestamps,
            int[] qualities, int[] errors, boolean synchronous, int rounds);

    /** updateNumeric (synchronous flag false) once per element, from a native thread attached once for all rounds. */
    public static native long[] attachedThreadFloor(Object receiver, int[] handles, double[] values,
            long[] timestamps, int[] qualities, int[] errors, int rounds);

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
