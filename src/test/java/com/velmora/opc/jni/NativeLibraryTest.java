package com.velmora.opc.jni;

import static org.junit.jupiter.api.Assertions.*;

import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
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
}
