package com.velmora.opc.testsupport;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.util.*;
import org.junit.jupiter.api.extension.*;

/**
 * Records the substrate's live allocations, live COM objects and the simulation server's connections
 * before each test and fails the test when they are not back to the same numbers after it: whatever a
 * call allocated for its caller, the caller freed, and every callback it connected, it disconnected.
 * Registered for every test class (META-INF/services, junit-platform.properties); the out-of-process
 * tests keep their own count, as a proxy's memory settles on the RPC runtime's schedule.
 */
public final class LedgerCheck implements BeforeEachCallback, AfterEachCallback {
    private static final ExtensionContext.Namespace NS = ExtensionContext.Namespace.create(LedgerCheck.class);

    /**
     * The counts that must balance, by name; the simulation server's when it is built. Ledger kinds
     * the platform cannot count (BSTRs and SAFEARRAYs on Windows) are left out.
     */
    private static Map<String, Long> snapshot() {
        Map<String, Long> counts = new LinkedHashMap<>();
        String[] kinds = {"task memory blocks", "BSTRs", "SAFEARRAYs", "task memory blocks freed twice"};
        for (int kind = TestSupport.TASK_MEMORY; kind <= TestSupport.DOUBLE_FREES; kind++) {
            long live = TestSupport.ledgerLiveCount(kind);
            if (live >= 0) counts.put(kinds[kind], live);
        }
        counts.put("probe objects", TestSupport.liveObjects());
        if (!SimControl.available()) return counts;
        for (String kind : List.of("server", "group", "enum", "connectionpoint", "factory", "serverlist")) {
            counts.put("simulation " + kind + " objects", SimControl.liveObjects(kind));
        }
        for (String kind : List.of("datacallback", "shutdown")) {
            counts.put("simulation " + kind + " connections", SimControl.connections(kind));
        }
        return counts;
    }

    @Override
    public void beforeEach(ExtensionContext context) {
        if (context.getRequiredTestClass().getPackageName().endsWith(".outproc")) return;
        context.getStore(NS).put("before", snapshot());
    }

    @Override
    public void afterEach(ExtensionContext context) {
        @SuppressWarnings("unchecked")
        Map<String, Long> before = context.getStore(NS).remove("before", Map.class);
        if (before == null || context.getExecutionException().isPresent()) return;
        assertEquals(before, awaitBalance(before), "live native resources after the test");
    }

    // Objects released on COM threads (callbacks, server timers) may need a moment to go.
    private static Map<String, Long> awaitBalance(Map<String, Long> before) {
        Map<String, Long> after = snapshot();
        for (int i = 0; i < 50 && !after.equals(before); i++) {
            try {
                Thread.sleep(20);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
                break;
            }
            after = snapshot();
        }
        return after;
    }
}
