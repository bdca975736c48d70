package com.velmora.opc.client;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.HresultException;
import java.util.concurrent.atomic.AtomicLong;

/** One interface handle and the one reference it holds, given up exactly once. */
final class NativeHandle implements AutoCloseable {
    private static final int E_NOINTERFACE = 0x80004002;

    private final AtomicLong value;
    private final String what;

    NativeHandle(long value, String what) {
        if (value == 0) throw new IllegalArgumentException("no handle for " + what);
        this.value = new AtomicLong(value);
        this.what = what;
    }

    /**
     * A new handle of another interface of the same object; {@link MissingInterfaceException} names the
     * interface when the object has none.
     */
    NativeHandle query(String iid, String name) {
        long derived;
        try {
            derived = ComObjectClient.query(get(), iid);
        } catch (HresultException e) {
            if (e.getHresult() == E_NOINTERFACE) throw new MissingInterfaceException(what + " has no " + name, e);
            throw e;
        }
        if (derived == 0) throw new MissingInterfaceException(what + " has no " + name, null);
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
