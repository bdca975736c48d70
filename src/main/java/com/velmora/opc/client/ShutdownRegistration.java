package com.velmora.opc.client;

import com.velmora.opc.OpcException;
import com.velmora.opc.jni.client.common.OpcShutdown;
import com.velmora.opc.jni.client.common.ShutdownListener;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * A listener connected to a server's shutdown notice (see {@link OpcServer#onShutdown}). Closing it,
 * or closing the server, disconnects it; once the server has let go of the native listener (waited
 * for up to a few seconds), nothing more reaches the listener. On a reconnecting connection it is
 * connected again when the connection is, and may hear the new server's request. Safe for concurrent
 * use; the listener runs on a server thread and may close the connection.
 */
public final class ShutdownRegistration implements AutoCloseable {
    private final OpcServer server;
    private final Runnable listener;
    private final AtomicInteger requests = new AtomicInteger();
    // Replaced under the connection's exclusive lock.
    private volatile Receiver receiver;
    private volatile long cookie;
    private volatile boolean closed;

    ShutdownRegistration(OpcServer server, Runnable listener) {
        this.server = server;
        this.listener = listener;
    }

    /** Connects a new native listener to the server (the connection's lock is held). */
    void attach(long serverHandle) {
        Receiver next = new Receiver(this);
        long made = OpcShutdown.advise(serverHandle, next);
        if (made == 0) throw new OpcException("server " + server.name() + " accepted no shutdown listener");
        receiver = next;
        cookie = made;
    }

    /** The connection is lost; the native listener went with it. */
    void detach() {
        cookie = 0;
    }

    /** Whether the server has asked its clients to let go of it. */
    public boolean isRequested() {
        return requests.get() > 0;
    }

    public boolean isClosed() {
        return closed;
    }

    /** How many times the native listener told of its end without a request before: 1 after a clean close. */
    int deletionNotices() {
        Receiver current = receiver;
        return current == null ? 0 : current.deletions.get();
    }

    @Override
    public void close() {
        List<CountDownLatch> waits = new ArrayList<>();
        RuntimeException failure = server.exclusive(() -> closeLocked(waits));
        server.awaitReleases(waits);
        if (failure != null) throw failure;
    }

    RuntimeException closeLocked(List<CountDownLatch> waits) {
        if (closed) return null;
        closed = true;
        server.forget(this);
        Receiver current = receiver;
        long connection = cookie;
        if (current == null || connection == 0 || !server.isReachable()) return null;
        // After a shutdown request the native listener ends without a word; else it tells of its end.
        return server.quietly(() -> OpcShutdown.unadvise(server.handle(), connection), current.ended, waits);
    }

    private void requested() {
        requests.incrementAndGet();
        if (!closed) Callbacks.run(listener, "a shutdown listener");
    }

    /** The Java side of one native shutdown listener; called on the server's threads. */
    private static final class Receiver implements ShutdownListener {
        private final ShutdownRegistration owner;
        private final AtomicInteger deletions = new AtomicInteger();
        private final CountDownLatch ended = new CountDownLatch(1);

        Receiver(ShutdownRegistration owner) {
            this.owner = owner;
        }

        @Override
        public void shutdownRequest(String reason) {
            ended.countDown();
            owner.requested();
        }

        @Override
        public void shutdownDeleted() {
            deletions.incrementAndGet();
            ended.countDown();
        }
    }
}
