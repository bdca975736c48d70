package com.velmora.opc.client;

import com.velmora.opc.jni.HresultException;

/** The failures by which COM tells that a server, or the way to it, has gone. */
final class Disconnection {
    static final int RPC_E_DISCONNECTED = 0x80010108;
    static final int RPC_E_SERVER_DIED = 0x80010007;
    static final int RPC_E_SERVER_DIED_DNE = 0x80010012;
    static final int CO_E_OBJNOTCONNECTED = 0x800401FD;
    static final int RPC_S_SERVER_UNAVAILABLE = 0x800706BA;
    static final int RPC_S_CALL_FAILED = 0x800706BE;
    static final int RPC_S_CALL_FAILED_DNE = 0x800706BF;

    private Disconnection() {}

    static boolean is(int hresult) {
        return switch (hresult) {
            case RPC_E_DISCONNECTED, RPC_E_SERVER_DIED, RPC_E_SERVER_DIED_DNE, CO_E_OBJNOTCONNECTED,
                    RPC_S_SERVER_UNAVAILABLE, RPC_S_CALL_FAILED, RPC_S_CALL_FAILED_DNE -> true;
            default -> false;
        };
    }

    static boolean is(Throwable failure) {
        return failure instanceof HresultException e && is(e.getHresult());
    }
}
