package com.velmora.opc.client;

/**
 * Hears what becomes of a server connection made with {@link ConnectionOptions}. Every method runs on
 * the connection's monitor thread, one at a time; an exception it throws is logged and dropped. A
 * listener may use the connection, and may close it.
 */
public interface ConnectionListener {
    /**
     * The connection is lost: the server asked its clients to let go, a call failed with a disconnection
     * code, or the status poll did. Its handles are given up; until it is reconnected every call on it,
     * its groups and subscriptions raises {@link ConnectionLostException}.
     */
    default void onLost(OpcServer server, Throwable cause) {}

    /** One attempt to reconnect failed; the next follows after the delay. */
    default void onReconnectFailed(OpcServer server, int attempt, Throwable cause, java.time.Duration nextDelay) {}

    /** The connection is made again, with every open group, item, subscription and shutdown listener. */
    default void onReconnected(OpcServer server) {}
}
