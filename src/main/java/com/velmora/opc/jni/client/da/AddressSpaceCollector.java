package com.velmora.opc.jni.client.da;

/** Receives the names found by a position-based address-space browse; itemId may be null. */
public interface AddressSpaceCollector {
    void add(String name, String itemId);
}
