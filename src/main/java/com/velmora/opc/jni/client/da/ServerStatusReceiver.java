package com.velmora.opc.jni.client.da;

/** Receives a server's status record; times are Java time (ms since 1970 UTC). */
public interface ServerStatusReceiver {
    void init(long startTime, long currentTime, long lastUpdateTime, int serverState, int groupCount,
            int bandWidth, int majorVersion, int minorVersion, int buildNumber, String vendorInfo);
}
