package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static com.velmora.opc.testsupport.SimFixture.readBack;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.testsupport.*;
import com.velmora.opc.testsupport.LogCapture.Line;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;

/**
 * Asynchronous requests and the native data callback: how a connection is made or refused, every
 * way it ends (each with exactly one deletion notice), the values and threads it delivers on, and
 * Java callbacks that misbehave.
 */
class OpcAsyncIo2Test {

    @Test
    void readAsyncAnswersOnTheCallerThenCompletesThroughTheCallback() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("g", 60_000, "Simulation.Static.R8", "Simulation.Static.BOOL",
                    "Simulation.Array.I2");
            int[] h = g.items();
            Recorder.Callback callback = new Recorder.Callback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), callback);
            Recorder issued = new Recorder();
            OpcAsyncIo2.readAsync(g.asyncIo(), 3, 42, h, issued);
            assertEquals("issued read 0 3 42 " + Arrays.toString(h) + " null", issued.last());
            assertSame(h, issued.records().get(0).args()[4]);
            assertEquals("read 42 0 0 3 [100, 101, 102] [1, 2, 3] [2.71828, true, -5,0,7] [192, 192, 192] [0, 0, 0]",
                    callback.await("read 42 "));

            // A read error of one item arrives with the completion; an unknown handle with the issue.
            SimControl.setItemError("Simulation.Static.BOOL", OPC_E_BADRIGHTS);
            OpcAsyncIo2.readAsync(g.asyncIo(), 2, 43, h, issued);
            assertTrue(issued.last().startsWith("issued read 0 2 43 "), issued.last());
            assertTrue(callback.await("read 43 ").endsWith(" [0, " + OPC_E_BADRIGHTS + "]"));
            int[] unknown = {h[0], 999_999};
            OpcAsyncIo2.readAsync(g.asyncIo(), 2, 44, unknown, issued);
            assertEquals("issued read 1 2 44 " + Arrays.toString(unknown) + " [0, " + OPC_E_INVALIDHANDLE + "]",
                    issued.last());
            callback.await("read 44 ");
            SimControl.failNext("IOPCAsyncIO2::Read", E_FAIL, 1);
            OpcAsyncIo2.readAsync(g.asyncIo(), 1, 45, h, issued);
            assertEquals("issued read " + E_FAIL + " 1 45 " + Arrays.toString(h) + " null", issued.last());

            // A listener that throws: the exception reaches the caller, the read completes all the same.
            Recorder refusing = new Recorder("issued");
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcAsyncIo2.readAsync(g.asyncIo(), 1, 3, h, refusing));
            assertEquals(refusing.last(), thrown.getMessage());
            callback.await("read 3 ");
            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            callback.await("deleted");
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void writeAsyncIsReportedAtOnceAndTheCompletionCarriesTheSameTransaction() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("w", 60_000, "Simulation.Static.R8", "Simulation.Array.BOOL",
                    "Simulation.Access.ReadOnly");
            int[] h = g.items();
            int[] types = {VT_R8, VT_ARRAY | VT_BOOL, VT_R8};
            String[] values = {"2.5", "true,false,TRUE", "1"};
            Recorder issued = new Recorder();
            String handles = " " + Arrays.toString(h) + " ";

            // Nothing subscribed yet: the server refuses the write as a whole, and only the listener hears of it.
            assertEquals(CONNECT_E_NOCONNECTION, OpcAsyncIo2.writeAsync(g.asyncIo(), 3, 76, h, types, values, issued));
            assertEquals("issued write async " + CONNECT_E_NOCONNECTION + " 3 76" + handles + "null", issued.last());
            assertEquals(0, issued.records().get(0).args()[4]);

            Recorder.Callback callback = new Recorder.Callback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), callback);
            assertEquals(S_FALSE, OpcAsyncIo2.writeAsync(g.asyncIo(), 3, 77, h, types, values, issued));
            assertEquals("issued write async 1 3 77" + handles + "[0, 0, " + OPC_E_BADRIGHTS + "]", issued.last());
            assertNotEquals(0, issued.records().get(1).args()[4]);
            assertEquals("write 77 0 2 [100, 101] [0, 0]", callback.await("write "));
            assertEquals(List.of("numeric 2.5", "string [true,false,false]"), readBack(g.syncIo(), h[0], h[1]));

            SimControl.failNext("IOPCAsyncIO2::Write", E_FAIL, 1);
            assertEquals(E_FAIL, OpcAsyncIo2.writeAsync(g.asyncIo(), 1, 78, h, types, values, issued));
            assertEquals("issued write async " + E_FAIL + " 1 78" + handles + "null", issued.last());
            assertEquals(0, OpcAsyncIo2.writeAsync(0, 1, 79, h, types, values, issued));
            assertEquals(3, issued.calls().size());
            assertEquals(3, SimControl.callCount("IOPCAsyncIO2::Write"));
            assertEquals(List.of("OpcEnv::write->asio is null"), log.texts());

            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            callback.await("deleted");
            assertEquals(1, callback.count("write "));
        }
    }

    @Test
    void refreshReadAndCancelReachTheServerAsAsked() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("g", 60_000, "Simulation.Static.R8");
            Recorder.Callback callback = new Recorder.Callback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), callback);
            OpcAsyncIo2.refresh(g.asyncIo(), false);
            assertEquals("source=2 transaction=0", SimControl.lastCallArgs("IOPCAsyncIO2::Refresh2"));
            OpcAsyncIo2.refresh(g.asyncIo(), true);
            assertEquals("source=1 transaction=0", SimControl.lastCallArgs("IOPCAsyncIO2::Refresh2"));

            // A cancelled read never completes; the one after it does.
            SimControl.setAsyncDelay(300);
            Recorder issued = new Recorder();
            OpcAsyncIo2.readAsync(g.asyncIo(), 1, 7, g.items(), issued);
            int cancelId = (int) issued.records().get(0).args()[3];
            assertNotEquals(0, cancelId);
            assertEquals(0, OpcAsyncIo2.cancel2(g.asyncIo(), new int[] {cancelId}, new int[0]));
            assertEquals("cancel=" + cancelId, SimControl.lastCallArgs("IOPCAsyncIO2::Cancel2"));
            OpcAsyncIo2.readAsync(g.asyncIo(), 1, 8, g.items(), issued);
            callback.await("read 8 ");
            assertEquals(0, callback.count("read 7 "));

            // Without a listener the read is issued all the same and completes.
            SimControl.setAsyncDelay(0);
            OpcAsyncIo2.readAsync(g.asyncIo(), 1, 9, g.items(), null);
            callback.await("read 9 ");
            assertEquals("count=1 handles=" + g.items()[0] + " transaction=9",
                    SimControl.lastCallArgs("IOPCAsyncIO2::Read"));

            // Nothing active, nothing to refresh.
            OpcItemMgt.setActiveState(g.itemMgt(), g.items(), false);
            assertEquals(E_FAIL, fails("IOPCAsyncIO2::Refresh2", () -> OpcAsyncIo2.refresh(g.asyncIo(), true))
                    .getHresult());

            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            assertEquals(1, callback.settledDeletions());
            assertEquals(List.of(new Line("ERROR", "OpcAsyncIO2::readAsync - jclass object clazz is null"),
                    new Line("TRACE", "IOPCAsyncIO2::Refresh2- check returned false")), log.lines());
        }
    }

    @Test
    void argumentProblemsAreLoggedAndCancelGoesThroughEveryId() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("g", 60_000, "Simulation.Static.R8");
            Recorder.Callback callback = new Recorder.Callback();
            assertEquals(0, OpcAsyncIo2.advise(0, callback));
            OpcAsyncIo2.unadvise(0, 1);
            OpcAsyncIo2.refresh(0, true);
            OpcAsyncIo2.readAsync(g.asyncIo(), 0, 1, g.items(), callback);
            OpcAsyncIo2.readAsync(0, 1, 1, g.items(), callback);
            assertEquals(1, OpcAsyncIo2.cancel2(0, new int[] {1}, null));
            assertEquals(0, OpcAsyncIo2.cancel2(g.asyncIo(), null, null));
            assertEquals(0, SimControl.callCount("IOPCAsyncIO2::Cancel2") + SimControl.callCount("IOPCAsyncIO2::Read"));
            assertEquals(0, OpcAsyncIo2.cancel2(g.asyncIo(), new int[] {4, 5}, new int[] {6}));
            assertEquals(3, SimControl.callCount("IOPCAsyncIO2::Cancel2"));

            fails("IConnectionPoint::Unadvise", () -> OpcAsyncIo2.unadvise(g.asyncIo(), 0x100000007L));
            assertEquals(List.of(), callback.calls());
            assertEquals(List.of("OpcAsyncIo2::advise- argument is NULL",
                    "IConnectionPoint::Unadvise argument is null",
                    "OpcAsyncIO2::readAsync -> serverHandles is null or count is zero",
                    "OpcAsyncIO2::readAsync->asio is null",
                    "OpcAsyncIO2::cancel2->asio is null",
                    "IConnectionPoint::Unadvise failed"), log.texts());
        }
    }

    @Test
    void aRefusedConnectionDeletesItsCallbackBeforeAdviseReturns() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("g", 60_000, "Simulation.Static.R8");
            Recorder.Callback callback = new Recorder.Callback();
            SimControl.failNext("IConnectionPoint::Advise", CONNECT_E_ADVISELIMIT, 1);
            assertEquals(CONNECT_E_ADVISELIMIT, fails("OpcAsyncIo2:: IConnectionPoint::Advise",
                    () -> OpcAsyncIo2.advise(g.asyncIo(), callback)).getHresult());
            assertEquals(List.of("deleted"), callback.calls());
            assertEquals(0, SimControl.callCount("IOPCAsyncIO2::SetEnable"));
            assertEquals(List.of(new Line("ERROR", "OpcAsyncIo2:: IConnectionPoint::Advise failed")), log.lines());

            // Failures before the connection point is reached make no callback object at all.
            SimControl.failNext("IConnectionPointContainer::FindConnectionPoint", E_FAIL, 1);
            fails("IConnectionPointContainer::FindConnectionPoint", () -> OpcAsyncIo2.advise(g.asyncIo(), callback));
            long plain = TestSupport.createObject();
            try {
                assertEquals(E_NOINTERFACE, fails("IUknown::QueryInterface#IConnectionPointContainer",
                        () -> OpcAsyncIo2.advise(plain, callback)).getHresult());
                fails("IOPCAsyncIO2::QueryInterface#IConnectionPointContainer", () -> OpcAsyncIo2.unadvise(plain, 1));
                assertEquals(1, TestSupport.refCount(plain));
            } finally {
                TestSupport.releaseObject(plain);
            }
            assertEquals(List.of("deleted"), callback.calls());
        }
    }

    @Test
    void everyWayAConnectionEndsGivesExactlyOneDeletionNotice() throws InterruptedException {
        try (SimFixture sim = SimFixture.open()) {
            // Unadvise: only the low 32 bits of the cookie reach the server.
            SimFixture.Group g = sim.group("g", 60_000, "Simulation.Static.R8");
            Recorder.Callback byCookie = new Recorder.Callback();
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), byCookie);
            assertTrue(cookie > 0 && cookie <= 0xFFFFFFFFL, "cookie " + cookie);
            assertEquals(1, SimControl.callCount("IOPCAsyncIO2::SetEnable"));
            assertEquals("enable=1", SimControl.lastCallArgs("IOPCAsyncIO2::SetEnable"));
            OpcAsyncIo2.unadvise(g.asyncIo(), cookie | 0x3_0000_0000L);
            assertEquals("cookie=" + cookie, SimControl.lastCallArgs("IConnectionPoint::Unadvise"));
            assertEquals(1, byCookie.settledDeletions());

            // The group removed from the server: the connection ends when the last handle goes.
            long[] removed = OpcDaServer.addGroup(sim.server, "removed", true, 60_000, 1, 0, 0f, 0);
            long removedIo = ComObjectClient.query(removed[0], IID_IOPCASYNCIO2);
            Recorder.Callback byRemoval = new Recorder.Callback();
            assertNotEquals(0, OpcAsyncIo2.advise(removedIo, byRemoval));
            OpcDaServer.removeGroup(sim.server, (int) removed[1], true);
            Thread.sleep(50);
            assertEquals(0, byRemoval.count("deleted"));
            ComObjectClient.release(removedIo);
            ComObjectClient.release(removed[0]);
            assertEquals(1, byRemoval.settledDeletions());

            // The server released while its group is still connected.
            long server = OpcDaServer.createLocalServer(SimControl.PROG_ID);
            long[] owned = OpcDaServer.addGroup(server, "owned", true, 60_000, 1, 0, 0f, 0);
            long ownedIo = ComObjectClient.query(owned[0], IID_IOPCASYNCIO2);
            Recorder.Callback byServer = new Recorder.Callback();
            assertNotEquals(0, OpcAsyncIo2.advise(ownedIo, byServer));
            ComObjectClient.release(ownedIo);
            ComObjectClient.release(owned[0]);
            Thread.sleep(50);
            assertEquals(0, byServer.count("deleted"));
            ComObjectClient.release(server);
            assertEquals(1, byServer.settledDeletions());
        }
    }

    @Test
    void misbehavingJavaCallbacksCostOnlyTheirOwnCalls() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("g", 60_000, "Simulation.Static.R8", "Simulation.Static.BSTR");
            // An exception from one update does not stop the items after it, nor later deliveries.
            Recorder.Callback throwing = new Recorder.Callback("numeric ");
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), throwing);
            OpcAsyncIo2.refresh(g.asyncIo(), true);
            throwing.awaitCount("string 101 ", 1);
            OpcAsyncIo2.refresh(g.asyncIo(), true);
            throwing.awaitCount("numeric 100 ", 2);
            throwing.awaitCount("string 101 ", 2);
            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            assertEquals(1, throwing.settledDeletions());

            // An update receiver without the completion and deletion methods still gets data changes.
            Recorder updatesOnly = new Recorder();
            cookie = OpcAsyncIo2.advise(g.asyncIo(), updatesOnly);
            OpcAsyncIo2.refresh(g.asyncIo(), false);
            updatesOnly.awaitCount("string 101 ", 1);
            Recorder issued = new Recorder();
            OpcAsyncIo2.readAsync(g.asyncIo(), 2, 5, g.items(), issued);
            assertTrue(issued.last().startsWith("issued read 0 "), issued.last());
            Thread.sleep(100);
            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void everyTypeTakesItsWayOnTheCallbackPath() throws InterruptedException {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("values", 60_000, "Simulation.Static.BSTR", "Simulation.Static.UI4",
                    "Simulation.Array.UI4", "Simulation.Array.BSTR", "Simulation.Array.I1", "Simulation.Unsupported.CY",
                    "Simulation.Static.BOOL", "Simulation.Array.UI2");
            Recorder.Callback callback = new Recorder.Callback();
            long before = System.currentTimeMillis() - 1000;
            long cookie = OpcAsyncIo2.advise(g.asyncIo(), callback);

            // The first update after connecting sends every item once.
            awaitCalls(callback, 8);
            assertEquals(List.of(
                    "string 100 [hello] q192 e0 async",
                    "numeric 101 4.0E9 q192 e0 async",
                    "string 102 [4294967295,0,7] q192 e0 async",
                    "string 103 [ab,c] q192 e0 async",
                    "error 104 q192 e0 async",
                    "error 105 q192 e0 async",
                    "boolean 106 true q192 e0 async",
                    "string 107 [0,65535] q192 e0 async"), callback.calls());
            assertTrue(callback.records().stream().allMatch(r -> (long) r.args()[0] > before));
            OpcAsyncIo2.readAsync(g.asyncIo(), 8, 11, g.items(), new Recorder());
            assertEquals("read 11 0 0 8 [100, 101, 102, 103, 104, 105, 106, 107] [3, 1, 3, 3, 4, 4, 2, 3] "
                    + "[hello, 4e+09, 4294967295,0,7, ab,c, , , true, 0,65535] "
                    + "[192, 192, 192, 192, 192, 192, 192, 192] [0, 0, 0, 0, 0, 0, 0, 0]", callback.await("read 11 "));

            // Null strings and null arrays: a data change skips the null string and delivers empty
            // texts for the arrays; a read completion gives empty texts for all of them.
            SimControl.setNullResults("values", true);
            OpcAsyncIo2.refresh(g.asyncIo(), true);
            awaitCalls(callback, 8 + 1 + 7);
            assertEquals(List.of(
                    "numeric 101 4.0E9 q192 e0 async",
                    "string 102 [] q192 e0 async",
                    "string 103 [] q192 e0 async",
                    "error 104 q192 e0 async",
                    "error 105 q192 e0 async",
                    "boolean 106 true q192 e0 async",
                    "string 107 [] q192 e0 async"), callback.calls().subList(9, 16));
            OpcAsyncIo2.readAsync(g.asyncIo(), 8, 12, g.items(), new Recorder());
            assertEquals("read 12 0 0 8 [100, 101, 102, 103, 104, 105, 106, 107] [3, 1, 3, 3, 4, 4, 2, 3] "
                    + "[, 4e+09, , , , , true, ] [192, 192, 192, 192, 192, 192, 192, 192] [0, 0, 0, 0, 0, 0, 0, 0]",
                    callback.await("read 12 "));

            OpcAsyncIo2.unadvise(g.asyncIo(), cookie);
            callback.await("deleted");
            List<Line> nullArrays = List.of(new Line("TRACE", "OpcAsyncIo2::OnDataChange SafeArray -ulong is null"),
                    new Line("TRACE", "OpcAsyncIo2::OnDataChange SafeArray -BSTR is null"),
                    new Line("TRACE", "OpcAsyncIo2::OnDataChange SafeArray -ushort is null"));
            assertEquals(List.of(nullArrays, nullArrays).stream().flatMap(List::stream).toList(), log.lines());
        }
    }

    private static void awaitCalls(Recorder recorder, int n) throws InterruptedException {
        recorder.awaitCount("", n);
        Thread.sleep(50);
        assertEquals(n, recorder.calls().size(), recorder.calls()::toString);
    }
}
