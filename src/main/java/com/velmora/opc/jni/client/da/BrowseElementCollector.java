package com.velmora.opc.jni.client.da;

/** Receives the elements of a branch browse. */
public interface BrowseElementCollector {
    void add(String name, String itemId, boolean isItem, boolean hasChildren, int canonicalDataType,
            boolean readable, boolean writable);
}
