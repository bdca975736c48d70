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
 * The simulation server is an in-process object without IClientSecurity: the blanket cannot be raised
 * to packet privacy, so the credentials are never sent. The blanket itself is checked natively.
 */
@ExtendWith(LedgerCheck.class)
class OpcPrivateSecurityNativeTest {
    static final String IID_IOPCSECURITYPRIVATE = "{7AA83A02-6C77-11D3-84F9-00008630A38B}";
    private static final String LOGON = "IOPCSecurityPrivate::Logon";
    private static final int E_FAIL = 0x80004005;

    @Test
    void availabilityAndLogoffAsTheServerAnswers() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long priv = sim.query(sim.server, IID_IOPCSECURITYPRIVATE);
            assertTrue(OpcPrivateSecurity.isAvailablePrivate(priv));
            SimControl.failNext("IOPCSecurityPrivate::IsAvailablePriv", E_FAIL, 1);
            assertFalse(OpcPrivateSecurity.isAvailablePrivate(priv));

            assertTrue(OpcPrivateSecurity.logoff(priv));
            SimControl.failNext("IOPCSecurityPrivate::Logoff", E_FAIL, 1);
            assertFalse(OpcPrivateSecurity.logoff(priv));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void logonWithoutAProxyNeverSendsTheCredentials() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long priv = sim.query(sim.server, IID_IOPCSECURITYPRIVATE);
            assertEquals(-1, OpcPrivateSecurity.logon(priv, "operator", "secret")); // E_NOINTERFACE
            assertEquals(-1, OpcPrivateSecurity.logon(priv, null, "secret"));
            assertEquals(-1, OpcPrivateSecurity.logon(priv, "operator", null));
            assertEquals(0, SimControl.callCount(LOGON));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void aMissingHandleIsLoggedAsAnError() {
        try (LogCapture log = new LogCapture()) {
            assertFalse(OpcPrivateSecurity.isAvailablePrivate(0));
            assertEquals(-1, OpcPrivateSecurity.logon(0, "operator", "secret"));
            assertFalse(OpcPrivateSecurity.logoff(0));
            assertEquals(List.of(new LogCapture.Line("ERROR", "OpcPrivateSecurity:isAvailablePrivate->argument is null"),
                    new LogCapture.Line("ERROR", "OpcPrivateSecurity:logOn->argument is null"),
                    new LogCapture.Line("ERROR", "OpcPrivateSecurity:logOff->argument is null")), log.lines());
        }
    }
}
