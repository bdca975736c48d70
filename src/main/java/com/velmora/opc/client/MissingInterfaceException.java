package com.velmora.opc.client;

import com.velmora.opc.OpcException;

/** A server or group lacks an interface that the call needs, e.g. "server X has no IOPCBrowse". */
public final class MissingInterfaceException extends OpcException {
    private static final long serialVersionUID = 1L;

    public MissingInterfaceException(String message, Throwable cause) {
        super(message, cause);
    }
}
