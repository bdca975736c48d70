package com.velmora.opc.bench;

import com.velmora.opc.jni.client.da.OpcSyncIo;

/**
 * Synchronous read of 10,000 items of one type (VT_R8, then VT_BSTR) through OpcSyncIo.read, beside
 * the floor: the same update calls with the same arguments made straight from native code; the
 * server's share: the same IOPCSyncIO::Read and the floor's calls made together from native code,
 * less the floor (its time alone is printed too). Rounds of the four interleave; the medians count.
 *
 * <p>Arguments: [warm-up rounds] [measured rounds].
 */
public final class SyncReadBench {
    private static final int ITEMS = BenchGroup.ITEMS;
    private static final boolean FROM_CACHE = true;

    private SyncReadBench() {}

    public static void main(String[] args) {
        Rounds.readByType(args, "Synchronous read of " + ITEMS + " items (OpcSyncIo.read from the cache)", "1.10",
                SyncReadBench::measure);
    }

    /** {total, server alone, floor, server and floor} rounds for one item type. */
    static Rounds[] measure(long server, String prefix, boolean numeric, int warmup, int rounds) {
        try (BenchGroup group = BenchGroup.open(server, "read " + prefix, BenchGroup.ids(prefix, ITEMS))) {
            Sink sink = new Sink();
            Sink.Recording calls = sink.record(ITEMS);
            libraryRead(group, sink);
            sink.stopRecording();
            calls.check(numeric);

            Rounds total = new Rounds("library", rounds);
            Rounds serverOnly = new Rounds("server", rounds);
            Rounds floor = new Rounds("floor", rounds);
            Rounds together = new Rounds("server and floor", rounds);
            for (int r = -warmup; r < rounds; r++) {
                long library = libraryRead(group, sink);
                long[] read = BenchNatives.serverRead(group.syncIo, group.serverHandles, FROM_CACHE, 1);
                sink.expect(ITEMS);
                long[] upcalls = numeric
                        ? BenchNatives.numericFloor(sink, calls.handles, calls.values, calls.timestamps,
                                calls.qualities, calls.errors, true, 1)
                        : BenchNatives.stringFloor(sink, calls.handles, calls.texts, calls.timestamps,
                                calls.qualities, calls.errors, true, 1);
                if (!sink.finished()) throw new IllegalStateException("the floor made " + sink.count() + " calls");
                sink.expect(ITEMS);
                long[] both = BenchNatives.readFloor(group.syncIo, group.serverHandles, FROM_CACHE, sink, calls.handles,
                        numeric ? calls.values : null, numeric ? null : calls.texts, calls.timestamps,
                        calls.qualities, calls.errors, 1);
                if (!sink.finished()) throw new IllegalStateException("the read floor made " + sink.count() + " calls");
                if (r < 0) continue;
                total.add(library);
                serverOnly.addOnly(read);
                floor.addOnly(upcalls);
                together.addOnly(both);
            }
            if (Double.isNaN(sink.checksum())) System.out.println("(NaN among the values)");
            return new Rounds[] {total, serverOnly, floor, together};
        }
    }

    private static long libraryRead(BenchGroup group, Sink sink) {
        sink.expect(ITEMS);
        long start = System.nanoTime();
        OpcSyncIo.read(group.syncIo, group.serverHandles, FROM_CACHE, sink);
        long elapsed = System.nanoTime() - start;
        if (!sink.finished()) throw new IllegalStateException("the read delivered " + sink.count() + " items");
        return elapsed;
    }
}
