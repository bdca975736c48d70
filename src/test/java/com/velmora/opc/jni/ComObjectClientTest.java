package com.velmora.opc.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.velmora.opc.testsupport.ChildJvm;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.TestSupport;
import java.util.Set;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

@ExtendWith(LedgerCheck.class)
class ComObjectClientTest {

    @Test
    void queryHandsOutOneNewReferenceAndReleaseGivesItBack() {
        long object = TestSupport.createObject(TestSupport.IID_IOPCSERVER);
        try {
            assertEquals(1, TestSupport.refCount(object));
            long unknown = ComObjectClient.query(object, TestSupport.IID_IUNKNOWN);
            long server = ComObjectClient.query(object, TestSupport.IID_IOPCSERVER.toLowerCase());
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
    void queryFailuresRaiseHresultExceptionAndAddNoReference() {
        long object = TestSupport.createObject();
        try (LogCapture log = new LogCapture()) {
            HresultException notGuid = assertThrows(HresultException.class,
                    () -> ComObjectClient.query(object, "IUnknown"));
            assertEquals("OpcEnv::toIID", notGuid.getOperation());
            assertTrue(notGuid.getHresult() < 0);

            HresultException missing = assertThrows(HresultException.class,
                    () -> ComObjectClient.query(object, TestSupport.IID_IOPCCOMMON));
            assertEquals(0x80004002, missing.getHresult());
            assertEquals("IUnknown::QueryInterface", missing.getOperation());
            assertTrue(missing.getMessage().contains("0x80004002 (E_NOINTERFACE)"), missing.getMessage());

            assertEquals(1, TestSupport.refCount(object));
            assertEquals(java.util.List.of(), log.texts());
        } finally {
            TestSupport.releaseObject(object);
        }
    }

    @Test
    void absentHandleOrIidIsSilentAndReleaseOfNothingDoesNothing() {
        long object = TestSupport.createObject();
        try (LogCapture log = new LogCapture()) {
            assertEquals(0, ComObjectClient.query(0, TestSupport.IID_IUNKNOWN));
            assertEquals(0, ComObjectClient.query(object, null));
            ComObjectClient.release(0);
            assertEquals(1, TestSupport.refCount(object));
            assertEquals(java.util.List.of(), log.texts());
        } finally {
            TestSupport.releaseObject(object);
        }
    }

    @Test
    void withoutHresultExceptionTheFailureGoesToTheConsole() {
        ChildJvm.Result child = ChildJvm.run("query-missing-interface",
                Set.of(HresultException.class.getName()));
        assertTrue(child.printed("[80004002] IUnknown::QueryInterface"), child.output());
        // The failed class look-up is what Java sees; the query answered nothing and kept no reference.
        assertTrue(child.printed("thrown=java.lang.NoClassDefFoundError"), child.output());
        assertTrue(child.printed("live=0"), child.output());
    }

    @Test
    void withoutOpcEnvTheLogSinksFallBackToTheConsole() {
        ChildJvm.Result child = ChildJvm.run("log-trace", Set.of("com.velmora.opc.OpcEnv"));
        assertTrue(child.printed("[OPC trace] OpcDaServer::createLocalServer- server name is null"), child.output());
        // The failed look-up of OpcEnv is what Java sees after the native returns.
        assertTrue(child.printed("thrown=java.lang.NoClassDefFoundError"), child.output());
    }
}
