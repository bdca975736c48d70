package com.velmora.opc.jni;

import static org.junit.jupiter.api.Assertions.*;
import static org.junit.jupiter.api.Assumptions.assumeTrue;

import com.velmora.opc.testsupport.*;
import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Start-up of COM and of the proxy/stub libraries, each in a fresh process. */
class OpcEnvStartupTest {

    @Test
    void aFreshProcessReportsOnlyWhatCOMRefuses() {
        TestSupport.assumeNotWine(TestSupport.WINE_SECURITY_ALWAYS_SUCCEEDS);
        // Security before any thread has joined COM is refused; start-up goes on and a later set-up works once.
        ChildJvm.run("startup").assertPrinted("env-before-thread: [ERROR CoInitializeSecurity: 800401f0]",
                "thread: []", "thread-again: []", "env: []", "env-again: [ERROR CoInitializeSecurity: 80010119]");
    }

    @Test
    void underWineTheProxyStubLibrariesLoadAndRegisterWithoutAWord() {
        assumeTrue(TestSupport.wineVersion() != null, "the proxy/stub libraries of this check are Windows modules");
        ChildJvm.run("startup").assertPrinted("env-before-thread: []", "thread: []", "env: []", "env-again: []");
    }

    @Test
    void aMissingProxyStubLibraryIsOneErrorAndStopsTheRegistration(@TempDir Path temp) throws IOException {
        TestSupport.assumeNotWine(TestSupport.WINE_SECURITY_ALWAYS_SUCCEEDS);
        // The common interfaces' library is never tried once the first one is missing.
        startupWithout(temp, "opcproxy").assertPrinted("env: [ERROR Failed to load opcproxy.dll]",
                "env-again: [ERROR CoInitializeSecurity: 80010119, ERROR Failed to load opcproxy.dll]");
        startupWithout(temp, "opccomn_ps").assertPrinted("env: [ERROR Failed to load opccomn_ps.dll]");
    }

    // Start-up against the build's libraries (and its registry) in a folder of their own, without one library.
    private static ChildJvm.Result startupWithout(Path temp, String library) throws IOException {
        Path folder = Files.createDirectories(temp.resolve(library));
        File[] files = TestSupport.nativeDir().listFiles();
        assertTrue(files != null && files.length > 0, "no native build output");
        for (File file : files) {
            if (file.isFile() && !file.getName().equals(System.mapLibraryName(library))) {
                Files.copy(file.toPath(), folder.resolve(file.getName()));
            }
        }
        return ChildJvm.run(folder.toFile(), Set.of(), "startup");
    }
}
