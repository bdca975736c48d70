package com.velmora.opc.jni.client.da;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
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
class OpcSyncIoWriteNativeTest {
    static final int VT_I2 = 2, VT_I4 = 3, VT_R8 = 5, VT_DATE = 7, VT_BSTR = 8, VT_BOOL = 11, VT_ARRAY = 0x2000;
    static final int S_FALSE = 1, E_FAIL = 0x80004005, E_INVALIDARG = 0x80070057;
    static final int OPC_E_BADTYPE = 0xC0040004, OPC_E_BADRIGHTS = 0xC0040006, OPC_E_RANGE = 0xC004000B;

    private record Group(long syncIo, int[] items) {}

    private static Group group(SimFixture sim, String... ids) {
        long unknown = sim.addGroup("w")[0];
        int[] items = sim.addItems(sim.query(unknown, SimFixture.IID_IOPCITEMMGT), ids);
        return new Group(sim.query(unknown, SimFixture.IID_IOPCSYNCIO), items);
    }

    /** The items' values read from the device, as "kind value", e.g. "numeric 12.0". */
    static List<String> readBack(long syncIo, int... handles) {
        RecordingReceiver receiver = new RecordingReceiver();
        OpcSyncIo.read(syncIo, handles, false, receiver);
        return receiver.calls().stream()
                .map(c -> c.replaceFirst("^(\\w+) -?\\d+ ", "$1 ").replaceFirst(" q\\d+ e-?\\d+ sync$", "")).toList();
    }

    /** Every OnReturnWrite as its seven arguments. */
    static final class Returns implements WriteListener {
        final List<Object[]> calls = new ArrayList<>();

        @Override
        public void OnReturnWrite(boolean sync, int hr, int count, int transaction, int cancelId, int[] handles,
                int[] errors) {
            calls.add(new Object[] {sync, hr, count, transaction, cancelId, handles, errors});
        }

        Object[] last() {
            return calls.get(calls.size() - 1);
        }
    }

