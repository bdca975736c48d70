package com.velmora.opc.bench;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;

/**
 * Data-change delivery of 10,000 VT_R8 items, all with new values every round, subscribed through
 * OpcAsyncIo2.advise and driven by a refresh from the cache; timed from the refresh request to the
 * last item reaching the Java listener. Beside it: the server's own time from the same request to the
 * data change reaching a native do-nothing callback (a second group of the same items), the floor
 * (the same update calls from a native thread attached once), and the cost of attaching and
 * detaching a thread, which the library pays once per data change.
 *
 * <p>Arguments: [warm-up rounds] [measured rounds] [attach-and-detach pairs].
 */
public final class DeliveryBench {
    private static final int ITEMS = BenchGroup.ITEMS;
    private static final long TIMEOUT_NANOS = 10_000_000_000L;

    private DeliveryBench() {}

    public static void main(String[] args) {
        int warmup = args.length > 0 ? Integer.parseInt(args[0]) : 30;
        int rounds = args.length > 1 ? Integer.parseInt(args[1]) : 101;
        int pairs = args.length > 2 ? Integer.parseInt(args[2]) : 2000;
        System.out.printf("Data-change delivery of %d VT_R8 items (OpcAsyncIo2.advise, refresh from the cache),"
                + " median of %d rounds after %d warm-up rounds%n", ITEMS, rounds, warmup);
        BenchGroup.prepareProcess();
        long server = BenchGroup.connect();
        Rounds[] measured;
        try {
            measured = measure(server, warmup, rounds);
        } finally {
            ComObjectClient.release(server);
        }
        double total = measured[0].perItem(ITEMS);
        double serverOnly = measured[1].perItem(ITEMS);
        double floor = measured[2].perItem(ITEMS);
        System.out.printf("  delivered %s items/s (%s ns per item); server %s ns per item;"
                + " floor %s items/s (%s ns per item)%n", Rounds.fixed(1e9 / total), Rounds.fixed(total),
                Rounds.fixed(serverOnly), Rounds.fixed(1e9 / floor), Rounds.fixed(floor));
        System.out.printf("  ratio %s = (total - server) / floor, target <= 1.5; total / floor %s%n",
                Rounds.ratioText(Rounds.ratio(total, serverOnly, floor)), Rounds.ratioText(total / floor));
        double spread = measured[3].perItem(ITEMS - 1);
        System.out.printf("  library, first to last item at the listener: %s ns per item (%s of the floor);"
                + " request to first item: %s us%n", Rounds.fixed(spread), Rounds.ratioText(spread / floor),
                Rounds.fixed((measured[0].median() - measured[3].median()) / 1000.0));

        BenchNatives.attachDetach(pairs / 10, true);
        long fresh = Rounds.median(BenchNatives.attachDetach(pairs, true));
        long reused = Rounds.median(BenchNatives.attachDetach(pairs, false));
        System.out.printf("  attach + detach per callback: %s us on a fresh native thread, %s us on one thread"
                + " over and over (%s ns per item of a %d-item data change)%n", Rounds.fixed(fresh / 1000.0),
                Rounds.fixed(reused / 1000.0), Rounds.fixed((double) reused / ITEMS), ITEMS);
    }

    /** {total, server, floor, first to last item of the library's rounds} rounds. */
    static Rounds[] measure(long server, int warmup, int rounds) {
        String[] ids = BenchGroup.ids("Bench.R8.", ITEMS);
        try (BenchGroup listened = BenchGroup.open(server, "delivery", ids);
                BenchGroup bare = BenchGroup.open(server, "delivery without Java", ids)) {
            Sink sink = new Sink();
            long cookie = OpcAsyncIo2.advise(listened.asyncIo, sink);
            if (cookie == 0) throw new IllegalStateException("advise made no connection");
            try {
                BenchNatives.disableSubscription(listened.asyncIo);
                settle(); // a subscription update that began before the disabling ends first
                Sink.Recording calls = sink.record(ITEMS);
                libraryDelivery(listened, sink, 0);
                sink.stopRecording();
                calls.check(true);

                Rounds total = new Rounds("library", rounds);
                Rounds serverOnly = new Rounds("server", rounds);
                Rounds floor = new Rounds("floor", rounds);
                Rounds spread = new Rounds("first to last item", rounds);
                for (int r = -warmup; r < rounds; r++) {
                    double values = (r + warmup + 1) * 2.0 * ITEMS;
                    long library = libraryDelivery(listened, sink, values);
                    long firstToLast = sink.finishedAt() - sink.startedAt();
                    BenchNatives.writeNumbers(bare.syncIo, bare.serverHandles, values + ITEMS);
                    long[] refresh = BenchNatives.serverRefresh(bare.asyncIo, ITEMS, 1);
                    sink.expect(ITEMS);
                    long[] upcalls = BenchNatives.attachedThreadFloor(sink, calls.handles, calls.values,
                            calls.timestamps, calls.qualities, calls.errors, 1);
                    if (!sink.finished()) throw new IllegalStateException("the floor made " + sink.count() + " calls");
                    if (r < 0) continue;
                    total.add(library);
                    serverOnly.addOnly(refresh);
                    floor.addOnly(upcalls);
                    spread.add(firstToLast);
                }
                if (Double.isNaN(sink.checksum())) System.out.println("(NaN among the values)");
                return new Rounds[] {total, serverOnly, floor, spread};
            } finally {
                OpcAsyncIo2.unadvise(listened.asyncIo, cookie);
            }
        }
    }

    private static void settle() {
        try {
            Thread.sleep(100);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** New values for every item, then a refresh; the time up to the last item reaching the listener. */
    private static long libraryDelivery(BenchGroup group, Sink sink, double firstValue) {
        BenchNatives.writeNumbers(group.syncIo, group.serverHandles, firstValue);
        sink.expect(ITEMS);
        long start = System.nanoTime();
        OpcAsyncIo2.refresh(group.asyncIo, true);
        if (!sink.awaitFinish(TIMEOUT_NANOS)) {
            throw new IllegalStateException("the data change delivered " + sink.count() + " items");
        }
        return sink.finishedAt() - start;
    }
}
