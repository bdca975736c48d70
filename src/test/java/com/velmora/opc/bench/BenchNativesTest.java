package com.velmora.opc.bench;

import static org.junit.jupiter.api.Assertions.*;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import com.velmora.opc.jni.client.da.OpcSyncIo;
import com.velmora.opc.testsupport.*;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.stream.IntStream;
import org.junit.jupiter.api.Test;

/**
 * The benchmark natives measure what they claim: the floors make exactly the library's update calls
 * with the given arguments, on the thread they name, and the server-side timings free what the server
 * allocated and leave no connection behind. A floor that skipped or garbled calls would make every
 * ratio meaningless.
 */
class BenchNativesTest {
    private static final int[] HANDLES = {7, -1, 100_000};
    private static final long[] TIMES = {-11_644_473_600_000L, 0L, 1_700_000_000_123L};
    private static final int[] QUALITIES = {192, 0, 65535};
    private static final int[] ERRORS = {0, 0xC0040007, 1};

    private static final String[] TEXTS = {"value7", "\u00e4\u20ac\ud834\udd1e", "a\u0000b"};

    /** The calls of one round, as the recorder writes them. */
    private static List<String> round(String kind, Object[] values, String tail) {
        return IntStream.range(0, 3).mapToObj(i -> kind + " " + HANDLES[i] + " " + values[i] + " q" + QUALITIES[i]
                + " e" + ERRORS[i] + tail).toList();
    }

    private static List<Long> times(Recorder calls) {
        return calls.records().stream().map(r -> (Long) r.args()[0]).toList();
    }

    @Test
    void floorsRepeatExactlyTheGivenCallsOnTheirThreads() {
        double[] values = {21.5, -0.0, Double.MAX_VALUE};
        Object[] boxed = Arrays.stream(values).boxed().toArray();
        List<Long> times = Arrays.stream(TIMES).boxed().toList();
        Recorder calls = new Recorder();
        long[] rounds = BenchNatives.numericFloor(calls, HANDLES, values, TIMES, QUALITIES, ERRORS, true, 2);
        assertEquals(2, rounds.length);
        assertTrue(rounds[0] > 0 && rounds[1] > 0, Arrays.toString(rounds));
        List<String> twice = new ArrayList<>(round("numeric", boxed, " sync"));
        twice.addAll(twice);
        assertEquals(twice, calls.calls());
        assertEquals(List.of(times, times).stream().flatMap(List::stream).toList(), times(calls));
        assertTrue(calls.threads().stream().allMatch(t -> t == Thread.currentThread()));

        // Strings go over as their UTF-16 units, surrogate pairs and U+0000 included.
        calls = new Recorder();
        BenchNatives.stringFloor(calls, HANDLES, TEXTS, TIMES, QUALITIES, ERRORS, false, 1);
        assertEquals(round("string", Arrays.stream(TEXTS).map(t -> "[" + t + "]").toArray(), " async"), calls.calls());
        assertEquals(times, times(calls));

        // The data-change floor: one native thread for all rounds, attached to the VM and gone afterwards.
        calls = new Recorder();
        BenchNatives.attachedThreadFloor(calls, HANDLES, values, TIMES, QUALITIES, ERRORS, 1, 2);
        assertEquals(twice.stream().map(c -> c.replace(" sync", " async")).toList(), calls.calls());
        Thread floorThread = calls.threads().get(0);
        assertNotSame(Thread.currentThread(), floorThread);
        assertTrue(calls.threads().stream().allMatch(t -> t == floorThread), "one attachment for all rounds");
        assertFalse(floorThread.isAlive(), "the floor's thread is detached before the native returns");

        // The callback floor attaches and detaches its one native thread per round.
        calls = new Recorder();
        BenchNatives.callbackFloor(calls, HANDLES, values, TIMES, QUALITIES, ERRORS, 1, 2);
        assertEquals(twice.stream().map(c -> c.replace(" sync", " async")).toList(), calls.calls());
        assertNotSame(calls.threads().get(0), calls.threads().get(3), "a new attachment per round");
        assertTrue(calls.threads().stream().noneMatch(Thread::isAlive));
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
                () -> BenchNatives.numericFloor(new Recorder(), HANDLES, new double[2], TIMES, QUALITIES, ERRORS, true, 1));
        assertThrows(IllegalArgumentException.class, () -> BenchNatives.stringFloor(new Recorder(), HANDLES,
                new String[] {"a", null, "c"}, TIMES, QUALITIES, ERRORS, true, 1));
        assertThrows(IllegalArgumentException.class,
                () -> BenchNatives.numericFloor(null, HANDLES, values, TIMES, QUALITIES, ERRORS, true, 1));

        Recorder throwing = new Recorder("numeric");
        IllegalStateException thrown = assertThrows(IllegalStateException.class,
                () -> BenchNatives.numericFloor(throwing, HANDLES, values, TIMES, QUALITIES, ERRORS, true, 5));
        assertEquals(List.of(thrown.getMessage()), throwing.calls(), "no call after the exception");

        Recorder throwingThere = new Recorder("numeric");
        thrown = assertThrows(IllegalStateException.class,
                () -> BenchNatives.attachedThreadFloor(throwingThere, HANDLES, values, TIMES, QUALITIES, ERRORS, 0, 5));
        // Carried over from the floor's thread.
        assertEquals(List.of(thrown.getMessage()), throwingThere.calls());
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
            for (Rounds rounds : List.of(read[0], read[1], read[2], read[3], delivery[0], delivery[1], delivery[2])) {
                assertTrue(rounds.median() > 0, rounds.name());
            }
            // One update to record, one of warm-up, three measured: each a data change of its own.
            assertTrue(SimControl.callbacksMade("OnDataChange") >= 5);
        } finally {
            ComObjectClient.release(server);
        }
    }

    @Test
    void theBatchBenchmarksRunEndToEndAndReleaseEverything() {
        assumeTrue(SimControl.available(), SimControl::problem);
        SimControl.reset();
        long server = BenchGroup.connect();
        try {
            BenchNatives.requireSimulation();
            WriteBench.Batch batch = new WriteBench.Batch();
            List<Rounds[]> runs = new ArrayList<>(List.of(WriteBench.measureSync(server, batch, 0, 1),
                    WriteBench.measureAsync(server, batch, 0, 1), AsyncReadBench.measure(server, "Bench.R8.", true, 0, 1),
                    SmallUpdatesBench.measure(server, 10, 0, 2)));
            BenchNatives.benchBranch(1_000);
            BenchNatives.browsePortion(300);
            long browse = ComObjectClient.query(server, "{39227004-A18F-4B57-8B0A-5235670F4468}");
            try {
                runs.add(BrowseBench.measure(browse, true, 1_000, 0, 1));
            } finally {
                ComObjectClient.release(browse);
            }
            for (Rounds[] run : runs) {
                for (Rounds rounds : run) assertTrue(rounds.median() > 0, rounds.name());
            }
            assertTrue(SimControl.callCount("IOPCBrowse::Browse") >= 8, "answered in portions");
        } finally {
            SimControl.reset();
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
