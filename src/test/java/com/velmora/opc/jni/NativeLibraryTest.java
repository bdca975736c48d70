package com.velmora.opc.jni;

import static org.junit.jupiter.api.Assertions.*;

import java.io.ByteArrayInputStream;
import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.security.MessageDigest;
import java.util.HashMap;
import java.util.HexFormat;
import java.util.Map;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

class NativeLibraryTest {

    @Test
    void configuredPathMayNameTheFolderOrTheFileAndMustExist(@TempDir Path dir) throws IOException {
        Path library = Files.createFile(dir.resolve(System.mapLibraryName("opc")));
        assertEquals(library.toFile().getAbsoluteFile(), NativeLibrary.resolve(dir.toString()).getAbsoluteFile());
        assertEquals(library.toFile().getAbsoluteFile(), NativeLibrary.resolve(library.toString()).getAbsoluteFile());

        Path empty = Files.createDirectory(dir.resolve("empty"));
        UnsatisfiedLinkError missing = assertThrows(UnsatisfiedLinkError.class,
                () -> NativeLibrary.resolve(empty.toString()));
        assertTrue(missing.getMessage().contains(empty + File.separator + System.mapLibraryName("opc")),
                missing.getMessage());
    }

    @Test
    void nativesAreExtractedOncePerContentAndCheckedAgainstTheirIndex(@TempDir Path cache) throws Exception {
        Map<String, byte[]> jar = new HashMap<>();
        jar.put("/natives/linux-x86_64/libopc.so", "library".getBytes(StandardCharsets.UTF_8));
        jar.put("/natives/linux-x86_64/index", ("file " + sha256("library") + " libopc.so\n").getBytes(StandardCharsets.UTF_8));
        NativeCache natives = new NativeCache(cache, "linux-x86_64",
                path -> jar.containsKey(path) ? new ByteArrayInputStream(jar.get(path)) : null);

        Path folder = natives.extract();
        Path other = null;
        try {
            assertEquals("library", Files.readString(folder.resolve("libopc.so")));
            Files.delete(folder.resolve("libopc.so"));
            assertEquals(folder, natives.extract());
            assertFalse(Files.exists(folder.resolve("libopc.so")), "a complete folder is used as it is");

            // Other content, another folder; a file that does not match its checksum leaves it incomplete.
            jar.put("/natives/linux-x86_64/index", ("file " + sha256("other") + " libopc.so\n").getBytes(StandardCharsets.UTF_8));
            IOException corrupt = assertThrows(IOException.class, natives::extract);
            assertTrue(corrupt.getMessage().contains("checksum"), corrupt.getMessage());
            jar.put("/natives/linux-x86_64/libopc.so", "other".getBytes(StandardCharsets.UTF_8));
            other = natives.extract();
            assertNotEquals(folder, other);
            assertEquals("other", Files.readString(other.resolve("libopc.so")));
        } finally {
            // The process holds what it extracted until it exits; the temporary folder must go now.
            NativeCache.letGo(folder);
            if (other != null) NativeCache.letGo(other);
        }

        assertEquals(java.util.Arrays.asList("linux-x86_64", "windows-x86_64", null, null),
                java.util.Arrays.asList(NativeCache.platform("Linux", "amd64"), NativeCache.platform("Windows 11", "amd64"),
                        NativeCache.platform("Linux", "aarch64"), NativeCache.platform("Mac OS X", "x86_64")));
    }

    private static String sha256(String text) throws Exception {
        return HexFormat.of().formatHex(MessageDigest.getInstance("SHA-256").digest(text.getBytes(StandardCharsets.UTF_8)));
    }
}
