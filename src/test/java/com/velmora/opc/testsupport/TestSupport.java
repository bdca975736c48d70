package com.velmora.opc.testsupport;

import com.velmora.opc.jni.NativeLibrary;
import java.io.File;

/** Natives of the test-only library: the substrate's allocation ledger and probe COM objects. */
public final class TestSupport {
    /** Ledger kinds. */
    public static final int TASK_MEMORY = 0;
    public static final int BSTR = 1;
    public static final int SAFEARRAY = 2;

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

    /** Live blocks of one kind in the substrate's allocation ledger. */
    public static native long ledgerLiveCount(int kind);

    /** A probe object answering IUnknown and the given IIDs; the handle holds one reference. */
    public static native long createObject(String... iids);

    /** The object's current reference count. */
    public static native int refCount(long handle);

    /** Releases one reference; returns the count left. */
    public static native int releaseObject(long handle);

    /** Probe objects alive. */
    public static native long liveObjects();
}
