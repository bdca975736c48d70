package com.velmora.opc.testsupport;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcDaServer;

/**
 * Entry point of the child JVMs of {@link ChildJvm}. Prints one "result=" or "thrown=" line per
 * step; native console lines appear in the same output.
 */
public final class ChildMain {
    private ChildMain() {}

    public static void main(String[] args) {
        switch (args[0]) {
            case "query-missing-interface" -> queryMissingInterface();
            case "log-trace" -> logTrace();
            default -> throw new IllegalArgumentException(args[0]);
        }
        System.out.flush();
    }

    private static void queryMissingInterface() {
        long object = TestSupport.createObject();
        try {
            report(() -> ComObjectClient.query(object, TestSupport.IID_IOPCSERVER));
        } finally {
            TestSupport.releaseObject(object);
        }
        System.out.println("live=" + TestSupport.liveObjects());
    }

    // A call without a server name makes the library log an argument complaint as a trace.
    private static void logTrace() {
        report(() -> OpcDaServer.createLocalServer(null));
    }

    private static void report(java.util.function.LongSupplier call) {
        try {
            long result = call.getAsLong();
            System.out.println("result=" + result);
        } catch (UnsatisfiedLinkError e) {
            System.out.println("unlinked=" + e.getMessage());
        } catch (Throwable e) {
            System.out.println("thrown=" + e.getClass().getName());
        }
        System.out.flush();
    }
}
