package com.velmora.opc.cli;

import static com.velmora.opc.cli.Output.row;

import com.velmora.opc.client.BOpcDeviceDiscoveryResult;
import com.velmora.opc.client.BrowseElement;
import com.velmora.opc.client.ConnectionListener;
import com.velmora.opc.client.ConnectionOptions;
import com.velmora.opc.client.DataSource;
import com.velmora.opc.client.Group;
import com.velmora.opc.client.Item;
import com.velmora.opc.client.ItemProperty;
import com.velmora.opc.client.ItemValue;
import com.velmora.opc.client.OpcServer;
import com.velmora.opc.client.ServerStatus;
import com.velmora.opc.client.ShutdownRegistration;
import com.velmora.opc.client.Subscription;
import com.velmora.opc.client.VarTypes;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.jni.Remedy;
import java.time.Duration;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.Callable;
import java.util.concurrent.LinkedBlockingQueue;
import picocli.CommandLine.ArgGroup;
import picocli.CommandLine.Command;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.Parameters;
import picocli.CommandLine.ParentCommand;

/** The client's commands. */
final class Commands {
    private Commands() {}

    private static final List<String> VALUE_COLUMNS = List.of("item", "value", "quality", "timestamp");

    @Command(name = "servers", mixinStandardHelpOptions = true,
            description = "List the OPC Data Access 2.0 servers registered on the host.")
    static final class Servers implements Callable<Integer> {
        @ParentCommand
        Main main;

        @Override
        public Integer call() throws InterruptedException {
            main.doing = "listing the servers on " + (main.host == null ? "this host" : main.host);
            return main.withClient(client -> {
                List<Map<String, Object>> rows = new ArrayList<>();
                for (BOpcDeviceDiscoveryResult found : client.discover(main.host)) {
                    rows.add(row("progId", found.getProgId(), "clsid", found.getClsid(),
                            "description", found.getDescription()));
                }
                main.output().rows(List.of("progId", "clsid", "description"), rows);
                return Main.OK;
            });
        }
    }

    @Command(name = "status", mixinStandardHelpOptions = true, description = "Show the server's status.")
    static final class Status implements Callable<Integer> {
        @ParentCommand
        Main main;

        @Override
        public Integer call() throws InterruptedException {
            return main.withServer(server -> {
                ServerStatus status = server.status();
                main.output().record(row("server", server.name(), "state", status.state().words(),
                        "vendor", status.vendorInfo(), "version", status.version(),
                        "startTime", status.startTime(), "currentTime", status.currentTime(),
                        "lastUpdate", status.lastUpdateTime(), "groups", status.groupCount(),
                        "bandWidth", status.bandWidth()));
                return Main.OK;
            });
        }
    }

    @Command(name = "browse", mixinStandardHelpOptions = true,
            description = "List the branches and items under a branch of the server's address space.")
    static final class Browse implements Callable<Integer> {
        @ParentCommand
        Main main;

        @Option(names = {"-r", "--recursive"}, description = "walk the whole tree under the branch")
        boolean recursive;

        @Option(names = "--depth", paramLabel = "N", description = "with --recursive: at most N levels (default: ${DEFAULT-VALUE})")
        int depth = 32;

        @Parameters(paramLabel = "BRANCH", arity = "0..1", description = "the branch's item id (default: the root)")
        String branch = "";

        private static final List<String> COLUMNS = List.of("name", "itemId", "kind", "type", "access");

        @Override
        public Integer call() throws InterruptedException {
            main.doing = "browsing " + (branch.isEmpty() ? "the root of " : branch + " on ") + main.server;
            return main.withServer(server -> {
                List<Map<String, Object>> tree = walk(server, branch, recursive ? Math.max(1, depth) : 1);
                Output output = main.output();
                if (!recursive) {
                    output.rows(COLUMNS, tree);
                } else if (output.format() == Output.Format.JSON) {
                    main.out.println(Output.json(tree, true));
                } else if (output.format() == Output.Format.CSV) {
                    List<Map<String, Object>> flat = new ArrayList<>();
                    flatten(tree, flat);
                    output.rows(COLUMNS, flat);
                } else {
                    printTree(tree, "");
                }
                return Main.OK;
            });
        }

