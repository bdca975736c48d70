package com.velmora.opc.cli;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.client.ItemValue;
import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.nio.charset.StandardCharsets;
import java.time.Instant;
import java.util.List;
import org.junit.jupiter.api.Test;

class MainTest {
    private final ByteArrayOutputStream out = new ByteArrayOutputStream();
    private final ByteArrayOutputStream err = new ByteArrayOutputStream();

    private int run(String... args) {
        return Main.run(args, new PrintStream(out, true, StandardCharsets.UTF_8),
                new PrintStream(err, true, StandardCharsets.UTF_8));
    }

    @Test
    void badCommandLinesAreUsageErrorsWithoutStackTraces() {
        for (String[] args : List.of(new String[] {}, new String[] {"read"}, new String[] {"frobnicate"},
                new String[] {"status", "extra"}, new String[] {"--server"}, new String[] {"--bogus", "status"},
                new String[] {"--host", "--json", "status"}, new String[] {"write", "A.B"},
                new String[] {"watch", "--rate", "fast", "X"}, new String[] {"watch", "--count", "-1", "X"})) {
            out.reset();
            err.reset();
            assertEquals(Main.USAGE, run(args), String.join(" ", args));
            String text = err.toString(StandardCharsets.UTF_8);
            assertTrue(text.startsWith("opc: "), text);
            assertTrue(!text.contains("Exception") && !text.contains("\tat "), text);
        }
    }

    @Test
    void optionsSelectServerHostSourceAndItems() {
        Main.Options o = Main.Options.parse(new String[] {"--host", "plant7", "read", "--device", "A.B", "C", "--json"});
        assertEquals(Main.DEFAULT_SERVER, o.server);
        assertEquals("plant7", o.host);
        assertEquals("read", o.command);
        assertEquals(com.velmora.opc.client.DataSource.DEVICE, o.source);
        assertEquals(List.of("A.B", "C"), o.items);
        assertTrue(o.json);
    }

    @Test
    void tableColumnsAlignOnTheWidestCell() {
        Table.print(new PrintStream(out, true, StandardCharsets.UTF_8), new String[] {"ITEM", "VALUE"},
                List.of(new String[] {"Random.Int4", "7"}, new String[] {"X", "12.5"}));
        assertEquals(List.of("ITEM         VALUE", "Random.Int4  7", "X            12.5"),
                out.toString(StandardCharsets.UTF_8).lines().toList());
    }

    @Test
    void jsonEscapesTextAndKeepsTypes() {
        String json = Json.values(List.of(
                new ItemValue("a\"b", "line\nnext\u0001", 0xC0, Instant.EPOCH, 0),
                new ItemValue("n", 2.5, 0xC0, Instant.EPOCH, 0),
                new ItemValue("f", null, 0, null, 0xC0040007)));
        assertTrue(json.contains("\"item\": \"a\\\"b\", \"value\": \"line\\nnext\\u0001\""), json);
        assertTrue(json.contains("\"value\": 2.5"), json);
        assertTrue(json.contains("\"value\": null, \"quality\": \"bad\", \"qualityCode\": 0, \"timestamp\": null,"
                + " \"error\": \"0xC0040007 (OPC_E_UNKNOWNITEMID)\""), json);
    }
}
