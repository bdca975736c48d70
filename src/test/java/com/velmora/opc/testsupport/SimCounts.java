package com.velmora.opc.testsupport;

import java.util.LinkedHashMap;
import java.util.Map;

/** Live object and connection counts of the simulation server, when it is built. */
final class SimCounts {
    private static final String[] KINDS = {"server", "group", "enum", "connectionpoint", "factory", "serverlist"};
    private static final String[] CONNECTIONS = {"datacallback", "shutdown"};

    private SimCounts() {}

    static Map<String, Long> snapshot() {
        Map<String, Long> counts = new LinkedHashMap<>();
        if (!SimControl.available()) return counts;
        for (String kind : KINDS) counts.put("simulation " + kind + " objects", SimControl.liveObjects(kind));
        for (String kind : CONNECTIONS) counts.put("simulation " + kind + " connections", SimControl.connections(kind));
        return counts;
    }
}
