package com.velmora.opc.bench;

import com.velmora.opc.jni.ComObjectClient;
import com.velmora.opc.jni.client.da.OpcAsyncIo2;
import java.io.File;
import java.io.IOException;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.LockSupport;

/**
 * The cost of a process boundary, in one Windows JVM: the synchronous read of 10,000 items (VT_R8,
 * then VT_BSTR) and the data changes of 10,000 items, first against the simulation server in this
 * process (opc_sim.dll, InprocServer32), then against the same server in a process of its own
 * (opc_sim_server.exe registered as LocalServer32 only, reached through opcproxy.dll). Prints items
 * per second of each and the ratio of the out-of-process time to the in-process time.
 *
 * <p>The reads are SyncReadBench's rounds in both halves. Out of process its "server" column is the
 * same IOPCSyncIO::Read from native code through the proxy: the server with the marshalling both
 * ways. A data change is timed whole, from one update to the next with the server changing every
 * item at its shortest update rate: in process as the server's own time plus its callback's, out of
 * process as the period between updates at the listener less the server's pause between updates
 * (measured in the first half; the same engine pauses in both processes). The bench library's
 * in-process hooks reach the module in this process only: out of process nothing is timed apart.
 *
 * <p>Arguments: [warm-up rounds] [measured rounds], of each read and of the updates.
 */
public final class OutOfProcessBench {
    private static final int ITEMS = BenchGroup.ITEMS;
    private static final String CLSID = "{6A1F3C52-9B47-4E8D-A2C1-5D3E7F901B24}";
    private static final String PREFIX = "Bench.R8.";
    /** The server's shortest update rate: updates follow each other as closely as it allows. */
    private static final int UPDATE_RATE_MS = 10;

    private OutOfProcessBench() {}

    /** The figures of one half. */
    private record Half(Rounds[] r8, Rounds[] str, Delivery delivery) {}

    /**
     * Per update: its whole time (in process: the server's tick and callback; out of process: NaN,
     * derived afterwards), the period between updates at the listener, and the listener's first to last item.
     */
    private record Delivery(double wholeNanos, double periodNanos, double spreadNanos) {}

    public static void main(String[] args) throws Exception {
        int warmup = args.length > 0 ? Integer.parseInt(args[0]) : 30;
        int rounds = args.length > 1 ? Integer.parseInt(args[1]) : 101;
        if (!System.getProperty("os.name").startsWith("Windows")) {
            System.out.println("OutOfProcessBench: Windows only (the COM runtime of this project has no out-of-process"
                    + " servers); run it through tools/bench.sh outproc");
            System.exit(2);
        }
        System.out.printf("In process and out of process: the simulation server in this JVM, then in a process of its"
                + " own (opc_sim_server.exe, through the proxy/stub modules); %s, %s; medians of %d rounds after %d"
                + " warm-up rounds%n", System.getProperty("java.vm.name"), System.getProperty("java.version"),
                rounds, warmup);
        BenchGroup.prepareProcess();
        BenchNatives.requireSimulation();
        Half in = half(false, warmup, rounds);
        File exe = new File(BenchNatives.libraryDir(), "opc_sim_server.exe").getAbsoluteFile();
        Half out;
        try {
            run(exe.getPath(), "/RegServer", "--local-only");
            run("reg", "add", "HKCR\\CLSID\\" + CLSID + "\\LocalServer32", "/ve", "/f", "/d",
                    exe.getPath() + " --change-every-tick " + PREFIX);
            out = half(true, warmup, rounds);
        } finally {
            run(exe.getPath(), "/UnregServer");
            run("regsvr32", "/s", new File(BenchNatives.libraryDir(), "opc_sim.dll").getAbsolutePath());
        }

        System.out.printf("Synchronous read of %d items from the cache (OpcSyncIo.read), ns per item; the whole call"
                + " out of process%n", ITEMS);
        reportRead("VT_R8  ", in.r8, out.r8);
        reportRead("VT_BSTR", in.str, out.str);
        System.out.println("  server: the same IOPCSyncIO::Read from native code, without Java (out of process through"
                + " the proxy); ratio = (total - server) / floor, in process only");

        double pause = in.delivery.periodNanos - in.delivery.wholeNanos;
        double outWhole = out.delivery.periodNanos - pause;
        System.out.printf("Data changes of %d VT_R8 items, all changed at every update (OpcAsyncIo2.advise, %d ms),"
                + " ms per update%n", ITEMS, UPDATE_RATE_MS);
        System.out.printf("  in process      %s ms  %s M items/s  (the server's tick and its callback as its thread"
                + " saw it; period %s ms)%n", ms(in.delivery.wholeNanos), mega(in.delivery.wholeNanos),
                ms(in.delivery.periodNanos));
        System.out.printf("  out of process  %s ms  %s M items/s  (whole: period %s ms less the server's pause of"
                + " %s ms between updates, measured in process)%n", ms(outWhole), mega(outWhole),
                ms(out.delivery.periodNanos), ms(pause));
        System.out.printf("  out / in %s; first to last item at the listener: %s ms in process, %s ms out of process%n",
                Rounds.ratioText(outWhole / in.delivery.wholeNanos), ms(in.delivery.spreadNanos),
                ms(out.delivery.spreadNanos));
        System.out.println("Out of process the server's share cannot be timed apart (the bench library's hooks reach"
                + " the module in this process only): those figures are whole calls.");
    }

