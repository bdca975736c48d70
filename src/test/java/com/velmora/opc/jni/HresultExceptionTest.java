package com.velmora.opc.jni;

import static org.junit.jupiter.api.Assertions.*;

import org.junit.jupiter.api.Test;

class HresultExceptionTest {

    @Test
    void messageNamesCodeInHexWithSymbolWhenKnown() {
        HresultException known = new HresultException(-2147467259, "IOPCServer::AddGroup");
        assertEquals(0x80004005, known.getHresult());
        assertEquals("IOPCServer::AddGroup", known.getOperation());
        assertEquals("0x80004005 (E_FAIL) from IOPCServer::AddGroup", known.getMessage());
        assertEquals("E_FAIL", known.getSymbolicName());

        HresultException opc = new HresultException(-1073479673, "IOPCSyncIO::Read");
        assertEquals("0xC0040007 (OPC_E_UNKNOWNITEMID) from IOPCSyncIO::Read", opc.getMessage());

        HresultException unknown = new HresultException(0x80001235, "CoGetClassObject");
        assertEquals("0x80001235 from CoGetClassObject", unknown.getMessage());
        assertNull(unknown.getSymbolicName());
    }

    @Test
    void theCommonFailuresCarryARemedyAndOthersNone() {
        for (int code : new int[] {0x80040154, 0x800401F3, 0x80070005, 0x800706BA, 0xC0040007, 0xC0040004, 0x80040155}) {
            Remedy remedy = new HresultException(code, "CoCreateInstanceEx").remedy();
            assertNotNull(remedy, HresultException.describe(code));
            assertFalse(remedy.problem().isBlank() || remedy.advice().isBlank(), remedy::toString);
        }
        assertTrue(Remedy.forCode(0x80040155).advice().contains("opcproxy.dll"));
        assertNull(new HresultException(0x80004005, "IOPCServer::AddGroup").remedy());
    }
}
