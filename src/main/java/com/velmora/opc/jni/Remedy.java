package com.velmora.opc.jni;

import java.util.Map;

/**
 * What a failure code means to someone running an OPC client, in plain words, and what to try.
 * Known for the failures such users meet most: a server that is not registered, access denied,
 * a host that cannot be reached, an unknown item, a value of the wrong type, and the OPC
 * proxy/stub libraries missing.
 *
 * @param problem what happened, e.g. "the server is not registered on this host"
 * @param advice what to try, e.g. "list the servers on the host and check the ProgID"
 */
public record Remedy(String problem, String advice) {

    private static final Remedy NOT_REGISTERED = new Remedy(
            "no server is registered under that name or CLSID on this host",
            "list the servers registered on the host (opc servers, with --host for another host) and check "
                    + "the ProgID or CLSID for typing errors; a server installed for another user or bitness "
                    + "may need registering again");
    private static final Remedy ACCESS_DENIED = new Remedy(
            "the server or its host refused access to this user",
            "check the DCOM access and launch permissions for this user on the server's host (and on this "
                    + "host for the server's callbacks); a remote host must know the user or a matching local "
                    + "account with the same password");
    private static final Remedy UNREACHABLE = new Remedy(
            "the server's host could not be reached over DCOM",
            "check the host name and that the host is up and reachable; its firewall must let DCOM through "
                    + "(TCP port 135 and the dynamic RPC ports), and remote activation must be enabled there");
    private static final Remedy UNKNOWN_ITEM = new Remedy(
            "the server knows no item by that id",
            "browse the server's address space (opc browse --recursive) for the exact item id; ids are "
                    + "case-sensitive on many servers");
    private static final Remedy BAD_TYPE = new Remedy(
            "the value does not convert to the item's data type",
            "check the item's type (opc browse or opc properties) and write a value of that type; arrays are "
                    + "written as comma-separated elements");
    private static final Remedy OUT_OF_RANGE = new Remedy(
            "the value is out of the item's range, or is no value of the item's type",
            "check the item's type and limits (opc browse or opc properties) and write a value within them");
    private static final Remedy NO_PROXY = new Remedy(
            "an OPC interface could not be reached: the OPC proxy/stub libraries (opcproxy.dll, "
                    + "opccomn_ps.dll) are missing or not registered, or the server does not offer it",
            "install the OPC proxy/stub libraries on both hosts and register them (regsvr32 opcproxy.dll "
                    + "opccomn_ps.dll); they come with the server's redistributable");
    private static final Remedy NOT_STARTED = new Remedy(
            "the server is registered but could not be started or loaded",
            "start the server by hand to see its own error, and reinstall or re-register it");
    private static final Remedy BAD_RIGHTS = new Remedy(
            "the item's access rights do not allow this operation",
            "check with opc browse whether the item is readable or writable");
    private static final Remedy UNKNOWN_PATH = new Remedy(
            "the server knows no branch by that name",
            "browse from the root (opc browse) and follow the branch names it shows");

    private static final Map<Integer, Remedy> BY_CODE = Map.ofEntries(
            Map.entry(0x80040154, NOT_REGISTERED), // REGDB_E_CLASSNOTREG
            Map.entry(0x800401F3, NOT_REGISTERED), // CO_E_CLASSSTRING
            Map.entry(0x800401F5, NOT_REGISTERED), // CO_E_APPNOTFOUND
            Map.entry(0x80070005, ACCESS_DENIED), // E_ACCESSDENIED
            Map.entry(0xC0040302, ACCESS_DENIED), // OPC_E_LOW_IMPERS_LEVEL
            Map.entry(0x800706BA, UNREACHABLE), // RPC_S_SERVER_UNAVAILABLE
            Map.entry(0x800706BE, UNREACHABLE), // RPC_S_CALL_FAILED
            Map.entry(0x800706BF, UNREACHABLE), // RPC_S_CALL_FAILED_DNE
            Map.entry(0xC0040007, UNKNOWN_ITEM), // OPC_E_UNKNOWNITEMID
            Map.entry(0xC0040008, UNKNOWN_ITEM), // OPC_E_INVALIDITEMID
            Map.entry(0xC0040004, BAD_TYPE), // OPC_E_BADTYPE
            Map.entry(0x80020005, BAD_TYPE), // DISP_E_TYPEMISMATCH
            Map.entry(0x8002000A, BAD_TYPE), // DISP_E_OVERFLOW
            Map.entry(0xC004000B, OUT_OF_RANGE), // OPC_E_RANGE
            Map.entry(0x80004002, NO_PROXY), // E_NOINTERFACE
            Map.entry(0x80040155, NO_PROXY), // REGDB_E_IIDNOTREG
            Map.entry(0x80080005, NOT_STARTED), // CO_E_SERVER_EXEC_FAILURE
            Map.entry(0x800401FE, NOT_STARTED), // CO_E_APPDIDNTREG
            Map.entry(0x800401F8, NOT_STARTED), // CO_E_DLLNOTFOUND
            Map.entry(0x800401F9, NOT_STARTED), // CO_E_ERRORINDLL
            Map.entry(0x8007007E, NOT_STARTED), // ERROR_MOD_NOT_FOUND
            Map.entry(0x80040111, NOT_STARTED), // CLASS_E_CLASSNOTAVAILABLE
            Map.entry(0xC0040006, BAD_RIGHTS), // OPC_E_BADRIGHTS
            Map.entry(0xC004000A, UNKNOWN_PATH)); // OPC_E_UNKNOWNPATH

    /** The remedy for a failure code, or null when there is none for it. */
    public static Remedy forCode(int hresult) {
        return BY_CODE.get(hresult);
    }
}
