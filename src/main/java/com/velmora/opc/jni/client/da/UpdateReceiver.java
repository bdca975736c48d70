package com.velmora.opc.jni.client.da;

/**
 * Receives item values, one call per item, chosen by the value's type. Timestamps are Java time
 * (ms since 1970 UTC), quality is the 16-bit OPC quality word, error the item's HRESULT, and the
 * synchronous flag tells a synchronous read (true) from a data-change notification (false).
 */
public interface UpdateReceiver {
    void updateNumeric(int itemHandle, double value, long timestamp, int quality, int error, boolean synchronous);

    void updateBoolean(int itemHandle, boolean value, long timestamp, int quality, int error, boolean synchronous);

    /** Strings, and arrays rendered as comma-joined text. */
    void updateString(int itemHandle, String value, long timestamp, int quality, int error, boolean synchronous);

    /** A value of a type that cannot be delivered, or none (e.g. a failed item). */
    void updateError(int itemHandle, long timestamp, int quality, int error, boolean synchronous);
}
