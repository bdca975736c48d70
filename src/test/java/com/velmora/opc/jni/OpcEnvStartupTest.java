package com.velmora.opc.jni;

import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.testsupport.ChildJvm;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.TestSupport;
import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;
import org.junit.jupiter.api.io.TempDir;

@ExtendWith(LedgerCheck.class)
class OpcEnvStartupTest {

    @Test
    void aFreshProcessReportsOnlyWhatCOMRefuses() {
        ChildJvm.Result child = ChildJvm.run(NativeChildMain.class, TestSupport.nativeDir(), Set.of(), "startup");
        // Security before any thread has joined COM is refused; start-up goes on and a later set-up works once.
        assertTrue(child.printed("env-before-thread: [ERROR CoInitializeSecurity: 800401f0]"), child.output());
        assertTrue(child.printed("thread: []"), child.output());
        assertTrue(child.printed("thread-again: []"), child.output());
        assertTrue(child.printed("env: []"), child.output());
        assertTrue(child.printed("env-again: [ERROR CoInitializeSecurity: 80010119]"), child.output());
    }

    @Test
    void aMissingProxyStubLibraryIsOneErrorAndStopsTheRegistration(@TempDir Path temp) throws IOException {
        File noProxy = copyWithout(temp.resolve("no-proxy"), "opcproxy");
        ChildJvm.Result child = ChildJvm.run(NativeChildMain.class, noProxy, Set.of(), "startup");
        // The common interfaces' library is never tried once the first one is missing.
        assertTrue(child.printed("env: [ERROR Failed to load opcproxy.dll]"), child.output());
        assertTrue(child.printed("env-again: [ERROR CoInitializeSecurity: 80010119, ERROR Failed to load opcproxy.dll]"),
                child.output());

        File noCommon = copyWithout(temp.resolve("no-common"), "opccomn_ps");
        child = ChildJvm.run(NativeChildMain.class, noCommon, Set.of(), "startup");
        assertTrue(child.printed("env: [ERROR Failed to load opccomn_ps.dll]"), child.output());
    }

    // The build's libraries (and its registry) in a folder of their own, without one library.
    private static File copyWithout(Path folder, String library) throws IOException {
        Files.createDirectories(folder);
        String skipped = System.mapLibraryName(library);
        File[] files = TestSupport.nativeDir().listFiles();
        assertTrue(files != null && files.length > 0, "no native build output");
        for (File file : files) {
            if (file.isFile() && !file.getName().equals(skipped)) Files.copy(file.toPath(), folder.resolve(file.getName()));
        }
        return folder.toFile();
    }
}
