package com.velmora.opc.client;

/** A property that a server offers for an item: its id, description and value type. */
public record ItemProperty(int id, String description, int dataType) {}
