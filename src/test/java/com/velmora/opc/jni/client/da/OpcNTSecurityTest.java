package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.testsupport.*;
import com.velmora.opc.testsupport.LogCapture.Line;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcNTSecurityTest {
    private static final String MIN_LEVEL = "IOPCSecurityNT::QueryMinImpersonationLevel";

    @Test
    void answersAsTheServerDoesAndStopsChangeUserWithoutAProxy() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long nt = sim.query(sim.server, IID_IOPCSECURITYNT);
            assertTrue(OpcNTSecurity.isAvailableNT(nt));
            SimControl.failNext("IOPCSecurityNT::IsAvailableNT", E_FAIL, 1);
            assertFalse(OpcNTSecurity.isAvailableNT(nt));
            assertEquals(2, OpcNTSecurity.queryImpersonationLevel(nt));
            SimControl.failNext(MIN_LEVEL, E_INVALIDARG, 1);
            assertEquals(-1, OpcNTSecurity.queryImpersonationLevel(nt));
            SimControl.failNext(MIN_LEVEL, E_FAIL, 1);
            assertEquals(0, OpcNTSecurity.queryImpersonationLevel(nt));

            // In process there is no IClientSecurity: E_NOINTERFACE, and the server is never asked.
            SimControl.clearCalls();
            assertEquals(-1, OpcNTSecurity.changeUser(nt, "plant\\operator", "secret"));
            assertEquals(-1, OpcNTSecurity.changeUser(nt, null, "secret"));
            assertEquals(1, SimControl.callCount(MIN_LEVEL));
            assertEquals(0, SimControl.callCount("IOPCSecurityNT::ChangeUser"));

            assertFalse(OpcNTSecurity.isAvailableNT(0));
            assertEquals(0, OpcNTSecurity.queryImpersonationLevel(0));
            assertEquals(-1, OpcNTSecurity.changeUser(0, "operator", "secret"));
            assertEquals(List.of(new Line("ERROR", "OpcNTSecurity:isAvailableNT->argument is null"),
                    new Line("ERROR", "OpcNTSecurity:queryImpersonationLevel->argument is null"),
                    new Line("ERROR", "OpcNTSecurity:changeUser->argument is null")), log.lines());
        }
    }
}
