package com.velmora.opc;

/** A failure of the OPC layer that is not tied to one HRESULT. */
public class OpcException extends RuntimeException {
    private static final long serialVersionUID = 1L;

    public OpcException(String message) {
        super(message);
    }

    public OpcException(String message, Throwable cause) {
        super(message, cause);
    }
}
