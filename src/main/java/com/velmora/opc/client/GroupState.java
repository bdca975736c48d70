package com.velmora.opc.client;

/** A group's state as the server keeps it. */
public record GroupState(String name, int updateRate, boolean active, int timeBias, float percentDeadband,
        int localeId, int clientGroupHandle, int serverGroupHandle) {}
