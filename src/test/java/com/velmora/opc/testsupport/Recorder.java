package com.velmora.opc.testsupport;

import com.velmora.opc.jni.client.common.ShutdownListener;
import com.velmora.opc.jni.client.da.*;
import java.util.*;

/**
 * Stands in for every Java object the natives call: records each call as one line of text, e.g.
 * "numeric 7 2.5 q192 e0 sync", with its arguments and thread, and lets a test wait for a line.
 * Optionally throws from every call whose text starts with a prefix, after recording it. Plain
 * Java only: the child JVMs use it without a test framework on their class path.
 */
public class Recorder implements UpdateReceiver, ShutdownListener, ReadListener, WriteListener, ItemResultCollector,
        PropertyCollector, ServerStatusReceiver, GroupStateReceiver, AddressSpaceCollector, BrowseElementCollector {
    private static final long WAIT_MILLIS = 5000;

    /** One call: its text, its arguments as given, the thread it came on. */
    public record Call(String text, Object[] args, Thread thread) {}

    /** A recorder that is also a data callback: read and write completions and the deletion notice. */
    public static class Callback extends Recorder implements DataCallback {
        public Callback() {
            this(null);
        }

        public Callback(String throwOn) {
            super(throwOn);
        }

        @Override
        public void OnReadCompleted(int tx, int masterQuality, int masterError, int count, int[] handles, int[] kinds,
                String[] values, int[] qualities, long[] timestamps, int[] errors) {
            record("read " + tx + " " + masterQuality + " " + masterError + " " + count + " " + Arrays.toString(handles)
                    + " " + Arrays.toString(kinds) + " " + Arrays.toString(values) + " " + Arrays.toString(qualities)
                    + " " + Arrays.toString(errors), timestamps);
        }

        @Override
        public void OnWriteCompleted(int tx, int group, int masterError, int count, int[] handles, int[] errors) {
            record("write " + tx + " " + masterError + " " + count + " " + Arrays.toString(handles) + " "
                    + Arrays.toString(errors));
        }

        @Override
        public void asyncCallbackDeleted() {
            record("deleted");
        }
    }

    private final List<Call> calls = new ArrayList<>();
    private final String throwOn;

    public Recorder() {
        this(null);
    }

    /** Throws IllegalStateException with the call's text from every call whose text starts with the prefix. */
    public Recorder(String throwOn) {
        this.throwOn = throwOn;
    }

    protected final void record(String text, Object... args) {
        synchronized (this) {
            calls.add(new Call(text, args, Thread.currentThread()));
            notifyAll();
        }
        if (throwOn != null && text.startsWith(throwOn)) throw new IllegalStateException(text);
    }

    public synchronized List<Call> records() {
        return List.copyOf(calls);
    }

    public List<String> calls() {
        return records().stream().map(Call::text).toList();
    }

    /** The text of the latest call. */
    public String last() {
        List<String> texts = calls();
        return texts.isEmpty() ? null : texts.get(texts.size() - 1);
    }

    public List<Thread> threads() {
        return threadsOf("");
    }

    /** The threads of the calls whose text starts with the prefix. */
    public List<Thread> threadsOf(String prefix) {
        return records().stream().filter(r -> r.text().startsWith(prefix)).map(Call::thread).toList();
    }

    public long count(String prefix) {
        return calls().stream().filter(c -> c.startsWith(prefix)).count();
    }

    /** Waits up to five seconds for the first call whose text starts with the prefix; answers its text. */
    public String await(String prefix) {
        awaitCount(prefix, 1);
        return calls().stream().filter(c -> c.startsWith(prefix)).findFirst().orElseThrow();
    }

    /** Waits up to five seconds until at least n calls start with the prefix. */
    public synchronized void awaitCount(String prefix, long n) {
        long end = System.currentTimeMillis() + WAIT_MILLIS;
        while (count(prefix) < n) {
            long left = end - System.currentTimeMillis();
            if (left <= 0) throw new AssertionError("fewer than " + n + " calls '" + prefix + "' in " + calls);
            try {
                wait(left);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                throw new AssertionError("interrupted");
            }
        }
    }

    /** The deletion notices once a late second one would have had time to come. */
    public long settledDeletions() throws InterruptedException {
        awaitCount("deleted", 1);
        Thread.sleep(100);
        return count("deleted");
    }

    private static String tail(int quality, int error, boolean sync) {
        return " q" + quality + " e" + error + (sync ? " sync" : " async");
    }

    @Override
    public void updateNumeric(int h, double value, long t, int quality, int error, boolean sync) {
        record("numeric " + h + " " + value + tail(quality, error, sync), t);
    }

    @Override
    public void updateBoolean(int h, boolean value, long t, int quality, int error, boolean sync) {
        record("boolean " + h + " " + value + tail(quality, error, sync), t);
    }

    @Override
    public void updateString(int h, String value, long t, int quality, int error, boolean sync) {
        record("string " + h + " [" + value + "]" + tail(quality, error, sync), t);
    }

    @Override
    public void updateError(int h, long t, int quality, int error, boolean sync) {
        record("error " + h + tail(quality, error, sync), t);
    }

    @Override
    public void shutdownRequest(String reason) {
        record("shutdown " + reason);
    }

    @Override
    public void shutdownDeleted() {
        record("deleted");
    }

    /** Text without the cancel id, which is the fourth argument. */
    @Override
    public void OnReturnRead(int hr, int count, int tx, int cancelId, int[] handles, int[] errors) {
        record("issued read " + hr + " " + count + " " + tx + " " + Arrays.toString(handles) + " "
                + Arrays.toString(errors), hr, count, tx, cancelId, handles, errors);
    }

    /** Text without the cancel id, which is the fifth argument. */
    @Override
    public void OnReturnWrite(boolean sync, int hr, int count, int tx, int cancelId, int[] handles, int[] errors) {
        record("issued write " + (sync ? "sync " : "async ") + hr + " " + count + " " + tx + " "
                + Arrays.toString(handles) + " " + Arrays.toString(errors), sync, hr, count, tx, cancelId, handles,
                errors);
    }

    /** Text without the server handle, which is the second argument. */
    @Override
    public void addResult(String itemId, int serverHandle, int type, int rights, int error) {
        record("item " + itemId + " type=" + type + " rights=" + rights + " error=" + error, itemId, serverHandle);
    }

    @Override
    public void addProperty(int id, String description, int type) {
        record("property " + id + " " + description + " " + type);
    }

    /** Text without the start and current times, the first two arguments. */
    @Override
    public void init(long start, long current, long lastUpdate, int state, int groups, int bandWidth, int major,
            int minor, int build, String vendor) {
        record("status " + lastUpdate + " " + state + " " + groups + " " + bandWidth + " " + major + "." + minor + "."
                + build + " " + vendor, start, current);
    }

    @Override
    public void set(int rate, boolean active, String name, int bias, float deadband, int lcid, int client, int server) {
        record("state " + rate + " " + active + " " + name + " " + bias + " " + deadband + " " + lcid + " " + client
                + " " + server);
    }

    @Override
    public void add(String name, String itemId) {
        record(name + "=" + itemId);
    }

    /** E.g. "ReadOnly=Simulation.Access.ReadOnly item vt5 r-", "Bench=Bench branch+ vt0 --". */
    @Override
    public void add(String name, String itemId, boolean isItem, boolean hasChildren, int type, boolean readable,
            boolean writable) {
        record(name + "=" + itemId + (isItem ? " item" : " branch") + (hasChildren ? "+" : "") + " vt" + type + " "
                + (readable ? "r" : "-") + (writable ? "w" : "-"));
    }
}
