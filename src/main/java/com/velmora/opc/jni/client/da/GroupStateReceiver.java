package com.velmora.opc.jni.client.da;

/** Receives a group's state. */
public interface GroupStateReceiver {
    void set(int updateRate, boolean active, String name, int timeBias, float percentDeadband, int localeId,
            int clientGroupHandle, int serverGroupHandle);
}
