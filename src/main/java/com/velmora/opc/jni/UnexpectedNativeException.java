package com.velmora.opc.jni;

/** A native failure inside the library; the message names the native, e.g. "OpcDaServer::addGroup". */
public class UnexpectedNativeException extends RuntimeException {
    private static final long serialVersionUID = 1L;

    public UnexpectedNativeException(String message) {
        super(message);
    }
}
