package com.velmora.opc.cli;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.OpcException;
import com.velmora.opc.client.BOpcDeviceDiscoveryResult;
import com.velmora.opc.client.BrowseElement;
import com.velmora.opc.client.DataSource;
import com.velmora.opc.client.Group;
import com.velmora.opc.client.Item;
import com.velmora.opc.client.ItemProperty;
import com.velmora.opc.client.ItemValue;
import com.velmora.opc.client.OpcClient;
import com.velmora.opc.client.OpcServer;
import com.velmora.opc.client.ServerStatus;
import com.velmora.opc.client.ShutdownRegistration;
import com.velmora.opc.client.Subscription;
import com.velmora.opc.client.VarTypes;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.jni.UnexpectedNativeException;
import java.io.PrintStream;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.BlockingQueue;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import java.util.logging.Handler;
import java.util.logging.Level;
import java.util.logging.LogRecord;
import java.util.logging.Logger;

/**
 * Command-line client.
 *
 * <pre>
 *   opc [--host HOST] [--json] [--verbose] servers
 *   opc [--server PROGID] [--host HOST] [--json] [--verbose] status
 *   opc [--server PROGID] [--host HOST] [--json] [--verbose] browse [BRANCH]
 *   opc [--server PROGID] [--host HOST] [--json] [--verbose] properties ITEM
 *   opc [--server PROGID] [--host HOST] [--json] [--verbose] read [--device|--cache] ITEM...
 *   opc [--server PROGID] [--host HOST] [--json] [--verbose] watch [--rate MS] [--count N] ITEM...
 *   opc [--server PROGID] [--host HOST] [--json] [--verbose] write ITEM VALUE [ITEM VALUE]...
 * </pre>
 */
public final class Main {
    static final String DEFAULT_SERVER = "Velmora.Simulation.1";
    static final int OK = 0;
    static final int FAILED = 1;
    static final int USAGE = 2;

    private static final String USAGE_TEXT = String.join(System.lineSeparator(),
            "usage: opc [--server PROGID] [--host HOST] [--json] [--verbose] COMMAND",
            "commands:",
            "  servers                                the OPC DA 2.0 servers registered on the host",
            "  status                                 the server's status",
            "  browse [BRANCH]                        the branches and items under BRANCH (default: root)",
            "  properties ITEM                        the properties the server offers for ITEM",
            "  read [--device|--cache] ITEM...        read items (from the cache by default)",
            "  watch [--rate MS] [--count N] ITEM...  print data changes as they come (rate default",
            "                                         1000 ms; stops after N changes, else at Ctrl-C",
            "                                         or when the server shuts down)",
            "  write ITEM VALUE [ITEM VALUE]...       write values (arrays as comma-separated text)",
            "options:",
            "  --server PROGID   ProgID or braced CLSID of the server (default " + DEFAULT_SERVER + ")",
            "  --host HOST       connect to the server on HOST instead of this host",
            "  --json            print JSON instead of columns",
            "  --verbose         show the library's log lines");

    private Main() {}

    /** How long an interrupted run (Ctrl-C) may take to close its server connection. */
    private static final long STOP_TIMEOUT_SECONDS = 10;

