package com.velmora.opc;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.velmora.opc.testsupport.LogCapture;
import java.util.List;
import org.junit.jupiter.api.Test;

class OpcEnvTest {

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
