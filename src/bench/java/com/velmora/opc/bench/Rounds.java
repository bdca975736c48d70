package com.velmora.opc.bench;

import com.velmora.opc.jni.ComObjectClient;
import java.util.Arrays;
import java.util.Locale;

/** Per-round times of one measured path, and what the reports print of them. */
final class Rounds {
    private final String name;
    private final long[] nanos;
    private int size;

    Rounds(String name, int capacity) {
        this.name = name;
        this.nanos = new long[capacity];
    }

    void add(long roundNanos) {
        nanos[size++] = roundNanos;
    }

    /** Adds the single round that a timing native returned. */
    void addOnly(long[] rounds) {
        if (rounds == null || rounds.length != 1) throw new IllegalStateException(name + ": expected one round");
        add(rounds[0]);
    }

    String name() {
        return name;
    }

    long median() {
        return median(Arrays.copyOf(nanos, size));
    }

    /** The median of the values; the mean of the two middle ones for an even count. */
    static long median(long[] values) {
        if (values.length == 0) throw new IllegalArgumentException("no rounds");
        long[] sorted = values.clone();
        Arrays.sort(sorted);
        int mid = sorted.length / 2;
        return sorted.length % 2 == 1 ? sorted[mid] : (sorted[mid - 1] + sorted[mid]) / 2;
    }

    /** Nanoseconds per item of the median round. */
    double perItem(int items) {
        return (double) median() / items;
    }

    /** The ratio the benchmarks report: what the library adds to the server, over the floor. */
    static double ratio(double total, double server, double floor) {
        return (total - server) / floor;
    }

    static String fixed(double value) {
        return String.format(Locale.ROOT, "%.1f", value);
    }

    static String ratioText(double value) {
        return String.format(Locale.ROOT, "%.2f", value);
    }

    /**
     * Prints one row of {total, server, floor} rounds, ns per item, and its ratio. With a fourth set of
     * rounds (the server calls and the floor's calls made together from native code), the server's
     * share is that time less the floor's: the server's time as it is when Java's calls and objects
     * come between its work, as they do in the library's loop; its time alone follows on a second line.
     */
    static void report(String label, int items, Rounds[] measured) {
        double total = measured[0].perItem(items);
        double alone = measured[1].perItem(items);
        double floor = measured[2].perItem(items);
        double server = measured.length > 3 ? measured[3].perItem(items) - floor : alone;
        System.out.printf("  %s  total %s  server %s  floor %s  ratio %s%n", label, fixed(total), fixed(server),
                fixed(floor), ratioText(ratio(total, server, floor)));
        if (measured.length > 3) {
            System.out.printf("  %s  server = the server calls and the floor's from native code (%s) - floor;"
                    + " server alone %s%n", " ".repeat(label.length()), fixed(server + floor), fixed(alone));
        }
    }

    /** {total, server, floor} rounds of a read of the items whose ids start with prefix. */
    interface ReadMeasure {
        Rounds[] measure(long server, String prefix, boolean numeric, int warmup, int rounds);
    }

    /**
     * The main of a read benchmark: the title (given the rounds and warm-up rounds), then a row for
     * the VT_R8 items and one for the VT_BSTR items, then the ratio line with the target.
     * Arguments: [warm-up rounds] [measured rounds].
     */
    static void readByType(String[] args, String title, String target, ReadMeasure read) {
        int warmup = args.length > 0 ? Integer.parseInt(args[0]) : 30;
        int rounds = args.length > 1 ? Integer.parseInt(args[1]) : 101;
        System.out.printf(Locale.ROOT, "%s, ns per item, median of %d rounds after %d warm-up rounds%n", title,
                rounds, warmup);
        BenchGroup.prepareProcess();
        long server = BenchGroup.connect();
        try {
            report("VT_R8  ", BenchGroup.ITEMS, read.measure(server, "Bench.R8.", true, warmup, rounds));
            report("VT_BSTR", BenchGroup.ITEMS, read.measure(server, "Bench.Str.", false, warmup, rounds));
        } finally {
            ComObjectClient.release(server);
        }
        System.out.println("ratio = (total - server) / floor; target <= " + target);
    }
}
