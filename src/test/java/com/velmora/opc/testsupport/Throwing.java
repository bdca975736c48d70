package com.velmora.opc.testsupport;

/** COM objects whose methods throw a native exception, to exercise the library's call frames. */
public final class Throwing {
    static {
        TestSupport.nativeDir();  // initialising TestSupport loads the test-support library
    }

    private Throwing() {}

    /** An IOPCServer handle (one reference) whose every method, and QueryInterface for IUnknown, throws. */
    public static native long createServer();

    /** The IOPCSyncIO handle (one more reference) of such a server object. */
    public static native long syncIo(long server);

    /** Registers a class factory whose CreateInstance throws; answers the registration cookie or 0. */
    public static native int registerFactory(String clsid);

    public static native void revokeFactory(int cookie);
}