    private static Half half(boolean outOfProcess, int warmup, int rounds) {
        long server = BenchGroup.connect();
        try {
            List<ProcessHandle> processes = serverProcesses();
            if (processes.size() != (outOfProcess ? 1 : 0)) {
                throw new IllegalStateException((outOfProcess ? "out" : "in") + " of process: "
                        + processes.size() + " opc_sim_server.exe processes");
            }
            Rounds[] r8 = SyncReadBench.measure(server, "Bench.R8.", true, warmup, rounds);
            Rounds[] str = SyncReadBench.measure(server, "Bench.Str.", false, warmup, rounds);
            return new Half(r8, str, delivery(server, outOfProcess, warmup, rounds));
        } finally {
            ComObjectClient.release(server);
        }
    }

    private static void reportRead(String type, Rounds[] in, Rounds[] out) {
        double inTotal = in[0].perItem(ITEMS);
        double outTotal = out[0].perItem(ITEMS);
        System.out.printf("  %s in process      total %7s  %s M items/s  server %s  floor %s  ratio %s%n", type,
                Rounds.fixed(inTotal), mega(inTotal * ITEMS), Rounds.fixed(in[1].perItem(ITEMS)),
                Rounds.fixed(in[2].perItem(ITEMS)), Rounds.ratioText(Rounds.ratio(inTotal, in[1].perItem(ITEMS),
                        in[2].perItem(ITEMS))));
        System.out.printf("  %s out of process  total %7s  %s M items/s  server and marshalling %s  out / in %s%n", type,
                Rounds.fixed(outTotal), mega(outTotal * ITEMS), Rounds.fixed(out[1].perItem(ITEMS)),
                Rounds.ratioText(outTotal / inTotal));
    }

    private static String ms(double nanos) {
        return String.format(Locale.ROOT, "%.2f", nanos / 1e6);
    }

    private static String mega(double nanosPerBatch) {
        return String.format(Locale.ROOT, "%.2f", ITEMS * 1e3 / nanosPerBatch);
    }

    /**
     * Subscription updates at the server's shortest rate, every item changing (in process through the
     * module's control, out of process through the server's command line).
     */
    private static Delivery delivery(long server, boolean outOfProcess, int warmup, int rounds) {
        try (BenchGroup group = BenchGroup.open(server, "delivery", BenchGroup.ids(PREFIX, ITEMS), UPDATE_RATE_MS)) {
            int updates = warmup + rounds + 1;
            DeliveryBench.Updates listener = new DeliveryBench.Updates(ITEMS, updates);
            if (!outOfProcess) BenchNatives.changeEveryTick(PREFIX, true);
            long cookie = 0;
            try {
                cookie = OpcAsyncIo2.advise(group.asyncIo, listener);
                if (cookie == 0) throw new IllegalStateException("advise made no connection");
                Rounds whole = new Rounds("whole", rounds);
                for (int u = 1; u <= updates; u++) {
                    listener.await(u);
                    if (outOfProcess || u <= warmup + 1) continue;
                    // The server notes its times once the callback has returned; the next update is 10 ms away.
                    LockSupport.parkNanos(2_000_000);
                    whole.add(Math.round((BenchNatives.lastTickMicros() + BenchNatives.lastCallbackMicros()) * 1000));
                }
                if (listener.failures() != 0) {
                    throw new IllegalStateException(listener.failures() + " items arrived as errors or not as numbers");
                }
                Rounds period = new Rounds("period", rounds);
                Rounds spread = new Rounds("spread", rounds);
                for (int u = warmup + 2; u <= updates; u++) {
                    period.add(listener.endedAt(u) - listener.endedAt(u - 1));
                    spread.add(listener.spread(u));
                }
                return new Delivery(outOfProcess ? Double.NaN : whole.median(), period.median(), spread.median());
            } finally {
                if (cookie != 0) OpcAsyncIo2.unadvise(group.asyncIo, cookie);
                if (!outOfProcess) BenchNatives.changeEveryTick(PREFIX, false);
            }
        }
    }

    private static List<ProcessHandle> serverProcesses() {
        return ProcessHandle.allProcesses()
                .filter(p -> p.info().command().map(c -> c.toLowerCase(Locale.ROOT).endsWith("opc_sim_server.exe"))
                        .orElse(false))
                .toList();
    }

    private static void run(String... command) throws IOException, InterruptedException {
        Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
        process.getOutputStream().close();
        process.getInputStream().readAllBytes();
        if (!process.waitFor(60, TimeUnit.SECONDS) || process.exitValue() != 0) {
            throw new IllegalStateException(String.join(" ", command) + " failed");
        }
    }
}
