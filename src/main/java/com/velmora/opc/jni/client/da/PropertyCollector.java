package com.velmora.opc.jni.client.da;

/** Receives one call per available item property. */
public interface PropertyCollector {
    void addProperty(int propertyId, String description, int dataType);
}
