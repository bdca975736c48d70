package com.velmora.opc.jni;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;

import com.velmora.opc.OpcEnv;
import com.velmora.opc.OpcException;
import com.velmora.opc.jni.client.da.OpcDaServer;
import com.velmora.opc.jni.client.da.OpcSyncIo;
import com.velmora.opc.jni.client.da.UpdateReceiver;
import com.velmora.opc.testsupport.LedgerCheck;
import com.velmora.opc.testsupport.LogCapture;
import com.velmora.opc.testsupport.TestSupport;
import com.velmora.opc.testsupport.Throwing;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/** A native exception inside a native's work never reaches the virtual machine as such. */
@ExtendWith(LedgerCheck.class)
class NativeExceptionTest {
    private static final UpdateReceiver NOTHING = new UpdateReceiver() {
        @Override public void updateNumeric(int h, double v, long t, int q, int e, boolean s) {}
        @Override public void updateBoolean(int h, boolean v, long t, int q, int e, boolean s) {}
        @Override public void updateString(int h, String v, long t, int q, int e, boolean s) {}
        @Override public void updateError(int h, long t, int q, int e, boolean s) {}
    };

    @Test
    void framesTurnNativeExceptionsIntoTheirJavaExceptions() {
        OpcEnv.initThread();
        long server = Throwing.createServer();
        try (LogCapture log = new LogCapture()) {
            UnexpectedNativeException query = assertThrows(UnexpectedNativeException.class,
                    () -> ComObjectClient.query(server, TestSupport.IID_IUNKNOWN));
            assertEquals("ComObjectClient::query", query.getMessage());

            UnexpectedNativeException status = assertThrows(UnexpectedNativeException.class,
                    () -> OpcDaServer.getStatus(server, new Object()));
            assertEquals("OpcDaServer::getStatus", status.getMessage());

            UnexpectedNativeException group = assertThrows(UnexpectedNativeException.class,
                    () -> OpcDaServer.addGroup(server, "g", true, 1000, 1, 0, 0f, 1033));
            assertEquals("OpcDaServer::addGroup", group.getMessage());

            // removeGroup answers with a catch-all of its own, under another name.
            UnexpectedNativeException remove = assertThrows(UnexpectedNativeException.class,
                    () -> OpcDaServer.removeGroup(server, 1, false));
            assertEquals("OpcDaServer::RemoveGroup", remove.getMessage());

            // The synchronous read reports through the log only.
            long syncIo = Throwing.syncIo(server);
            assertNotEquals(0, syncIo);
            OpcSyncIo.read(syncIo, new int[] {1}, true, NOTHING);
            ComObjectClient.release(syncIo);
            assertEquals(List.of("Unexpected exception in SyncIo2::Read."), log.texts());
        } finally {
            ComObjectClient.release(server);
        }
    }

    @Test
    void serverCreationReportsOpcException() {
        OpcEnv.initThread();
        String clsid = "{5C0E3B1A-7D2F-4E69-9A85-0B1C2D3E4F50}";
        int cookie = Throwing.registerFactory(clsid);
        assertNotEquals(0, cookie);
        try {
            OpcException created = assertThrows(OpcException.class, () -> OpcDaServer.createLocalServer(clsid));
            assertEquals("Unexpected Native Exception", created.getMessage());
        } finally {
            Throwing.revokeFactory(cookie);
        }
    }
}
