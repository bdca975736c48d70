package com.velmora.opc.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.SimControl;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class MainSimulationTest {
    private final ByteArrayOutputStream out = new ByteArrayOutputStream();
    private final ByteArrayOutputStream err = new ByteArrayOutputStream();

    @BeforeEach
    void simulationServer() {
        assumeTrue(SimControl.available(), SimControl::problem);
        SimControl.reset();
    }

    private int run(String... args) {
        return Main.run(args, new PrintStream(out, true, StandardCharsets.UTF_8),
                new PrintStream(err, true, StandardCharsets.UTF_8));
    }

    @Test
    void statusAndReadPrintAlignedColumns() {
        assertEquals(Main.OK, run("status"), err.toString(StandardCharsets.UTF_8));
        assertTrue(out.toString(StandardCharsets.UTF_8).lines().anyMatch(l -> l.matches("state +running")),
                out.toString(StandardCharsets.UTF_8));

        out.reset();
        assertEquals(Main.OK, run("read", "--device", "Simulation.Static.I4", "Simulation.Array.R8"),
                err.toString(StandardCharsets.UTF_8));
        List<String> lines = out.toString(StandardCharsets.UTF_8).lines().toList();
        assertEquals(3, lines.size(), lines::toString);
        int valueColumn = lines.get(0).indexOf("VALUE");
        int qualityColumn = lines.get(0).indexOf("QUALITY");
        for (String line : lines.subList(1, 3)) {
            assertTrue(line.charAt(valueColumn - 1) == ' ' && line.charAt(valueColumn) != ' ', line);
            assertTrue(line.startsWith("good", qualityColumn), line);
        }
    }

    @Test
    void watchPrintsTheRequestedNumberOfChangesInColumnsOrAsJsonLines() {
        assertEquals(Main.FAILED, run("watch", "--rate", "50", "--count", "4", "Simulation.Ramp.I4", "Simulation.Sine.R8",
                "No.Such.Item"), err.toString(StandardCharsets.UTF_8));
        List<String> lines = out.toString(StandardCharsets.UTF_8).lines().toList();
        assertEquals(6, lines.size(), lines::toString);
        assertTrue(lines.get(0).startsWith("ITEM"), lines.get(0));
        assertTrue(lines.get(1).startsWith("No.Such.Item ") && lines.get(1).contains("OPC_E_UNKNOWNITEMID"), lines.get(1));
        int quality = lines.get(0).indexOf("QUALITY");
        for (String line : lines.subList(2, 6)) {
            assertTrue(line.startsWith("Simulation."), line);
            assertTrue(line.startsWith("good", quality), line);
        }

        out.reset();
        assertEquals(Main.OK, run("--json", "watch", "--rate", "50", "--count", "2", "Simulation.Ramp.I4"));
        lines = out.toString(StandardCharsets.UTF_8).lines().toList();
        assertEquals(2, lines.size(), lines::toString);
        assertTrue(lines.stream().allMatch(l -> l.startsWith("{\"item\": \"Simulation.Ramp.I4\", \"value\": ")
                && l.endsWith("\"error\": null}")), lines::toString);
    }

    @Test
    void watchStopsWithANoticeWhenTheServerShutsDown() throws Exception {
        ExecutorService runner = Executors.newSingleThreadExecutor();
        try {
            Future<Integer> watching = runner.submit(() -> run("watch", "--rate", "50", "Simulation.Ramp.I4"));
            long deadline = System.nanoTime() + 5_000_000_000L;
            while (out.toString(StandardCharsets.UTF_8).lines().count() < 2 && System.nanoTime() < deadline) {
                Thread.sleep(10);
            }
            assertEquals(1, SimControl.shutdown("maintenance"));
            assertEquals(Main.FAILED, watching.get(5, TimeUnit.SECONDS));
            assertEquals(List.of("opc: the server asked its clients to disconnect; stopping"),
                    err.toString(StandardCharsets.UTF_8).lines().toList());
        } finally {
            runner.shutdownNow();
        }
    }

    @Test
    void failuresAreOneLineAndANonZeroExit() {
        assertEquals(Main.FAILED, run("--server", "No.Such.Server.1", "status"));
        List<String> lines = err.toString(StandardCharsets.UTF_8).lines().toList();
        assertEquals(List.of("opc: OpcEnv::toCLSID failed: 0x800401F3 (CO_E_CLASSSTRING)"), lines);

        out.reset();
        assertEquals(Main.FAILED, run("--json", "read", "Simulation.Static.R8", "No.Such.Item"));
        String json = out.toString(StandardCharsets.UTF_8);
        assertTrue(json.contains("\"item\": \"No.Such.Item\", \"value\": null"), json);
        assertTrue(json.contains("OPC_E_UNKNOWNITEMID"), json);
    }
}
