package com.velmora.opc.jni.client.da;

/** Receives one result per item added or validated, rejected items included. */
public interface ItemResultCollector {
    void addResult(String itemId, int serverHandle, int canonicalDataType, int accessRights, int error);
}
