package com.velmora.opc.cli;

import com.fasterxml.jackson.core.JsonFactory;
import com.fasterxml.jackson.core.JsonGenerator;
import com.fasterxml.jackson.core.util.DefaultIndenter;
import com.fasterxml.jackson.core.util.DefaultPrettyPrinter;
import com.fasterxml.jackson.core.util.Separators;
import java.io.IOException;
import java.io.PrintStream;
import java.io.StringWriter;
import java.io.UncheckedIOException;
import java.time.Instant;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;

/**
 * Rows as aligned columns, CSV (RFC 4180, with a header row) or JSON (an array of objects keyed by
 * the column names, values typed). A row is a map from column name to value; the text forms show
 * a value through {@link Values#text}.
 */
final class Output {
    enum Format { TABLE, JSON, CSV }

    private static final JsonFactory JSON = JsonFactory.builder().build();

    private final PrintStream out;
    private final Format format;

    Output(PrintStream out, Format format) {
        this.out = out;
        this.format = format;
    }

    Format format() {
        return format;
    }

    /** Rows under the given columns. */
    void rows(List<String> columns, List<Map<String, Object>> rows) {
        switch (format) {
            case JSON -> out.println(json(rows, true));
            case CSV -> {
                out.println(csvLine(columns));
                for (Map<String, Object> row : rows) out.println(csvLine(cells(columns, row)));
            }
            case TABLE -> {
                List<String[]> cells = new ArrayList<>();
                for (Map<String, Object> row : rows) {
                    cells.add(columns.stream().map(c -> tableCell(row.get(c))).toArray(String[]::new));
                }
                Table.print(out, columns.stream().map(c -> c.toUpperCase(Locale.ROOT)).toArray(String[]::new), cells);
            }
        }
    }

    /** One record: a JSON object, name/value lines in CSV, or two columns without a header. */
    void record(Map<String, Object> fields) {
        switch (format) {
            case JSON -> out.println(json(fields, true));
            case CSV -> {
                out.println("field,value");
                fields.forEach((name, value) -> out.println(csvLine(List.of(name, Values.text(value)))));
            }
            case TABLE -> {
                List<String[]> cells = new ArrayList<>();
                fields.forEach((name, value) -> cells.add(new String[] {name, tableCell(value)}));
                Table.print(out, null, cells);
            }
        }
    }

    /** A table shows "-" where there is no value. */
    private static String tableCell(Object value) {
        return value == null ? "-" : Values.text(value);
    }

    private static List<String> cells(List<String> columns, Map<String, Object> row) {
        List<String> cells = new ArrayList<>();
        for (String column : columns) cells.add(Values.text(row.get(column)));
        return cells;
    }

    static String csvLine(List<String> cells) {
        StringBuilder line = new StringBuilder();
        for (int i = 0; i < cells.size(); i++) {
            if (i > 0) line.append(',');
            String cell = cells.get(i);
            if (cell.indexOf(',') >= 0 || cell.indexOf('"') >= 0 || cell.indexOf('\n') >= 0 || cell.indexOf('\r') >= 0) {
                line.append('"').append(cell.replace("\"", "\"\"")).append('"');
            } else {
                line.append(cell);
            }
        }
        return line.toString();
    }

    /** A value as JSON text, indented or on one line. */
    static String json(Object value, boolean pretty) {
        StringWriter text = new StringWriter();
        try (JsonGenerator json = JSON.createGenerator(text)) {
            if (pretty) {
                json.setPrettyPrinter(new DefaultPrettyPrinter(
                        Separators.createDefaultInstance().withObjectFieldValueSpacing(Separators.Spacing.AFTER))
                        .withArrayIndenter(DefaultIndenter.SYSTEM_LINEFEED_INSTANCE));
            }
            write(json, value, pretty);
        } catch (IOException e) {
            throw new UncheckedIOException(e);
        }
        return text.toString();
    }

    private static void write(JsonGenerator json, Object value, boolean pretty) throws IOException {
        if (value == null) {
            json.writeNull();
        } else if (value instanceof String s) {
            json.writeString(s);
        } else if (value instanceof Boolean b) {
            json.writeBoolean(b);
        } else if (value instanceof Long || value instanceof Integer || value instanceof Short || value instanceof Byte) {
            json.writeNumber(((Number) value).longValue());
        } else if (value instanceof java.math.BigInteger big) {
            json.writeNumber(big);
        } else if (value instanceof Number n) {
            double d = n.doubleValue();
            if (Double.isNaN(d) || Double.isInfinite(d)) {
                json.writeString(Double.toString(d));
            } else if (value instanceof Float f) {
                json.writeNumber(f);
            } else {
                json.writeNumber(d);
            }
        } else if (value instanceof Instant time) {
            json.writeString(time.toString());
        } else if (value instanceof Map<?, ?> map) {
            json.writeStartObject();
            for (Map.Entry<?, ?> field : map.entrySet()) {
                json.writeFieldName(String.valueOf(field.getKey()));
                write(json, field.getValue(), pretty);
            }
            json.writeEndObject();
        } else if (value instanceof List<?> list) {
            if (pretty && list.stream().noneMatch(e -> e instanceof Map || e instanceof List)) {
                List<String> elements = new ArrayList<>();  // a value's elements on one line
                for (Object element : list) elements.add(json(element, false));
                json.writeRawValue("[" + String.join(", ", elements) + "]");
                return;
            }
            json.writeStartArray();
            for (Object element : list) write(json, element, pretty);
            json.writeEndArray();
        } else {
            json.writeString(value.toString());
        }
    }

    /** A row from alternating names and values. */
    static Map<String, Object> row(Object... namesAndValues) {
        Map<String, Object> row = new LinkedHashMap<>();
        for (int i = 0; i < namesAndValues.length; i += 2) row.put((String) namesAndValues[i], namesAndValues[i + 1]);
        return row;
    }
}
