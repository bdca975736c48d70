package com.velmora.opc.cli;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.client.OpcClient;
import com.velmora.opc.client.OpcServer;
import java.io.BufferedReader;
import java.io.InputStream;
import java.io.InputStreamReader;
import java.io.PrintStream;
import java.io.PrintWriter;
import java.io.UncheckedIOException;
import java.nio.charset.Charset;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.TimeUnit;
import java.util.logging.Level;
import java.util.logging.Logger;
import picocli.AutoComplete;
import picocli.CommandLine;
import picocli.CommandLine.Command;
import picocli.CommandLine.HelpCommand;
import picocli.CommandLine.Model.CommandSpec;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.ScopeType;
import picocli.CommandLine.Spec;

/** The command-line client: {@code opc [OPTIONS] COMMAND [ARGS]}; {@code opc --help} lists the commands. */
@Command(name = "opc", mixinStandardHelpOptions = true, versionProvider = Main.Version.class,
        description = {"Reads, writes, watches and browses the items of OPC Data Access servers.",
                "Without --server it talks to the simulation server " + Main.DEFAULT_SERVER + "."},
        subcommands = {Commands.Servers.class, Commands.Status.class, Commands.Browse.class, Commands.Properties.class,
                Commands.Read.class, Commands.Watch.class, Commands.Write.class, HelpCommand.class,
                AutoComplete.GenerateCompletion.class},
        footer = {"", "Item ids may also come from standard input: give - (or no item at all) and one id a line.",
                "Exit status: 0 when everything succeeded, 1 when something failed, 2 for a bad command line.",
                "Shell completion: source <(opc generate-completion)"})
public final class Main implements Runnable {
    static final String DEFAULT_SERVER = "Velmora.Simulation.1";
    static final int OK = 0;
    static final int FAILED = 1;
    static final int USAGE = 2;

    /** The library's log, held here so that its settings outlive a garbage collection. */
    private static final Logger LIBRARY_LOG = Logger.getLogger(OpcEnv.LOGGER_NAME);

    /** How long an interrupted run (Ctrl-C) may take to close its server connection. */
    private static final long STOP_TIMEOUT_SECONDS = 10;

    @Option(names = "--server", paramLabel = "PROGID", scope = ScopeType.INHERIT,
            description = "ProgID or braced CLSID of the server (default: " + DEFAULT_SERVER + ")")
    String server = DEFAULT_SERVER;

    @Option(names = "--host", paramLabel = "HOST", scope = ScopeType.INHERIT,
            description = "the server's host (default: this host)")
    String host;

    @Option(names = "--json", scope = ScopeType.INHERIT, description = "print JSON: typed values, ISO-8601 times")
    boolean json;

    @Option(names = "--csv", scope = ScopeType.INHERIT, description = "print CSV with a header row")
    boolean csv;

    @Option(names = "--verbose", scope = ScopeType.INHERIT, description = "show the library's log lines")
    boolean verbose;

    @Spec
    CommandSpec spec;

    final PrintStream out;
    final PrintStream err;
    private final InputStream in;
    private final boolean interactive;

    /** What the command is doing, for the failure message: "connecting to X on this host". */
    String doing = "starting";

    private Main(PrintStream out, PrintStream err, InputStream in, boolean interactive) {
        this.out = out;
        this.err = err;
        this.in = in;
        this.interactive = interactive;
    }

    @Override
    public void run() {
        throw new ParameterException(spec.commandLine(), "no command given");
    }

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
            code = run(args, System.out, System.err, System.in, System.console() != null);
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

    /** Runs one command line; returns the exit status. */
    static int run(String[] args, PrintStream out, PrintStream err, InputStream in, boolean interactive) {
        Main main = new Main(out, err, in, interactive);
        CommandLine line = new CommandLine(main);
        line.setOut(new PrintWriter(out, true));
        line.setErr(new PrintWriter(err, true));
        line.setParameterExceptionHandler((e, given) -> {
            err.println("opc: " + e.getMessage());
            CommandLine where = e.getCommandLine();
            err.println("Try '" + where.getCommandSpec().qualifiedName() + " --help' for more.");
            return USAGE;
        });
        line.setExecutionStrategy(parsed -> {
            Logger library = LIBRARY_LOG;
            library.setLevel(main.verbose ? Level.ALL : Level.SEVERE);
            library.setUseParentHandlers(main.verbose);
            if (!List.of(library.getHandlers()).contains(Failures.STARTUP)) library.addHandler(Failures.STARTUP);
            if (main.json && main.csv) throw new ParameterException(parsed.commandSpec().commandLine(),
                    "--json and --csv exclude each other");
            return new CommandLine.RunLast().execute(parsed);
        });
        line.setExecutionExceptionHandler((e, where, parsed) -> {
            if (e instanceof ParameterException usage) {
                return line.getParameterExceptionHandler().handleParseException(usage, args);
            }
            Failures.report(err, main.doing, e, null);
            return FAILED;
        });
        return line.execute(args);
    }

    Output output() {
        return new Output(out, json ? Output.Format.JSON : csv ? Output.Format.CSV : Output.Format.TABLE);
    }

    /** Work done with a client, or on a connected server. */
    interface Work<T> {
        int run(T target) throws InterruptedException;
    }

    /** Runs work with a client; a failure, the library's included, is reported as words. */
    int withClient(Work<OpcClient> work) throws InterruptedException {
        try (OpcClient client = OpcClient.open()) {
            return work.run(client);
        } catch (RuntimeException | LinkageError e) {
            Failures.report(err, doing, e, null);
            return FAILED;
        }
    }

    /** Runs work on the server; its failures are reported with the server's own text for the code. */
    int withServer(Work<OpcServer> work) throws InterruptedException {
        return withClient(client -> {
            doing = "connecting to " + server + (host == null || host.isEmpty() ? " on this host" : " on " + host);
            try (OpcServer connected = client.connect(server, host)) {
                doing = "talking to " + server;
                try {
                    return work.run(connected);
                } catch (RuntimeException e) {
                    Failures.report(err, doing, e, connected);
                    return FAILED;
                }
            }
        });
    }

    /**
     * The item ids of a command: those given, or, for none or a single "-", those on standard input
     * (one a line; blank lines and lines starting with # are skipped).
     */
    List<String> itemIds(CommandSpec where, List<String> given) {
        if (given != null && !given.isEmpty() && !(given.size() == 1 && given.get(0).equals("-"))) return given;
        if (interactive && (given == null || given.isEmpty())) {
            throw new ParameterException(where.commandLine(), "no item given (give item ids, or - to read them from standard input)");
        }
        List<String> ids = new ArrayList<>();
        try {
            BufferedReader reader = new BufferedReader(new InputStreamReader(in, Charset.defaultCharset()));
            for (String text; (text = reader.readLine()) != null; ) {
                String id = text.strip();
                if (!id.isEmpty() && !id.startsWith("#")) ids.add(id);
            }
        } catch (java.io.IOException e) {
            throw new UncheckedIOException("reading item ids from standard input", e);
        }
        if (ids.isEmpty()) throw new ParameterException(where.commandLine(), "no item given, and none on standard input");
        return ids;
    }

    static final class Version implements CommandLine.IVersionProvider {
        @Override
        public String[] getVersion() {
            String version = Main.class.getPackage().getImplementationVersion();
            return new String[] {"opc " + (version == null ? "(development build)" : version)};
        }
    }
}
