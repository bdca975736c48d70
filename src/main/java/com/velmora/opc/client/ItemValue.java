package com.velmora.opc.client;

import com.velmora.opc.jni.HresultException;
import java.time.Instant;

/**
 * One item's value as read: a Double, Boolean or String (arrays as comma-joined text), or null when
 * the server gave no deliverable value. A per-item failure is a value too: its error is the
 * server's HRESULT for the item.
 */
public record ItemValue(String itemId, Object value, int quality, Instant timestamp, int error) {

    public boolean isGood() {
        return error >= 0 && Quality.isGood(quality);
    }

    public boolean isFailed() {
        return error < 0;
    }

    /** The quality in words. */
    public String qualityText() {
        return Quality.describe(quality);
    }

    /** The error in words, or null when the item was read. */
    public String errorText() {
        return error < 0 ? HresultException.describe(error) : null;
    }

    /** The value as text: whole numbers without a fraction, "" when there is none. */
    public String valueText() {
        if (value == null) return "";
        if (value instanceof Double d && !d.isInfinite() && d == Math.rint(d) && Math.abs(d) < 1e15) {
            return Long.toString(d.longValue());
        }
        return value.toString();
    }
}
