package com.velmora.opc.client;

import com.velmora.opc.jni.HresultException;

/**
 * An item of a group as the server accepted it, or rejected it: a rejected item carries the
 * server's error and no server handle. The server handle is the one given when the item was added;
 * after a reconnection the group uses the new server's handle for the same item.
 */
public record Item(String itemId, int clientHandle, int serverHandle, int canonicalType, int accessRights,
        int error) {
    public static final int READABLE = 1;
    public static final int WRITEABLE = 2;

    public boolean isValid() {
        return error >= 0;
    }

    public boolean isReadable() {
        return (accessRights & READABLE) != 0;
    }

    public boolean isWriteable() {
        return (accessRights & WRITEABLE) != 0;
    }

    /** The error in words, e.g. "0xC0040007 (OPC_E_UNKNOWNITEMID)", or null for a valid item. */
    public String errorText() {
        return isValid() ? null : HresultException.describe(error);
    }
}