    public static void main(String[] args) {
        // Ctrl-C interrupts the command, which closes what it opened; the process ends once it has.
        Thread command = Thread.currentThread();
        CountDownLatch finished = new CountDownLatch(1);
        Thread stop = new Thread(() -> {
            command.interrupt();
            try {
                finished.await(STOP_TIMEOUT_SECONDS, TimeUnit.SECONDS);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        }, "opc-stop");
        Runtime.getRuntime().addShutdownHook(stop);
        int code;
        try {
            code = run(args, System.out, System.err);
        } finally {
            System.out.flush();
            finished.countDown();
        }
        try {
            Runtime.getRuntime().removeShutdownHook(stop);
        } catch (IllegalStateException e) {
            // Already stopping: the hook ends the process.
        }
        System.exit(code);
    }

    /**
     * --verbose shows every line the library logs, traces included, on the error stream; without it
     * nothing. The root logger's console handler stops at INFO, so the library's logger gets a handler
     * of its own that lets everything through.
     */
    private static void configureLog(boolean verbose, PrintStream err) {
        Logger logger = Logger.getLogger(OpcEnv.LOGGER_NAME);
        for (Handler handler : logger.getHandlers()) {
            if (handler instanceof VerboseHandler) logger.removeHandler(handler);
        }
        logger.setLevel(verbose ? Level.ALL : Level.OFF);
        logger.setUseParentHandlers(!verbose);
        if (verbose) logger.addHandler(new VerboseHandler(err));
    }

    /** Writes each record as "LEVEL: text" on the given stream. */
    private static final class VerboseHandler extends Handler {
        private final PrintStream err;

        VerboseHandler(PrintStream err) {
            this.err = err;
            setLevel(Level.ALL);
        }

        @Override
        public void publish(LogRecord record) {
            if (!isLoggable(record)) return;
            String text = record.getMessage();
            err.println(record.getLevel().getName() + ": " + text);
            if (record.getThrown() != null) record.getThrown().printStackTrace(err);
        }

        @Override
        public void flush() {
            err.flush();
        }

        @Override
        public void close() {}
    }

    /** Runs one command; returns the exit code. */
    static int run(String[] args, PrintStream out, PrintStream err) {
        Options options;
        try {
            options = Options.parse(args);
        } catch (IllegalArgumentException e) {
            err.println("opc: " + e.getMessage());
            err.println(USAGE_TEXT);
            return USAGE;
        }
        if (options.help) {
            out.println(USAGE_TEXT);
            return OK;
        }
        configureLog(options.verbose, err);
        try (OpcClient client = OpcClient.open()) {
            if (options.command.equals("servers")) return servers(client, options, out);
            try (OpcServer server = client.connect(options.server, options.host)) {
                return run(server, options, out, err);
            }
        } catch (HresultException e) {
            err.println("opc: " + e.getOperation() + " failed: " + HresultException.describe(e.getHresult()));
        } catch (OpcException | UnexpectedNativeException | IllegalStateException e) {
            err.println("opc: " + e.getMessage());
        } catch (UnsatisfiedLinkError e) {
            err.println("opc: the native library could not be loaded: " + e.getMessage());
        } catch (RuntimeException e) {
            err.println("opc: " + e);
        }
        return FAILED;
    }

    private static int run(OpcServer server, Options options, PrintStream out, PrintStream err) {
        return switch (options.command) {
            case "status" -> status(server, options, out);
            case "browse" -> browse(server, options, out);
            case "properties" -> properties(server, options, out);
            case "read" -> read(server, options, out);
            case "watch" -> watch(server, options, out, err);
            case "write" -> write(server, options, out);
            default -> throw new IllegalStateException(options.command);
        };
    }

    private static int servers(OpcClient client, Options options, PrintStream out) {
        List<String[]> rows = new ArrayList<>();
        for (BOpcDeviceDiscoveryResult found : client.discover(options.host)) {
            rows.add(new String[] {String.valueOf(found.getProgId()), String.valueOf(found.getClsid()),
                    String.valueOf(found.getDescription())});
        }
        print(out, options, new String[] {"PROGID", "CLSID", "DESCRIPTION"}, rows);
        return OK;
    }

    private static int browse(OpcServer server, Options options, PrintStream out) {
        String branch = options.items.isEmpty() ? "" : options.items.get(0);
        List<String[]> rows = new ArrayList<>();
        for (BrowseElement e : server.browse(branch)) {
            rows.add(new String[] {String.valueOf(e.name()), String.valueOf(e.itemId()), e.kind(),
                    e.isItem() ? VarTypes.name(e.canonicalType()) : "", e.access()});
        }
        print(out, options, new String[] {"NAME", "ITEMID", "KIND", "TYPE", "ACCESS"}, rows);
        return OK;
    }

    private static int properties(OpcServer server, Options options, PrintStream out) {
        List<String[]> rows = new ArrayList<>();
        for (ItemProperty p : server.properties(options.items.get(0))) {
            rows.add(new String[] {Integer.toString(p.id()), p.description(), VarTypes.name(p.dataType())});
        }
        print(out, options, new String[] {"ID", "DESCRIPTION", "TYPE"}, rows);
        return OK;
    }

    /** Rows as aligned columns, or as a JSON array of objects keyed by the lower-case headers. */
    private static void print(PrintStream out, Options options, String[] header, List<String[]> rows) {
        if (!options.json) {
            Table.print(out, header, rows);
            return;
        }
        StringBuilder json = new StringBuilder("[");
        for (int i = 0; i < rows.size(); i++) {
            List<String[]> fields = new ArrayList<>();
            for (int c = 0; c < header.length; c++) fields.add(new String[] {header[c].toLowerCase(), rows.get(i)[c]});
            json.append(i == 0 ? "\n  " : ",\n  ").append(Json.object(fields));
        }
        out.println(json.append(rows.isEmpty() ? "]" : "\n]"));
    }

    private static int status(OpcServer server, Options options, PrintStream out) {
        ServerStatus status = server.status();
        List<String[]> rows = List.of(
                new String[] {"server", server.name()},
                new String[] {"state", status.state().words()},
                new String[] {"vendor", String.valueOf(status.vendorInfo())},
                new String[] {"version", status.version()},
                new String[] {"start time", time(status.startTime())},
                new String[] {"current time", time(status.currentTime())},
                new String[] {"last update", time(status.lastUpdateTime())},
                new String[] {"groups", Long.toString(status.groupCount())},
                new String[] {"band width", Long.toString(status.bandWidth())});
        if (options.json) {
            out.println(Json.object(rows));
        } else {
            Table.print(out, null, rows);
        }
        return OK;
    }

    private static int read(OpcServer server, Options options, PrintStream out) {
        List<ItemValue> values;
        try (Group group = server.addGroup("opc-cli", 1000)) {
            List<Item> items = group.addItems(options.items.toArray(String[]::new));
            values = group.read(options.source, items);
        }
        if (options.json) {
            out.println(Json.values(values));
        } else {
            List<String[]> rows = new ArrayList<>();
            for (ItemValue v : values) {
                rows.add(v.isFailed()
                        ? new String[] {v.itemId(), "error " + v.errorText(), "bad", "-"}
                        : new String[] {v.itemId(), v.value() == null ? "(no value)" : v.valueText(), v.qualityText(),
                                time(v.timestamp())});
            }
            Table.print(out, new String[] {"ITEM", "VALUE", "QUALITY", "TIMESTAMP"}, rows);
        }
        return values.stream().anyMatch(ItemValue::isFailed) ? FAILED : OK;
    }

    /** Stands in the queue of changes for the server's shutdown request. */
    private static final ItemValue SHUTDOWN = new ItemValue(null, null, 0, null, 0);

    @SuppressWarnings("try") // the subscription is only opened and closed
    private static int watch(OpcServer server, Options options, PrintStream out, PrintStream err) {
        BlockingQueue<ItemValue> changes = new LinkedBlockingQueue<>();
        boolean anyFailed = false;
        boolean interrupted = false;
        try (ShutdownRegistration shutdown = server.onShutdown(() -> changes.add(SHUTDOWN));
                Group group = server.addGroup("opc-cli", options.rate)) {
            List<Item> items = group.addItems(options.items.toArray(String[]::new));
            int width = Math.max(4, items.stream().mapToInt(i -> i.itemId().length()).max().orElse(0));
            int valueWidth = Math.max(24, items.stream().filter(i -> !i.isValid())
                    .mapToInt(i -> ("error " + i.errorText()).length()).max().orElse(0));
            String row = "%-" + width + "s  %-" + valueWidth + "s  %-18s  %s";
            if (!options.json) out.println(String.format(row, "ITEM", "VALUE", "QUALITY", "TIMESTAMP").stripTrailing());
            for (Item item : items) {
                if (item.isValid()) continue;
                anyFailed = true;
                ItemValue failed = new ItemValue(item.itemId(), null, 0, null, item.error());
                out.println(options.json ? Json.item(failed) : watchRow(row, failed));
            }
            if (items.stream().noneMatch(Item::isValid)) return FAILED;
            try (Subscription subscription = group.subscribe(changes::add)) {
                for (long seen = 0; options.count == 0 || seen < options.count; seen++) {
                    ItemValue v = changes.take();
                    if (v == SHUTDOWN) {
                        err.println("opc: the server asked its clients to disconnect; stopping");
                        return FAILED;
                    }
                    out.println(options.json ? Json.item(v) : watchRow(row, v));
                    out.flush();
                }
            } catch (InterruptedException e) {
                // Interrupted (Ctrl-C): the resources close before the interrupt is passed on.
                interrupted = true;
            }
        } finally {
            if (interrupted) Thread.currentThread().interrupt();
        }
        return anyFailed ? FAILED : OK;
    }

    private static String watchRow(String row, ItemValue v) {
        return String.format(row, v.itemId(),
                v.isFailed() ? "error " + v.errorText() : v.value() == null ? "(no value)" : v.valueText(),
                v.isFailed() ? "bad" : v.qualityText(), time(v.timestamp())).stripTrailing();
    }

    private static int write(OpcServer server, Options options, PrintStream out) {
        List<String> ids = new ArrayList<>();
        List<String> texts = new ArrayList<>();
        for (int i = 0; i < options.items.size(); i += 2) {
            ids.add(options.items.get(i));
            texts.add(options.items.get(i + 1));
        }
        List<String[]> rows = new ArrayList<>();
        boolean anyFailed = false;
        try (Group group = server.addGroup("opc-cli", 1000)) {
            List<Item> items = group.addItems(ids.toArray(String[]::new));
            for (int i = 0; i < items.size(); i++) {
                int result = group.write(items.get(i), texts.get(i));
                anyFailed |= result < 0;
                rows.add(new String[] {items.get(i).itemId(), texts.get(i),
                        result < 0 ? "error " + HresultException.describe(result) : "written"});
            }
        }
        print(out, options, new String[] {"ITEM", "VALUE", "RESULT"}, rows);
        return anyFailed ? FAILED : OK;
    }

    private static String time(java.time.Instant time) {
        return time == null ? "-" : time.toString();
    }

    /** The parsed command line. */
    static final class Options {
        String server = DEFAULT_SERVER;
        String host;
        boolean json;
        boolean verbose;
        boolean help;
        String command;
        DataSource source = DataSource.CACHE;
        int rate = 1000;
        long count;
        final List<String> items = new ArrayList<>();

        static Options parse(String[] args) {
            Options o = new Options();
            for (int i = 0; i < args.length; i++) {
                String a = args[i];
                switch (a) {
                    case "--server" -> o.server = value(args, ++i, a);
                    case "--host" -> o.host = value(args, ++i, a);
                    case "--json" -> o.json = true;
                    case "--verbose" -> o.verbose = true;
                    case "--device" -> o.source = DataSource.DEVICE;
                    case "--cache" -> o.source = DataSource.CACHE;
                    case "--rate" -> o.rate = number(value(args, ++i, a), a);
                    case "--count" -> o.count = number(value(args, ++i, a), a);
                    case "-h", "--help" -> o.help = true;
                    default -> {
                        if (a.startsWith("--")) throw new IllegalArgumentException("unknown option " + a);
                        if (o.command == null) {
                            o.command = a;
                        } else {
                            o.items.add(a);
                        }
                    }
                }
            }
            if (o.help) return o;
            if (o.command == null) throw new IllegalArgumentException("no command given");
            switch (o.command) {
                case "browse" -> {
                    if (o.items.size() > 1) throw new IllegalArgumentException("browse takes at most one branch");
                }
                case "properties" -> {
                    if (o.items.size() != 1) throw new IllegalArgumentException("properties takes one item");
                }
                case "servers" -> {
                    if (!o.items.isEmpty()) throw new IllegalArgumentException("servers takes no arguments");
                }
                case "status" -> {
                    if (!o.items.isEmpty()) throw new IllegalArgumentException("status takes no arguments");
                }
                case "read", "watch" -> {
                    if (o.items.isEmpty()) throw new IllegalArgumentException(o.command + " needs at least one item");
                }
                case "write" -> {
                    if (o.items.isEmpty() || o.items.size() % 2 != 0) {
                        throw new IllegalArgumentException("write needs pairs of ITEM VALUE");
                    }
                }
                default -> throw new IllegalArgumentException("unknown command " + o.command);
            }
            return o;
        }

        private static int number(String text, String option) {
            try {
                int n = Integer.parseInt(text);
                if (n >= 0) return n;
            } catch (NumberFormatException e) {
                // reported below
            }
            throw new IllegalArgumentException(option + " needs a number of 0 or more, not " + text);
        }

        private static String value(String[] args, int i, String option) {
            if (i >= args.length || args[i].startsWith("--")) {
                throw new IllegalArgumentException(option + " needs a value");
            }
            return args[i];
        }
    }
}
