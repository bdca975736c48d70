package com.velmora.opc.bench;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotSame;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import com.velmora.opc.jni.client.da.OpcSyncIo;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.SimControl;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * The benchmark natives measure what they claim: the floors make exactly the library's update calls
 * with the given arguments, on the thread they name, and the server-side timings free what the server
 * allocated and leave no connection behind. A floor that skipped or garbled calls would make every
 * ratio meaningless.
 */
@ExtendWith(LedgerCheck.class)
class BenchNativesTest {
    private static final int[] HANDLES = {7, -1, 100_000};
    private static final long[] TIMES = {-11_644_473_600_000L, 0L, 1_700_000_000_123L};
    private static final int[] QUALITIES = {192, 0, 65535};
    private static final int[] ERRORS = {0, 0xC0040007, 1};

    /** Every update call as text, with the thread it came on. */
    private static final class Calls implements com.velmora.opc.jni.client.da.UpdateReceiver {
        final List<String> seen = new ArrayList<>();
        final List<Thread> threads = new ArrayList<>();
        RuntimeException toThrow;

        private void add(String call) {
            seen.add(call);
            threads.add(Thread.currentThread());
            if (toThrow != null) throw toThrow;
        }

        @Override
        public void updateNumeric(int h, double v, long t, int q, int e, boolean s) {
            add("numeric " + h + " " + v + " " + t + " " + q + " " + e + " " + s);
        }

        @Override
        public void updateString(int h, String v, long t, int q, int e, boolean s) {
            add("string " + h + " " + v + " " + t + " " + q + " " + e + " " + s);
        }

        @Override
        public void updateBoolean(int h, boolean v, long t, int q, int e, boolean s) {
            add("boolean");
        }

        @Override
        public void updateError(int h, long t, int q, int e, boolean s) {
            add("error");
        }
    }

    @Test
    void floorsRepeatExactlyTheGivenCallsOnTheirThreads() {
        double[] values = {21.5, -0.0, Double.MAX_VALUE};
        List<String> numeric = IntStream.range(0, 3).mapToObj(i -> "numeric " + HANDLES[i] + " " + values[i] + " "
                + TIMES[i] + " " + QUALITIES[i] + " " + ERRORS[i]).toList();

        Calls calls = new Calls();
        long[] rounds = BenchNatives.numericFloor(calls, HANDLES, values, TIMES, QUALITIES, ERRORS, true, 2);
        assertEquals(2, rounds.length);
        assertTrue(rounds[0] > 0 && rounds[1] > 0, Arrays.toString(rounds));
        List<String> twice = new ArrayList<>();
        for (int r = 0; r < 2; r++) numeric.forEach(c -> twice.add(c + " true"));
        assertEquals(twice, calls.seen);
        assertTrue(calls.threads.stream().allMatch(t -> t == Thread.currentThread()));

        // Strings go over as their UTF-16 units, surrogate pairs and U+0000 included.
        String[] texts = {"value7", "\u00e4\u20ac\ud834\udd1e", "a\u0000b"};
        calls = new Calls();
        BenchNatives.stringFloor(calls, HANDLES, texts, TIMES, QUALITIES, ERRORS, false, 1);
        assertEquals(IntStream.range(0, 3).mapToObj(i -> "string " + HANDLES[i] + " " + texts[i] + " " + TIMES[i]
                + " " + QUALITIES[i] + " " + ERRORS[i] + " false").toList(), calls.seen);

        // The data-change floor: one native thread for all rounds, attached to the VM and gone afterwards.
        calls = new Calls();
        BenchNatives.attachedThreadFloor(calls, HANDLES, values, TIMES, QUALITIES, ERRORS, 2);
        assertEquals(twice.stream().map(c -> c.replace(" true", " false")).toList(), calls.seen);
        Thread floorThread = calls.threads.get(0);
        assertNotSame(Thread.currentThread(), floorThread);
        assertTrue(calls.threads.stream().allMatch(t -> t == floorThread), "one attachment for all rounds");
        assertFalse(floorThread.isAlive(), "the floor's thread is detached before the native returns");
    }

    @Test
    void manyStringsStayWithinTheLocalReferenceBudget() {
        int n = 500; // far beyond the 16 local references a native may count on
        int[] handles = IntStream.range(0, n).toArray();
        String[] texts = IntStream.range(0, n).mapToObj(i -> "value" + i).toArray(String[]::new);
        long[] times = new long[n];
        int[] zeros = new int[n];
        Sink sink = new Sink();
        sink.expect(n);
        BenchNatives.stringFloor(sink, handles, texts, times, zeros, zeros, true, 1);
        assertTrue(sink.finished());
    }

    @Test
    void wrongArgumentsAndThrowingReceiversStopTheRun() {
        double[] values = {1, 2, 3};
        assertThrows(IllegalArgumentException.class,
                () -> BenchNatives.numericFloor(new Calls(), HANDLES, new double[2], TIMES, QUALITIES, ERRORS, true, 1));
        assertThrows(IllegalArgumentException.class,
                () -> BenchNatives.stringFloor(new Calls(), HANDLES, new String[] {"a", null, "c"}, TIMES, QUALITIES,
                        ERRORS, true, 1));
        assertThrows(IllegalArgumentException.class,
                () -> BenchNatives.numericFloor(null, HANDLES, values, TIMES, QUALITIES, ERRORS, true, 1));

        Calls throwing = new Calls();
        throwing.toThrow = new IllegalStateException("receiver failed");
        IllegalStateException thrown = assertThrows(IllegalStateException.class,
                () -> BenchNatives.numericFloor(throwing, HANDLES, values, TIMES, QUALITIES, ERRORS, true, 5));
        assertSame(throwing.toThrow, thrown);
        assertEquals(1, throwing.seen.size(), "no call after the exception");

        throwing.seen.clear();
        thrown = assertThrows(IllegalStateException.class,
                () -> BenchNatives.attachedThreadFloor(throwing, HANDLES, values, TIMES, QUALITIES, ERRORS, 5));
        assertSame(throwing.toThrow, thrown, "carried over from the floor's thread");
        assertEquals(1, throwing.seen.size());
    }

