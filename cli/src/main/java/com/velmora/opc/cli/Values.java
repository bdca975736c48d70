package com.velmora.opc.cli;

import java.time.Instant;
import java.util.ArrayList;
import java.util.List;

/**
 * Values as their item's type has them. The library hands a number over as a double and an array
 * as comma-joined text; with the item's canonical VARTYPE the client turns them back into whole
 * numbers and lists of the element type.
 */
final class Values {
    private static final int VT_ARRAY = 0x2000;
    private static final int VT_R4 = 4;
    private static final int VT_R8 = 5;
    private static final int VT_BOOL = 11;

    private Values() {}

    static boolean isInteger(int type) {
        return switch (type) {
            case 2, 3, 16, 17, 18, 19, 20, 21, 22, 23 -> true;
            default -> false;
        };
    }

    /** The value as its type has it: Long for integer types, List for arrays; others as they came. */
    static Object typed(Object value, int type) {
        if (value == null) return null;
        if ((type & VT_ARRAY) != 0 && value instanceof String text) {
            List<Object> elements = new ArrayList<>();
            if (text.isEmpty()) return elements;
            for (String element : text.split(",", -1)) elements.add(element(element, type & ~VT_ARRAY));
            return elements;
        }
        if (isInteger(type) && value instanceof Double d && d == Math.rint(d) && Math.abs(d) < 0x1p63) {
            return d.longValue();
        }
        return value;
    }

    private static Object element(String text, int type) {
        String t = text.strip();
        try {
            if (isInteger(type)) {
                double d = Double.parseDouble(t);
                return d == Math.rint(d) && Math.abs(d) < 0x1p63 ? (Object) (long) d : (Object) d;
            }
            if (type == VT_R4 || type == VT_R8) return Double.parseDouble(t);
        } catch (NumberFormatException e) {
            return text;
        }
        if (type == VT_BOOL) return t.equals("true") || t.equals("-1") || t.equals("1");
        return text;
    }

    /** A value as text: whole doubles without a fraction, lists comma-joined, null as "". */
    static String text(Object value) {
        if (value == null) return "";
        if (value instanceof Double d && !d.isInfinite() && d == Math.rint(d) && Math.abs(d) < 1e15) {
            return Long.toString(d.longValue());
        }
        if (value instanceof List<?> list) {
            List<String> texts = new ArrayList<>();
            for (Object element : list) texts.add(text(element));
            return String.join(",", texts);
        }
        if (value instanceof Instant time) return time.toString();
        return value.toString();
    }
}
