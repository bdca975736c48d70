package com.velmora.opc.jni;

/** Derives and releases interface handles (COM interface pointers carried as longs). */
public final class ComObjectClient {
    static {
        NativeLibrary.load();
    }

    private ComObjectClient() {}

    /** A new handle for the interface with the given braced IID text, holding one reference; 0 on failure. */
    public static native long query(long handle, String iid);

    /** Gives up the reference that the handle holds. */
    public static native void release(long handle);
}