    @Test
    void attachAndDetachTimesOnePairEach() {
        long[] fresh = BenchNatives.attachDetach(20, true);
        long[] reused = BenchNatives.attachDetach(20, false);
        assertEquals(20, fresh.length);
        assertEquals(20, reused.length);
        assertTrue(Arrays.stream(reused).allMatch(t -> t > 0) && Arrays.stream(fresh).allMatch(t -> t > 0));
    }

    @Test
    void runsThatDeliverAnythingButGoodValuesAreRefused() {
        Sink sink = new Sink();
        Sink.Recording failed = sink.record(2);
        sink.updateNumeric(1, 1.0, 0, 192, 0, true);
        sink.updateError(2, 0, 0, 0xC0040007, true);
        assertThrows(IllegalStateException.class, () -> failed.check(true));

        Sink.Recording tooFew = sink.record(2);
        sink.updateNumeric(1, 1.0, 0, 192, 0, true);
        assertThrows(IllegalStateException.class, () -> tooFew.check(true));

        Sink.Recording wrongKind = sink.record(1);
        sink.updateString(1, "1.0", 0, 192, 0, true);
        assertThrows(IllegalStateException.class, () -> wrongKind.check(true));
        wrongKind.check(false);

        Sink.Recording badItem = sink.record(1);
        sink.updateNumeric(1, 1.0, 0, 192, 0xC0040006, true);
        assertThrows(IllegalStateException.class, () -> badItem.check(true));

        assertEquals(3, Rounds.median(new long[] {9, 1, 3}));
        assertEquals(4, Rounds.median(new long[] {9, 1, 3, 5}));
        assertEquals(0.5, Rounds.ratio(150, 100, 100));
    }

    @Test
    void bothBenchmarksRunEndToEndAndReleaseEverything() {
        assumeTrue(SimControl.available(), SimControl::problem);
        SimControl.reset();
        long server = BenchGroup.connect();
        try {
            Rounds[] read = SyncReadBench.measure(server, "Bench.Str.", false, 1, 3);
            Rounds[] delivery = DeliveryBench.measure(server, 1, 3);
            for (Rounds rounds : List.of(read[0], read[1], read[2], delivery[0], delivery[1], delivery[2])) {
                assertTrue(rounds.median() > 0, rounds.name());
            }
            // The library's delivery spans the server's share and the time from first to last item.
            assertTrue(delivery[0].median() > delivery[3].median());
        } finally {
            ComObjectClient.release(server);
        }
    }

    @Test
    void serverTimingsFreeResultsAndDisconnect() {
        assumeTrue(SimControl.available(), SimControl::problem);
        SimControl.reset();
        long server = BenchGroup.connect();
        try {
            try (BenchGroup strings = BenchGroup.open(server, "strings", BenchGroup.ids("Bench.Str.", 50))) {
                assertEquals(3, BenchNatives.serverRead(strings.syncIo, strings.serverHandles, true, 3).length);
                assertTrue(SimControl.lastCallArgs("IOPCSyncIO::Read").startsWith("source=1 count=50 "));
                assertEquals(3, BenchNatives.serverRead(strings.syncIo, strings.serverHandles, false, 3).length);
                assertTrue(SimControl.lastCallArgs("IOPCSyncIO::Read").startsWith("source=2 count=50 "));
            }
            try (BenchGroup numbers = BenchGroup.open(server, "numbers", BenchGroup.ids("Bench.R8.", 50))) {
                BenchNatives.writeNumbers(numbers.syncIo, numbers.serverHandles, 1000);
                Sink sink = new Sink();
                Sink.Recording read = sink.record(50);
                OpcSyncIo.read(numbers.syncIo, numbers.serverHandles, false, sink);
                read.check(true);
                assertArrayEquals(IntStream.range(0, 50).mapToDouble(i -> 1000 + i).toArray(), read.values);

                assertEquals(4, BenchNatives.serverRefresh(numbers.asyncIo, 50, 4).length);
                assertEquals(4, SimControl.callCount("IOPCAsyncIO2::Refresh2"));
                // A refresh on the group now has no callback left to go to.
                assertEquals(1, SimControl.callCount("IConnectionPoint::Unadvise"));

                SimControl.failNext("IOPCAsyncIO2::Refresh2", 0x80004005, 1);
                IllegalStateException failed = assertThrows(IllegalStateException.class,
                        () -> BenchNatives.serverRefresh(numbers.asyncIo, 50, 2));
                assertTrue(failed.getMessage().contains("Refresh2 failed: 0x80004005"), failed.getMessage());
                assertEquals(2, SimControl.callCount("IConnectionPoint::Unadvise"), "disconnected after a failure");

                long cookie = OpcAsyncIo2.advise(numbers.asyncIo, sink);
                BenchNatives.disableSubscription(numbers.asyncIo);
                OpcAsyncIo2.unadvise(numbers.asyncIo, cookie);
            }
        } finally {
            ComObjectClient.release(server);
        }
    }
}
