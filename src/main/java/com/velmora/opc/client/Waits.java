package com.velmora.opc.client;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;

/** The bounded waits of closing: an interrupt does not cut them short, and it is kept for the caller. */
final class Waits {
    /** How long a close waits for the server to let go of a callback object. */
    static final long CLOSE_TIMEOUT_MILLIS = 5_000;

    private Waits() {}

    /** Whether the latch opened within the time. */
    static boolean await(CountDownLatch latch, long timeoutMillis) {
        long deadline = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(timeoutMillis);
        boolean interrupted = false;
        try {
            while (true) {
                long left = deadline - System.nanoTime();
                if (latch.getCount() == 0) return true;
                if (left <= 0) return false;
                try {
                    return latch.await(left, TimeUnit.NANOSECONDS);
                } catch (InterruptedException e) {
                    interrupted = true;
                }
            }
        } finally {
            if (interrupted) Thread.currentThread().interrupt();
        }
    }
}
