package com.velmora.opc.jni.client.da;

import com.velmora.opc.jni.NativeLibrary;

/** Natives over a server's IOPCItemProperties handle. */
public final class OpcItemProperties {
    static {
        NativeLibrary.load();
    }

    private OpcItemProperties() {}

    /** Lists the item's properties into a {@link PropertyCollector}. */
    public static native void queryAvailableProperties(long itemProps, String itemId, Object result);

    public static native double getNumericProperty(long itemProps, String itemId, int propertyId);

    public static native boolean getBooleanProperty(long itemProps, String itemId, int propertyId);

    public static native String getStringProperty(long itemProps, String itemId, int propertyId);
}
