package com.velmora.opc.client;

import java.time.Instant;

/** A server's status record. A time the server never set (a zero stamp) is null. */
public record ServerStatus(Instant startTime, Instant currentTime, Instant lastUpdateTime, ServerState state,
        int stateCode, long groupCount, long bandWidth, int majorVersion, int minorVersion, int buildNumber,
        String vendorInfo) {

    /** Java time of a zero FILETIME (1601-01-01 UTC). */
    static final long NO_TIME = -11644473600000L;

    static Instant time(long javaTime) {
        return javaTime == NO_TIME ? null : Instant.ofEpochMilli(javaTime);
    }

    public String version() {
        return majorVersion + "." + minorVersion + "." + buildNumber;
    }
}