        /** The elements under a branch as rows; a branch's row holds its children under "children". */
        private static List<Map<String, Object>> walk(OpcServer server, String branch, int levels) {
            List<Map<String, Object>> rows = new ArrayList<>();
            for (BrowseElement e : server.browse(branch)) {
                Map<String, Object> row = row("name", e.name(), "itemId", e.itemId(), "kind", e.kind(),
                        "type", e.isItem() ? VarTypes.name(e.canonicalType()) : null, "access", e.isItem() ? e.access() : null);
                if (e.hasChildren() && levels > 1) row.put("children", walk(server, e.itemId(), levels - 1));
                rows.add(row);
            }
            return rows;
        }

        @SuppressWarnings("unchecked")
        private static void flatten(List<Map<String, Object>> rows, List<Map<String, Object>> flat) {
            for (Map<String, Object> row : rows) {
                flat.add(row);
                Object children = row.get("children");
                if (children != null) flatten((List<Map<String, Object>>) children, flat);
            }
        }

        @SuppressWarnings("unchecked")
        private void printTree(List<Map<String, Object>> rows, String indent) {
            for (int i = 0; i < rows.size(); i++) {
                Map<String, Object> row = rows.get(i);
                boolean last = i == rows.size() - 1;
                String line = indent + (last ? "└── " : "├── ") + row.get("name");
                if (row.get("type") != null) line += "  " + row.get("type") + " " + row.get("access");
                main.out.println(line);
                Object children = row.get("children");
                if (children != null) printTree((List<Map<String, Object>>) children, indent + (last ? "    " : "│   "));
            }
        }
    }

    @Command(name = "properties", mixinStandardHelpOptions = true,
            description = "List the properties that the server offers for items, with their values.")
    static final class Properties implements Callable<Integer> {
        @ParentCommand
        Main main;

        @Parameters(paramLabel = "ITEM", arity = "0..*", description = "item ids, or - for standard input")
        List<String> items;

        /** The properties that a read of the item answers: its value, quality and timestamp. */
        private static final int VALUE = 2;
        private static final int QUALITY = 3;
        private static final int TIMESTAMP = 4;

        @Override
        public Integer call() throws InterruptedException {
            List<String> ids = main.itemIds(items);
            return main.withServer(server -> {
                Failures.ServerTexts texts = new Failures.ServerTexts(server);
                Failures.Tally failed = new Failures.Tally();
                List<Map<String, Object>> rows = new ArrayList<>();
                Group group = null;
                try {
                    for (String id : ids) {
                        main.doing = "asking " + main.server + " for the properties of " + id;
                        List<ItemProperty> properties = server.properties(id);
                        ItemValue read = null;
                        int type = 0;
                        if (properties.stream().anyMatch(p -> p.id() >= VALUE && p.id() <= TIMESTAMP)) {
                            if (group == null) group = server.addGroup("opc-cli", 1000);
                            List<Item> added = group.addItems(id);
                            Item item = added.get(0);
                            type = item.isValid() ? item.canonicalType() : 0;
                            read = item.isValid() ? group.read(DataSource.DEVICE, added).get(0)
                                    : new ItemValue(id, null, 0, null, item.error());
                            if (item.isValid()) group.removeItems(added);
                        }
                        for (ItemProperty p : properties) {
                            Map<String, Object> row = row("item", id, "id", p.id(), "description", p.description(),
                                    "type", VarTypes.name(p.dataType()), "value", null, "error", null);
                            int error = 0;
                            if (p.id() >= VALUE && p.id() <= TIMESTAMP) {
                                if (read.isFailed()) {
                                    error = read.error();
                                } else {
                                    row.put("value", p.id() == VALUE ? Values.typed(read.value(), type)
                                            : p.id() == QUALITY ? (Object) (long) read.quality() : read.timestamp());
                                }
                            } else {
                                try {
                                    row.put("value", value(server, id, p));
                                } catch (HresultException e) {
                                    error = e.getHresult();
                                }
                            }
                            if (error != 0) {
                                failed.add(error, id + " property " + p.id());
                                row.put("error", ItemValues.error(error, texts));
                            }
                            rows.add(row);
                        }
                    }
                } finally {
                    if (group != null) group.close();
                }
                Output output = main.output();
                if (output.format() == Output.Format.JSON) {
                    main.out.println(Output.json(rows, true));
                } else {
                    for (Map<String, Object> row : rows) {
                        Map<?, ?> error = (Map<?, ?>) row.get("error");
                        if (error != null) {
                            row.put("value", "error " + error.get("code") + " (" + error.get("name") + ")"
                                    + (error.get("text") == null ? "" : ": " + error.get("text")));
                        } else {
                            row.put("value", Values.text(row.get("value")));
                        }
                    }
                    output.rows(List.of("item", "id", "description", "type", "value"), rows);
                }
                return failed.report(main.err, texts);
            });
        }

