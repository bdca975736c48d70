package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/**
 * The simulation server is an in-process object: it has no proxy and so no IClientSecurity, and the
 * identity change stops at the blanket. The blanket itself is checked natively against a stand-in proxy.
 */
@ExtendWith(LedgerCheck.class)
class OpcNTSecurityNativeTest {
    static final String IID_IOPCSECURITYNT = "{7AA83A01-6C77-11D3-84F9-00008630A38B}";
    private static final int E_FAIL = 0x80004005;
    private static final int E_INVALIDARG = 0x80070057;
    private static final int RPC_C_IMP_LEVEL_IDENTIFY = 2;

    @Test
    void availabilityAndImpersonationLevelAsTheServerAnswers() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long nt = sim.query(sim.server, IID_IOPCSECURITYNT);
            assertTrue(OpcNTSecurity.isAvailableNT(nt));
            SimControl.failNext("IOPCSecurityNT::IsAvailableNT", E_FAIL, 1);
            assertFalse(OpcNTSecurity.isAvailableNT(nt));

            assertEquals(RPC_C_IMP_LEVEL_IDENTIFY, OpcNTSecurity.queryImpersonationLevel(nt));
            SimControl.failNext("IOPCSecurityNT::QueryMinImpersonationLevel", E_INVALIDARG, 1);
            assertEquals(-1, OpcNTSecurity.queryImpersonationLevel(nt));
            SimControl.failNext("IOPCSecurityNT::QueryMinImpersonationLevel", E_FAIL, 1);
            assertEquals(0, OpcNTSecurity.queryImpersonationLevel(nt));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void changeUserWithoutAProxyStopsBeforeTheServerIsAsked() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long nt = sim.query(sim.server, IID_IOPCSECURITYNT);
            assertEquals(-1, OpcNTSecurity.changeUser(nt, "plant\\operator", "secret")); // E_NOINTERFACE
            assertEquals(1, SimControl.callCount("IOPCSecurityNT::QueryMinImpersonationLevel"));
            assertEquals(0, SimControl.callCount("IOPCSecurityNT::ChangeUser"));

            SimControl.clearCalls();
            assertEquals(-1, OpcNTSecurity.changeUser(nt, null, "secret"));
            assertEquals(-1, OpcNTSecurity.changeUser(nt, "operator", null));
            assertEquals(0, SimControl.callCount("IOPCSecurityNT::QueryMinImpersonationLevel"));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void aMissingHandleIsLoggedAsAnError() {
        try (LogCapture log = new LogCapture()) {
            assertFalse(OpcNTSecurity.isAvailableNT(0));
            assertEquals(0, OpcNTSecurity.queryImpersonationLevel(0));
            assertEquals(-1, OpcNTSecurity.changeUser(0, "operator", "secret"));
            assertEquals(List.of(new LogCapture.Line("ERROR", "OpcNTSecurity:isAvailableNT->argument is null"),
                    new LogCapture.Line("ERROR", "OpcNTSecurity:queryImpersonationLevel->argument is null"),
                    new LogCapture.Line("ERROR", "OpcNTSecurity:changeUser->argument is null")), log.lines());
        }
    }
}
