package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.testsupport.*;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcGroupStateMgtTest {

    @Test
    void stateGoesToTheServerWholeAndComesBackWithTheRevisedRate() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long[] group = sim.addGroup("G1", 1000);
            long stateMgt = sim.query(group[0], IID_IOPCGROUPSTATEMGT);
            Recorder states = new Recorder();
            OpcGroupStateMgt.getState(stateMgt, states);
            assertTrue(states.last().matches("state 1000 true G1 -?\\d+ 0\\.0 1033 77 " + group[1]), states.last());

            // Rates are granted in steps of 10 ms.
            assertEquals(340, OpcGroupStateMgt.setState(stateMgt, 333, false, -60, 12.5f, 1031, -2));
            assertEquals("rate=333 active=0 timeBias=-60 deadband=12 lcid=1031 clientHandle=4294967294",
                    SimControl.lastCallArgs("IOPCGroupStateMgt::SetState"));
            OpcGroupStateMgt.getState(stateMgt, states);
            assertEquals("state 340 false G1 -60 12.5 1031 -2 " + group[1], states.last());
            assertEquals(500, OpcGroupStateMgt.setState(stateMgt, 500, true, 0, 0f, 1033, 77));
            assertEquals("rate=500 active=1 timeBias=0 deadband=0 lcid=1033 clientHandle=77",
                    SimControl.lastCallArgs("IOPCGroupStateMgt::SetState"));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void failuresAndMissingPiecesAreTracedAndTheNameIsFreedOnEveryPath() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long stateMgt = sim.query(sim.addGroup("G1")[0], IID_IOPCGROUPSTATEMGT);
            Recorder states = new Recorder();
            OpcGroupStateMgt.getState(0, states);
            assertEquals(0, OpcGroupStateMgt.setState(0, 1000, true, 0, 0f, 1033, 1));
            OpcGroupStateMgt.getState(stateMgt, null);
            assertThrows(NoSuchMethodError.class, () -> OpcGroupStateMgt.getState(stateMgt, new Object()));
            SimControl.setNullResults("IOPCGroupStateMgt::GetState", true);
            OpcGroupStateMgt.getState(stateMgt, states);
            SimControl.failNext("IOPCGroupStateMgt::GetState", E_ACCESSDENIED, 1);
            fails("IOPCGroupStateMgt::GetState", () -> OpcGroupStateMgt.getState(stateMgt, states));
            SimControl.failNext("IOPCGroupStateMgt::SetState", E_ACCESSDENIED, 1);
            assertEquals(E_ACCESSDENIED, fails("IOPCGroupStateMgt::SetState",
                    () -> OpcGroupStateMgt.setState(stateMgt, 1000, true, 0, 0f, 1033, 1)).getHresult());

            assertEquals(List.of(), states.calls());
            assertEquals(List.of("OpcGroupStateMgmt::getState- argument is null",
                    "OpcDaServer::setState- argument is null", "OpcGroupStateMgmt::getState- object is null",
                    "OpcGroupStateMgmt::getState- method is null", "OpcGroupStateMgmt::getState- method is null",
                    "OpcDaServer::setState- check returned false"), log.texts());
            assertEquals(List.of("TRACE"), log.levels());
        }
    }
}