        /** A property's value read as its type has it; null for a type the library does not hand over. */
        private static Object value(OpcServer server, String id, ItemProperty p) {
            int type = p.dataType();
            if (type == VT_BSTR) return server.stringProperty(id, p.id());
            if (type == VT_BOOL) return server.booleanProperty(id, p.id());
            if (Values.isInteger(type) || type == VT_R4 || type == VT_R8) {
                return Values.typed(server.numericProperty(id, p.id()), type);
            }
            return null;
        }
    }

    private static final int VT_R4 = 4;
    private static final int VT_R8 = 5;
    private static final int VT_BSTR = 8;
    private static final int VT_BOOL = 11;

    /** --device or --cache. */
    static final class Source {
        @Option(names = "--device", required = true, description = "read from the device")
        boolean device;

        @Option(names = "--cache", required = true, description = "read from the server's cache (the default)")
        boolean cache;
    }

    @Command(name = "read", mixinStandardHelpOptions = true,
            description = "Read items once, or again every --interval milliseconds.")
    static final class Read implements Callable<Integer> {
        @ParentCommand
        Main main;

        @ArgGroup(exclusive = true)
        Source source;

        @Option(names = "--interval", paramLabel = "MS",
                description = "read again every MS milliseconds, until --count reads or Ctrl-C")
        int interval;

        @Option(names = "--count", paramLabel = "N", description = "the number of reads (default: 1, or no end with --interval)")
        Long count;

        @Parameters(paramLabel = "ITEM", arity = "0..*", description = "item ids, or - for standard input")
        List<String> items;

        @Override
        public Integer call() throws InterruptedException {
            if (interval < 0) throw new ParameterException(main.command, "--interval needs 0 or more milliseconds");
            if (count != null && count < 1) throw new ParameterException(main.command, "--count needs 1 or more");
            long reads = count != null ? count : interval > 0 ? Long.MAX_VALUE : 1;
            DataSource from = source != null && source.device ? DataSource.DEVICE : DataSource.CACHE;
            List<String> ids = main.itemIds(items);
            return main.withServer(server -> {
                main.doing = "reading from " + main.server;
                Failures.ServerTexts texts = new Failures.ServerTexts(server);
                boolean anyFailed = false;
                try (Group group = server.addGroup("opc-cli", interval > 0 ? interval : 1000)) {
                    List<Item> added = group.addItems(ids.toArray(String[]::new));
                    ItemValues values = new ItemValues(added, texts);
                    boolean stream = reads > 1;
                    for (long n = 0; n < reads; n++) {
                        if (n > 0) {
                            try {
                                Thread.sleep(interval);
                            } catch (InterruptedException e) {
                                Thread.currentThread().interrupt();
                                break;
                            }
                        }
                        List<ItemValue> read = group.read(from, added);
                        values.print(main, read, stream, n == 0);
                        if (n == 0) anyFailed = values.reportFailures(main, read);
                    }
                }
                return anyFailed ? Main.FAILED : Main.OK;
            });
        }
    }

