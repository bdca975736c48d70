package com.velmora.opc;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;

import com.velmora.opc.testsupport.ChildJvm;
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

    @Test
    void callbackThreadsLogThroughTheClassLoaderThatLoadedTheLibrary() {
        ChildJvm.Result child = ChildJvm.run("foreign-loader");
        child.assertPrinted("own loader true", "logged 2 [TRACE OpcAsyncIo2::OnDataChange SafeArray -BSTR is null]");
        assertFalse(child.output().contains("[OPC "), child.output());
        assertEquals(0, child.exitCode(), child.output());
    }
}
