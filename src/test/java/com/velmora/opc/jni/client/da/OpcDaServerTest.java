package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.jni.ComObjectClient;
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
class OpcDaServerTest {
    private static final int E_FAIL = 0x80004005;

    @Test
    void serverCreationByNameOrClsidAndItsFailures() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long byClsid = OpcDaServer.createLocalServer(SimControl.CLSID);
            assertNotEquals(0, byClsid);
            ComObjectClient.release(byClsid);

            assertEquals(0, OpcDaServer.createLocalServer(null));
            assertEquals(0, OpcDaServer.createRemoteServer(SimControl.PROG_ID, null));
            assertEquals(0, OpcDaServer.createRemoteServer(null, "localhost"));
            assertEquals(List.of("OpcDaServer::createLocalServer- server name is null",
                    "OpcDaServer::createRemoteServer- server name is null"), log.texts());

            HresultException unknown = assertThrows(HresultException.class,
                    () -> OpcDaServer.createRemoteServer("No.Such.Server.1", "localhost"));
            assertEquals("OpcEnv::toCLSID", unknown.getOperation());

            SimControl.failNext("IClassFactory::CreateInstance", E_FAIL, 1);
            HresultException refused = assertThrows(HresultException.class,
                    () -> OpcDaServer.createLocalServer(SimControl.PROG_ID));
            assertEquals("IClassFactory::CreateInstance", refused.getOperation());
            assertEquals(E_FAIL, refused.getHresult());
        }
    }

    @Test
    void statusReachesTheReceiverAndIsFreedOnEveryPath() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            List<Object[]> calls = new ArrayList<>();
            ServerStatusReceiver receiver = (start, current, last, state, groups, band, major, minor, build,
                    vendor) -> calls.add(new Object[] {start, current, state, groups, vendor});
            sim.addGroup("g");
            OpcDaServer.getStatus(sim.server, receiver);
            assertEquals(1, calls.size());
            long now = System.currentTimeMillis();
            assertTrue(Math.abs((long) calls.get(0)[1] - now) < 60_000, "current time " + calls.get(0)[1]);
            assertEquals(1, calls.get(0)[2]);
            assertEquals(1, calls.get(0)[3]);
            assertEquals("Velmora Simulation Server", calls.get(0)[4]);

            SimControl.setNullResults("IOPCServer::GetStatus", true);
            OpcDaServer.getStatus(sim.server, receiver);
            OpcDaServer.getStatus(sim.server, null);
            assertEquals(1, calls.size());
            assertEquals(List.of("OpcDaServer::getStatus- status class construcor or vendorinfo is null",
                    "OpcDaServer::getStatus- status object is null"), log.texts());

            SimControl.failNext("IOPCServer::GetStatus", E_FAIL, 1);
            HresultException failed = assertThrows(HresultException.class,
                    () -> OpcDaServer.getStatus(sim.server, receiver));
            assertEquals("IOPCServer::GetStatus", failed.getOperation());
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

            HresultException duplicate = assertThrows(HresultException.class,
                    () -> OpcDaServer.addGroup(sim.server, "G1", true, 1000, 1, 0, 0f, 0));
            assertEquals("IOPCServer::AddGroup", duplicate.getOperation());

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

            HresultException unknown = assertThrows(HresultException.class,
                    () -> OpcDaServer.removeGroup(sim.server, 999_999, true));
            assertEquals("OpcDaServer::RemoveGroup", unknown.getOperation());
            OpcDaServer.removeGroup(0, 1, true);
            assertEquals(List.of("OpcDaServer::RemoveGroup- check returned false",
                    "OpcDaServer::RemoveGroup- incoming IOPCserver interface object is null"), log.texts());
            assertArrayEquals(new String[] {"TRACE", "ERROR"},
                    log.lines().stream().map(LogCapture.Line::level).toArray());
        }
    }
}
