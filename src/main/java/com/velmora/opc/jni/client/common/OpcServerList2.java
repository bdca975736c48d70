package com.velmora.opc.jni.client.common;

import com.velmora.opc.client.BOpcDeviceDiscoveryResult;
import com.velmora.opc.jni.NativeLibrary;

/** Lists the servers of one component category registered on a host. */
public final class OpcServerList2 {
    static {
        NativeLibrary.load();
    }

    private OpcServerList2() {}

    public static native BOpcDeviceDiscoveryResult[] discoverServers(String host, String category);
}
