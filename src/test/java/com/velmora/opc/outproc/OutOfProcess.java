package com.velmora.opc.outproc;

import static org.junit.jupiter.api.Assertions.*;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.testsupport.TestSupport;
import java.io.File;
import java.io.IOException;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.extension.AfterAllCallback;
import org.junit.jupiter.api.extension.BeforeAllCallback;
import org.junit.jupiter.api.extension.ExtensionContext;

/**
 * The simulation server as a local server of its own process (opc_sim_server.exe, built beside
 * opc.dll): its registration as LocalServer32 only, and its processes, found and killed from Java.
 */
final class OutOfProcess {
    static final String NO_OUT_OF_PROCESS = "the COM runtime of this project has no out-of-process servers";
    static final String CLSID = "{6A1F3C52-9B47-4E8D-A2C1-5D3E7F901B24}";
    /** Every server process that activation starts answers IOPCBrowse::Browse in portions of this size. */
    static final int BROWSE_PORTION = 7;

    private OutOfProcess() {}

    /**
     * For a test class: the server registered as a local server only while the class runs (the class
     * skipped off Windows), then the in-process module again.
     */
    static final class LocalServerOnly implements BeforeAllCallback, AfterAllCallback {
        @Override
        public void beforeAll(ExtensionContext context) throws Exception {
            registerLocalServerOnly();
        }

        @Override
        public void afterAll(ExtensionContext context) throws Exception {
            registerInProcessAgain();
        }
    }

    static boolean supported() {
        return System.getProperty("os.name").startsWith("Windows");
    }

    /** Skips the calling class off Windows; else registers the server as a local server only. */
    static void registerLocalServerOnly() throws Exception {
        assumeTrue(supported(), NO_OUT_OF_PROCESS);
        File server = file("opc_sim_server.exe");
        assertEquals(0, run(server.getPath(), "/RegServer", "--local-only"));
        setLocalServerCommand(server.getPath() + " --browse-portion " + BROWSE_PORTION);
        OpcEnv.initThread();
        OpcEnv.initEnv();
        TestSupport.keepCallbackRegistrations();
    }

    static void setLocalServerCommand(String command) throws Exception {
        assertEquals(0, run("reg", "add", "HKCR\\CLSID\\" + CLSID + "\\LocalServer32", "/ve", "/f", "/d", command));
    }

    /** Without LocalServer32 the class cannot be activated: the server cannot start. */
    static void removeLocalServer() throws Exception {
        assertEquals(0, run(file("opc_sim_server.exe").getPath(), "/UnregServer"));
    }

    /** Back to the in-process module, which the other test classes use. */
    static void registerInProcessAgain() throws Exception {
        if (!supported()) return;
        removeLocalServer();
        assertEquals(0, run("regsvr32", "/s", file("opc_sim.dll").getPath()));
    }

    static File file(String name) {
        return new File(TestSupport.nativeDir(), name).getAbsoluteFile();
    }

    static int run(String... command) throws IOException, InterruptedException {
        Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
        process.getOutputStream().close();
        process.getInputStream().readAllBytes();
        assertTrue(process.waitFor(60, TimeUnit.SECONDS), String.join(" ", command));
        return process.exitValue();
    }

    /** The running opc_sim_server.exe processes. */
    static List<ProcessHandle> serverProcesses() {
        return ProcessHandle.allProcesses()
                .filter(p -> p.info().command().map(c -> c.toLowerCase(Locale.ROOT).endsWith("opc_sim_server.exe"))
                        .orElse(false))
                .toList();
    }

    /** The one server process running; fails when there is none or more. */
    static ProcessHandle theServerProcess() {
        List<ProcessHandle> processes = serverProcesses();
        assertEquals(1, processes.size(), "server processes");
        return processes.get(0);
    }

    /** Kills the one server process and waits for it to be gone. */
    static void killTheServer() throws Exception {
        ProcessHandle process = theServerProcess();
        assertTrue(process.destroyForcibly(), "kill " + process.pid());
        process.onExit().get(10, TimeUnit.SECONDS);
    }

    /** Waits until no server process is left: each ends once its client released everything. */
    static void awaitNoServerProcess() throws InterruptedException {
        for (int i = 0; i < 250 && !serverProcesses().isEmpty(); i++) Thread.sleep(20);
        assertEquals(List.of(), serverProcesses(), "server processes left");
    }

    /** What a test does, run twice. */
    interface Scenario {
        void run() throws Exception;
    }

    /**
     * Runs the scenario twice; neither run leaves task memory in this process. (Under Wine the stubs
     * of the callbacks' arrays did, until the proxy/stub modules described those arrays through their
     * reference pointers: see FixSimpleRefArrays.cmake.)
     */
    static void runTwiceLeavingNoTaskMemory(Scenario scenario) throws Exception {
        long before = settledTaskMemory();
        scenario.run();
        assertEquals(before, settledTaskMemory(), "live task memory blocks after one run");
        scenario.run();
        assertEquals(before, settledTaskMemory(), "live task memory blocks after two runs");
    }

    private static long settledTaskMemory() throws InterruptedException {
        long live = TestSupport.ledgerLiveCount(TestSupport.TASK_MEMORY);
        for (int i = 0; i < 10; i++) {
            Thread.sleep(20);
            long again = TestSupport.ledgerLiveCount(TestSupport.TASK_MEMORY);
            if (again == live) return live;
            live = again;
        }
        return live;
    }

    /** The RPC failures of a call through a proxy whose server process is gone. */
    static boolean isDisconnection(int hresult) {
        return switch (hresult) {
            case 0x80010108, 0x80010007, 0x80010012, 0x800706BA, 0x800706BE, 0x800706BF, 0x800401FD -> true;
            default -> false;
        };
    }
}
