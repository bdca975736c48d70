package com.velmora.opc.client;

/**
 * An item to add to a group or to validate: its id, the data type the values should come in
 * ({@link #CANONICAL}, 0, for the server's own type) and whether it starts active.
 */
public record ItemDefinition(String itemId, int requestedType, boolean active) {
    public static final int CANONICAL = 0;

    public ItemDefinition {
        if (itemId == null) throw new IllegalArgumentException("null item id");
    }

    /** An active item in its canonical type. */
    public static ItemDefinition of(String itemId) {
        return new ItemDefinition(itemId, CANONICAL, true);
    }

    /** An active item whose values come in the requested type (a VARTYPE code, e.g. 8 for strings). */
    public static ItemDefinition of(String itemId, int requestedType) {
        return new ItemDefinition(itemId, requestedType, true);
    }
}
