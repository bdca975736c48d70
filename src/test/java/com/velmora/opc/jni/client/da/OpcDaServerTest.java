package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.OpcException;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.UnexpectedNativeException;
import com.velmora.opc.testsupport.*;
import com.velmora.opc.testsupport.LogCapture.Line;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcDaServerTest {

    @Test
    void serversAreCreatedByNameClsidOrHostAndEachFailureNamesItsStep() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long server = OpcDaServer.createLocalServer(SimControl.CLSID);
            assertNotEquals(0, server);
            ComObjectClient.release(server);
            assertEquals(1, SimControl.callCount("IClassFactory::CreateInstance"));

            assertEquals(0, OpcDaServer.createLocalServer(null));
            assertEquals(0, OpcDaServer.createRemoteServer(SimControl.PROG_ID, null));
            assertEquals(0, OpcDaServer.createRemoteServer(null, "localhost"));
            assertEquals(List.of("OpcDaServer::createLocalServer- server name is null",
                    "OpcDaServer::createRemoteServer- server name is null"), log.texts());

            // An identity that cannot be resolved fails before any host is contacted.
            fails("OpcEnv::toCLSID", () -> OpcDaServer.createRemoteServer("No.Such.Server.1", "no-such-host.invalid"));
            assertTrue(fails("OpcEnv::toCLSID", () -> OpcDaServer.createLocalServer("{6A1F3C52-9B47"))
                    .getHresult() < 0);
            assertEquals(REGDB_E_CLASSNOTREG, fails("CoGetClassObject",
                    () -> OpcDaServer.createLocalServer("{0B5C7E3A-1111-4222-8333-944455566677}")).getHresult());
            SimControl.failNext("IClassFactory::CreateInstance", E_FAIL, 1);
            assertEquals(E_FAIL, fails("IClassFactory::CreateInstance",
                    () -> OpcDaServer.createLocalServer(SimControl.PROG_ID)).getHresult());
            assertEquals(2, SimControl.callCount("IClassFactory::CreateInstance"));
            assertEquals(2, log.texts().size());

            String throwingClass = "{5C0E3B1A-7D2F-4E69-9A85-0B1C2D3E4F50}";
            int cookie = Throwing.registerFactory(throwingClass);
            assertNotEquals(0, cookie);
            try {
                assertEquals("Unexpected Native Exception", assertThrows(OpcException.class,
                        () -> OpcDaServer.createLocalServer(throwingClass)).getMessage());
            } finally {
                Throwing.revokeFactory(cookie);
            }
        }
    }

    @Test
    void aServerIsCreatedOnANamedHostAndAnUnknownHostIsUnavailable() {
        TestSupport.assumeNotWine(TestSupport.WINE_NO_REMOTE_ACTIVATION);
        try (SimFixture sim = SimFixture.open()) {
            long server = OpcDaServer.createRemoteServer(SimControl.PROG_ID, "localhost");
            assertNotEquals(0, server);
            ComObjectClient.release(server);
            assertEquals(1, SimControl.callCount("IClassFactory::CreateInstance"));
            assertEquals(RPC_S_SERVER_UNAVAILABLE, fails("CoGetClassObject",
                    () -> OpcDaServer.createRemoteServer(SimControl.CLSID, "no-such-host.invalid")).getHresult());
        }
    }

    @Test
    void theStatusRecordArrivesFieldByFieldAndIsFreedOnEveryPath() {
        long before = System.currentTimeMillis();
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            sim.addGroup("one");
            sim.addGroup("two");
            Recorder status = new Recorder();
            OpcDaServer.getStatus(sim.server, status);
            long after = System.currentTimeMillis();
            // No data update yet: the zero FILETIME, in Java time.
            assertEquals(List.of("status -11644473600000 1 2 -1 1.2.30 Velmora Simulation Server"), status.calls());
            long start = (long) status.records().get(0).args()[0];
            long current = (long) status.records().get(0).args()[1];
            assertTrue(start >= before - 1000 && start <= current && current <= after + 1000,
                    "start " + start + " current " + current + " window " + before + ".." + after);

            SimControl.setNullResults("IOPCServer::GetStatus", true);
            OpcDaServer.getStatus(sim.server, status);
            OpcDaServer.getStatus(sim.server, null);
            SimControl.setNullResults("IOPCServer::GetStatus", false);
            assertThrows(NoSuchMethodError.class, () -> OpcDaServer.getStatus(sim.server, new Object()));
            Recorder throwing = new Recorder("status");
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcDaServer.getStatus(sim.server, throwing));
            assertEquals(throwing.calls().get(0), thrown.getMessage());
            assertEquals(1, status.calls().size());
            assertEquals(List.of("OpcDaServer::getStatus- status class construcor or vendorinfo is null",
                    "OpcDaServer::getStatus- status object is null",
                    "OpcDaServer::getStatus- status class construcor or vendorinfo is null"), log.texts());

            SimControl.failNext("IOPCServer::GetStatus", E_FAIL, 1);
            fails("IOPCServer::GetStatus", () -> OpcDaServer.getStatus(sim.server, status));
        }
    }

    @Test
    void addGroupPassesItsArgumentsAndReturnsTheGroupResult() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long[] group = sim.addGroup("G1");
            assertEquals(3, group.length);
            assertTrue(group[1] >= 0 && group[1] <= 0xFFFFFFFFL && group[2] >= 0 && group[2] <= 0xFFFFFFFFL);
            assertEquals("name=G1 active=1 rate=1000 clientHandle=77 timeBias=null deadband=0 lcid=1033",
                    SimControl.lastCallArgs("IOPCServer::AddGroup"));
            long[] biased = OpcDaServer.addGroup(sim.server, "G2", false, 250, 5, 60, 0f, 0);
            assertTrue(SimControl.lastCallArgs("IOPCServer::AddGroup").contains("active=0 rate=250 clientHandle=5 "
                    + "timeBias=60"), SimControl.lastCallArgs("IOPCServer::AddGroup"));
            ComObjectClient.release(biased[0]);
            OpcDaServer.removeGroup(sim.server, (int) biased[1], false);

            fails("IOPCServer::AddGroup", () -> OpcDaServer.addGroup(sim.server, "G1", true, 1000, 1, 0, 0f, 0));
            assertNull(OpcDaServer.addGroup(0, "G3", true, 1000, 1, 0, 0f, 0));
            assertNull(OpcDaServer.addGroup(sim.server, null, true, 1000, 1, 0, 0f, 0));
            assertEquals(List.of("OpcDaServer::addGroup- argument is null",
                    "OpcDaServer::addGroup- group name/server is null"), log.texts());
        }
    }

    @Test
    void removeGroupReportsUnknownHandlesAndAcceptsGroupsInUse() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long[] group = OpcDaServer.addGroup(sim.server, "inuse", true, 1000, 1, 0, 0f, 0);
            OpcDaServer.removeGroup(sim.server, (int) group[1], false); // still referenced: OPC_S_INUSE
            assertEquals("handle=" + group[1] + " force=0", SimControl.lastCallArgs("IOPCServer::RemoveGroup"));
            ComObjectClient.release(group[0]);

            fails("OpcDaServer::RemoveGroup", () -> OpcDaServer.removeGroup(sim.server, 999_999, true));
            OpcDaServer.removeGroup(0, 1, true);
            assertEquals(List.of(new Line("TRACE", "OpcDaServer::RemoveGroup- check returned false"),
                    new Line("ERROR", "OpcDaServer::RemoveGroup- incoming IOPCserver interface object is null")),
                    log.lines());
        }
    }

    @Test
    void framesTurnNativeExceptionsIntoUnexpectedNativeException() {
        OpcEnv.initThread();
        long server = Throwing.createServer();
        try {
            assertEquals("OpcDaServer::getStatus", assertThrows(UnexpectedNativeException.class,
                    () -> OpcDaServer.getStatus(server, new Object())).getMessage());
            assertEquals("OpcDaServer::addGroup", assertThrows(UnexpectedNativeException.class,
                    () -> OpcDaServer.addGroup(server, "g", true, 1000, 1, 0, 0f, 1033)).getMessage());
            // removeGroup answers with a catch-all of its own, under another name.
            assertEquals("OpcDaServer::RemoveGroup", assertThrows(UnexpectedNativeException.class,
                    () -> OpcDaServer.removeGroup(server, 1, false)).getMessage());
        } finally {
            ComObjectClient.release(server);
        }
    }
}
