package com.velmora.opc.cli;

import static org.junit.jupiter.api.Assertions.*;

import com.fasterxml.jackson.core.JsonFactory;
import com.fasterxml.jackson.core.JsonParser;
import com.fasterxml.jackson.core.JsonToken;
import com.velmora.opc.testsupport.SimControl;
import com.velmora.opc.testsupport.SimFixture;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.*;
import org.junit.jupiter.api.Test;

class MainTest {
    private final ByteArrayOutputStream out = new ByteArrayOutputStream();
    private final ByteArrayOutputStream err = new ByteArrayOutputStream();

    private int run(String... args) {
        return runWithInput("", args);
    }

    private int runWithInput(String input, String... args) {
        out.reset();
        err.reset();
        return Main.run(args, new PrintStream(out, true, StandardCharsets.UTF_8),
                new PrintStream(err, true, StandardCharsets.UTF_8),
                new ByteArrayInputStream(input.getBytes(StandardCharsets.UTF_8)), false);
    }

    private List<String> outLines() {
        return out.toString(StandardCharsets.UTF_8).lines().toList();
    }

    private String errText() {
        return err.toString(StandardCharsets.UTF_8);
    }

    @Test
    void badCommandLinesAreOneLineUsageErrorsAndHelpAndCompletionAreGenerated() {
        for (String[] args : List.of(new String[] {}, new String[] {"frobnicate"}, new String[] {"status", "extra"},
                new String[] {"--server"}, new String[] {"--bogus", "status"}, new String[] {"write", "A.B"},
                new String[] {"write", "A.B", "1", "C"}, new String[] {"watch", "--rate", "fast", "X"},
                new String[] {"watch", "--count", "-1", "X"}, new String[] {"read", "--device", "--cache", "X"},
                new String[] {"read", "--interval", "-5", "X"}, new String[] {"--json", "--csv", "status"},
                new String[] {"read"})) {
            assertEquals(Main.USAGE, run(args), String.join(" ", args));
            assertTrue(errText().startsWith("opc: "), errText());
            assertTrue(!errText().contains("Exception") && !errText().contains("\tat "), errText());
        }

        assertEquals(Main.OK, run("--help"));
        String help = out.toString(StandardCharsets.UTF_8);
        for (String command : List.of("servers", "status", "browse", "properties", "read", "watch", "write",
                "generate-completion")) {
            assertTrue(help.contains("  " + command + " "), command + " in " + help);
        }
        assertEquals(Main.OK, run("read", "--help"));
        assertTrue(out.toString(StandardCharsets.UTF_8).contains("--interval=MS"), out::toString);
        assertEquals(Main.OK, run("generate-completion"));
        assertTrue(out.toString(StandardCharsets.UTF_8).contains("complete -F"), "a bash completion script");
    }

    @Test
    void valuesGetTheirItemsTypesAndCsvQuotesItsCells() {
        assertEquals(31L, Values.typed(31.0, 3));
        assertEquals(31.0, Values.typed(31.0, 5));
        assertEquals(List.of(1L, -2L, 3L), Values.typed("1,-2,3", 0x2003));
        assertEquals(List.of(0.5, 2.0), Values.typed("0.5,2", 0x2005));
        assertEquals(List.of(true, false), Values.typed("true,false", 0x200B));
        assertEquals(List.of("a", " b"), Values.typed("a, b", 0x2008));
        assertEquals(List.of(), Values.typed("", 0x2003));
        assertEquals("1,2.5,x", Values.text(List.of(1.0, 2.5, "x")));
        assertEquals("a,\"b,c\",\"say \"\"hi\"\"\"", Output.csvLine(List.of("a", "b,c", "say \"hi\"")));
    }

