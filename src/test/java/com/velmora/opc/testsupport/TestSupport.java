package com.velmora.opc.testsupport;

import com.velmora.opc.jni.NativeLibrary;
import java.io.File;
import org.junit.jupiter.api.Assumptions;

/** Natives of the test-only library: the substrate's allocation ledger and probe COM objects. */
public final class TestSupport {
    /** Ledger kinds. */
    public static final int TASK_MEMORY = 0;
    public static final int BSTR = 1;
    public static final int SAFEARRAY = 2;
    /** On Windows: task memory blocks freed twice (freed, not handed out again, freed once more). */
    public static final int DOUBLE_FREES = 3;

    static {
        NativeLibrary.load();
        System.load(new File(nativeDir(), System.mapLibraryName("opc_testsupport")).getAbsolutePath());
    }

    private TestSupport() {}

    /** The folder of the native build output the tests run against. */
    public static File nativeDir() {
        String dir = System.getProperty("opc.native.dir");
        if (dir != null) return new File(dir);
        File lib = new File(System.getProperty(NativeLibrary.PATH_PROPERTY, "build/native/lib"));
        return lib.isDirectory() ? lib : lib.getParentFile();
    }

    /**
     * Live blocks of one kind in the substrate's allocation ledger. On Windows, task memory as counted
     * by an IMallocSpy (BSTRs and SAFEARRAYs included, whose memory is task memory; Wine's BSTR cache
     * is off under OANOCACHE=1), and -1 for BSTRs and SAFEARRAYs, which have no count of their own.
     */
    public static native long ledgerLiveCount(int kind);

    /**
     * Under Wine, keeps the interfaces of the library's callback sinks registered for COM's calls from
     * other processes for the life of the JVM (Wine can hang when it unregisters one); once is enough.
     * Elsewhere it does nothing. Needs the calling thread initialised for COM, or the apartment kept.
     */
    public static native void keepCallbackRegistrations();

    /** The Wine version when the JVM runs under Wine, else null. */
    public static native String wineVersion();

    /** Why tests of activation on a named host are skipped under Wine. */
    public static final String WINE_NO_REMOTE_ACTIVATION =
            "Wine has no remote activation: CoGetClassObject with CLSCTX_REMOTE_SERVER answers REGDB_E_CLASSNOTREG";

    /** Why tests of the errors of CoInitializeSecurity are skipped under Wine. */
    public static final String WINE_SECURITY_ALWAYS_SUCCEEDS = "Wine's CoInitializeSecurity answers S_OK before"
            + " CoInitializeEx and to a second call, where Windows answers CO_E_NOTINITIALIZED and RPC_E_TOO_LATE";

    /** Skips the test under Wine, for the reason given: behaviour of Windows that Wine does not have. */
    public static void assumeNotWine(String reason) {
        String wine = wineVersion();
        Assumptions.assumeTrue(wine == null, () -> "skipped under Wine " + wine + ": " + reason);
    }

    /** Skips the test when the simulation server runs in a process of its own, for the reason given. */
    public static void assumeInProcess(String reason) {
        Assumptions.assumeFalse(SimControl.outOfProcess(), () -> "skipped out of process: " + reason);
    }

    /** A probe object answering IUnknown and the given IIDs; the handle holds one reference. */
    public static native long createObject(String... iids);

    /** The object's current reference count. */
    public static native int refCount(long handle);

    /** Releases one reference; returns the count left. */
    public static native int releaseObject(long handle);

    /** Probe objects alive. */
    public static native long liveObjects();
}
