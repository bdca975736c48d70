package com.velmora.opc.testsupport;

import java.util.Map;

/** Live object counts of the simulation server, once its control surface is bound. */
final class SimCounts {
    private SimCounts() {}

    static Map<String, Long> snapshot() {
        return Map.of();
    }
}
