package com.velmora.opc.client;

/** The OPC quality word: quality, sub-status and limit bits of its low byte. */
public final class Quality {
    private Quality() {}

    public static boolean isGood(int quality) {
        return (quality & 0xC0) == 0xC0;
    }

    public static boolean isUncertain(int quality) {
        return (quality & 0xC0) == 0x40;
    }

    /** The quality in words, e.g. "good", "bad: comm failure", "uncertain: last usable value, low limited". */
    public static String describe(int quality) {
        String status = switch (quality & 0xFC) {
            case 0x00 -> "bad";
            case 0x04 -> "bad: config error";
            case 0x08 -> "bad: not connected";
            case 0x0C -> "bad: device failure";
            case 0x10 -> "bad: sensor failure";
            case 0x14 -> "bad: last known value";
            case 0x18 -> "bad: comm failure";
            case 0x1C -> "bad: out of service";
            case 0x20 -> "bad: waiting for initial data";
            case 0x40 -> "uncertain";
            case 0x44 -> "uncertain: last usable value";
            case 0x50 -> "uncertain: sensor not accurate";
            case 0x54 -> "uncertain: units exceeded";
            case 0x58 -> "uncertain: sub-normal";
            case 0xC0 -> "good";
            case 0xD8 -> "good: local override";
            default -> switch (quality & 0xC0) {
                case 0xC0 -> "good";
                case 0x40 -> "uncertain";
                case 0x00 -> "bad";
                default -> String.format("unknown (0x%02X)", quality & 0xFF);
            };
        };
        String limit = switch (quality & 0x03) {
            case 0x01 -> "low limited";
            case 0x02 -> "high limited";
            case 0x03 -> "constant";
            default -> null;
        };
        if (limit == null) return status;
        return status + (status.contains(":") ? ", " : ": ") + limit;
    }
}
