package com.velmora.opc.jni;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.channels.FileChannel;
import java.nio.channels.FileLock;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.util.ArrayList;
import java.util.HexFormat;
import java.util.List;
import java.util.Locale;
import java.util.concurrent.TimeUnit;
import java.util.function.Function;

/**
 * The native files that a jar carries under {@code natives/<platform>/}, extracted once into a
 * user cache folder. The folder is named after the content of the platform's index, so a jar with
 * other files gets a folder of its own and a second run of the same jar extracts nothing.
 *
 * <p>The index lists one {@code file <sha-256> <name>} line per file and one
 * {@code register <name>} line per COM module that the runtime beside it registers: on hosts
 * without COM the extracted {@code opc_regsvr} fills the folder's own registry with them, so the
 * simulation server is found with no setting at all.
 */
public final class NativeCache {
    /** System property naming the cache folder (default: the user's cache folder). */
    public static final String DIR_PROPERTY = "opc.cache.dir";

    private static final String MARKER = ".complete";
    private static final String REGISTRAR = "opc_regsvr";
    private static final long REGISTER_TIMEOUT_SECONDS = 60;

    private final Path root;
    private final String platform;
    private final Function<String, InputStream> resources;

    /**
     * @param root the cache folder
     * @param platform e.g. "linux-x86_64"
     * @param resources opens a resource by its path in the jar, null when there is none
     */
    NativeCache(Path root, String platform, Function<String, InputStream> resources) {
        this.root = root;
        this.platform = platform;
        this.resources = resources;
    }

    /**
     * The cache of the jar that holds this class, or null when it carries nothing for this platform.
     * Natives staged in a class folder (a development build) are left alone: there the library is
     * named by {@value NativeLibrary#PATH_PROPERTY} or found on the library path, as before.
     */
    static NativeCache ofThisJar() {
        String platform = platform(System.getProperty("os.name"), System.getProperty("os.arch"));
        if (platform == null) return null;
        java.net.URL index = NativeCache.class.getResource(indexPath(platform));
        if (index == null || !index.getProtocol().equals("jar")) return null;
        return new NativeCache(defaultRoot(), platform, NativeCache.class::getResourceAsStream);
    }

    /** "linux-x86_64" or "windows-x86_64"; null for a system the jar carries no natives for. */
    static String platform(String osName, String osArch) {
        String os = osName == null ? "" : osName.toLowerCase(Locale.ROOT);
        String arch = osArch == null ? "" : osArch.toLowerCase(Locale.ROOT);
        if (!arch.equals("amd64") && !arch.equals("x86_64")) return null;
        if (os.startsWith("linux")) return "linux-x86_64";
        if (os.startsWith("windows")) return "windows-x86_64";
        return null;
    }

    private static String indexPath(String platform) {
        return "/natives/" + platform + "/index";
    }

    private static Path defaultRoot() {
        String configured = System.getProperty(DIR_PROPERTY);
        if (configured != null && !configured.isBlank()) return Path.of(configured);
        String localAppData = System.getenv("LOCALAPPDATA");
        boolean windows = System.getProperty("os.name", "").toLowerCase(Locale.ROOT).startsWith("windows");
        if (windows && localAppData != null && !localAppData.isBlank()) return Path.of(localAppData, "velmora-opc");
        String xdg = System.getenv("XDG_CACHE_HOME");
        if (xdg != null && !xdg.isBlank()) return Path.of(xdg, "velmora-opc");
        return Path.of(System.getProperty("user.home"), ".cache", "velmora-opc");
    }

