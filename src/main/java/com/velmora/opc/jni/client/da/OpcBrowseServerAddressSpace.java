package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a server's IOPCBrowseServerAddressSpace handle; results go to an {@link AddressSpaceCollector}. */
public final class OpcBrowseServerAddressSpace {
    static {
        NativeLibrary.load();
    }

    private OpcBrowseServerAddressSpace() {}

    /** 1 hierarchical, 2 flat. */
    public static native long queryOrganization(long browser);

    public static native void goRoot(long browser);

    public static native void goDown(long browser, String branch);

    public static native void listBranches(long browser, Object elements);

    public static native void listItems(long browser, Object elements);

    public static native void getGroups(long browser, String path, Object elements);

    public static native void getItems(long browser, String path, boolean flat, Object elements);
}