    @Test
    void readPrintsTypedJsonTablesAndCsvForIdsFromArgumentsOrStandardInput() throws IOException {
        SimFixture.require();
        assertEquals(Main.OK, run("status"), errText());
        assertTrue(outLines().stream().anyMatch(l -> l.matches("state +running")), outLines()::toString);

        assertEquals(Main.OK, run("read", "--device", "Simulation.Static.I4", "Simulation.Array.R8"), errText());
        List<String> lines = outLines();
        assertEquals(3, lines.size(), lines::toString);
        int quality = lines.get(0).indexOf("QUALITY");
        for (String line : lines.subList(1, 3)) assertTrue(line.startsWith("good", quality), line);

        assertEquals(Main.OK, runWithInput("Simulation.Ramp.I4\n\n# a comment\nSimulation.Array.I4\nSimulation.Static.BOOL\n",
                "--json", "read", "-"), errText());
        List<?> values = (List<?>) parse(out.toString(StandardCharsets.UTF_8));
        assertEquals(3, values.size(), values::toString);
        Map<?, ?> ramp = (Map<?, ?>) values.get(0);
        assertEquals("I4", ramp.get("type"));
        assertInstanceOf(Long.class, ramp.get("value"), ramp::toString);
        Instant.parse((String) ramp.get("timestamp"));
        List<?> array = (List<?>) ((Map<?, ?>) values.get(1)).get("value");
        assertFalse(array.isEmpty());
        assertTrue(array.stream().allMatch(Long.class::isInstance), array::toString);
        assertInstanceOf(Boolean.class, ((Map<?, ?>) values.get(2)).get("value"));

        // A repeated read: JSON lines, one per item and read.
        assertEquals(Main.OK, run("read", "--interval", "20", "--count", "3", "--json", "Simulation.Ramp.I4"), errText());
        assertEquals(3, outLines().size(), outLines()::toString);
        for (String line : outLines()) assertTrue(line.matches("\\{\"item\":\"Simulation.Ramp.I4\",\"type\":\"I4\",\"value\":-?\\d+,.*"), line);

        assertEquals(Main.OK, run("--csv", "read", "Simulation.Array.I4"), errText());
        assertEquals("item,value,quality,timestamp", outLines().get(0));
        assertTrue(outLines().get(1).startsWith("Simulation.Array.I4,\""), outLines()::toString);
    }

    @Test
    void browseRecursiveShowsTheAddressSpaceAsATree() throws IOException {
        SimFixture.require();
        assertEquals(Main.OK, run("browse", "--recursive", "Simulation"), errText());
        List<String> lines = outLines();
        assertTrue(lines.contains("├── Access"), lines::toString);
        assertTrue(lines.contains("│   ├── ReadOnly  R8 r"), lines::toString);
        assertTrue(lines.contains("    └── I8  I8 rw"), lines::toString);

        assertEquals(Main.OK, run("--json", "browse", "-r", "Simulation"), errText());
        List<?> roots = (List<?>) parse(out.toString(StandardCharsets.UTF_8));
        Map<?, ?> branch = (Map<?, ?>) roots.stream().filter(r -> ((Map<?, ?>) r).containsKey("children")).findFirst()
                .orElseThrow();
        assertEquals("branch", branch.get("kind"));
        assertFalse(((List<?>) branch.get("children")).isEmpty());
    }

