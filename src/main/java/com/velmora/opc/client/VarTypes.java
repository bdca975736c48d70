package com.velmora.opc.client;

import java.lang.reflect.Array;

/** The VARTYPE codes that values travel with, and the conversions of Java values for a write. */
public final class VarTypes {
    static final int VT_BSTR = 8;
    static final int VT_BOOL = 11;
    static final int VT_ARRAY = 0x2000;
    static final int OPC_E_BADTYPE = 0xC0040004;
    static final int OPC_E_RANGE = 0xC004000B;

    private VarTypes() {}

    /** The type's name, e.g. "R8", "BSTR", "I4[]" for an array; "VT 42" for other codes. */
    public static String name(int type) {
        String element = switch (type & ~VT_ARRAY) {
            case 0 -> "EMPTY";
            case 1 -> "NULL";
            case 2 -> "I2";
            case 3 -> "I4";
            case 4 -> "R4";
            case 5 -> "R8";
            case 6 -> "CY";
            case 7 -> "DATE";
            case 8 -> "BSTR";
            case 10 -> "ERROR";
            case 11 -> "BOOL";
            case 12 -> "VARIANT";
            case 16 -> "I1";
            case 17 -> "UI1";
            case 18 -> "UI2";
            case 19 -> "UI4";
            case 20 -> "I8";
            case 21 -> "UI8";
            case 22 -> "INT";
            case 23 -> "UINT";
            default -> null;
        };
        if (element == null) return "VT " + type;
        return isArray(type) ? element + "[]" : element;
    }

    static boolean isArray(int type) {
        return (type & VT_ARRAY) != 0;
    }

    static boolean isNumeric(int type) {
        return switch (type) {
            case 2, 3, 4, 5, 16, 17, 18, 19, 22, 23 -> true;
            default -> false;
        };
    }

    /** A number, or the text of one; null when the value is neither. */
    static Double toDouble(Object value) {
        if (value instanceof Number n) return n.doubleValue();
        if (value instanceof String text) {
            try {
                return Double.valueOf(text.trim());
            } catch (NumberFormatException e) {
                return null;
            }
        }
        return null;
    }

    /** A Boolean, or the text "true"/"false" in any case, or the number 0 or 1; else null. */
    static Boolean toBoolean(Object value) {
        if (value instanceof Boolean b) return b;
        if (value instanceof String text) {
            String t = text.trim();
            if (t.equalsIgnoreCase("true") || t.equals("1")) return Boolean.TRUE;
            if (t.equalsIgnoreCase("false") || t.equals("0")) return Boolean.FALSE;
            return null;
        }
        if (value instanceof Number n) {
            if (n.doubleValue() == 1) return Boolean.TRUE;
            if (n.doubleValue() == 0) return Boolean.FALSE;
        }
        return null;
    }

    /** An array value as the comma-separated text the library converts; a String passes as it is. */
    static String arrayText(Object value) {
        if (value == null) return null;
        if (!value.getClass().isArray()) return value.toString();
        StringBuilder text = new StringBuilder();
        for (int i = 0; i < Array.getLength(value); i++) {
            if (i > 0) text.append(',');
            Object element = Array.get(value, i);
            if (element instanceof Double d && d == Math.rint(d) && !d.isInfinite() && Math.abs(d) < 1e15) {
                text.append(d.longValue());
            } else if (element instanceof Float f && f == Math.rint(f) && !f.isInfinite() && Math.abs(f) < 1e7) {
                text.append(f.longValue());
            } else {
                text.append(element);
            }
        }
        return text.toString();
    }

    /** Whether values of the type can be written: numbers, booleans, strings and arrays. */
    static boolean isWritable(int type) {
        return isArray(type) || type == VT_BSTR || type == VT_BOOL || isNumeric(type);
    }

    /**
     * A value as the text that the library converts to the type: numbers as Java writes a double,
     * booleans as "true" or "false", arrays comma-separated. Null when the value does not convert or
     * the type cannot be written.
     */
    static String writeText(int type, Object value) {
        if (value == null) return null;
        if (isArray(type)) return arrayText(value);
        if (type == VT_BSTR) return String.valueOf(value);
        if (type == VT_BOOL) {
            Boolean flag = toBoolean(value);
            return flag == null ? null : flag.toString();
        }
        if (isNumeric(type)) {
            Double number = toDouble(value);
            return number == null || number.isNaN() || number.isInfinite() ? null : number.toString();
        }
        return null;
    }

    /**
     * The typed value of a read completion's item from its kind and text: a Double (kind 1), a
     * Boolean (2), the text itself (3: strings and array texts), or null (4: not deliverable).
     */
    static Object fromKind(int kind, String text) {
        switch (kind) {
            case 1:
                return parseNumber(text);
            case 2:
                return Boolean.valueOf("true".equals(text));
            case 3:
                return text;
            default:
                return null;
        }
    }

    private static Double parseNumber(String text) {
        if (text == null) return null;
        String t = text.trim().toLowerCase(java.util.Locale.ROOT);
        switch (t) {
            case "inf", "+inf", "infinity":
                return Double.POSITIVE_INFINITY;
            case "-inf", "-infinity":
                return Double.NEGATIVE_INFINITY;
            case "nan", "-nan", "+nan":
                return Double.NaN;
            default:
                try {
                    return Double.valueOf(t);
                } catch (NumberFormatException e) {
                    return null;
                }
        }
    }
}