    @Test
    void singleWritesSendTheirTypeAndTheValueReadsBack() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, "Simulation.Static.BOOL", "Simulation.Static.I4", "Simulation.Static.UI4",
                    "Simulation.Static.BSTR", "Simulation.Array.I4");
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
                    "string [x,y \u00fcn\u00ef \u20ac]", "string [1,2,-3]"),
                    readBack(io, h));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void refusedValuesNeverReachTheServerAndServerResultsPassThrough() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, "Simulation.Static.R8", "Simulation.Access.ReadOnly");
            int[] h = g.items();
            long io = g.syncIo();
            for (String text : List.of("1,a", "1,,3", "70000")) {
                assertEquals(OPC_E_RANGE, OpcSyncIo.writeString(io, h[0], text, VT_ARRAY | VT_I2), text);
            }
            assertEquals(OPC_E_RANGE, OpcSyncIo.writeString(io, h[0], "5", VT_I4));
            assertEquals(-1, OpcSyncIo.writeString(io, h[0], null, VT_BSTR));
            assertEquals("[OpcEnv::setNumericValue] Variant is not numeric.", assertThrows(
                    NumberFormatException.class, () -> OpcSyncIo.writeNumeric(io, h[0], VT_BSTR, 1.0)).getMessage());
            assertEquals(List.of(-1, -1, -1), List.of(OpcSyncIo.writeBoolean(0, h[0], true),
                    OpcSyncIo.writeNumeric(0, h[0], VT_I4, 1.0), OpcSyncIo.writeString(0, h[0], "1", VT_BSTR)));
            assertEquals(0, SimControl.callCount("IOPCSyncIO::Write"));
            assertEquals(List.of(new LogCapture.Line("ERROR", "OpcSyncIO:writeBoolean->argument is null"),
                    new LogCapture.Line("ERROR", "OpcSyncIO:writeNumeric->argument is null"),
                    new LogCapture.Line("ERROR", "OpcSyncIO:writeString->argument is null")), log.lines());

            assertEquals(OPC_E_BADRIGHTS, OpcSyncIo.writeNumeric(io, h[1], VT_R8, 1.0));
            assertEquals(OPC_E_BADTYPE, OpcSyncIo.writeString(io, h[0], "1,2", VT_ARRAY | VT_R8));
            SimControl.setNullResults("IOPCSyncIO::Write", true);
            assertEquals(0, OpcSyncIo.writeBoolean(io, h[1], false));
            SimControl.setNullResults("IOPCSyncIO::Write", false);
            SimControl.failNext("IOPCSyncIO::Write", E_FAIL, 1);
            HresultException failed = assertThrows(HresultException.class,
                    () -> OpcSyncIo.writeString(io, h[0], "1.5,2.5", VT_ARRAY | VT_R8));
            assertEquals(E_FAIL, failed.getHresult());
            assertEquals("IOPCSyncIO::Write", failed.getOperation());
        }
    }

    @Test
    void writeArrayBuildsEachValueByItsTypeAndReportsThroughTheListener() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, "Simulation.Static.R8", "Simulation.Static.BOOL", "Simulation.Array.I4",
                    "Simulation.Static.BSTR", "Simulation.Access.ReadOnly", "Simulation.Static.I2",
                    "Simulation.Unsupported.DATE", "Simulation.Array.R8");
            int[] h = g.items();
            long io = g.syncIo();
            Returns returns = new Returns();
            int[] types = {VT_R8, VT_BOOL, VT_ARRAY | VT_I4, VT_BSTR, VT_R8, VT_I2, VT_DATE, VT_ARRAY | VT_R8};
            String[] values = {" 12.5xyz", "True", "1,x", "h\u00e9llo \u20ac", "1", "-7.9e1", "2024", "0.5, 1e2"};
            assertEquals(S_FALSE, OpcSyncIo.writeArray(io, 8, h, types, values, returns));
            String sent = SimControl.lastCallArgs("IOPCSyncIO::Write");
            assertEquals("types=5,11,0,8,5,2,0,8197", sent.substring(sent.indexOf("types=")));
            int[] errors = {0, 0, OPC_E_BADTYPE, 0, OPC_E_BADRIGHTS, 0, OPC_E_BADTYPE, 0};
            assertArrayEquals(new Object[] {true, S_FALSE, 8, 0, 0, h, errors}, returns.last());
            assertEquals(List.of("numeric 12.5", "boolean false", "string [h\u00e9llo \u20ac]", "numeric -79.0",
                    "string [0.5,100.0]"), readBack(io, h[0], h[1], h[3], h[5], h[7]));

            // All accepted: no error array. Only the first count items are written.
            assertEquals(0, OpcSyncIo.writeArray(io, 2, h, types, new String[] {"abc", "true", "9"}, returns));
            assertArrayEquals(new Object[] {true, 0, 2, 0, 0, h, null}, returns.last());
            assertEquals(List.of("numeric 0.0", "boolean true"), readBack(io, h[0], h[1]));
            assertEquals(List.of(), log.texts());
        }
    }

    @Test
    void writeArrayFailuresGoToTheListenerOrTheLog() {
        try (SimFixture sim = SimFixture.open(); LogCapture log = new LogCapture()) {
            Group g = group(sim, "Simulation.Static.R8");
            int[] h = g.items();
            long io = g.syncIo();
            int[] types = {VT_R8};
            String[] values = {"1.5"};
            Returns returns = new Returns();
            SimControl.failNext("IOPCSyncIO::Write", E_FAIL, 1);
            assertEquals(E_FAIL, OpcSyncIo.writeArray(io, 1, h, types, values, returns));
            assertArrayEquals(new Object[] {true, E_FAIL, 1, 0, 0, h, null}, returns.last());
            assertEquals(E_INVALIDARG, OpcSyncIo.writeArray(io, 0, h, types, values, returns));
            assertArrayEquals(new Object[] {true, E_INVALIDARG, 0, 0, 0, h, null}, returns.last());

            assertEquals(0, OpcSyncIo.writeArray(0, 1, h, types, values, returns));
            assertEquals(0, OpcSyncIo.writeArray(io, -1, h, types, values, returns));
            assertEquals(0, OpcSyncIo.writeArray(io, 2, h, types, values, returns));
            assertEquals(2, SimControl.callCount("IOPCSyncIO::Write"));
            assertEquals(2, returns.calls.size());
            // The write happens; only its report is lost or fails in Java.
            assertEquals(0, OpcSyncIo.writeArray(io, 1, h, types, values, null));
            assertThrows(NoSuchMethodError.class, () -> OpcSyncIo.writeArray(io, 1, h, types, values, new Object()));
            assertEquals(4, SimControl.callCount("IOPCSyncIO::Write"));
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
            Group g = group(sim, ids);
            Returns returns = new Returns();
            assertEquals(0, OpcSyncIo.writeArray(g.syncIo(), n, g.items(), types, values, returns));
            assertArrayEquals(new Object[] {true, 0, n, 0, 0, g.items(), null}, returns.last());
            List<String> back = readBack(g.syncIo(), g.items());
            assertEquals(List.of("numeric 9998.25", "string [written 9999]"), back.subList(n - 2, n));
        }
    }
}