    /** Prints values typed by their items' canonical types, with the server's texts for failures. */
    static final class ItemValues {
        private final Map<String, Integer> types = new HashMap<>();
        private final Failures.ServerTexts texts;

        ItemValues(List<Item> items, Failures.ServerTexts texts) {
            for (Item item : items) if (item.isValid()) types.put(item.itemId(), item.canonicalType());
            this.texts = texts;
        }

        Map<String, Object> row(ItemValue v) {
            Integer type = types.get(v.itemId());
            Map<String, Object> row = new LinkedHashMap<>();
            row.put("item", v.itemId());
            row.put("type", type == null ? null : VarTypes.name(type));
            row.put("value", type == null ? v.value() : Values.typed(v.value(), type));
            row.put("quality", v.isFailed() ? "bad" : v.qualityText());
            row.put("qualityCode", v.quality());
            row.put("timestamp", v.timestamp());
            row.put("error", v.isFailed() ? error(v.error()) : null);
            return row;
        }

        private Map<String, Object> error(int code) {
            return error(code, texts);
        }

        static Map<String, Object> error(int code, Failures.ServerTexts texts) {
            Remedy remedy = Remedy.forCode(code);
            return Output.row("code", String.format("0x%08X", code), "name", HresultException.symbolicName(code),
                    "text", texts.of(code), "problem", remedy == null ? null : remedy.problem(),
                    "advice", remedy == null ? null : remedy.advice());
        }

        /** The row's cells for the text forms: a failure shows in the value column. */
        Map<String, Object> textRow(ItemValue v) {
            Map<String, Object> row = row(v);
            if (v.isFailed()) {
                row.put("value", Failures.cell(v.error(), texts));
            } else if (v.value() == null) {
                row.put("value", "(no value)");
            }
            return row;
        }

        /** One read: a table, CSV or a JSON array; a stream of reads: JSON lines, CSV with one header. */
        void print(Main main, List<ItemValue> values, boolean stream, boolean first) {
            Output output = main.output();
            if (output.format() == Output.Format.JSON) {
                if (!stream) {
                    List<Map<String, Object>> rows = new ArrayList<>();
                    for (ItemValue v : values) rows.add(row(v));
                    main.out.println(Output.json(rows, true));
                } else {
                    for (ItemValue v : values) main.out.println(Output.json(row(v), false));
                }
            } else if (output.format() == Output.Format.CSV) {
                if (first) main.out.println(Output.csvLine(VALUE_COLUMNS));
                for (ItemValue v : values) {
                    Map<String, Object> row = textRow(v);
                    List<String> cells = new ArrayList<>();
                    for (String column : VALUE_COLUMNS) cells.add(Values.text(row.get(column)));
                    main.out.println(Output.csvLine(cells));
                }
            } else {
                if (stream && !first) main.out.println();
                List<Map<String, Object>> rows = new ArrayList<>();
                for (ItemValue v : values) rows.add(textRow(v));
                output.rows(VALUE_COLUMNS, rows);
            }
            main.out.flush();
        }

        /** Tells what the failed items' codes mean and what to try; true when any failed. */
        boolean reportFailures(Main main, List<ItemValue> values) {
            Failures.Tally failed = new Failures.Tally();
            for (ItemValue v : values) {
                if (v.isFailed()) failed.add(v.error(), v.itemId());
            }
            return failed.report(main.err, texts) != Main.OK;
        }
    }

    /** Stand in the queue of changes for the server's shutdown request and for the loss of the connection. */
    private static final ItemValue SHUTDOWN = new ItemValue(null, null, 0, null, 0);
    private static final ItemValue LOST = new ItemValue(null, null, 0, null, 0);

