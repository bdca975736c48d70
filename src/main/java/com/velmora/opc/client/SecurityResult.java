package com.velmora.opc.client;

/** What a server answered to a change of the identity its client works under. */
public enum SecurityResult {
    /** The server took the identity. */
    OK,
    /** E_FAIL. */
    FAILED,
    /** E_ACCESSDENIED: the server rejected the credentials. */
    ACCESS_DENIED,
    /** OPC_E_PRIVATE_ACTIVE: a private logon is active. */
    PRIVATE_ACTIVE,
    /** OPC_E_LOW_IMPERS_LEVEL: the server needs a higher impersonation level. */
    LOW_IMPERSONATION_LEVEL,
    /** OPC_S_LOW_AUTHN_LEVEL: the server expected packet privacy. */
    LOW_AUTHENTICATION_LEVEL,
    /** Any other answer, or credentials missing. */
    OTHER;

    static SecurityResult ofChangeUser(long status) {
        return switch ((int) status) {
            case 0 -> OK;
            case -2 -> FAILED;
            case -3 -> PRIVATE_ACTIVE;
            case -4 -> LOW_IMPERSONATION_LEVEL;
            case -5 -> ACCESS_DENIED;
            default -> OTHER;
        };
    }

    static SecurityResult ofLogon(long status) {
        return switch ((int) status) {
            case 0 -> OK;
            case -2 -> FAILED;
            case -3 -> ACCESS_DENIED;
            case -4 -> LOW_AUTHENTICATION_LEVEL;
            case -5 -> LOW_IMPERSONATION_LEVEL;
            default -> OTHER;
        };
    }
}
