package com.velmora.opc.bench;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.AddressSpaceCollector;
import com.velmora.opc.jni.client.da.BrowseElementCollector;
import com.velmora.opc.jni.client.da.OpcBrowse;
import com.velmora.opc.jni.client.da.OpcBrowseServerAddressSpace;

/**
 * Browse of a branch of 100,000 leaves (the simulation server's "Bench.Many"): through IOPCBrowse
 * (OpcBrowse.browse, the server answering in portions of 1,000 elements with continuation points)
 * and through IOPCBrowseServerAddressSpace (OpcBrowseServerAddressSpace.getItems: one enumeration,
 * an item id per name). Beside each: the floor, the same add calls with the same Strings made from
 * native code; and the server's share: the same server calls with every answer freed and the floor's
 * calls made together from native code, less the floor (the server's time alone is printed too).
 * Rounds of the four interleave; medians count.
 *
 * <p>Arguments: [warm-up rounds] [measured rounds] [elements] [portion].
 */
public final class BrowseBench {
    private static final String BRANCH = "Bench.Many";
    private static final String IID_IOPC_BROWSE = "{39227004-A18F-4B57-8B0A-5235670F4468}";
    private static final String IID_IOPC_BROWSE_SERVER_ADDRESS_SPACE = "{39C13A4F-011E-11D0-9675-0020AFD8ADB3}";

    private BrowseBench() {}

    public static void main(String[] args) {
        int warmup = args.length > 0 ? Integer.parseInt(args[0]) : 5;
        int rounds = args.length > 1 ? Integer.parseInt(args[1]) : 21;
        int elements = args.length > 2 ? Integer.parseInt(args[2]) : 100_000;
        int portion = args.length > 3 ? Integer.parseInt(args[3]) : 1_000;
        System.out.printf("Browse of %d elements (%s), ns per element, median of %d rounds after %d warm-up rounds%n",
                elements, BRANCH, rounds, warmup);
        BenchGroup.prepareProcess();
        BenchNatives.requireSimulation();
        long server = BenchGroup.connect();
        long browse = ComObjectClient.query(server, IID_IOPC_BROWSE);
        long space = ComObjectClient.query(server, IID_IOPC_BROWSE_SERVER_ADDRESS_SPACE);
        BenchNatives.benchBranch(elements);
        BenchNatives.browsePortion(portion);
        try {
            if (browse == 0 || space == 0) throw new IllegalStateException("the server lacks a browse interface");
            report("OpcBrowse.browse (" + portion + " per answer)", elements, measure(browse, true, elements,
                    warmup, rounds));
            report("getItems", elements, measure(space, false, elements, warmup, rounds));
        } finally {
            BenchNatives.benchBranch(0);
            BenchNatives.browsePortion(0);
            for (long handle : new long[] {space, browse, server}) {
                if (handle != 0) ComObjectClient.release(handle);
            }
        }
        System.out.println("ratio = (total - server) / floor; floor = the same add calls from native code;"
                + " target <= 1.25");
    }

    private static void report(String path, int elements, Rounds[] measured) {
        Rounds.report(String.format("%-34s", path), elements, measured);
    }

    /** {total, server alone, floor, server and floor} rounds through IOPCBrowse (da3) or IOPCBrowseServerAddressSpace. */
    static Rounds[] measure(long browser, boolean da3, int elements, int warmup, int rounds) {
        Elements collected = new Elements(elements);
        collected.record = true;
        libraryBrowse(browser, da3, collected);
        collected.record = false;
        if (collected.count != elements) {
            throw new IllegalStateException("the browse gave " + collected.count + " of " + elements + " elements");
        }
        Rounds total = new Rounds("library", rounds);
        Rounds serverOnly = new Rounds("server", rounds);
        Rounds floor = new Rounds("floor", rounds);
        Rounds together = new Rounds("server and floor", rounds);
        for (int r = -warmup; r < rounds; r++) {
            long library = libraryBrowse(browser, da3, collected);
            long[] server = serverBrowse(browser, da3, null);
            if (server[1] != elements) throw new IllegalStateException("the server gave " + server[1] + " elements");
            collected.count = 0;
            long[] both = serverBrowse(browser, da3, collected);
            if (collected.count != elements) throw new IllegalStateException("the native loop made " + collected.count);
            collected.count = 0;
            long[] adds = BenchNatives.addFloor(collected, da3, collected.names, collected.itemIds, 1);
            if (collected.count != elements) throw new IllegalStateException("the floor made " + collected.count);
            if (r < 0) continue;
            total.add(library);
            serverOnly.add(server[0]);
            floor.addOnly(adds);
            together.add(both[0]);
        }
        return new Rounds[] {total, serverOnly, floor, together};
    }

    /** One round of the server's browse calls from native code, with the floor's adds to the receiver if given. */
    private static long[] serverBrowse(long browser, boolean da3, Elements receiver) {
        return da3 ? BenchNatives.serverBrowse(browser, BRANCH, receiver, 1)
                : BenchNatives.serverBrowseItemIds(browser, BRANCH, receiver, 1);
    }

    private static long libraryBrowse(long browser, boolean da3, Elements collected) {
        collected.count = 0;
        long start = System.nanoTime();
        if (da3) {
            OpcBrowse.browse(browser, BRANCH, collected);
        } else {
            OpcBrowseServerAddressSpace.getItems(browser, BRANCH, false, collected);
        }
        long elapsed = System.nanoTime() - start;
        if (collected.count != collected.names.length) {
            throw new IllegalStateException("the browse gave " + collected.count + " elements");
        }
        return elapsed;
    }

    /** Counts the elements and, while recording, keeps their names and item ids. */
    private static final class Elements implements BrowseElementCollector, AddressSpaceCollector {
        final String[] names;
        final String[] itemIds;
        boolean record;
        int count;
        private long chars;

        Elements(int capacity) {
            names = new String[capacity];
            itemIds = new String[capacity];
        }

        @Override
        public void add(String name, String itemId, boolean isItem, boolean hasChildren, int canonicalDataType,
                boolean readable, boolean writable) {
            add(name, itemId);
        }

        @Override
        public void add(String name, String itemId) {
            if (record && count < names.length) {
                names[count] = name;
                itemIds[count] = itemId;
            }
            chars += name.length();
            count++;
        }
    }
}
