package com.velmora.opc.jni.client.da;

import static com.velmora.opc.testsupport.Codes.*;
import static com.velmora.opc.testsupport.SimFixture.fails;
import static com.velmora.opc.testsupport.SimFixture.readBack;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.testsupport.*;
import com.velmora.opc.testsupport.LogCapture.Line;
import java.math.BigDecimal;
import java.util.Arrays;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcSyncIoTest {

    /** What the write listener hears of a synchronous write. */
    private static String written(int hr, int count, int[] handles, int[] errors) {
        return "issued write sync " + hr + " " + count + " 0 " + Arrays.toString(handles) + " "
                + Arrays.toString(errors);
    }

    @Test
    void everyItemReachesItsMethodInRequestOrderWithItsServerHandle() {
        try (SimFixture sim = SimFixture.open()) {
            SimFixture.Group g = sim.group("g", 1000, "Simulation.Static.I2", "Simulation.Static.BOOL",
                    "Simulation.Static.BSTR", "Simulation.Array.R8", "Simulation.Unsupported.I8",
                    "Simulation.Access.WriteOnly", "Simulation.Quality.Bad", "Simulation.Array.BOOL",
                    "Simulation.Static.UI4");
            int[] h = g.items();
            Recorder receiver = new Recorder();
            long before = System.currentTimeMillis() - 1000;
            OpcSyncIo.read(g.syncIo(), h, false, receiver);
            assertEquals(List.of(
                    "numeric " + h[0] + " -1234.0 q192 e0 sync",
                    "boolean " + h[1] + " true q192 e0 sync",
                    "string " + h[2] + " [hello] q192 e0 sync",
                    "string " + h[3] + " [1.3,2.0,-3.1] q192 e0 sync",
                    "error " + h[4] + " q192 e0 sync",
                    "error " + h[5] + " q0 e" + OPC_E_BADRIGHTS + " sync",
                    "numeric " + h[6] + " -1.0 q24 e0 sync",
                    "string " + h[7] + " [true,false] q192 e0 sync",
                    "numeric " + h[8] + " 4.0E9 q192 e0 sync"), receiver.calls());
            assertTrue((long) receiver.records().get(0).args()[0] > before, receiver.records().get(0)::toString);
            assertTrue(SimControl.lastCallArgs("IOPCSyncIO::Read").startsWith("source=2 count=9 handles=" + h[0] + ","),
                    SimControl.lastCallArgs("IOPCSyncIO::Read"));

            OpcSyncIo.read(g.syncIo(), new int[] {h[2], h[0]}, true, receiver);
            assertEquals("source=1 count=2 handles=" + h[2] + "," + h[0], SimControl.lastCallArgs("IOPCSyncIO::Read"));
            assertEquals("string " + h[2] + " [hello] q192 e0 sync", receiver.calls().get(9));
        }
    }

    @Test
    void failuresAndNullsBeforeDuringAndAfterTheServerCall() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("g", 1000, "Simulation.Static.BSTR", "Simulation.Array.BSTR",
                    "Simulation.Static.R8", "Simulation.Array.R8", "Simulation.Array.I4");
            int[] items = g.items();
            Recorder receiver = new Recorder();
            OpcSyncIo.read(0, items, true, receiver);
            OpcSyncIo.read(g.syncIo(), null, true, receiver);
            OpcSyncIo.read(g.syncIo(), new int[0], true, receiver);
            assertEquals(0, SimControl.callCount("IOPCSyncIO::Read"));

            OpcSyncIo.read(g.syncIo(), items, true, null);
            // A receiver without all four methods gets nothing; the failed look-up is what Java sees.
            Object partial = new Object() {
                @SuppressWarnings("unused")
                public void updateNumeric(int h, double v, long t, int q, int e, boolean s) {
                    receiver.updateNumeric(h, v, t, q, e, s);
                }
            };
            assertThrows(NoSuchMethodError.class, () -> OpcSyncIo.read(g.syncIo(), items, true, partial));
            SimControl.setNullResults("IOPCSyncIO::Read", true);
            OpcSyncIo.read(g.syncIo(), items, true, receiver);
            SimControl.setNullResults("IOPCSyncIO::Read", false);
            assertEquals(3, SimControl.callCount("IOPCSyncIO::Read"));
            assertEquals(List.of(), receiver.calls());

            // A receiver that throws still gets every item; the first exception is what Java sees.
            Recorder throwing = new Recorder("string ");
            IllegalStateException thrown = assertThrows(IllegalStateException.class,
                    () -> OpcSyncIo.read(g.syncIo(), items, true, throwing));
            assertEquals(throwing.calls().get(0), thrown.getMessage());
            assertEquals(items.length, throwing.calls().size(), throwing.calls()::toString);

            SimControl.failNext("IOPCSyncIO::Read", E_FAIL, 1);
            assertEquals(E_FAIL, fails("IOPCSyncIO::Read", () -> OpcSyncIo.read(g.syncIo(), items, false, receiver))
                    .getHresult());
            assertEquals(List.of(), receiver.calls());

            // Null strings and arrays arrive empty, per-item errors as updateError.
            SimControl.setNullResults("values", true);
            SimControl.setItemError("Simulation.Static.R8", OPC_E_BADRIGHTS);
            OpcSyncIo.read(g.syncIo(), items, true, receiver);
            assertEquals(List.of("string " + items[0] + " [] q192 e0 sync", "string " + items[1] + " [] q192 e0 sync",
                    "error " + items[2] + " q0 e" + OPC_E_BADRIGHTS + " sync",
                    "string " + items[3] + " [] q192 e0 sync", "string " + items[4] + " [] q192 e0 sync"),
                    receiver.calls());
            // A native exception inside the read is logged, not thrown.
            OpcEnv.initThread();
            long throwingServer = Throwing.createServer();
            long syncIo = Throwing.syncIo(throwingServer);
            assertNotEquals(0, syncIo);
            OpcSyncIo.read(syncIo, new int[] {1}, true, receiver);
            ComObjectClient.release(syncIo);
            ComObjectClient.release(throwingServer);
            assertEquals(5, receiver.calls().size());
            assertEquals(List.of("OpcSyncIo:read->argument is null",
                    "OpcSyncIO::read -> serverHandles is null",
                    "OpcSyncIO::read -> GetArrayLength is zero",
                    "OpcSyncIO::read -> readResults or hresults is null",
                    "OpcSyncIO::read -> jni method ids are null",
                    "OpcSyncIO::read -> readResults or hresults is null", "OpcSyncIO::read -> SafeArray -bstr is null",
                    "OpcSyncIO::read -> SafeArray -double is null", "OpcSyncIO::read -> SafeArray -char is null",
                    "Unexpected exception in SyncIo2::Read."), log.texts());
        }
    }

    @Test
    void singleWritesSendTheirTypeRefuseBadValuesAndPassServerResultsThrough() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("w", 1000, "Simulation.Static.BOOL", "Simulation.Static.I4",
                    "Simulation.Static.UI4", "Simulation.Static.BSTR", "Simulation.Array.I4", "Simulation.Static.R8",
                    "Simulation.Access.ReadOnly");
            int[] h = g.items();
            long io = g.syncIo();
            assertEquals(0, OpcSyncIo.writeBoolean(io, h[0], true));
            assertEquals("count=1 handles=" + h[0] + " types=11", SimControl.lastCallArgs("IOPCSyncIO::Write"));
            assertEquals(0, OpcSyncIo.writeNumeric(io, h[1], VT_I4, 12.9));
            assertEquals(0, OpcSyncIo.writeNumeric(io, h[2], 19, -1.0));
            assertEquals(0, OpcSyncIo.writeString(io, h[3], "x,y \u00fcn\u00ef \u20ac", VT_BSTR));
            assertEquals(0, OpcSyncIo.writeString(io, h[4], "1, 2,-3", VT_ARRAY | VT_I4));
            assertEquals("count=1 handles=" + h[4] + " types=8195", SimControl.lastCallArgs("IOPCSyncIO::Write"));
            assertEquals(List.of("boolean true", "numeric 12.0", "numeric 4.294967295E9",
                    "string [x,y \u00fcn\u00ef \u20ac]", "string [1,2,-3]"), readBack(io, Arrays.copyOf(h, 5)));

            // Values that cannot be converted never reach the server.
            SimControl.clearCalls();
            for (String text : List.of("1,a", "1,,3", "70000")) {
                assertEquals(OPC_E_RANGE, OpcSyncIo.writeString(io, h[5], text, VT_ARRAY | VT_I2), text);
            }
            assertEquals(OPC_E_RANGE, OpcSyncIo.writeString(io, h[5], "5", VT_I4));
            assertEquals(-1, OpcSyncIo.writeString(io, h[5], null, VT_BSTR));
            assertEquals("[OpcEnv::setNumericValue] Variant is not numeric.", assertThrows(
                    NumberFormatException.class, () -> OpcSyncIo.writeNumeric(io, h[5], VT_BSTR, 1.0)).getMessage());
            assertEquals(List.of(-1, -1, -1), List.of(OpcSyncIo.writeBoolean(0, h[5], true),
                    OpcSyncIo.writeNumeric(0, h[5], VT_I4, 1.0), OpcSyncIo.writeString(0, h[5], "1", VT_BSTR)));
            assertEquals(0, SimControl.callCount("IOPCSyncIO::Write"));

            assertEquals(OPC_E_BADRIGHTS, OpcSyncIo.writeNumeric(io, h[6], VT_R8, 1.0));
            assertEquals(OPC_E_BADTYPE, OpcSyncIo.writeString(io, h[5], "1,2", VT_ARRAY | VT_R8));
            SimControl.setNullResults("IOPCSyncIO::Write", true);
            assertEquals(0, OpcSyncIo.writeBoolean(io, h[6], false));
            SimControl.setNullResults("IOPCSyncIO::Write", false);
            SimControl.failNext("IOPCSyncIO::Write", E_FAIL, 1);
            assertEquals(E_FAIL, fails("IOPCSyncIO::Write",
                    () -> OpcSyncIo.writeString(io, h[5], "1.5,2.5", VT_ARRAY | VT_R8)).getHresult());
            assertEquals(List.of(new Line("ERROR", "OpcSyncIO:writeBoolean->argument is null"),
                    new Line("ERROR", "OpcSyncIO:writeNumeric->argument is null"),
                    new Line("ERROR", "OpcSyncIO:writeString->argument is null")), log.lines());
        }
    }

    @Test
    void writeArrayBuildsEachValueByItsTypeAndReportsThroughTheListenerOrTheLog() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            SimFixture.Group g = sim.group("w", 1000, "Simulation.Static.R8", "Simulation.Static.BOOL",
                    "Simulation.Array.I4", "Simulation.Static.BSTR", "Simulation.Access.ReadOnly",
                    "Simulation.Static.I2", "Simulation.Unsupported.DATE", "Simulation.Array.R8");
            int[] h = g.items();
            long io = g.syncIo();
            Recorder returns = new Recorder();
            int[] types = {VT_R8, VT_BOOL, VT_ARRAY | VT_I4, VT_BSTR, VT_R8, VT_I2, VT_DATE, VT_ARRAY | VT_R8};
            String[] values = {" 12.5xyz", "True", "1,x", "h\u00e9llo \u20ac", "1", "-7.9e1", "2024", "0.5, 1e2"};
            assertEquals(S_FALSE, OpcSyncIo.writeArray(io, 8, h, types, values, returns));
            String sent = SimControl.lastCallArgs("IOPCSyncIO::Write");
            assertEquals("types=5,11,0,8,5,2,0,8197", sent.substring(sent.indexOf("types=")));
            int[] errors = {0, 0, OPC_E_BADTYPE, 0, OPC_E_BADRIGHTS, 0, OPC_E_BADTYPE, 0};
            assertEquals(written(S_FALSE, 8, h, errors), returns.last());
            assertEquals(0, returns.records().get(0).args()[4]);
            assertEquals(List.of("numeric 12.5", "boolean false", "string [h\u00e9llo \u20ac]", "numeric -79.0",
                    "string [0.5,100.0]"), readBack(io, h[0], h[1], h[3], h[5], h[7]));
            // Elements of any magnitude come back whole: every digit of the exact value, one decimal.
            assertEquals(0, OpcSyncIo.writeArray(io, 1, new int[] {h[7]}, new int[] {VT_ARRAY | VT_R8},
                    new String[] {"1e300,-1.7976931348623157e308,2"}, new Recorder()));
            String[] texts = readBack(io, h[7]).get(0).replaceAll("^string \\[|\\]$", "").split(",");
            assertEquals(3, texts.length);
            assertEquals(new BigDecimal(1e300).setScale(1), new BigDecimal(texts[0]));
            assertEquals(new BigDecimal(-Double.MAX_VALUE).setScale(1), new BigDecimal(texts[1]));
            assertEquals("2.0", texts[2]);

            // All accepted: no error array. Only the first count items are written.
            assertEquals(0, OpcSyncIo.writeArray(io, 2, h, types, new String[] {"abc", "true", "9"}, returns));
            assertEquals(written(0, 2, h, null), returns.last());
            assertEquals(List.of("numeric 0.0", "boolean true"), readBack(io, h[0], h[1]));
            // A string ends at its first U+0000; a long number text is read from its first 199 bytes.
            assertEquals(0, OpcSyncIo.writeArray(io, 2, new int[] {h[3], h[0]}, new int[] {VT_BSTR, VT_R8},
                    new String[] {"a\u0000b", " ".repeat(196) + "12345"}, returns));
            assertEquals(List.of("string [a]", "numeric 123.0"), readBack(io, h[3], h[0]));

            SimControl.clearCalls();
            SimControl.failNext("IOPCSyncIO::Write", E_FAIL, 1);
            assertEquals(E_FAIL, OpcSyncIo.writeArray(io, 1, h, types, values, returns));
            assertEquals(written(E_FAIL, 1, h, null), returns.last());
            // No items: null arrays, which the server refuses; a proxy refuses them before the server sees them.
            boolean proxied = SimControl.outOfProcess();
            int none = proxied ? RPC_X_NULL_REF_POINTER : E_INVALIDARG;
            assertEquals(none, OpcSyncIo.writeArray(io, 0, h, types, values, returns));
            assertEquals(written(none, 0, h, null), returns.last());
            assertEquals(0, OpcSyncIo.writeArray(0, 1, h, types, values, returns));
            assertEquals(0, OpcSyncIo.writeArray(io, -1, h, types, values, returns));
            assertEquals(0, OpcSyncIo.writeArray(io, 9, h, types, values, returns));
            assertEquals(proxied ? 1 : 2, SimControl.callCount("IOPCSyncIO::Write"));
            assertEquals(5, returns.calls().size());
            // The write happens; only its report is lost or fails in Java.
            assertEquals(0, OpcSyncIo.writeArray(io, 1, h, types, values, null));
            assertThrows(NoSuchMethodError.class, () -> OpcSyncIo.writeArray(io, 1, h, types, values, new Object()));
            assertEquals(proxied ? 3 : 4, SimControl.callCount("IOPCSyncIO::Write"));
            assertEquals(List.of("OpcEnv::write->sio is null", "Unexpected exception in OpcEnv::write.",
                    "Unexpected exception in OpcEnv::write.", "OpcEnv::write - jclass object clazz is null",
                    "OpcEnv::write - jni method ids are null"), log.texts());
        }
    }

    @Test
    void tenThousandItemsInOneWrite() {
        // One local reference per item at a time: -Xcheck:jni reports more than 32 held at once.
        try (SimFixture sim = SimFixture.open()) {
            int n = 10_000;
            String[] ids = new String[n];
            int[] types = new int[n];
            String[] values = new String[n];
            for (int i = 0; i < n; i++) {
                ids[i] = (i % 2 == 0 ? "Bench.R8." : "Bench.Str.") + i;
                types[i] = i % 2 == 0 ? VT_R8 : VT_BSTR;
                values[i] = i % 2 == 0 ? i + ".25" : "written " + i;
            }
            SimFixture.Group g = sim.group("w", 1000, ids);
            Recorder returns = new Recorder();
            assertEquals(0, OpcSyncIo.writeArray(g.syncIo(), n, g.items(), types, values, returns));
            assertEquals(written(0, n, g.items(), null), returns.last());
            assertEquals(List.of("numeric 9998.25", "string [written 9999]"),
                    readBack(g.syncIo(), g.items()).subList(n - 2, n));
        }
    }
}
