package com.velmora.opc.client;

import com.velmora.opc.OpcException;

/** A call on a connection that has lost its server and is not (yet) reconnected. */
public final class ConnectionLostException extends OpcException {
    private static final long serialVersionUID = 1L;

    public ConnectionLostException(String message) {
        super(message);
    }
}
