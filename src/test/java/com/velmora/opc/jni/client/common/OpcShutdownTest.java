package com.velmora.opc.jni.client.common;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class OpcShutdownTest {
    private static final int E_FAIL = 0x80004005;

    /** Records the listener calls with the thread they came on. */
    static final class Recorder implements ShutdownListener {
        final List<String> calls = new ArrayList<>();
        final List<String> threads = new ArrayList<>();

        @Override
        public synchronized void shutdownRequest(String reason) {
            calls.add("request " + reason);
            threads.add(Thread.currentThread().getName());
        }

        @Override
        public synchronized void shutdownDeleted() {
            calls.add("deleted");
            threads.add(Thread.currentThread().getName());
        }

        synchronized List<String> calls() {
            return List.copyOf(calls);
        }

        /** The calls once they stop changing (the final release may come on a COM thread). */
        List<String> settled(int expected) throws InterruptedException {
            for (int i = 0; i < 100 && calls().size() < expected; i++) Thread.sleep(20);
            Thread.sleep(50);
            return calls();
        }
    }

    @Test
    void aConnectionWithoutRequestEndsWithOneShutdownDeleted() throws InterruptedException {
        try (SimFixture sim = SimFixture.open()) {
            Recorder listener = new Recorder();
            long cookie = OpcShutdown.advise(sim.server, listener);
            assertNotEquals(0, cookie);
            OpcShutdown.unadvise(sim.server, cookie);
            assertEquals(List.of("deleted"), listener.settled(1));
        }
    }

    @Test
    void aShutdownRequestReachesTheListenerOnceAndEndsTheDeletedNotice() throws InterruptedException {
        try (SimFixture sim = SimFixture.open()) {
            Recorder withReason = new Recorder();
            Recorder withoutReason = new Recorder();
            long first = OpcShutdown.advise(sim.server, withReason);
            // The reason goes to the console only; the listener hears of the request without it.
            assertEquals(1, SimControl.shutdown("maintenance"));
            assertEquals(List.of("request null"), withReason.settled(1));
            assertTrue(withReason.threads.size() == 1);
            OpcShutdown.unadvise(sim.server, first);

            long second = OpcShutdown.advise(sim.server, withoutReason);
            assertEquals(1, SimControl.shutdown(null));
            OpcShutdown.unadvise(sim.server, second);
            assertEquals(List.of("request null"), withReason.settled(1));
            assertEquals(List.of(), withoutReason.settled(0));
        }
    }

    @Test
    void failuresAreReportedAndAnUnadvisedListenerHearsNothing() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Recorder listener = new Recorder();
            assertEquals(0, OpcShutdown.advise(sim.server, null));
            assertEquals(0, OpcShutdown.advise(0, listener));
            OpcShutdown.unadvise(0, 1);

            SimControl.failNext("IConnectionPoint::Advise", E_FAIL, 1);
            HresultException advise = assertThrows(HresultException.class,
                    () -> OpcShutdown.advise(sim.server, listener));
            assertEquals("IConnectionPoint::Advise", advise.getOperation());

            HresultException unadvise = assertThrows(HresultException.class,
                    () -> OpcShutdown.unadvise(sim.server, 12345));
            assertEquals("IConnectionPoint::Unadvise", unadvise.getOperation());
            assertEquals(List.of(), listener.settled(0));
            assertEquals(List.of("OpcShutdown::Advise method failed, callback object is null",
                    "OpcShutdown::Advise method failed, server is null",
                    "OpcShutdown::unadvise- argument is NULL",
                    "OpcShutdown::unadvise- check returned false"), log.texts());
        }
    }
}
