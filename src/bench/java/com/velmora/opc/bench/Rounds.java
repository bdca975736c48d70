package com.velmora.opc.bench;

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
}