    @Command(name = "watch", mixinStandardHelpOptions = true,
            description = {"Print data changes as they come, until --count changes, Ctrl-C, or the server shuts down or goes away.",
                    "With --reconnect it waits for the server to come back and goes on."})
    static final class Watch implements Callable<Integer> {
        @ParentCommand
        Main main;

        @Option(names = "--rate", paramLabel = "MS", description = "the update rate (default: ${DEFAULT-VALUE} ms)")
        int rate = 1000;

        @Option(names = "--count", paramLabel = "N", description = "stop after N changes (default: no end)")
        long count;

        @Option(names = "--reconnect", description = "when the server goes away, connect again (waiting 1 s, then longer up to 30 s) and go on")
        boolean reconnect;

        @Option(names = "--poll", paramLabel = "MS",
                description = "ask the server for its status every MS milliseconds to notice its loss (default: ${DEFAULT-VALUE})")
        int poll = 1000;

        @Parameters(paramLabel = "ITEM", arity = "0..*", description = "item ids, or - for standard input")
        List<String> items;

        /** Why the connection was lost, for the notice. */
        private volatile String lostBy;

        /** The connection watches its server: lost and reconnected connections are told to the loop. */
        private ConnectionOptions options(BlockingQueue<ItemValue> changes) {
            ConnectionOptions options = ConnectionOptions.DEFAULT.statusPoll(Duration.ofMillis(poll))
                    .listener(new ConnectionListener() {
                        @Override
                        public void onLost(OpcServer server, Throwable cause) {
                            lostBy = cause instanceof HresultException h
                                    ? HresultException.describe(h.getHresult()) + " from " + h.getOperation()
                                    : cause == null ? "gone" : String.valueOf(cause.getMessage());
                            if (reconnect) {
                                main.err.println("opc: lost the connection to " + main.server + " (" + lostBy
                                        + "); connecting again");
                                main.err.flush();
                            }
                            changes.add(LOST);
                        }

                        @Override
                        public void onReconnected(OpcServer server) {
                            main.err.println("opc: connected to " + main.server + " again");
                            main.err.flush();
                        }
                    });
            return reconnect ? options.reconnect(Duration.ofSeconds(1), Duration.ofSeconds(30)) : options;
        }

        @Override
        @SuppressWarnings("try") // the subscription is only opened and closed
        public Integer call() throws InterruptedException {
            if (rate < 0) throw new ParameterException(main.command, "--rate needs 0 or more milliseconds");
            if (count < 0) throw new ParameterException(main.command, "--count needs 0 or more");
            if (poll < 1) throw new ParameterException(main.command, "--poll needs 1 or more milliseconds");
            List<String> ids = main.itemIds(items);
            BlockingQueue<ItemValue> changes = new LinkedBlockingQueue<>();
            return main.withServer(options(changes), server -> {
                main.doing = "watching items of " + main.server;
                Failures.ServerTexts texts = new Failures.ServerTexts(server);
                boolean anyFailed = false;
                boolean interrupted = false;
                // With --reconnect a shutdown request is one more way of losing the server, which the connection handles.
                try (ShutdownRegistration shutdown = reconnect ? null : server.onShutdown(() -> changes.add(SHUTDOWN));
                        Group group = server.addGroup("opc-cli", rate)) {
                    List<Item> added = group.addItems(ids.toArray(String[]::new));
                    ItemValues values = new ItemValues(added, texts);
                    boolean table = main.output().format() == Output.Format.TABLE;
                    boolean[] first = {true};
                    java.util.function.Consumer<ItemValue> print = v -> {
                        if (table) {
                            main.out.println(format(line(added), values.textRow(v)));
                        } else {
                            values.print(main, List.of(v), true, first[0]);
                        }
                        first[0] = false;
                        main.out.flush();
                    };
                    if (table) main.out.println(header(line(added)));
                    List<ItemValue> failures = new ArrayList<>();
                    for (Item item : added) {
                        if (item.isValid()) continue;
                        ItemValue failed = new ItemValue(item.itemId(), null, 0, null, item.error());
                        failures.add(failed);
                        print.accept(failed);
                    }
                    anyFailed = values.reportFailures(main, failures);
                    if (failures.size() == added.size()) return Main.FAILED;
                    try (Subscription subscription = group.subscribe(changes::add)) {
                        for (long seen = 0; count == 0 || seen < count; seen++) {
                            ItemValue v = changes.take();
                            if (v == SHUTDOWN) {
                                main.err.println("opc: the server asked its clients to disconnect; stopping");
                                return Main.FAILED;
                            }
                            if (v == LOST) {
                                if (reconnect) {
                                    seen--;
                                    continue;
                                }
                                // A shutdown request loses the connection too: its notice says more.
                                long until = System.nanoTime() + 200_000_000L;
                                for (ItemValue next; (next = changes.poll(until - System.nanoTime(),
                                        java.util.concurrent.TimeUnit.NANOSECONDS)) != null; ) {
                                    if (next == SHUTDOWN) {
                                        main.err.println("opc: the server asked its clients to disconnect; stopping");
                                        return Main.FAILED;
                                    }
                                }
                                main.err.println("opc: lost the connection to " + main.server + " (" + lostBy + "); stopping");
                                return Main.FAILED;
                            }
                            print.accept(v);
                        }
                    } catch (InterruptedException e) {
                        // Interrupted (Ctrl-C): the resources close before the interrupt is passed on.
                        interrupted = true;
                    }
                } finally {
                    if (interrupted) Thread.currentThread().interrupt();
                }
                return anyFailed ? Main.FAILED : Main.OK;
            });
        }

