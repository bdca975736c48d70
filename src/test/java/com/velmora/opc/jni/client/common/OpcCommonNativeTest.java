package com.velmora.opc.jni.client.common;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.velmora.opc.jni.HresultException;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;
import org.junit.jupiter.api.function.Executable;

@ExtendWith(LedgerCheck.class)
class OpcCommonNativeTest {
    private static final int E_INVALIDARG = 0x80070057;
    private static final int E_ACCESSDENIED = 0x80070005;
    private static final int E_FAIL = 0x80004005;
    private static final int ENGLISH = 1033;
    private static final int GERMAN = 1031;

    private static HresultException fails(Executable call) {
        return assertThrows(HresultException.class, call);
    }

    @Test
    void localesClientNameAndErrorTextsReachTheServerAndComeBack() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long common = sim.query(sim.server, SimFixture.IID_IOPCCOMMON);
            assertArrayEquals(new int[] {ENGLISH, GERMAN}, OpcCommon.availableLocales(common));
            assertEquals(ENGLISH, OpcCommon.getLocaleId(common));
            assertEquals("Unspecified error.", OpcCommon.getErrorString(common, E_FAIL));

            OpcCommon.setLocaleId(common, GERMAN);
            assertEquals(GERMAN, OpcCommon.getLocaleId(common));
            assertEquals("Unbekannter Fehler.", OpcCommon.getErrorString(common, E_FAIL));

            OpcCommon.setClientName(common, "Leitstand 7");
            assertEquals("name=Leitstand 7", SimControl.lastCallArgs("IOPCCommon::SetClientName"));

            // A server with no locales, or no text, gives null rather than an empty result.
            SimControl.setNullResults("IOPCCommon::QueryAvailableLocaleIDs", true);
            SimControl.setNullResults("IOPCCommon::GetErrorString", true);
            assertNull(OpcCommon.availableLocales(common));
            assertNull(OpcCommon.getErrorString(common, E_FAIL));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void failedCallsRaiseTheServersHresultAndTheSettersAlsoTrace() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long common = sim.query(sim.server, SimFixture.IID_IOPCCOMMON);
            HresultException rejected = fails(() -> OpcCommon.setLocaleId(common, 0x0411));
            assertEquals(E_INVALIDARG, rejected.getHresult());
            assertEquals("IOPCCommon::SetLocaleID", rejected.getOperation());
            assertEquals(ENGLISH, OpcCommon.getLocaleId(common));

            HresultException unknown = fails(() -> OpcCommon.getErrorString(common, 0x12345678));
            assertEquals("IOPCCommon::GetErrorString", unknown.getOperation());

            String[][] calls = {{"IOPCCommon::QueryAvailableLocaleIDs"}, {"IOPCCommon::GetLocaleID"},
                    {"IOPCCommon::SetClientName"}};
            for (String[] call : calls) SimControl.failNext(call[0], E_ACCESSDENIED, 1);
            Executable[] natives = {() -> OpcCommon.availableLocales(common), () -> OpcCommon.getLocaleId(common),
                    () -> OpcCommon.setClientName(common, "client")};
            for (int i = 0; i < natives.length; i++) {
                HresultException failed = fails(natives[i]);
                assertEquals(E_ACCESSDENIED, failed.getHresult());
                assertEquals(calls[i][0], failed.getOperation());
            }
            assertEquals(List.of(new LogCapture.Line("TRACE", "OpcCommon::setLocaleId- check returned false"),
                    new LogCapture.Line("TRACE", "OpcCommon::setClientName- check returned false")), log.lines());
        }
    }

    @Test
    void missingHandleOrNameIsTracedWithoutACallOrAnException() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            long common = sim.query(sim.server, SimFixture.IID_IOPCCOMMON);
            assertNull(OpcCommon.availableLocales(0));
            assertNull(OpcCommon.getErrorString(0, E_FAIL));
            assertEquals(0, OpcCommon.getLocaleId(0));
            OpcCommon.setClientName(0, "client");
            OpcCommon.setClientName(common, null);
            OpcCommon.setLocaleId(0, ENGLISH);
            assertEquals(0, SimControl.callCount("IOPCCommon::SetClientName"));
            assertEquals(List.of("OpcCommon::availableLocales- argument is NULL",
                    "OpcCommon::getErrorString - argument is NULL", "OpcCommon::getLocaleId- argument is NULL",
                    "OpcCommon::setClientName- argument is NULL", "OpcCommon::setClientName- argument is NULL",
                    "OpcCommon::setLocaleId- argument is NULL"), log.texts());
            assertEquals(List.of("TRACE"), log.lines().stream().map(LogCapture.Line::level).distinct().toList());
        }
    }
}
