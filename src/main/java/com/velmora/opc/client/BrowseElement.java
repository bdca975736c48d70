package com.velmora.opc.client;

/** One element of a server's address space under a branch: a branch, an item, or both. */
public record BrowseElement(String name, String itemId, boolean isItem, boolean hasChildren, int canonicalType,
        boolean readable, boolean writable) {

    /** "branch", "item", or "item+branch". */
    public String kind() {
        if (isItem && hasChildren) return "item+branch";
        return isItem ? "item" : "branch";
    }

    /** "rw", "r", "w" or "" for an item's access rights. */
    public String access() {
        return (readable ? "r" : "") + (writable ? "w" : "");
    }
}
