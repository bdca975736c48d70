package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a server's IOPCBrowse handle. */
public final class OpcBrowse {
    static {
        NativeLibrary.load();
    }

    private OpcBrowse() {}

    /** Browses the branch with the given item id ("" is the root) into a {@link BrowseElementCollector}. */
    public static native void browse(long browser, String itemId, Object elements);
}
