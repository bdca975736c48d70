package com.velmora.opc.jni;

import java.util.Map;

/**
 * A COM, OLE or OPC call answered with a failure code. Carries the HRESULT's 32 bits unchanged and
 * the operation that failed, e.g. "IOPCServer::AddGroup".
 */
public class HresultException extends RuntimeException {
    private static final long serialVersionUID = 1L;

    private static final Map<Integer, String> NAMES = Map.ofEntries(
            Map.entry(0x80004001, "E_NOTIMPL"),
            Map.entry(0x80004002, "E_NOINTERFACE"),
            Map.entry(0x80004003, "E_POINTER"),
            Map.entry(0x80004004, "E_ABORT"),
            Map.entry(0x80004005, "E_FAIL"),
            Map.entry(0x80004021, "CO_E_NOT_SUPPORTED"),
            Map.entry(0x8000FFFF, "E_UNEXPECTED"),
            Map.entry(0x80070005, "E_ACCESSDENIED"),
            Map.entry(0x80070006, "E_HANDLE"),
            Map.entry(0x8007000E, "E_OUTOFMEMORY"),
            Map.entry(0x80070057, "E_INVALIDARG"),
            Map.entry(0x8007007E, "ERROR_MOD_NOT_FOUND"),
            Map.entry(0x800706BA, "RPC_S_SERVER_UNAVAILABLE"),
            Map.entry(0x800706BE, "RPC_S_CALL_FAILED"),
            Map.entry(0x800706BF, "RPC_S_CALL_FAILED_DNE"),
            Map.entry(0x80010106, "RPC_E_CHANGED_MODE"),
            Map.entry(0x8001010E, "RPC_E_WRONG_THREAD"),
            Map.entry(0x80010119, "RPC_E_TOO_LATE"),
            Map.entry(0x8001011A, "RPC_E_NO_GOOD_SECURITY_PACKAGES"),
            Map.entry(0x80020005, "DISP_E_TYPEMISMATCH"),
            Map.entry(0x80020008, "DISP_E_BADVARTYPE"),
            Map.entry(0x8002000A, "DISP_E_OVERFLOW"),
            Map.entry(0x8002000B, "DISP_E_BADINDEX"),
            Map.entry(0x8002000D, "DISP_E_ARRAYISLOCKED"),
            Map.entry(0x80040110, "CLASS_E_NOAGGREGATION"),
            Map.entry(0x80040111, "CLASS_E_CLASSNOTAVAILABLE"),
            Map.entry(0x80040150, "REGDB_E_READREGDB"),
            Map.entry(0x80040152, "REGDB_E_KEYMISSING"),
            Map.entry(0x80040154, "REGDB_E_CLASSNOTREG"),
            Map.entry(0x80040155, "REGDB_E_IIDNOTREG"),
            Map.entry(0x80040200, "CONNECT_E_NOCONNECTION"),
            Map.entry(0x80040201, "CONNECT_E_ADVISELIMIT"),
            Map.entry(0x80040202, "CONNECT_E_CANNOTCONNECT"),
            Map.entry(0x800401F0, "CO_E_NOTINITIALIZED"),
            Map.entry(0x800401F1, "CO_E_ALREADYINITIALIZED"),
            Map.entry(0x800401F3, "CO_E_CLASSSTRING"),
            Map.entry(0x800401F4, "CO_E_IIDSTRING"),
            Map.entry(0x800401F5, "CO_E_APPNOTFOUND"),
            Map.entry(0x800401F8, "CO_E_DLLNOTFOUND"),
            Map.entry(0x800401F9, "CO_E_ERRORINDLL"),
            Map.entry(0x800401FE, "CO_E_APPDIDNTREG"),
            Map.entry(0x80080005, "CO_E_SERVER_EXEC_FAILURE"),
            Map.entry(0xC0040001, "OPC_E_INVALIDHANDLE"),
            Map.entry(0xC0040004, "OPC_E_BADTYPE"),
            Map.entry(0xC0040005, "OPC_E_PUBLIC"),
            Map.entry(0xC0040006, "OPC_E_BADRIGHTS"),
            Map.entry(0xC0040007, "OPC_E_UNKNOWNITEMID"),
            Map.entry(0xC0040008, "OPC_E_INVALIDITEMID"),
            Map.entry(0xC0040009, "OPC_E_INVALIDFILTER"),
            Map.entry(0xC004000A, "OPC_E_UNKNOWNPATH"),
            Map.entry(0xC004000B, "OPC_E_RANGE"),
            Map.entry(0xC004000C, "OPC_E_DUPLICATENAME"),
            Map.entry(0xC0040010, "OPC_E_INVALIDCONFIGFILE"),
            Map.entry(0xC0040011, "OPC_E_NOTFOUND"),
            Map.entry(0xC0040203, "OPC_E_INVALID_PID"),
            Map.entry(0xC0040301, "OPC_E_PRIVATE_ACTIVE"),
            Map.entry(0xC0040302, "OPC_E_LOW_IMPERS_LEVEL"),
            Map.entry(0xC0040303, "OPC_S_LOW_AUTHN_LEVEL"),
            Map.entry(0xC0040400, "OPC_E_DEADBANDNOTSET"),
            Map.entry(0xC0040401, "OPC_E_DEADBANDNOTSUPPORTED"),
            Map.entry(0xC0040402, "OPC_E_NOBUFFERING"),
            Map.entry(0xC0040403, "OPC_E_INVALIDCONTINUATIONPOINT"),
            Map.entry(0xC0040405, "OPC_E_RATENOTSET"),
            Map.entry(0xC0040406, "OPC_E_NOTSUPPORTED"),
            Map.entry(0x00000001, "S_FALSE"),
            Map.entry(0x0004000D, "OPC_S_UNSUPPORTEDRATE"),
            Map.entry(0x0004000E, "OPC_S_CLAMP"),
            Map.entry(0x0004000F, "OPC_S_INUSE"),
            Map.entry(0x00040404, "OPC_S_DATAQUEUEOVERFLOW"));

    private final int hresult;
    private final String operation;

    public HresultException(int hresult, String operation) {
        super(describe(hresult) + " from " + operation);
        this.hresult = hresult;
        this.operation = operation;
    }

    /** The HRESULT's 32 bits; failures are negative. */
    public int getHresult() {
        return hresult;
    }

    /** The call that failed, e.g. "IUnknown::QueryInterface". */
    public String getOperation() {
        return operation;
    }

    /**
     * What the failure means to someone running a client and what to try, or null when the code is
     * not one of the failures with a known remedy.
     */
    public Remedy remedy() {
        return Remedy.forCode(hresult);
    }

    /** The symbolic name of the code, or null when it is not a known one. */
    public String getSymbolicName() {
        return symbolicName(hresult);
    }

    public static String symbolicName(int hresult) {
        if (hresult == 0) return "S_OK";
        return NAMES.get(hresult);
    }

    /** "0x80004005 (E_FAIL)", or the hex alone for an unknown code. */
    public static String describe(int hresult) {
        String hex = String.format("0x%08X", hresult);
        String name = symbolicName(hresult);
        return name == null ? hex : hex + " (" + name + ")";
    }
}
