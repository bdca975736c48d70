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
    record State(int rate, boolean active, String name, int bias, float deadband, int lcid, int client, int server) {}

    private final List<State> states = new ArrayList<>();
    private final GroupStateReceiver receiver = (rate, active, name, bias, deadband, lcid, client, server) ->
            states.add(new State(rate, active, name, bias, deadband, lcid, client, server));

    @Test
    void stateGoesToTheServerWholeAndComesBackWithTheRevisedRate() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long[] group = sim.addGroup("G1", 1000);
            long stateMgt = sim.query(group[0], SimFixture.IID_IOPCGROUPSTATEMGT);
            OpcGroupStateMgt.getState(stateMgt, receiver);
            assertEquals(List.of(new State(1000, true, "G1", states.get(0).bias(), 0f, 1033, 77, (int) group[1])),
                    states);

            // Rates are granted in steps of 10 ms.
            assertEquals(340, OpcGroupStateMgt.setState(stateMgt, 333, false, -60, 12.5f, 1031, -2));
            assertEquals("rate=333 active=0 timeBias=-60 deadband=12 lcid=1031 clientHandle=4294967294",
                    SimControl.lastCallArgs("IOPCGroupStateMgt::SetState"));
            OpcGroupStateMgt.getState(stateMgt, receiver);
            assertEquals(new State(340, false, "G1", -60, 12.5f, 1031, -2, (int) group[1]), states.get(1));
            assertEquals(500, OpcGroupStateMgt.setState(stateMgt, 500, true, 0, 0f, 1033, 77));
            assertEquals("rate=500 active=1 timeBias=0 deadband=0 lcid=1033 clientHandle=77",
                    SimControl.lastCallArgs("IOPCGroupStateMgt::SetState"));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void failuresAndMissingPiecesAreTracedAndTheNameIsFreedOnEveryPath() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long stateMgt = sim.query(sim.addGroup("G1")[0], SimFixture.IID_IOPCGROUPSTATEMGT);
            OpcGroupStateMgt.getState(0, receiver);
            assertEquals(0, OpcGroupStateMgt.setState(0, 1000, true, 0, 0f, 1033, 1));
            OpcGroupStateMgt.getState(stateMgt, null);
            assertThrows(NoSuchMethodError.class, () -> OpcGroupStateMgt.getState(stateMgt, new Object()));
            SimControl.setNullResults("IOPCGroupStateMgt::GetState", true);
            OpcGroupStateMgt.getState(stateMgt, receiver);
            SimControl.failNext("IOPCGroupStateMgt::GetState", 0x80070005, 1);
            assertEquals("IOPCGroupStateMgt::GetState",
                    assertThrows(HresultException.class, () -> OpcGroupStateMgt.getState(stateMgt, receiver))
                            .getOperation());
            SimControl.failNext("IOPCGroupStateMgt::SetState", 0x80070005, 1);
            HresultException setFailed = assertThrows(HresultException.class,
                    () -> OpcGroupStateMgt.setState(stateMgt, 1000, true, 0, 0f, 1033, 1));
            assertEquals(0x80070005, setFailed.getHresult());
            assertEquals("IOPCGroupStateMgt::SetState", setFailed.getOperation());

            assertEquals(List.of(), states);
            assertEquals(List.of("OpcGroupStateMgmt::getState- argument is null",
                    "OpcDaServer::setState- argument is null", "OpcGroupStateMgmt::getState- object is null",
                    "OpcGroupStateMgmt::getState- method is null", "OpcGroupStateMgmt::getState- method is null",
                    "OpcDaServer::setState- check returned false"), log.texts());
            assertEquals(List.of("TRACE"), log.lines().stream().map(LogCapture.Line::level).distinct().toList());
        }
    }
}
