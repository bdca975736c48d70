package com.velmora.opc.jni.client.common;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.jni.NativeChildMain;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.testsupport.ChildJvm;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import com.velmora.opc.testsupport.TestSupport;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
/**
 * How a shutdown connection ends (by cookie, by the server going away, after a request), the
 * console line of a request with a reason, and connections that cannot be made.
 */
class ShutdownConnectionTest {
    private static final int E_FAIL = 0x80004005;
    private static final int E_NOINTERFACE = 0x80004002;

    /** Records what reaches it; notices may come on server threads. */
    static final class Listener implements ShutdownListener {
        final List<String> requests = new ArrayList<>();
        int deleted;

        @Override
        public synchronized void shutdownRequest(String reason) {
            requests.add(String.valueOf(reason));
        }

        @Override
        public synchronized void shutdownDeleted() {
            deleted++;
        }

        synchronized int deleted() {
            return deleted;
        }

        synchronized List<String> requests() {
            return List.copyOf(requests);
        }
    }

    private static void settle() throws InterruptedException {
        Thread.sleep(100); // a second notice, if one were coming, would come from the same release
    }

    @Test
    void aConnectionEndedWithoutARequestGivesExactlyOneDeletionNotice() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Listener byUnadvise = new Listener();
            long cookie = OpcShutdown.advise(sim.server, byUnadvise);
            assertNotEquals(0, cookie);
            assertTrue(cookie > 0 && cookie <= 0xFFFFFFFFL, "cookie " + cookie);
            // Only the low 32 bits of the cookie reach the server.
            OpcShutdown.unadvise(sim.server, cookie | 0x5_0000_0000L);
            assertEquals("cookie=" + cookie, SimControl.lastCallArgs("IConnectionPoint::Unadvise"));
            settle();
            assertEquals(1, byUnadvise.deleted());
            assertEquals(List.of(), byUnadvise.requests());

            // A server that goes away while connected ends the connection too.
            long other = OpcDaServer.createLocalServer(SimControl.PROG_ID);
            Listener byRelease = new Listener();
            assertNotEquals(0, OpcShutdown.advise(other, byRelease));
            ComObjectClient.release(other);
            settle();
            assertEquals(1, byRelease.deleted());
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void aRequestWithAReasonGoesToTheConsoleAndToTheListenerWithoutIt() {
        ChildJvm.Result child = ChildJvm.run(NativeChildMain.class, TestSupport.nativeDir(), Set.of(), "shutdown");
        List<String> lines = child.output().lines().toList();
        int advised = lines.indexOf("reasoned advised true");
        int called = lines.indexOf("reasoned sinks called 1");
        int reason = lines.indexOf("OPC Server shutdown reason: maintenance");
        assertTrue(advised >= 0 && advised < reason && reason < called, child.output());
        assertTrue(child.printed("reasoned request null on another thread"), child.output());
        assertTrue(child.printed("silent sinks called 1"), child.output());
        // After a request, the end of the connection is not reported; a request without a reason is silent.
        assertFalse(child.output().contains("deleted"), child.output());
        assertFalse(child.output().contains("silent request"), child.output());
        assertEquals(1, lines.stream().filter(l -> l.startsWith("OPC Server shutdown reason")).count(), child.output());
        assertTrue(child.printed("silent released"), child.output());
    }

    @Test
    void connectionsThatCannotBeMade() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Listener listener = new Listener();
            // The missing listener is reported first, whatever the server handle.
            assertEquals(0, OpcShutdown.advise(0, null));
            assertEquals(List.of(new LogCapture.Line("ERROR", "OpcShutdown::Advise method failed, callback object is null")),
                    log.lines());

            SimControl.failNext("IConnectionPointContainer::FindConnectionPoint", E_FAIL, 1);
            HresultException noPoint = assertThrows(HresultException.class, () -> OpcShutdown.advise(sim.server, listener));
            assertEquals("IConnectionPointContainer::FindConnectionPoint", noPoint.getOperation());
            long plain = TestSupport.createObject();
            try {
                HresultException noContainer = assertThrows(HresultException.class, () -> OpcShutdown.advise(plain, listener));
                assertEquals("IUnknown::QueryInterface#IConnectionPointContainer", noContainer.getOperation());
                assertEquals(E_NOINTERFACE, noContainer.getHresult());
                HresultException notAServer = assertThrows(HresultException.class, () -> OpcShutdown.unadvise(plain, 1));
                assertEquals("IOPCServer::QueryInterface#IConnectionPointContainer", notAServer.getOperation());
                assertEquals(1, TestSupport.refCount(plain));
            } finally {
                TestSupport.releaseObject(plain);
            }
            settle();
            assertEquals(0, listener.deleted());
            assertEquals(1, log.texts().size(), log.texts()::toString);
        }
    }

    @Test
    void aListenerWithoutTheNoticeMethodsCanStillBeConnected() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Object bare = new Object();
            long cookie = OpcShutdown.advise(sim.server, bare);
            assertNotEquals(0, cookie);
            assertEquals(1, SimControl.shutdown(null));
            OpcShutdown.unadvise(sim.server, cookie);
            long again = OpcShutdown.advise(sim.server, bare);
            OpcShutdown.unadvise(sim.server, again);
            settle();
            assertEquals(List.of(), log.texts());
        }
    }
}
