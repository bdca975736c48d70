package com.velmora.opc.jni.client.da;

import java.util.ArrayList;
import java.util.List;

/** An update receiver that records every call as text, e.g. "numeric 7 2.5 q192 e0 sync". */
class RecordingReceiver implements UpdateReceiver {
    final List<String> calls = new ArrayList<>();
    final List<Long> timestamps = new ArrayList<>();
    final List<String> threads = new ArrayList<>();

    private synchronized void add(String call, long timestamp) {
        calls.add(call);
        timestamps.add(timestamp);
        threads.add(Thread.currentThread().getName());
    }

    synchronized List<String> calls() {
        return List.copyOf(calls);
    }

    private static String tail(int quality, int error, boolean sync) {
        return " q" + quality + " e" + error + (sync ? " sync" : " async");
    }

    @Override
    public void updateNumeric(int h, double value, long timestamp, int quality, int error, boolean sync) {
        add("numeric " + h + " " + value + tail(quality, error, sync), timestamp);
    }

    @Override
    public void updateBoolean(int h, boolean value, long timestamp, int quality, int error, boolean sync) {
        add("boolean " + h + " " + value + tail(quality, error, sync), timestamp);
    }

    @Override
    public void updateString(int h, String value, long timestamp, int quality, int error, boolean sync) {
        add("string " + h + " [" + value + "]" + tail(quality, error, sync), timestamp);
    }

    @Override
    public void updateError(int h, long timestamp, int quality, int error, boolean sync) {
        add("error " + h + tail(quality, error, sync), timestamp);
    }
}
