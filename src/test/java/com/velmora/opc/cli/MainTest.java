package com.velmora.opc.cli;

import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.client.DataSource;
import com.velmora.opc.client.ItemValue;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.List;
import java.util.concurrent.*;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class MainTest {
    private final ByteArrayOutputStream out = new ByteArrayOutputStream();
    private final ByteArrayOutputStream err = new ByteArrayOutputStream();

    private int run(String... args) {
        return Main.run(args, new PrintStream(out, true, StandardCharsets.UTF_8),
                new PrintStream(err, true, StandardCharsets.UTF_8));
    }

    private List<String> outLines() {
        return out.toString(StandardCharsets.UTF_8).lines().toList();
    }

    private String errText() {
        return err.toString(StandardCharsets.UTF_8);
    }

    @Test
    void badCommandLinesAreUsageErrorsWithoutStackTraces() {
        for (String[] args : List.of(new String[] {}, new String[] {"read"}, new String[] {"frobnicate"},
                new String[] {"status", "extra"}, new String[] {"--server"}, new String[] {"--bogus", "status"},
                new String[] {"--host", "--json", "status"}, new String[] {"write", "A.B"},
                new String[] {"watch", "--rate", "fast", "X"}, new String[] {"watch", "--count", "-1", "X"})) {
            err.reset();
            assertEquals(Main.USAGE, run(args), String.join(" ", args));
            assertTrue(errText().startsWith("opc: "), errText());
            assertTrue(!errText().contains("Exception") && !errText().contains("\tat "), errText());
        }
        Main.Options o =
                Main.Options.parse(new String[] {"--host", "plant7", "read", "--device", "A.B", "C", "--json"});
        assertEquals(List.of(Main.DEFAULT_SERVER, "plant7", "read", DataSource.DEVICE, List.of("A.B", "C"), true),
                List.of(o.server, o.host, o.command, o.source, o.items, o.json));
    }

    @Test
    void verboseShowsTheLibrarysTraceLinesAndQuietShowsNone() {
        SimFixture.require();
        SimControl.setWithoutBrowse(true);  // the position-based browse traces a path it cannot go to
        assertEquals(Main.OK, run("--verbose", "browse", "No.Such.Branch"));
        assertTrue(errText().contains("Native:ChangeBrowsePosition Failed, Calling goRoot"), errText());
        err.reset();
        assertEquals(Main.OK, run("browse", "No.Such.Branch"));
        assertEquals("", errText());
    }

    @Test
    void tablesAlignOnTheWidestCellAndJsonEscapesTextAndKeepsTypes() {
        Table.print(new PrintStream(out, true, StandardCharsets.UTF_8), new String[] {"ITEM", "VALUE"},
                List.of(new String[] {"Random.Int4", "7"}, new String[] {"X", "12.5"}));
        assertEquals(List.of("ITEM         VALUE", "Random.Int4  7", "X            12.5"), outLines());

        String json = Json.values(List.of(
                new ItemValue("a\"b", "line\nnext\u0001", 0xC0, Instant.EPOCH, 0),
                new ItemValue("n", 2.5, 0xC0, Instant.EPOCH, 0),
                new ItemValue("f", null, 0, null, 0xC0040007)));
        assertTrue(json.contains("\"item\": \"a\\\"b\", \"value\": \"line\\nnext\\u0001\""), json);
        assertTrue(json.contains("\"value\": 2.5"), json);
        assertTrue(json.contains("\"value\": null, \"quality\": \"bad\", \"qualityCode\": 0, \"timestamp\": null,"
                + " \"error\": \"0xC0040007 (OPC_E_UNKNOWNITEMID)\""), json);
    }

    @Test
    void statusAndReadPrintAlignedColumnsAndFailuresOneLineWithANonZeroExit() {
        SimFixture.require();
        assertEquals(Main.OK, run("status"), errText());
        assertTrue(outLines().stream().anyMatch(l -> l.matches("state +running")), outLines()::toString);

        out.reset();
        assertEquals(Main.OK, run("read", "--device", "Simulation.Static.I4", "Simulation.Array.R8"), errText());
        List<String> lines = outLines();
        assertEquals(3, lines.size(), lines::toString);
        int valueColumn = lines.get(0).indexOf("VALUE");
        int qualityColumn = lines.get(0).indexOf("QUALITY");
        for (String line : lines.subList(1, 3)) {
            assertTrue(line.charAt(valueColumn - 1) == ' ' && line.charAt(valueColumn) != ' ', line);
            assertTrue(line.startsWith("good", qualityColumn), line);
        }

        err.reset();
        assertEquals(Main.FAILED, run("--server", "No.Such.Server.1", "status"));
        assertEquals(List.of("opc: OpcEnv::toCLSID failed: 0x800401F3 (CO_E_CLASSSTRING)"), errText().lines().toList());
        out.reset();
        assertEquals(Main.FAILED, run("--json", "read", "Simulation.Static.R8", "No.Such.Item"));
        String json = out.toString(StandardCharsets.UTF_8);
        assertTrue(json.contains("\"item\": \"No.Such.Item\", \"value\": null") && json.contains("OPC_E_UNKNOWNITEMID"),
                json);
    }

    @Test
    void watchPrintsTheRequestedNumberOfChangesInColumnsOrAsJsonLines() {
        SimFixture.require();
        assertEquals(Main.FAILED, run("watch", "--rate", "50", "--count", "4", "Simulation.Ramp.I4",
                "Simulation.Sine.R8", "No.Such.Item"), errText());
        List<String> lines = outLines();
        assertEquals(6, lines.size(), lines::toString);
        assertTrue(lines.get(0).startsWith("ITEM"), lines.get(0));
        assertTrue(lines.get(1).startsWith("No.Such.Item ") && lines.get(1).contains("OPC_E_UNKNOWNITEMID"),
                lines.get(1));
        int quality = lines.get(0).indexOf("QUALITY");
        for (String line : lines.subList(2, 6)) {
            assertTrue(line.startsWith("Simulation.") && line.startsWith("good", quality), line);
        }

        out.reset();
        assertEquals(Main.OK, run("--json", "watch", "--rate", "50", "--count", "2", "Simulation.Ramp.I4"));
        assertEquals(2, outLines().size(), outLines()::toString);
        assertTrue(outLines().stream().allMatch(l -> l.startsWith("{\"item\": \"Simulation.Ramp.I4\", \"value\": ")
                && l.endsWith("\"error\": null}")), outLines()::toString);
    }

    @Test
    void watchStopsWithANoticeWhenTheServerShutsDown() throws Exception {
        SimFixture.require();
        ExecutorService runner = Executors.newSingleThreadExecutor();
        try {
            Future<Integer> watching = runner.submit(() -> run("watch", "--rate", "50", "Simulation.Ramp.I4"));
            long deadline = System.nanoTime() + 5_000_000_000L;
            while (outLines().size() < 2 && System.nanoTime() < deadline) Thread.sleep(10);
            assertEquals(1, SimControl.shutdown("maintenance"));
            assertEquals(Main.FAILED, watching.get(5, TimeUnit.SECONDS));
            assertEquals(List.of("opc: the server asked its clients to disconnect; stopping"),
                    errText().lines().toList());
        } finally {
            runner.shutdownNow();
        }
    }
}