        /** The row format: the item column as wide as the longest id. */
        private static String line(List<Item> items) {
            int width = Math.max(4, items.stream().mapToInt(i -> i.itemId().length()).max().orElse(0));
            return "%-" + width + "s  %-24s  %-18s  %s";
        }

        private static String header(String line) {
            return String.format(line, "ITEM", "VALUE", "QUALITY", "TIMESTAMP").stripTrailing();
        }

        private static String format(String line, Map<String, Object> row) {
            return String.format(line, row.get("item"), Values.text(row.get("value")), row.get("quality"),
                    row.get("timestamp") == null ? "-" : row.get("timestamp")).stripTrailing();
        }
    }

    @Command(name = "write", mixinStandardHelpOptions = true,
            description = "Write values to items (arrays as comma-separated elements).")
    static final class Write implements Callable<Integer> {
        @ParentCommand
        Main main;

        @Parameters(paramLabel = "ITEM VALUE", arity = "2..*", description = "pairs of item id and value")
        List<String> pairs;

        @Override
        public Integer call() throws InterruptedException {
            if (pairs.size() % 2 != 0) throw new ParameterException(main.command, "write needs pairs of ITEM VALUE");
            return main.withServer(server -> {
                main.doing = "writing to " + main.server;
                List<String> ids = new ArrayList<>();
                List<String> texts = new ArrayList<>();
                for (int i = 0; i < pairs.size(); i += 2) {
                    ids.add(pairs.get(i));
                    texts.add(pairs.get(i + 1));
                }
                Failures.ServerTexts serverTexts = new Failures.ServerTexts(server);
                Failures.Tally failed = new Failures.Tally();
                List<Map<String, Object>> rows = new ArrayList<>();
                try (Group group = server.addGroup("opc-cli", 1000)) {
                    List<Item> added = group.addItems(ids.toArray(String[]::new));
                    for (int i = 0; i < added.size(); i++) {
                        Item item = added.get(i);
                        int result = group.write(item, texts.get(i));
                        if (result < 0) failed.add(result, item.itemId());
                        rows.add(row("item", item.itemId(), "value", texts.get(i),
                                "result", result < 0 ? Failures.cell(result, serverTexts) : "written"));
                    }
                }
                main.output().rows(List.of("item", "value", "result"), rows);
                return failed.report(main.err, serverTexts);
            });
        }
    }
}
