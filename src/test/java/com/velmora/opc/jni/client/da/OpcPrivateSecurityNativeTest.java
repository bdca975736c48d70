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

@ExtendWith(LedgerCheck.class)
class OpcPrivateSecurityNativeTest {
    private static final String IID = "{7AA83A02-6C77-11D3-84F9-00008630A38B}";

    @Test
    void answersAsTheServerDoesAndNeverSendsCredentialsWithoutPrivacy() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long priv = sim.query(sim.server, IID);
            assertTrue(OpcPrivateSecurity.isAvailablePrivate(priv));
            SimControl.failNext("IOPCSecurityPrivate::IsAvailablePriv", 0x80004005, 1);
            assertFalse(OpcPrivateSecurity.isAvailablePrivate(priv));
            assertTrue(OpcPrivateSecurity.logoff(priv));
            SimControl.failNext("IOPCSecurityPrivate::Logoff", 0x80004005, 1);
            assertFalse(OpcPrivateSecurity.logoff(priv));

            // In process there is no IClientSecurity to raise to packet privacy: E_NOINTERFACE.
            assertEquals(-1, OpcPrivateSecurity.logon(priv, "operator", "secret"));
            assertEquals(-1, OpcPrivateSecurity.logon(priv, "operator", null));
            assertEquals(0, SimControl.callCount("IOPCSecurityPrivate::Logon"));

            assertFalse(OpcPrivateSecurity.isAvailablePrivate(0));
            assertEquals(-1, OpcPrivateSecurity.logon(0, "operator", "secret"));
            assertFalse(OpcPrivateSecurity.logoff(0));
            assertEquals(List.of(new LogCapture.Line("ERROR", "OpcPrivateSecurity:isAvailablePrivate->argument is null"),
                    new LogCapture.Line("ERROR", "OpcPrivateSecurity:logOn->argument is null"),
                    new LogCapture.Line("ERROR", "OpcPrivateSecurity:logOff->argument is null")), log.lines());
        }
    }
}
