package com.velmora.opc.cli;

import java.io.PrintStream;
import java.util.ArrayList;
import java.util.List;

/** Prints rows in left-aligned columns separated by two blanks. */
final class Table {
    private Table() {}

    static void print(PrintStream out, String[] header, List<String[]> rows) {
        List<String[]> all = new ArrayList<>();
        if (header != null) all.add(header);
        all.addAll(rows);
        int columns = all.stream().mapToInt(r -> r.length).max().orElse(0);
        int[] widths = new int[columns];
        for (String[] row : all) {
            for (int c = 0; c < row.length; c++) widths[c] = Math.max(widths[c], row[c].length());
        }
        for (String[] row : all) {
            StringBuilder line = new StringBuilder();
            for (int c = 0; c < row.length; c++) {
                line.append(row[c]);
                if (c < row.length - 1) line.append(" ".repeat(widths[c] - row[c].length() + 2));
            }
            out.println(line.toString().stripTrailing());
        }
    }
}