    @Test
    void eachCommonFailureSaysWhatHappenedAndWhatToTry() {
        SimFixture.require();
        assertEquals(Main.FAILED, run("--server", "No.Such.Server.1", "status"));
        List<String> lines = errText().lines().toList();
        assertEquals(List.of("opc: connecting to No.Such.Server.1 on this host: no server is registered under that "
                + "name or CLSID on this host", "  error 0x800401F3 (CO_E_CLASSSTRING) from OpcEnv::toCLSID"),
                lines.subList(0, 2));
        assertTrue(lines.get(2).startsWith("  try: list the servers registered on the host (opc servers"), lines.get(2));

        assertEquals(Main.FAILED, run("--server", "{00000000-0000-0000-0000-0000000000AB}", "status"));
        assertTrue(errText().contains("REGDB_E_CLASSNOTREG") && errText().contains("try: list the servers"), errText());

        assertEquals(Main.FAILED, run("--host", "nowhere.invalid", "status"));
        assertTrue(errText().startsWith("opc: connecting to " + Main.DEFAULT_SERVER + " on nowhere.invalid: the server's "
                + "host could not be reached over DCOM\n  error 0x800706BA (RPC_S_SERVER_UNAVAILABLE)"), errText());

        // Failures of the server's calls: access denied, a missing proxy.
        for (int code : new int[] {0x80070005, 0x80004002}) {
            SimControl.failNext("IOPCServer::GetStatus", code, 1);
            assertEquals(Main.FAILED, run("status"));
            String text = errText();
            assertTrue(text.startsWith("opc: talking to " + Main.DEFAULT_SERVER + ": "), text);
            assertTrue(text.contains(String.format("  error 0x%08X", code)) && text.contains("\n  try: "), text);
        }
        assertTrue(errText().contains("opcproxy.dll"), errText());

        // A proxy/stub library that the start-up could not load (a log line, not an exception) is named too.
        Failures.STARTUP.publish(new java.util.logging.LogRecord(java.util.logging.Level.SEVERE, "Failed to load opcproxy.dll"));
        try {
            SimControl.failNext("IOPCServer::GetStatus", 0x80004005, 1);
            assertEquals(Main.FAILED, run("status"));
            assertTrue(errText().contains("could not load the OPC proxy/stub libraries at start-up (Failed to load "
                    + "opcproxy.dll)\n  try: install the OPC proxy/stub libraries"), errText());
        } finally {
            Failures.STARTUP.proxyFailure = null;
        }

        // Per-item failures: the server's own text for the code, then the remedy.
        assertEquals(Main.FAILED, run("read", "Simulation.Static.R8", "No.Such.Item"));
        assertTrue(outLines().get(2).contains("error 0xC0040007 (OPC_E_UNKNOWNITEMID)"), outLines()::toString);
        assertTrue(errText().startsWith("opc: No.Such.Item: the server knows no item by that id\n  error 0xC0040007 "
                + "(OPC_E_UNKNOWNITEMID): "), errText());
        assertTrue(errText().contains("try: browse the server's address space"), errText());

        assertEquals(Main.FAILED, run("write", "Simulation.Static.I4", "many", "Simulation.Unsupported.DATE", "1"));
        assertTrue(errText().contains("opc: Simulation.Static.I4: the value is out of the item's range"), errText());
        assertTrue(errText().contains("opc: Simulation.Unsupported.DATE: the value does not convert to the item's data type"),
                errText());
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

        assertEquals(Main.OK, run("--json", "watch", "--rate", "50", "--count", "2", "Simulation.Ramp.I4"));
        assertEquals(2, outLines().size(), outLines()::toString);
        assertTrue(outLines().stream().allMatch(l -> l.matches("\\{\"item\":\"Simulation.Ramp.I4\",\"type\":\"I4\","
                + "\"value\":-?\\d+,.*\"error\":null}")), outLines()::toString);
    }

    @Test
    void watchStopsWithANoticeWhenTheServerShutsDown() throws Exception {
        SimFixture.require();
        ExecutorService runner = Executors.newSingleThreadExecutor();
        try {
            Future<Integer> watching = runner.submit(() -> run("watch", "--rate", "50", "Simulation.Ramp.I4"));
            long deadline = System.nanoTime() + 5_000_000_000L;
            while (outLines().size() < 2 && System.nanoTime() < deadline) Thread.sleep(10);
            // Two listeners: the command's own and the connection's loss watch.
            assertEquals(2, SimControl.shutdown("maintenance"));
            assertEquals(Main.FAILED, watching.get(5, TimeUnit.SECONDS));
            assertEquals(List.of("opc: the server asked its clients to disconnect; stopping"),
                    errText().lines().toList());
        } finally {
            runner.shutdownNow();
        }
    }

    @Test
    void verboseShowsTheLibrarysTraceLinesAndWithoutItStandardErrorStaysEmpty() {
        SimFixture.require();
        SimControl.setWithoutBrowse(true);
        try {
            assertEquals(Main.OK, run("browse", "No.Such.Branch"), errText());
            assertEquals("", errText());
            assertEquals(Main.OK, run("--verbose", "browse", "No.Such.Branch"), errText());
            assertTrue(errText().contains("Native:ChangeBrowsePosition Failed, Calling goRoot"), errText());
            assertEquals(Main.OK, run("browse", "No.Such.Branch"), errText());
            assertEquals("", errText(), "the trace ends with the command");
        } finally {
            SimControl.reset();
        }
    }

