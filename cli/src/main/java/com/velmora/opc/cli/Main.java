package com.velmora.opc.cli;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.client.ConnectionOptions;
import com.velmora.opc.client.OpcClient;
import com.velmora.opc.client.OpcServer;
import com.velmora.opc.client.SecurityResult;
import com.velmora.opc.jni.HresultException;
import java.io.BufferedReader;
import java.io.ByteArrayOutputStream;
import java.io.Console;
import java.io.IOException;
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
import java.util.logging.Handler;
import java.util.logging.Level;
import java.util.logging.LogRecord;
import java.util.logging.Logger;
import java.util.logging.SimpleFormatter;
import picocli.AutoComplete;
import picocli.CommandLine;
import picocli.CommandLine.Command;
import picocli.CommandLine.HelpCommand;
import picocli.CommandLine.Option;
import picocli.CommandLine.ParameterException;
import picocli.CommandLine.ScopeType;

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

    @Option(names = "--user", paramLabel = "USER", scope = ScopeType.INHERIT,
            description = "work under this NT identity (with --password), or with --logon this private user")
    String user;

    /** The value of --password given without one: the password is asked for. */
    private static final String ASK = "\u0000ask";
    /** Where the password of --user comes from when --password is left out. */
    static final String PASSWORD_VARIABLE = "OPC_PASSWORD";

    @Option(names = "--password", paramLabel = "PASS", scope = ScopeType.INHERIT, arity = "0..1", fallbackValue = ASK,
            description = "the password of --user; without a value it is asked for (or read as the first line of"
                    + " standard input), without the option taken from $" + PASSWORD_VARIABLE)
    String password;

    @Option(names = "--logon", scope = ScopeType.INHERIT,
            description = "log on with the server's private credentials (--user, --password) instead of an NT identity")
    boolean logon;

    @Option(names = "--client-name", paramLabel = "NAME", scope = ScopeType.INHERIT,
            description = "the name this client gives the server")
    String clientName;

    @Option(names = "--locale", paramLabel = "LCID", scope = ScopeType.INHERIT,
            description = "the locale of the server's texts (e.g. 1033 or 0x409)")
    String locale;

    /** The whole command line, and the part of it that runs (a subcommand, or this one alone). */
    CommandLine root;
    CommandLine command;

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
        throw new ParameterException(command, "no command given");
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
        main.root = line;
        main.command = line;
        line.setOut(new PrintWriter(out, true));
        line.setErr(new PrintWriter(err, true));
        line.setParameterExceptionHandler((e, given) -> {
            err.println("opc: " + e.getMessage());
            CommandLine where = e.getCommandLine();
            String name = where.getCommandName();
            for (CommandLine up = where.getParent(); up != null; up = up.getParent()) name = up.getCommandName() + " " + name;
            err.println("Try '" + name + " --help' for more.");
            return USAGE;
        });
        line.setExecutionStrategy(parsed -> {
            List<CommandLine> lines = parsed.asCommandLineList();
            main.command = lines.get(lines.size() - 1);
            main.check(line);
            Logger library = LIBRARY_LOG;
            library.setLevel(main.verbose ? Level.ALL : Level.SEVERE);
            library.setUseParentHandlers(false);
            if (!List.of(library.getHandlers()).contains(Failures.STARTUP)) library.addHandler(Failures.STARTUP);
            Handler trace = main.verbose ? new TraceLines(err) : null;
            if (trace != null) library.addHandler(trace);
            try {
                return new CommandLine.RunLast().execute(parsed);
            } finally {
                if (trace != null) library.removeHandler(trace);
            }
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

    /** Refuses options that do not go together. */
    private void check(CommandLine where) {
        if (json && csv) throw new ParameterException(where, "--json and --csv exclude each other");
        if (password != null && user == null) throw new ParameterException(where, "--password needs --user");
        if (user != null && password == null) password = System.getenv(PASSWORD_VARIABLE);
        if (user != null && password == null) {
            throw new ParameterException(where, "--user needs --password (or $" + PASSWORD_VARIABLE + ")");
        }
        if (ASK.equals(password)) password = askPassword(where);
        if (logon && user == null) throw new ParameterException(where, "--logon needs --user and --password");
        if (locale != null) localeId(where);
    }

    private int localeId(CommandLine where) {
        String text = locale.strip();
        try {
            long id = text.startsWith("0x") || text.startsWith("0X") ? Long.parseLong(text.substring(2), 16) : Long.parseLong(text);
            if (id < 0 || id > 0xFFFFFFFFL) throw new NumberFormatException();
            return (int) id;
        } catch (NumberFormatException e) {
            throw new ParameterException(where, "--locale needs a locale id (LCID), e.g. 1033 or 0x409, not '" + locale + "'");
        }
    }

    /** The library's log lines on the client's error stream, every level. */
    private static final class TraceLines extends Handler {
        private final PrintStream err;

        TraceLines(PrintStream err) {
            this.err = err;
            setLevel(Level.ALL);
            setFormatter(new SimpleFormatter());
        }

        @Override
        public void publish(LogRecord record) {
            if (record == null || !isLoggable(record)) return;
            StringBuilder text = new StringBuilder("opc: ").append(record.getLevel().getName()).append(' ')
                    .append(getFormatter().formatMessage(record));
            if (record.getThrown() != null) text.append(" (").append(record.getThrown()).append(')');
            err.println(text);
            err.flush();
        }

        @Override
        public void flush() {
            err.flush();
        }

        @Override
        public void close() {}
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
        return withServer(ConnectionOptions.DEFAULT, work);
    }

    /** The same, with a connection that watches its server as the options say. */
    int withServer(ConnectionOptions options, Work<OpcServer> work) throws InterruptedException {
        return withClient(client -> {
            doing = "connecting to " + server + (host == null || host.isEmpty() ? " on this host" : " on " + host);
            try (OpcServer connected = client.connect(server, host, options)) {
                String working = doing;
                boolean loggedOn = false;
                try {
                    loggedOn = introduce(connected);
                    doing = working.startsWith("connecting to ") ? "talking to " + server : working;
                    return work.run(connected);
                } catch (RuntimeException e) {
                    Failures.report(err, doing, e, connected);
                    return FAILED;
                } finally {
                    if (loggedOn && connected.isOpen()) {
                        try {
                            connected.logoff();
                        } catch (RuntimeException e) {
                            // Closing the connection ends the logon as well.
                        }
                    }
                }
            }
        });
    }

    /** Gives the server the client's name, locale and identity; true after a private logon. */
    private boolean introduce(OpcServer connected) {
        if (clientName != null) {
            doing = "giving " + server + " the client name " + clientName;
            connected.setClientName(clientName);
        }
        if (locale != null) {
            doing = "setting the locale of " + server + " to " + locale;
            connected.setLocale(localeId(root));
        }
        if (user == null) return false;
        doing = logon ? "logging on to " + server + " as " + user : "changing the user of " + server + " to " + user;
        SecurityResult result = logon ? connected.logon(user, password) : connected.changeUser(user, password);
        if (result == SecurityResult.OTHER) {
            // The library sets the connection's security blanket first: a server in this process has none.
            throw new Failures.Refused((logon ? "the private logon" : "the identity")
                    + " could not be carried to the server, or the server did not take it",
                    (logon ? "check the user and password of the server's own accounts" : "check the user (DOMAIN\\USER) and its password")
                    + "; only a server in another process or on another host can be reached this way, so for a server"
                    + " in this process leave out " + (logon ? "--logon, --user and --password" : "--user and --password"));
        }
        if (result != SecurityResult.OK) {
            throw new HresultException(Failures.code(result),
                    logon ? "IOPCSecurityPrivate::Logon" : "IOPCSecurityNT::ChangeUser");
        }
        return logon;
    }

    /**
     * The item ids of a command: those given, or, for none or a single "-", those on standard input
     * (one a line; blank lines and lines starting with # are skipped).
     */
    List<String> itemIds(List<String> given) {
        if (given != null && !given.isEmpty() && !(given.size() == 1 && given.get(0).equals("-"))) return given;
        if (interactive && (given == null || given.isEmpty())) {
            throw new ParameterException(command, "no item given (give item ids, or - to read them from standard input)");
        }
        List<String> ids = new ArrayList<>();
        try {
            BufferedReader reader = new BufferedReader(new InputStreamReader(in, Charset.defaultCharset()));
            for (String text; (text = reader.readLine()) != null; ) {
                String id = text.strip();
                if (!id.isEmpty() && !id.startsWith("#")) ids.add(id);
            }
        } catch (IOException e) {
            throw new UncheckedIOException("reading item ids from standard input", e);
        }
        if (ids.isEmpty()) throw new ParameterException(command, "no item given, and none on standard input");
        return ids;
    }

    /**
     * The password of --user from the console, unechoed, or else the first line of standard input, read
     * byte by byte so that item ids after it stay unread.
     */
    private String askPassword(CommandLine where) {
        Console console = interactive ? System.console() : null;
        if (console != null) {
            char[] typed = console.readPassword("password of %s: ", user);
            if (typed != null) return new String(typed);
        } else {
            ByteArrayOutputStream line = new ByteArrayOutputStream();
            try {
                for (int b; (b = in.read()) != -1 && b != '\n'; ) line.write(b);
            } catch (IOException e) {
                throw new UncheckedIOException("reading the password from standard input", e);
            }
            String text = line.toString(Charset.defaultCharset());
            if (text.endsWith("\r")) text = text.substring(0, text.length() - 1);
            if (!text.isEmpty()) return text;
        }
        throw new ParameterException(where, "--password without a value needs the password typed or on standard input");
    }

    static final class Version implements CommandLine.IVersionProvider {
        @Override
        public String[] getVersion() {
            String version = Main.class.getPackage().getImplementationVersion();
            return new String[] {"opc " + (version == null ? "(development build)" : version)};
        }
    }
}
