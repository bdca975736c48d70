package com.velmora.opc.jni;

import static org.junit.jupiter.api.Assertions.*;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.nio.channels.FileChannel;
import java.nio.channels.FileLock;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.FileTime;
import java.security.MessageDigest;
import java.time.Duration;
import java.time.Instant;
import java.util.HashMap;
import java.util.HexFormat;
import java.util.Map;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class NativeCacheTest {
    private static final String PLATFORM = "linux-x86_64";

    @TempDir
    Path root;

    /** A jar's natives: the files, and an index of their sums. */
    private static Map<String, byte[]> jar(Map<String, String> files) throws Exception {
        Map<String, byte[]> resources = new HashMap<>();
        StringBuilder index = new StringBuilder();
        for (Map.Entry<String, String> file : files.entrySet()) {
            byte[] content = file.getValue().getBytes(StandardCharsets.UTF_8);
            resources.put("/natives/" + PLATFORM + "/" + file.getKey(), content);
            byte[] sum = MessageDigest.getInstance("SHA-256").digest(content);
            index.append("file ").append(HexFormat.of().formatHex(sum)).append(' ').append(file.getKey()).append('\n');
        }
        resources.put("/natives/" + PLATFORM + "/index", index.toString().getBytes(StandardCharsets.UTF_8));
        return resources;
    }

    private NativeCache cache(Map<String, byte[]> resources) {
        return new NativeCache(root, PLATFORM, path -> {
            byte[] bytes = resources.get(path);
            return bytes == null ? null : (InputStream) new ByteArrayInputStream(bytes);
        });
    }

    /** A folder as another jar's extraction left it, last used `age` ago. */
    private Path earlier(String key, String platform, Duration age, boolean complete) throws IOException {
        Path folder = Files.createDirectories(root.resolve(key).resolve(platform));
        Files.writeString(folder.resolve("libopc.so"), "old");
        Files.createFile(folder.resolve(".lock"));
        FileTime then = FileTime.from(Instant.now().minus(age));
        Files.setLastModifiedTime(folder.resolve(".lock"), then);
        if (complete) {
            Files.writeString(folder.resolve(".complete"), key);
            Files.setLastModifiedTime(folder.resolve(".complete"), then);
        }
        return folder;
    }

    @Test
    void foldersOfOtherJarsGoOnceNoProcessHoldsThemAndNoneUsedThemForAMonth() throws Exception {
        Duration old = NativeCache.STALE_AFTER.plusDays(10);
        Path stale = earlier("00000000000000a1", PLATFORM, old, true);
        Path aborted = earlier("00000000000000a2", PLATFORM, old, false);
        Path recent = earlier("00000000000000a3", PLATFORM, Duration.ofDays(1), true);
        Path held = earlier("00000000000000a4", PLATFORM, old, true);
        Path otherPlatform = earlier("00000000000000a5", "windows-x86_64", old, true);
        Path notOurs = earlier("notes", PLATFORM, old, true);

        Path folder;
        try (FileChannel channel = FileChannel.open(held.resolve(".lock"), StandardOpenOption.WRITE);
                FileLock lock = channel.lock()) {
            folder = cache(jar(Map.of("libopc.so", "new"))).extract();
        }
        try {
            assertFalse(Files.exists(stale.getParent()), "a stale folder and its key folder");
            assertFalse(Files.exists(aborted.getParent()), "an extraction that never completed");
            for (Path kept : new Path[] {recent, held, otherPlatform, notOurs}) {
                assertEquals("old", Files.readString(kept.resolve("libopc.so")), kept.toString());
            }
            assertEquals("new", Files.readString(folder.resolve("libopc.so")));
            assertTrue(Files.getLastModifiedTime(folder.resolve(".complete")).toInstant()
                    .isAfter(Instant.now().minusSeconds(60)), "the start is noted as a use");
        } finally {
            NativeCache.letGo(folder);
        }
    }
}
