package com.velmora.opc.testsupport;

import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.jni.NativeLibrary;
import java.io.*;
import java.net.URISyntaxException;
import java.nio.charset.StandardCharsets;
import java.nio.file.*;
import java.util.*;
import java.util.concurrent.TimeUnit;
import java.util.regex.Pattern;
import java.util.stream.Stream;

/**
 * Runs {@link ChildMain} in a separate JVM, optionally with main classes missing from its class
 * path or with another folder of native libraries. The child runs under -Xcheck:jni too; its JNI
 * warnings fail the calling test.
 */
public final class ChildJvm {
    private static final Pattern JNI_WARNING =
            Pattern.compile("WARNING in native method|JNI local refs|exceeds capacity|FATAL ERROR in native method");

    /** What the child printed (stdout and stderr together) and its exit code. */
    public record Result(int exitCode, String output) {
        /** Fails unless every line was printed, whole. */
        public void assertPrinted(String... lines) {
            for (String line : lines) {
                assertTrue(output.lines().anyMatch(line::equals), () -> line + " not in\n" + output);
            }
        }
    }

    private ChildJvm() {}

    /** Runs ChildMain with the arguments against the build's native libraries. */
    public static Result run(String... args) {
        return run(TestSupport.nativeDir(), Set.of(), args);
    }

    /**
     * Runs ChildMain with the arguments against the native libraries of nativeDir, without the
     * named classes (binary names) of the main class path.
     */
    public static Result run(File nativeDir, Set<String> missingClasses, String... args) {
        Path classes = null;
        String dir = nativeDir.getAbsolutePath();
        try {
            classes = reducedCopy(codeSource(NativeLibrary.class), missingClasses);
            List<String> command = new ArrayList<>(List.of(
                    Path.of(System.getProperty("java.home"), "bin", "java").toString(),
                    "-Xcheck:jni",
                    "-Dopc.library.path=" + dir,
                    "-Dopc.native.dir=" + dir));
            if (Runtime.version().feature() >= 16) command.add("--enable-native-access=ALL-UNNAMED");
            if (SimControl.outOfProcess()) command.add("-Dopc.test.server=outproc");
            command.addAll(List.of("-cp", classes + File.pathSeparator + codeSource(ChildMain.class),
                    ChildMain.class.getName()));
            command.addAll(List.of(args));
            ProcessBuilder builder = new ProcessBuilder(command).redirectErrorStream(true);
            builder.environment().put("LD_LIBRARY_PATH", dir);
            Process process = builder.start();
            process.getOutputStream().close();
            byte[] out = process.getInputStream().readAllBytes();
            assertTrue(process.waitFor(60, TimeUnit.SECONDS), "child JVM did not finish");
            Result result = new Result(process.exitValue(), new String(out, StandardCharsets.UTF_8));
            assertFalse(JNI_WARNING.matcher(result.output()).find(), () -> "JNI warning in child:\n" + result.output());
            return result;
        } catch (IOException | URISyntaxException e) {
            throw new IllegalStateException(e);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            throw new IllegalStateException(e);
        } finally {
            if (classes != null) deleteTree(classes);
        }
    }

    private static Path codeSource(Class<?> type) throws URISyntaxException {
        return Path.of(type.getProtectionDomain().getCodeSource().getLocation().toURI());
    }

    // A copy of the class tree under root without the missing classes and their nested classes.
    private static Path reducedCopy(Path root, Set<String> missingClasses) throws IOException {
        Path copy = Files.createTempDirectory("opc-classes");
        try (Stream<Path> files = Files.walk(root)) {
            for (Path file : (Iterable<Path>) files::iterator) {
                String relative = root.relativize(file).toString();
                String name = relative.replace(File.separatorChar, '.');
                if (Files.isDirectory(file)) {
                    Files.createDirectories(copy.resolve(relative));
                } else if (missingClasses.stream().noneMatch(m -> name.equals(m + ".class")
                        || name.startsWith(m + "$"))) {
                    Files.copy(file, copy.resolve(relative));
                }
            }
        }
        return copy;
    }

    private static void deleteTree(Path root) {
        try (Stream<Path> files = Files.walk(root)) {
            files.sorted((a, b) -> b.getNameCount() - a.getNameCount()).forEach(p -> p.toFile().delete());
        } catch (IOException ignored) {
            // a temporary folder left behind is harmless
        }
    }
}
