package com.velmora.opc.client;

import java.time.Duration;

/**
 * How a connection watches its server and what it does when the server goes away. The default watches
 * nothing and never reconnects (the connection still closes quietly once the server is gone).
 *
 * <pre>{@code
 * ConnectionOptions options = ConnectionOptions.DEFAULT
 *         .statusPoll(Duration.ofSeconds(5))
 *         .reconnect(Duration.ofSeconds(1), Duration.ofMinutes(1))
 *         .listener(new ConnectionListener() { ... });
 * }</pre>
 *
 * @param statusPoll how often the server's status is asked for; null or zero polls nothing
 * @param reconnect whether a lost connection is made again, with its groups, items and subscriptions
 * @param firstDelay the wait before the first attempt to reconnect; each failed attempt doubles it
 * @param maxDelay the longest wait between two attempts
 * @param listener told of loss and reconnection, or null
 */
public record ConnectionOptions(Duration statusPoll, boolean reconnect, Duration firstDelay, Duration maxDelay,
        ConnectionListener listener) {
    public static final ConnectionOptions DEFAULT =
            new ConnectionOptions(null, false, Duration.ofSeconds(1), Duration.ofMinutes(1), null);

    public ConnectionOptions {
        if (statusPoll != null && statusPoll.isNegative()) throw new IllegalArgumentException("negative status poll");
        if (firstDelay == null || firstDelay.isNegative() || firstDelay.isZero()) {
            throw new IllegalArgumentException("the first reconnection delay must be positive");
        }
        if (maxDelay == null || maxDelay.compareTo(firstDelay) < 0) {
            throw new IllegalArgumentException("the longest reconnection delay is shorter than the first");
        }
    }

    public ConnectionOptions statusPoll(Duration interval) {
        return new ConnectionOptions(interval, reconnect, firstDelay, maxDelay, listener);
    }

    /** Reconnects a lost connection, waiting first, then twice as long after each failure, up to max. */
    public ConnectionOptions reconnect(Duration first, Duration max) {
        return new ConnectionOptions(statusPoll, true, first, max, listener);
    }

    public ConnectionOptions listener(ConnectionListener connectionListener) {
        return new ConnectionOptions(statusPoll, reconnect, firstDelay, maxDelay, connectionListener);
    }

    /** Whether the connection needs its monitor thread (for polls, reconnection or a listener). */
    boolean monitored() {
        return reconnect || listener != null || (statusPoll != null && !statusPoll.isZero());
    }
}
