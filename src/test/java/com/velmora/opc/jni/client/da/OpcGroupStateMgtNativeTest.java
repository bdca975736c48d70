package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

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
class OpcGroupStateMgtNativeTest {
    private static final int E_ACCESSDENIED = 0x80070005;

    record State(int rate, boolean active, String name, int bias, float deadband, int lcid, int client, int server) {}

    static final class States implements GroupStateReceiver {
        final List<State> calls = new ArrayList<>();

        @Override
        public void set(int rate, boolean active, String name, int bias, float deadband, int lcid, int client,
                int server) {
            calls.add(new State(rate, active, name, bias, deadband, lcid, client, server));
        }
    }

    @Test
    void stateGoesToTheServerWholeAndComesBackWithTheRevisedRate() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long[] group = sim.addGroup("G1", 1000);
            long stateMgt = sim.query(group[0], SimFixture.IID_IOPCGROUPSTATEMGT);
            States states = new States();
            OpcGroupStateMgt.getState(stateMgt, states);
            assertEquals(1, states.calls.size());
            State first = states.calls.get(0);
            assertEquals(new State(1000, true, "G1", first.bias(), 0.0f, 1033, 77, (int) group[1]), first);

            // The server grants rates in steps of 10 ms.
            assertEquals(340, OpcGroupStateMgt.setState(stateMgt, 333, false, -60, 12.5f, 1031, 9));
            assertEquals("rate=333 active=0 timeBias=-60 deadband=12 lcid=1031 clientHandle=9",
                    SimControl.lastCallArgs("IOPCGroupStateMgt::SetState"));
            assertEquals(500, OpcGroupStateMgt.setState(stateMgt, 500, true, 0, 0f, 1033, 77));
            assertEquals("rate=500 active=1 timeBias=0 deadband=0 lcid=1033 clientHandle=77",
                    SimControl.lastCallArgs("IOPCGroupStateMgt::SetState"));

            OpcGroupStateMgt.setState(stateMgt, 333, false, -60, 12.5f, 1031, -2);
            OpcGroupStateMgt.getState(stateMgt, states);
            assertEquals(new State(340, false, "G1", -60, 12.5f, 1031, -2, (int) group[1]), states.calls.get(1));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void failuresAndMissingPiecesAreTracedAndTheNameIsFreedOnEveryPath() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long stateMgt = sim.query(sim.addGroup("G1")[0], SimFixture.IID_IOPCGROUPSTATEMGT);
            States states = new States();
            OpcGroupStateMgt.getState(0, states);
            assertEquals(0, OpcGroupStateMgt.setState(0, 1000, true, 0, 0f, 1033, 1));
            OpcGroupStateMgt.getState(stateMgt, null);
            SimControl.setNullResults("IOPCGroupStateMgt::GetState", true);
            OpcGroupStateMgt.getState(stateMgt, states);
            SimControl.setNullResults("IOPCGroupStateMgt::GetState", false);
            assertThrows(NoSuchMethodError.class, () -> OpcGroupStateMgt.getState(stateMgt, new Object()));

            SimControl.failNext("IOPCGroupStateMgt::GetState", E_ACCESSDENIED, 1);
            HresultException getFailed = assertThrows(HresultException.class,
                    () -> OpcGroupStateMgt.getState(stateMgt, states));
            assertEquals("IOPCGroupStateMgt::GetState", getFailed.getOperation());
            assertEquals(E_ACCESSDENIED, getFailed.getHresult());
            SimControl.failNext("IOPCGroupStateMgt::SetState", E_ACCESSDENIED, 1);
            HresultException setFailed = assertThrows(HresultException.class,
                    () -> OpcGroupStateMgt.setState(stateMgt, 1000, true, 0, 0f, 1033, 1));
            assertEquals("IOPCGroupStateMgt::SetState", setFailed.getOperation());
            assertEquals(E_ACCESSDENIED, setFailed.getHresult());

            assertEquals(0, states.calls.size());
            assertEquals(List.of("OpcGroupStateMgmt::getState- argument is null",
                    "OpcDaServer::setState- argument is null", "OpcGroupStateMgmt::getState- object is null",
                    "OpcGroupStateMgmt::getState- method is null", "OpcGroupStateMgmt::getState- method is null",
                    "OpcDaServer::setState- check returned false"), log.texts());
            assertEquals(List.of("TRACE"), log.lines().stream().map(LogCapture.Line::level).distinct().toList());
        }
    }
}
