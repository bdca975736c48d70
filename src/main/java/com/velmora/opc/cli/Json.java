package com.velmora.opc.cli;

import com.velmora.opc.client.ItemValue;
import java.util.List;

/** The little JSON the command line writes. */
final class Json {
    private Json() {}

    static String object(List<String[]> fields) {
        StringBuilder json = new StringBuilder("{");
        for (int i = 0; i < fields.size(); i++) {
            if (i > 0) json.append(", ");
            json.append(string(fields.get(i)[0])).append(": ").append(string(fields.get(i)[1]));
        }
        return json.append('}').toString();
    }

    static String item(ItemValue v) {
        return "{\"item\": " + string(v.itemId())
                + ", \"value\": " + value(v.value())
                + ", \"quality\": " + string(v.isFailed() ? "bad" : v.qualityText())
                + ", \"qualityCode\": " + v.quality()
                + ", \"timestamp\": " + string(v.timestamp() == null ? null : v.timestamp().toString())
                + ", \"error\": " + string(v.errorText()) + "}";
    }

    static String values(List<ItemValue> values) {
        StringBuilder json = new StringBuilder("[");
        for (int i = 0; i < values.size(); i++) {
            ItemValue v = values.get(i);
            if (i > 0) json.append(",");
            json.append("\n  ").append(item(v));
        }
        return json.append(values.isEmpty() ? "]" : "\n]").toString();
    }

    static String value(Object value) {
        if (value == null) return "null";
        if (value instanceof Boolean) return value.toString();
        if (value instanceof Double d) return d.isNaN() || d.isInfinite() ? string(d.toString()) : d.toString();
        return string(value.toString());
    }

    static String string(String text) {
        if (text == null) return "null";
        StringBuilder s = new StringBuilder("\"");
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            switch (c) {
                case '"' -> s.append("\\\"");
                case '\\' -> s.append("\\\\");
                case '\n' -> s.append("\\n");
                case '\r' -> s.append("\\r");
                case '\t' -> s.append("\\t");
                default -> {
                    if (c < 0x20) {
                        s.append(String.format("\\u%04x", (int) c));
                    } else {
                        s.append(c);
                    }
                }
            }
        }
        return s.append('"').toString();
    }
}
