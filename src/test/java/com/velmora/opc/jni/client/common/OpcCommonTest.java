package com.velmora.opc.jni.client.common;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.testsupport.*;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcCommonTest {

    @Test
    void localesClientNameAndErrorTextsReachTheServerAndComeBack() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long common = sim.query(sim.server, IID_IOPCCOMMON);
            assertArrayEquals(new int[] {1033, 1031}, OpcCommon.availableLocales(common));
            assertEquals("Unspecified error.", OpcCommon.getErrorString(common, E_FAIL));
            OpcCommon.setLocaleId(common, 1031);
            assertEquals(1031, OpcCommon.getLocaleId(common));
            assertEquals("Unbekannter Fehler.", OpcCommon.getErrorString(common, E_FAIL));
            OpcCommon.setClientName(common, "Leitstand 7");
            assertEquals("name=Leitstand 7", SimControl.lastCallArgs("IOPCCommon::SetClientName"));

            // No locales or no text: null, not an empty result.
            SimControl.setNullResults("IOPCCommon::QueryAvailableLocaleIDs", true);
            SimControl.setNullResults("IOPCCommon::GetErrorString", true);
            assertNull(OpcCommon.availableLocales(common));
            assertNull(OpcCommon.getErrorString(common, E_FAIL));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void failuresRaiseTheServersHresultAndMissingArgumentsAreOnlyTraced() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long common = sim.query(sim.server, IID_IOPCCOMMON);
            assertEquals(E_INVALIDARG, fails("IOPCCommon::SetLocaleID", () -> OpcCommon.setLocaleId(common, 1041))
                    .getHresult());
            fails("IOPCCommon::GetErrorString", () -> OpcCommon.getErrorString(common, 0x12345678));
            SimControl.failNext("IOPCCommon::SetClientName", E_ACCESSDENIED, 1);
            assertEquals(E_ACCESSDENIED, fails("IOPCCommon::SetClientName",
                    () -> OpcCommon.setClientName(common, "client")).getHresult());

            assertNull(OpcCommon.availableLocales(0));
            assertNull(OpcCommon.getErrorString(0, E_FAIL));
            assertEquals(0, OpcCommon.getLocaleId(0));
            OpcCommon.setClientName(common, null);
            OpcCommon.setLocaleId(0, 1033);
            assertEquals(1, SimControl.callCount("IOPCCommon::SetClientName"));
            assertEquals(List.of("OpcCommon::setLocaleId- check returned false",
                    "OpcCommon::setClientName- check returned false", "OpcCommon::availableLocales- argument is NULL",
                    "OpcCommon::getErrorString - argument is NULL", "OpcCommon::getLocaleId- argument is NULL",
                    "OpcCommon::setClientName- argument is NULL", "OpcCommon::setLocaleId- argument is NULL"),
                    log.texts());
            assertEquals(List.of("TRACE"), log.levels());
        }
    }
}
