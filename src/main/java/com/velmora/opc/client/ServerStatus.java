package com.velmora.opc.client;

import java.time.Instant;

/** A server's status record. */
public record ServerStatus(Instant startTime, Instant currentTime, Instant lastUpdateTime, ServerState state,
        int stateCode, long groupCount, long bandWidth, int majorVersion, int minorVersion, int buildNumber,
        String vendorInfo) {

    public String version() {
        return majorVersion + "." + minorVersion + "." + buildNumber;
    }
}
