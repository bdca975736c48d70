package com.velmora.opc.cli;

import com.velmora.opc.client.OpcServer;
import com.velmora.opc.client.SecurityResult;
import com.velmora.opc.jni.HresultException;
import com.velmora.opc.jni.Remedy;
import java.io.PrintStream;
import java.util.ArrayList;
import java.util.HashMap;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.logging.Handler;
import java.util.logging.LogRecord;

/**
 * Failures in words: what happened and what to try, then the code, the call that failed and the
 * server's own text for the code.
 */
final class Failures {
    private Failures() {}

    /** REGDB_E_IIDNOTREG: an interface without a registered proxy/stub. */
    private static final int NO_PROXY = 0x80040155;

    /**
     * Keeps the library's start-up error lines about the proxy/stub libraries ("Failed to load
     * opcproxy.dll"), which are logged rather than raised, so that a later failure can name them.
     */
    static final class StartupLines extends Handler {
        volatile String proxyFailure;

        @Override
        public void publish(LogRecord line) {
            String text = line.getMessage();
            if (text != null && text.startsWith("Failed to load ") && text.endsWith(".dll")) proxyFailure = text;
        }

        @Override
        public void flush() {}

        @Override
        public void close() {}
    }

    static final StartupLines STARTUP = new StartupLines();

    /** The code behind a server's answer to a change of identity. */
    static int code(SecurityResult result) {
        return switch (result) {
            case OK -> 0;
            case ACCESS_DENIED -> 0x80070005;
            case PRIVATE_ACTIVE -> 0xC0040301;
            case LOW_IMPERSONATION_LEVEL -> 0xC0040302;
            case LOW_AUTHENTICATION_LEVEL -> 0xC0040303;
            case FAILED, OTHER -> 0x80004005;
        };
    }

    /** A refusal without a code of its own: what happened and what to try. */
    static final class Refused extends RuntimeException {
        final String advice;

        Refused(String problem, String advice) {
            super(problem);
            this.advice = advice;
        }
    }

    static void report(PrintStream err, String doing, Throwable e, OpcServer server) {
        if (e instanceof Refused refused) {
            err.println("opc: " + doing + ": " + refused.getMessage());
            err.println("  try: " + refused.advice);
        } else if (e instanceof HresultException failed) {
            int code = failed.getHresult();
            String detail = HresultException.describe(code) + " from " + failed.getOperation()
                    + serverText(new ServerTexts(server), code);
            Remedy remedy = failed.remedy();
            if (remedy == null) {
                err.println("opc: " + doing + ": " + failed.getOperation() + " failed");
                err.println("  error " + detail);
            } else {
                err.println("opc: " + doing + ": " + remedy.problem());
                err.println("  error " + detail);
                err.println("  try: " + remedy.advice());
            }
            String proxyFailure = STARTUP.proxyFailure;
            if (proxyFailure != null && remedy != Remedy.forCode(NO_PROXY)) {
                err.println("opc: the library could not load the OPC proxy/stub libraries at start-up (" + proxyFailure + ")");
                err.println("  try: " + Remedy.forCode(NO_PROXY).advice());
            }
        } else if (e instanceof UnsatisfiedLinkError) {
            err.println("opc: the native library could not be loaded: " + e.getMessage());
            err.println("  try: run the jar as it was built (it carries the library for Linux and Windows on x86-64),"
                    + " or name the folder holding the library with -Dopc.library.path=FOLDER");
        } else if (e.getMessage() != null && !(e instanceof NullPointerException)) {
            err.println("opc: " + doing + ": " + e.getMessage());
        } else {
            err.println("opc: " + doing + ": " + e);
        }
    }

    /** Failed items (or their properties) by code, told together once the command has shown its rows. */
    static final class Tally {
        private final Map<Integer, List<String>> byCode = new LinkedHashMap<>();

        void add(int code, String what) {
            byCode.computeIfAbsent(code, c -> new ArrayList<>()).add(what);
        }

        /** Tells what the codes mean and what to try; the exit status. */
        int report(PrintStream err, ServerTexts texts) {
            items(err, byCode, texts);
            return byCode.isEmpty() ? Main.OK : Main.FAILED;
        }
    }

    /** A failure as the text forms show it in the value column: "error CODE (NAME): server's text". */
    static String cell(int code, ServerTexts texts) {
        String text = texts.of(code);
        return "error " + HresultException.describe(code) + (text == null ? "" : ": " + text);
    }

    /**
     * Per-item failures, one line per code: the items, what happened, and what to try.
     *
     * @param failed the item ids that failed, by code
     */
    static void items(PrintStream err, Map<Integer, List<String>> failed, ServerTexts texts) {
        failed.forEach((code, ids) -> {
            Remedy remedy = Remedy.forCode(code);
            String detail = HresultException.describe(code) + serverText(texts, code);
            if (remedy == null) {
                err.println("opc: " + String.join(", ", ids) + ": error " + detail);
            } else {
                err.println("opc: " + String.join(", ", ids) + ": " + remedy.problem());
                err.println("  error " + detail);
                err.println("  try: " + remedy.advice());
            }
        });
    }

    private static String serverText(ServerTexts texts, int code) {
        String text = texts.of(code);
        return text == null ? "" : ": " + text;
    }

    /** The server's own texts for codes (IOPCCommon::GetErrorString), asked once per code. */
    static final class ServerTexts {
        private final OpcServer server;
        private final Map<Integer, String> texts = new HashMap<>();

        ServerTexts(OpcServer server) {
            this.server = server;
        }

        /** The text, without a trailing line end; null when there is no server or it has none. */
        String of(int code) {
            if (server == null || !server.isOpen()) return null;
            return texts.computeIfAbsent(code, c -> {
                try {
                    String text = server.errorText(c);
                    return text == null || text.isBlank() ? null : text.strip();
                } catch (RuntimeException e) {
                    return null;
                }
            });
        }
    }
}
