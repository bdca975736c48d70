package com.velmora.opc.jni;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.nio.channels.FileChannel;
import java.nio.channels.FileLock;
import java.nio.channels.OverlappingFileLockException;
import java.nio.charset.StandardCharsets;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.FileTime;
import java.security.MessageDigest;
import java.security.NoSuchAlgorithmException;
import java.time.Duration;
import java.time.Instant;
import java.util.ArrayList;
import java.util.HexFormat;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;
import java.util.function.Function;
import java.util.regex.Pattern;

/**
 * The native files that a jar carries under {@code natives/<platform>/}, extracted once into a
 * user cache folder. The folder is named after the content of the platform's index, so a jar with
 * other files gets a folder of its own and a second run of the same jar extracts nothing.
 *
 * <p>The index lists one {@code file <sha-256> <name>} line per file and one
 * {@code register <name>} line per COM module that the runtime beside it registers: on hosts
 * without COM the extracted {@code opc_regsvr} fills the folder's own registry with them, so the
 * simulation server is found with no setting at all.
 *
 * <p>A process holds a shared lock on the folder it loaded from for as long as it runs, and marks
 * the folder used at each start. At each start the folders of other jars for the same platform that
 * no process holds and none has used for {@link #STALE_AFTER} are removed, so that upgrades do not
 * pile up old copies.
 */
public final class NativeCache {
    /** System property naming the cache folder (default: the user's cache folder). */
    public static final String DIR_PROPERTY = "opc.cache.dir";

    private static final String MARKER = ".complete";
    private static final String REGISTRAR = "opc_regsvr";
    private static final long REGISTER_TIMEOUT_SECONDS = 60;
    private static final String LOCK = ".lock";
    private static final Pattern KEY = Pattern.compile("[0-9a-f]{16}");

    /** How long a cache folder of another jar stays unused before a new extraction removes it. */
    static final Duration STALE_AFTER = Duration.ofDays(30);

    /** The shared locks of the folders this process loads from, held until it exits. */
    private static final Map<Path, FileChannel> IN_USE = new ConcurrentHashMap<>();

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
     * folder, held in use by this process. Safe against other processes doing the same at the same
     * time.
     */
    Path extract() throws IOException {
        byte[] index = read(indexPath(platform));
        String key = HexFormat.of().formatHex(sha256(index), 0, 8);
        Path folder = root.resolve(key).resolve(platform);
        // Twice at most: a folder that another process removed as stale between the check and the
        // shared lock is extracted again.
        for (int attempt = 0; attempt < 2; attempt++) {
            if (!isComplete(folder, key)) fill(folder, key, index);
            holdInUse(folder);
            if (isComplete(folder, key)) {
                markUsed(folder);
                removeStale(key);
                return folder;
            }
            letGo(folder);
        }
        throw new IOException("the natives in " + folder + " were removed while this process extracted them");
    }

    /** Extracts and registers under the folder's exclusive lock, unless another process just did. */
    private void fill(Path folder, String key, byte[] index) throws IOException {
        try (FileChannel channel = openLock(folder); FileLock lock = channel.lock()) {
            if (isComplete(folder, key)) return;
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
    }

    /** The folder's lock file, open; the folder is made (again, should another process just have removed it). */
    private static FileChannel openLock(Path folder) throws IOException {
        Files.createDirectories(folder);
        return FileChannel.open(folder.resolve(LOCK), StandardOpenOption.CREATE, StandardOpenOption.READ,
                StandardOpenOption.WRITE);
    }

    /** Takes the folder's shared lock for the rest of the process, waiting out an extraction or removal. */
    private static void holdInUse(Path folder) throws IOException {
        if (IN_USE.containsKey(folder)) return;
        FileChannel channel = openLock(folder);
        try {
            channel.lock(0, Long.MAX_VALUE, true);
        } catch (IOException | RuntimeException e) {
            channel.close();
            throw e;
        }
        if (IN_USE.putIfAbsent(folder, channel) != null) channel.close();
    }

    /** Gives up the shared lock on a folder this process no longer loads from. */
    static void letGo(Path folder) throws IOException {
        FileChannel channel = IN_USE.remove(folder);
        if (channel != null) channel.close();
    }

    /** Notes the start in the marker's time, by which unused folders are found. */
    private static void markUsed(Path folder) {
        try {
            Files.setLastModifiedTime(folder.resolve(MARKER), FileTime.from(Instant.now()));
        } catch (IOException e) {
            // A read-only cache still serves; its folders are then never taken for unused.
        }
    }

    /**
     * Removes this platform's folders of other jars that no process holds and none has used for
     * {@link #STALE_AFTER}. Whatever cannot be removed now stays for a later extraction.
     */
    private void removeStale(String key) {
        Instant limit = Instant.now().minus(STALE_AFTER);
        try (DirectoryStream<Path> keys = Files.newDirectoryStream(root)) {
            for (Path other : keys) {
                String name = other.getFileName().toString();
                if (name.equals(key) || !KEY.matcher(name).matches()) continue;
                Path folder = other.resolve(platform);
                try {
                    if (Files.isRegularFile(folder.resolve(LOCK)) && lastUse(folder).isBefore(limit)) {
                        removeUnused(folder, limit);
                    }
                } catch (IOException | RuntimeException e) {
                    // A file in use (a module loaded on Windows) or one that went meanwhile: left for later.
                }
            }
        } catch (IOException | RuntimeException e) {
            // The cache serves as it is.
        }
    }

    /** The time of the folder's last start, or of its extraction when it never completed. */
    private static Instant lastUse(Path folder) throws IOException {
        Path marker = folder.resolve(MARKER);
        return Files.getLastModifiedTime(Files.exists(marker) ? marker : folder.resolve(LOCK)).toInstant();
    }

    private static void removeUnused(Path folder, Instant limit) throws IOException {
        try (FileChannel channel = FileChannel.open(folder.resolve(LOCK), StandardOpenOption.READ,
                StandardOpenOption.WRITE)) {
            FileLock lock;
            try {
                lock = channel.tryLock();
            } catch (OverlappingFileLockException e) {
                return;  // this process holds it
            }
            if (lock == null) return;  // another process holds it
            try {
                if (!lastUse(folder).isBefore(limit)) return;
                // The marker first: a process that starts meanwhile extracts again rather than load a half.
                Files.deleteIfExists(folder.resolve(MARKER));
                try (DirectoryStream<Path> files = Files.newDirectoryStream(folder)) {
                    for (Path file : files) {
                        if (!file.getFileName().toString().equals(LOCK)) Files.deleteIfExists(file);
                    }
                }
            } finally {
                lock.release();
            }
        }
        Files.deleteIfExists(folder.resolve(LOCK));
        Files.deleteIfExists(folder);
        try (DirectoryStream<Path> rest = Files.newDirectoryStream(folder.getParent())) {
            if (!rest.iterator().hasNext()) Files.deleteIfExists(folder.getParent());
        }
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
