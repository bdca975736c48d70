package com.velmora.opc;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class OpcEnvTest {

    @Test
    void startUpRepeatsHarmlesslyAndReportsOnlyTheLateSecuritySetUp() throws InterruptedException {
        OpcEnv.initThread();
        OpcEnv.initEnv();
        try (LogCapture log = new LogCapture()) {
            OpcEnv.initThread();
            OpcEnv.initEnv();
            Thread other = new Thread(() -> {
                OpcEnv.initThread();
                OpcEnv.initThread();
            });
            other.start();
            other.join();
            assertEquals(List.of(new LogCapture.Line("ERROR", "CoInitializeSecurity: 80010119")), log.lines());
        }
    }

    @Test
    void sinksMapToSystemLoggerLevels() {
        try (LogCapture log = new LogCapture()) {
            OpcEnv.logError("e");
            OpcEnv.logWarning("w");
            OpcEnv.logTrace("t");
            OpcEnv.logMessage("m");
            assertEquals(List.of(new LogCapture.Line("ERROR", "e"), new LogCapture.Line("WARNING", "w"),
                    new LogCapture.Line("TRACE", "t"), new LogCapture.Line("INFO", "m")), log.lines());
        }
    }
}