    @Test
    void identityNameAndLocaleReachTheServerAndInconsistentOnesAreUsageErrors() {
        SimFixture.require();
        for (String[] args : List.of(new String[] {"--password", "p", "status"}, new String[] {"--user", "u", "status"},
                new String[] {"--logon", "status"}, new String[] {"--locale", "english", "status"})) {
            assertEquals(Main.USAGE, run(args), String.join(" ", args));
            assertTrue(errText().startsWith("opc: ") && errText().lines().count() == 2, errText());
        }

        SimControl.clearCalls();
        assertEquals(Main.OK, run("--client-name", "line test", "--locale", "0x407", "status"), errText());
        assertEquals("name=line test", SimControl.lastCallArgs("IOPCCommon::SetClientName"));
        assertEquals("lcid=1031", SimControl.lastCallArgs("IOPCCommon::SetLocaleID"));

        // A locale the server does not have: its code, from the call that failed, and nothing is read.
        assertEquals(Main.FAILED, run("--locale", "1", "read", "Simulation.Static.I4"));
        assertTrue(errText().startsWith("opc: setting the locale of " + Main.DEFAULT_SERVER + " to 1: "), errText());
        assertTrue(errText().contains("error 0x80070057 (E_INVALIDARG) from IOPCCommon::SetLocaleID"), errText());
        assertEquals(List.of(), outLines());

        // In this process neither identity has a proxy to travel on: refused before the server is asked.
        for (String[] args : List.of(new String[] {"--user", "operator", "--password", "secret", "--logon"},
                new String[] {"--user", "plant\\operator", "--password", "secret"})) {
            List<String> command = new ArrayList<>(List.of(args));
            command.addAll(List.of("read", "Simulation.Static.I4"));
            assertEquals(Main.FAILED, run(command.toArray(String[]::new)));
            List<String> lines = errText().lines().toList();
            assertEquals(2, lines.size(), errText());
            assertTrue(lines.get(0).startsWith(args.length == 5 ? "opc: logging on to " + Main.DEFAULT_SERVER + " as operator: "
                    : "opc: changing the user of " + Main.DEFAULT_SERVER + " to plant\\operator: "), errText());
            assertTrue(lines.get(1).startsWith("  try: ") && lines.get(1).contains("leave out --"), errText());
            assertEquals(List.of(), outLines());
        }
        // --password without a value takes the first line of standard input, and the command after it stays one.
        assertEquals(Main.FAILED, runWithInput("secret\r\n", "--user", "operator", "--password", "--logon", "read",
                "Simulation.Static.I4"));
        assertTrue(errText().startsWith("opc: logging on to " + Main.DEFAULT_SERVER + " as operator: "), errText());
        assertEquals(Main.USAGE, runWithInput("", "--user", "operator", "--password", "status"));
        assertTrue(errText().startsWith("opc: --password without a value needs the password typed or on standard input"),
                errText());
        assertEquals(0, SimControl.callCount("IOPCSecurityPrivate::Logon") + SimControl.callCount("IOPCSecurityNT::ChangeUser"));
    }

    @Test
    void propertiesShowTheirValuesTypedAsTheirTypesSay() throws IOException {
        SimFixture.require();
        assertEquals(Main.OK, run("--json", "properties", "Simulation.Sine.R8", "Simulation.Array.I4"), errText());
        Map<String, Object> sine = new LinkedHashMap<>();
        Map<String, Object> array = new LinkedHashMap<>();
        for (Object o : (List<?>) parse(out.toString(StandardCharsets.UTF_8))) {
            Map<?, ?> p = (Map<?, ?>) o;
            assertNull(p.get("error"), p::toString);
            (p.get("item").equals("Simulation.Sine.R8") ? sine : array).put(String.valueOf(p.get("id")), p.get("value"));
        }
        assertEquals(5L, sine.get("1"));
        assertInstanceOf(Double.class, sine.get("2"));
        assertEquals(192L, sine.get("3"));
        Instant.parse((String) sine.get("4"));
        assertEquals(-100.0, sine.get("103"));
        assertEquals("Simulated item Simulation.Sine.R8", sine.get("101"));
        assertTrue(((List<?>) array.get("2")).stream().allMatch(Long.class::isInstance), array::toString);

        SimControl.failNext("IOPCItemProperties::GetItemProperties", 0x80004005, 1);
        assertEquals(Main.FAILED, run("properties", "Simulation.Static.R8"));
        assertTrue(outLines().stream().anyMatch(l -> l.contains("error 0x80004005 (E_FAIL)")), outLines()::toString);
        assertTrue(errText().startsWith("opc: Simulation.Static.R8 property "), errText());
    }

