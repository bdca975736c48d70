package com.velmora.opc.client;

import com.velmora.opc.jni.ComObjectClient;
import java.util.concurrent.atomic.AtomicLong;

/** One interface handle and the one reference it holds, given up exactly once. */
final class NativeHandle implements AutoCloseable {
    private final AtomicLong value;
    private final String what;

    NativeHandle(long value, String what) {
        if (value == 0) throw new IllegalArgumentException("no handle for " + what);
        this.value = new AtomicLong(value);
        this.what = what;
    }

    /** A new handle of another interface of the same object. */
    NativeHandle query(String iid, String name) {
        long derived = ComObjectClient.query(get(), iid);
        if (derived == 0) throw new com.velmora.opc.OpcException(what + " has no " + name);
        return new NativeHandle(derived, name);
    }

    long get() {
        long handle = value.get();
        if (handle == 0) throw new IllegalStateException(what + " is closed");
        return handle;
    }

    boolean isOpen() {
        return value.get() != 0;
    }

    @Override
    public void close() {
        long handle = value.getAndSet(0);
        if (handle != 0) ComObjectClient.release(handle);
    }
}
