package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a group's IOPCItemMgt handle; per-item results go to an {@link ItemResultCollector}. */
public final class OpcItemMgt {
    static {
        NativeLibrary.load();
    }

    private OpcItemMgt() {}

    public static native void addItems(long itemMgt, String[] itemIds, int[] clientHandles, boolean[] active,
            int[] requestedTypes, Object resultCollector);

    public static native void validateItems(long itemMgt, String[] itemIds, int[] clientHandles, boolean[] active,
            int[] requestedTypes, Object resultCollector);

    /** One HRESULT per handle, or null. */
    public static native int[] removeItems(long itemMgt, int[] serverHandles);

    /** One HRESULT per handle, or null. */
    public static native int[] setActiveState(long itemMgt, int[] serverHandles, boolean active);
}