    @Test
    void watchStopsWhenTheServerGoesAwayAndWithReconnectGoesOnWhenItComesBack() throws Exception {
        SimFixture.require();
        ExecutorService runner = Executors.newSingleThreadExecutor();
        try {
            out.reset();  // no lines of an earlier command count
            Future<Integer> watching = runner.submit(() -> run("watch", "--rate", "50", "--poll", "200", "Simulation.Ramp.I4"));
            waitFor(() -> outLines().size() >= 3);
            SimControl.setDown(true);
            assertEquals(Main.FAILED, watching.get(5, TimeUnit.SECONDS));
            assertTrue(errText().matches("opc: lost the connection to " + Main.DEFAULT_SERVER + " \\(.*\\); stopping\\R"),
                    errText());
            SimControl.setDown(false);

            out.reset();
            err.reset();
            Future<Integer> again = runner.submit(() -> run("watch", "--reconnect", "--rate", "50", "--poll", "200",
                    "Simulation.Ramp.I4"));
            waitFor(() -> outLines().size() >= 3);
            SimControl.setDown(true);
            waitFor(() -> errText().contains("; connecting again"));
            Thread.sleep(500);
            int before = outLines().size();
            SimControl.setDown(false);
            waitFor(() -> errText().contains("opc: connected to " + Main.DEFAULT_SERVER + " again"));
            waitFor(() -> outLines().size() >= before + 3);
            assertFalse(again.isDone());
            again.cancel(true);  // Ctrl-C
        } finally {
            runner.shutdownNow();
            assertTrue(runner.awaitTermination(10, TimeUnit.SECONDS));
            SimControl.setDown(false);
            SimControl.reset();
        }
    }

    private void waitFor(java.util.function.BooleanSupplier condition) throws InterruptedException {
        long deadline = System.nanoTime() + 10_000_000_000L;
        while (!condition.getAsBoolean()) {
            assertTrue(System.nanoTime() < deadline, () -> "timed out; out: " + out + "\nerr: " + err);
            Thread.sleep(20);
        }
    }

    /** JSON text as maps, lists, strings, longs, doubles, booleans and nulls. */
    private static Object parse(String json) throws IOException {
        try (JsonParser parser = new JsonFactory().createParser(json)) {
            parser.nextToken();
            return value(parser);
        }
    }

    private static Object value(JsonParser parser) throws IOException {
        JsonToken token = parser.currentToken();
        switch (token) {
            case START_OBJECT -> {
                Map<String, Object> object = new LinkedHashMap<>();
                while (parser.nextToken() == JsonToken.FIELD_NAME) {
                    String name = parser.currentName();
                    parser.nextToken();
                    object.put(name, value(parser));
                }
                return object;
            }
            case START_ARRAY -> {
                List<Object> array = new ArrayList<>();
                while (parser.nextToken() != JsonToken.END_ARRAY) array.add(value(parser));
                return array;
            }
            case VALUE_NUMBER_INT -> {
                return parser.getLongValue();
            }
            case VALUE_NUMBER_FLOAT -> {
                return parser.getDoubleValue();
            }
            case VALUE_TRUE, VALUE_FALSE -> {
                return parser.getBooleanValue();
            }
            case VALUE_NULL -> {
                return null;
            }
            default -> {
                return parser.getText();
            }
        }
    }
}
