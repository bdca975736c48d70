package com.velmora.opc.jni.client.common;

/** Receives a server's shutdown notice; called on a COM thread. */
public interface ShutdownListener {
    /**
     * The server is going down. The server's reason, when it gave one, is written to the process's
     * console; the argument is always null.
     */
    void shutdownRequest(String reason);

    /** The connection ended without a shutdown request and the native listener object is gone. */
    void shutdownDeleted();
}
