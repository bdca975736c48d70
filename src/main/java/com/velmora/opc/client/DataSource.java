package com.velmora.opc.client;

/** Where a synchronous read takes its values from. */
public enum DataSource {
    /** The server's cache (updated at the group's rate while the group and items are active). */
    CACHE,
    /** The device itself. */
    DEVICE
}
