package com.velmora.opc.jni.client.common;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.testsupport.*;
import com.velmora.opc.testsupport.LogCapture.Line;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcShutdownTest {

    @Test
    void aConnectionEndedWithoutARequestGivesExactlyOneDeletionNotice() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Recorder byUnadvise = new Recorder();
            long cookie = OpcShutdown.advise(sim.server, byUnadvise);
            assertTrue(cookie > 0 && cookie <= 0xFFFFFFFFL, "cookie " + cookie);
            // Only the low 32 bits of the cookie reach the server.
            OpcShutdown.unadvise(sim.server, cookie | 0x5_0000_0000L);
            assertEquals("cookie=" + cookie, SimControl.lastCallArgs("IConnectionPoint::Unadvise"));
            assertEquals(1, byUnadvise.settledDeletions());
            assertEquals(List.of("deleted"), byUnadvise.calls());

            // A server that goes away while connected ends the connection too.
            long other = OpcDaServer.createLocalServer(SimControl.PROG_ID);
            Recorder byRelease = new Recorder();
            assertNotEquals(0, OpcShutdown.advise(other, byRelease));
            ComObjectClient.release(other);
            assertEquals(1, byRelease.settledDeletions());
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void aRequestWithAReasonGoesToTheConsoleAndToTheListenerWithoutIt() {
        TestSupport.assumeInProcess("a request without a reason cannot cross the proxy: its [string] argument is a reference pointer");
        ChildJvm.Result child = ChildJvm.run("shutdown");
        List<String> lines = child.output().lines().toList();
        int advised = lines.indexOf("reasoned advised true");
        int reason = lines.indexOf("OPC Server shutdown reason: maintenance");
        int called = lines.indexOf("reasoned sinks called 1");
        assertTrue(advised >= 0 && advised < reason && reason < called, child.output());
        assertEquals(1, lines.stream().filter(l -> l.startsWith("OPC Server shutdown reason")).count(), child.output());
        // On a thread of the server's; after a request the end of the connection is not reported, and a
        // request without a reason is not passed on at all.
        child.assertPrinted("reasoned heard [shutdown null]", "silent sinks called 1", "silent heard []");
    }

    @Test
    void connectionsThatCannotBeMadeAndListenersWithoutTheNoticeMethods() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Recorder listener = new Recorder();
            // The missing listener is reported first, whatever the server handle.
            assertEquals(0, OpcShutdown.advise(0, null));
            assertEquals(List.of(new Line("ERROR", "OpcShutdown::Advise method failed, callback object is null")),
                    log.lines());
            SimControl.failNext("IConnectionPointContainer::FindConnectionPoint", E_FAIL, 1);
            fails("IConnectionPointContainer::FindConnectionPoint", () -> OpcShutdown.advise(sim.server, listener));
            long plain = TestSupport.createObject();
            try {
                assertEquals(E_NOINTERFACE, fails("IUnknown::QueryInterface#IConnectionPointContainer",
                        () -> OpcShutdown.advise(plain, listener)).getHresult());
                fails("IOPCServer::QueryInterface#IConnectionPointContainer", () -> OpcShutdown.unadvise(plain, 1));
                assertEquals(1, TestSupport.refCount(plain));
            } finally {
                TestSupport.releaseObject(plain);
            }

            Object bare = new Object();
            long cookie = OpcShutdown.advise(sim.server, bare);
            assertNotEquals(0, cookie);
            assertEquals(1, SimControl.shutdown(null));
            OpcShutdown.unadvise(sim.server, cookie);
            OpcShutdown.unadvise(sim.server, OpcShutdown.advise(sim.server, bare));
            Thread.sleep(100);
            assertEquals(List.of(), listener.calls());
            assertEquals(1, log.texts().size(), log.texts()::toString);
        }
    }
}
