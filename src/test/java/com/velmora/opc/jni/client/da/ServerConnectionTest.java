package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
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

/** Reaching a server by host and by identity, what each failure looks like, and the status record in full. */
@ExtendWith(LedgerCheck.class)
class ServerConnectionTest {
    private static final int RPC_S_SERVER_UNAVAILABLE = 0x800706BA;
    private static final int REGDB_E_CLASSNOTREG = 0x80040154;
    private static final String UNREGISTERED = "{0B5C7E3A-1111-4222-8333-944455566677}";

    @Test
    void remoteCreationByHostAndItsFailures() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long local = OpcDaServer.createRemoteServer(SimControl.PROG_ID, "localhost");
            assertNotEquals(0, local);
            assertEquals(1, SimControl.callCount("IClassFactory::CreateInstance"));
            ComObjectClient.release(local);

            HresultException unreachable = assertThrows(HresultException.class,
                    () -> OpcDaServer.createRemoteServer(SimControl.CLSID, "no-such-host.invalid"));
            assertEquals(RPC_S_SERVER_UNAVAILABLE, unreachable.getHresult());
            assertEquals("CoGetClassObject", unreachable.getOperation());
            // An identity that cannot be resolved fails before any host is contacted.
            HresultException unknown = assertThrows(HresultException.class,
                    () -> OpcDaServer.createRemoteServer("No.Such.Server.1", "no-such-host.invalid"));
            assertEquals("OpcEnv::toCLSID", unknown.getOperation());
            assertEquals(1, SimControl.callCount("IClassFactory::CreateInstance"));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void localCreationFailuresNameTheStepThatFailed() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            HresultException notRegistered = assertThrows(HresultException.class,
                    () -> OpcDaServer.createLocalServer(UNREGISTERED));
            assertEquals("CoGetClassObject", notRegistered.getOperation());
            assertEquals(REGDB_E_CLASSNOTREG, notRegistered.getHresult());

            HresultException malformed = assertThrows(HresultException.class,
                    () -> OpcDaServer.createLocalServer("{6A1F3C52-9B47"));
            assertEquals("OpcEnv::toCLSID", malformed.getOperation());
            assertTrue(malformed.getHresult() < 0);

            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void theStatusRecordArrivesFieldByField() {
        long before = System.currentTimeMillis();
        try (SimFixture sim = SimFixture.open()) {
            List<Object> fields = new ArrayList<>();
            ServerStatusReceiver receiver = (start, current, last, state, groups, band, major, minor, build, vendor) ->
                    fields.addAll(List.of(start, current, last, state, groups, band, major, minor, build, vendor));
            sim.addGroup("one");
            sim.addGroup("two");
            OpcDaServer.getStatus(sim.server, receiver);
            long after = System.currentTimeMillis();

            long start = (long) fields.get(0);
            long current = (long) fields.get(1);
            assertTrue(start >= before - 1000 && start <= current && current <= after + 1000,
                    "start " + start + " current " + current + " window " + before + ".." + after);
            // No data update yet: the zero FILETIME, in Java time.
            assertEquals(-11_644_473_600_000L, fields.get(2));
            assertEquals(List.of(1, 2, -1, 1, 2, 30, "Velmora Simulation Server"), fields.subList(3, 10));
        }
    }
}