    /**
     * Extracts the files unless an earlier run did, registers the COM modules, and returns the
     * folder. Safe against other processes doing the same at the same time.
     */
    Path extract() throws IOException {
        byte[] index = read(indexPath(platform));
        String key = HexFormat.of().formatHex(sha256(index), 0, 8);
        Path folder = root.resolve(key).resolve(platform);
        if (isComplete(folder, key)) return folder;
        Files.createDirectories(folder);
        try (FileChannel channel = FileChannel.open(folder.resolve(".lock"), StandardOpenOption.CREATE,
                StandardOpenOption.WRITE);
                FileLock lock = channel.lock()) {
            if (isComplete(folder, key)) return folder;
            List<String> registered = new ArrayList<>();
            for (String line : new String(index, StandardCharsets.UTF_8).split("\n")) {
                String[] field = line.trim().split(" ");
                if (field.length == 3 && field[0].equals("file")) {
                    copy(field[2], field[1], folder);
                } else if (field.length == 2 && field[0].equals("register")) {
                    registered.add(field[1]);
                }
            }
            if (!registered.isEmpty()) register(folder, registered);
            Path marker = folder.resolve(MARKER + ".part");
            Files.writeString(marker, key);
            Files.move(marker, folder.resolve(MARKER), StandardCopyOption.REPLACE_EXISTING,
                    StandardCopyOption.ATOMIC_MOVE);
        }
        return folder;
    }

    private static boolean isComplete(Path folder, String key) {
        try {
            return key.equals(Files.readString(folder.resolve(MARKER)));
        } catch (IOException e) {
            return false;
        }
    }

    private void copy(String name, String sha256, Path folder) throws IOException {
        if (name.contains("/") || name.contains("\\") || name.startsWith(".")) {
            throw new IOException("bad file name in the natives index: " + name);
        }
        Path part = folder.resolve(name + ".part");
        MessageDigest digest = digest();
        try (InputStream in = open("/natives/" + platform + "/" + name); OutputStream out = Files.newOutputStream(part)) {
            byte[] buffer = new byte[1 << 16];
            for (int n; (n = in.read(buffer)) > 0; ) {
                digest.update(buffer, 0, n);
                out.write(buffer, 0, n);
            }
        }
        if (!HexFormat.of().formatHex(digest.digest()).equals(sha256)) {
            Files.deleteIfExists(part);
            throw new IOException(name + " in the jar does not match its checksum");
        }
        part.toFile().setExecutable(true, false);
        Files.move(part, folder.resolve(name), StandardCopyOption.REPLACE_EXISTING);
    }

    /** Fills the folder's registry (a fresh one) through the extracted registrar. */
    private static void register(Path folder, List<String> modules) throws IOException {
        Path registrar = folder.resolve(REGISTRAR);
        if (!Files.isRegularFile(registrar)) throw new IOException("the natives carry no " + REGISTRAR);
        Path registry = folder.resolve("com-registry.txt");
        Files.deleteIfExists(registry);
        List<String> command = new ArrayList<>(List.of(registrar.toString(), "/s"));
        for (String module : modules) command.add(folder.resolve(module).toString());
        ProcessBuilder builder = new ProcessBuilder(command).directory(folder.toFile()).redirectErrorStream(true);
        builder.environment().put("OPC_COM_REGISTRY", registry.toString());
        Process process = builder.start();
        String output = new String(process.getInputStream().readAllBytes(), StandardCharsets.UTF_8).trim();
        try {
            if (!process.waitFor(REGISTER_TIMEOUT_SECONDS, TimeUnit.SECONDS)) {
                process.destroyForcibly();
                throw new IOException(REGISTRAR + " did not finish");
            }
        } catch (InterruptedException e) {
            process.destroyForcibly();
            Thread.currentThread().interrupt();
            throw new IOException("interrupted while registering the COM modules", e);
        }
        if (process.exitValue() != 0) {
            throw new IOException("registering the COM modules failed (exit " + process.exitValue() + "): " + output);
        }
    }

    private byte[] read(String path) throws IOException {
        try (InputStream in = open(path)) {
            return in.readAllBytes();
        }
    }

    private InputStream open(String path) throws IOException {
        InputStream in = resources.apply(path);
        if (in == null) throw new IOException("the jar has no " + path);
        return in;
    }

    private static byte[] sha256(byte[] bytes) {
        return digest().digest(bytes);
    }

    private static MessageDigest digest() {
        try {
            return MessageDigest.getInstance("SHA-256");
        } catch (NoSuchAlgorithmException e) {
            throw new IllegalStateException("SHA-256 is part of every Java platform", e);
        }
    }
}
