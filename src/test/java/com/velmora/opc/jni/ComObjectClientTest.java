package com.velmora.opc.jni;

import static com.velmora.opc.testsupport.Codes.*;
import static org.junit.jupiter.api.Assertions.*;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.testsupport.*;
import java.util.List;
import java.util.Set;
import org.junit.jupiter.api.Test;

class ComObjectClientTest {

    @Test
    void queryHandsOutOneNewReferenceAndReleaseGivesItBack() {
        long object = TestSupport.createObject(IID_IOPCSERVER);
        try {
            assertEquals(1, TestSupport.refCount(object));
            long unknown = ComObjectClient.query(object, IID_IUNKNOWN);
            long server = ComObjectClient.query(object, IID_IOPCSERVER.toLowerCase());
            assertNotEquals(0, unknown);
            assertNotEquals(0, server);
            assertEquals(3, TestSupport.refCount(object));
            ComObjectClient.release(unknown);
            assertEquals(2, TestSupport.refCount(object));
            ComObjectClient.release(server);
            assertEquals(1, TestSupport.refCount(object));
        } finally {
            TestSupport.releaseObject(object);
        }
        assertEquals(0, TestSupport.liveObjects());
    }

    @Test
    void failuresRaiseTheirExceptionsAbsentArgumentsAreSilentAndNoReferenceIsAdded() {
        OpcEnv.initThread();
        long object = TestSupport.createObject();
        long throwing = Throwing.createServer();
        try (LogCapture log = new LogCapture()) {
            assertTrue(SimFixture.fails("OpcEnv::toIID", () -> ComObjectClient.query(object, "IUnknown"))
                    .getHresult() < 0);
            HresultException missing = SimFixture.fails("IUnknown::QueryInterface",
                    () -> ComObjectClient.query(object, IID_IOPCCOMMON));
            assertTrue(missing.getMessage().contains("0x80004002 (E_NOINTERFACE)"), missing.getMessage());
            // A native exception inside the query never reaches the virtual machine as such.
            assertEquals("ComObjectClient::query", assertThrows(UnexpectedNativeException.class,
                    () -> ComObjectClient.query(throwing, IID_IUNKNOWN)).getMessage());

            assertEquals(0, ComObjectClient.query(0, IID_IUNKNOWN));
            assertEquals(0, ComObjectClient.query(object, null));
            ComObjectClient.release(0);
            assertEquals(1, TestSupport.refCount(object));
            assertEquals(List.of(), log.texts());
        } finally {
            TestSupport.releaseObject(object);
            ComObjectClient.release(throwing);
        }
    }

    @Test
    void withoutHresultExceptionOrOpcEnvTheLibraryFallsBackToTheConsole() {
        // The failed class look-up is what Java sees; the query answered nothing and kept no reference.
        ChildJvm.run(TestSupport.nativeDir(), Set.of(HresultException.class.getName()), "query-missing-interface")
                .assertPrinted("[80004002] IUnknown::QueryInterface", "thrown=java.lang.NoClassDefFoundError",
                        "live=0");
        ChildJvm.run(TestSupport.nativeDir(), Set.of("com.velmora.opc.OpcEnv"), "log-trace")
                .assertPrinted("[OPC trace] OpcDaServer::createLocalServer- server name is null",
                        "thrown=java.lang.NoClassDefFoundError");
    }
}
