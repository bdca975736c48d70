package com.velmora.opc.client;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.OpcException;
import com.velmora.opc.jni.client.common.OpcShutdown;
import com.velmora.opc.jni.client.common.ShutdownListener;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * A listener connected to a server's shutdown notice (see {@link OpcServer#onShutdown}). Closing it,
 * or closing the server, disconnects it; once the server has let go of the native listener (waited
 * for up to a few seconds), nothing more reaches the listener.
 */
public final class ShutdownRegistration implements AutoCloseable {
    private static final System.Logger LOG = System.getLogger(OpcEnv.LOGGER_NAME);

    private final OpcServer server;
    private final long cookie;
    private final Receiver receiver;
    private boolean closed;

    private ShutdownRegistration(OpcServer server, long cookie, Receiver receiver) {
        this.server = server;
        this.cookie = cookie;
        this.receiver = receiver;
    }

    static ShutdownRegistration open(OpcServer server, Runnable listener) {
        if (listener == null) throw new IllegalArgumentException("no listener");
        Receiver receiver = new Receiver(listener);
        long cookie = OpcShutdown.advise(server.handle(), receiver);
        if (cookie == 0) throw new OpcException("server " + server.name() + " accepted no shutdown listener");
        return new ShutdownRegistration(server, cookie, receiver);
    }

    /** Whether the server has asked its clients to let go of it. */
    public boolean isRequested() {
        return receiver.requests.get() > 0;
    }

    public synchronized boolean isClosed() {
        return closed;
    }

    /** How many times the native listener told of its end without a request before: 1 after a clean close. */
    int deletionNotices() {
        return receiver.deletions.get();
    }

    @Override
    public void close() {
        synchronized (this) {
            if (closed) return;
            closed = true;
        }
        try {
            if (server.isOpen()) {
                ComThreads.prepare();
                OpcShutdown.unadvise(server.handle(), cookie);
            }
            // After a shutdown request the native listener ends without a word; else it tells of its end.
            if (!Waits.await(receiver.ended, Waits.CLOSE_TIMEOUT_MILLIS)) {
                LOG.log(System.Logger.Level.WARNING, "server " + server.name()
                        + " kept its shutdown listener after it was disconnected");
            }
        } finally {
            server.forget(this);
        }
    }

    /** The Java side of the native shutdown listener; called on the server's threads. */
    private static final class Receiver implements ShutdownListener {
        private final Runnable listener;
        private final AtomicInteger requests = new AtomicInteger();
        private final AtomicInteger deletions = new AtomicInteger();
        private final CountDownLatch ended = new CountDownLatch(1);

        Receiver(Runnable listener) {
            this.listener = listener;
        }

        @Override
        public void shutdownRequest(String reason) {
            requests.incrementAndGet();
            ended.countDown();
            try {
                listener.run();
            } catch (RuntimeException | Error e) {
                LOG.log(System.Logger.Level.WARNING, "a shutdown listener failed", e);
            }
        }

        @Override
        public void shutdownDeleted() {
            deletions.incrementAndGet();
            ended.countDown();
        }
    }
}
