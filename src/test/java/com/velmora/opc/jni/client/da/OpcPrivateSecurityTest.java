package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.testsupport.*;
import com.velmora.opc.testsupport.LogCapture.Line;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcPrivateSecurityTest {

    @Test
    void answersAsTheServerDoesAndNeverSendsCredentialsWithoutPrivacy() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long priv = sim.query(sim.server, IID_IOPCSECURITYPRIVATE);
            assertTrue(OpcPrivateSecurity.isAvailablePrivate(priv));
            SimControl.failNext("IOPCSecurityPrivate::IsAvailablePriv", E_FAIL, 1);
            assertFalse(OpcPrivateSecurity.isAvailablePrivate(priv));
            assertTrue(OpcPrivateSecurity.logoff(priv));
            SimControl.failNext("IOPCSecurityPrivate::Logoff", E_FAIL, 1);
            assertFalse(OpcPrivateSecurity.logoff(priv));

            // In process there is no IClientSecurity to raise to packet privacy: E_NOINTERFACE.
            assertEquals(-1, OpcPrivateSecurity.logon(priv, "operator", "secret"));
            assertEquals(-1, OpcPrivateSecurity.logon(priv, "operator", null));
            assertEquals(0, SimControl.callCount("IOPCSecurityPrivate::Logon"));

            assertFalse(OpcPrivateSecurity.isAvailablePrivate(0));
            assertEquals(-1, OpcPrivateSecurity.logon(0, "operator", "secret"));
            assertFalse(OpcPrivateSecurity.logoff(0));
            assertEquals(List.of(new Line("ERROR", "OpcPrivateSecurity:isAvailablePrivate->argument is null"),
                    new Line("ERROR", "OpcPrivateSecurity:logOn->argument is null"),
                    new Line("ERROR", "OpcPrivateSecurity:logOff->argument is null")), log.lines());
        }
    }
}
