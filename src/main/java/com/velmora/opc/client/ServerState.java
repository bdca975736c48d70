package com.velmora.opc.client;

/** The state a server reports in its status. */
public enum ServerState {
    RUNNING(1, "running"),
    FAILED(2, "failed"),
    NO_CONFIG(3, "no configuration"),
    SUSPENDED(4, "suspended"),
    TEST(5, "test"),
    COMM_FAULT(6, "communication fault"),
    UNKNOWN(0, "unknown");

    private final int code;
    private final String words;

    ServerState(int code, String words) {
        this.code = code;
        this.words = words;
    }

    public int code() {
        return code;
    }

    public String words() {
        return words;
    }

    public static ServerState of(int code) {
        for (ServerState state : values()) {
            if (state.code == code) return state;
        }
        return UNKNOWN;
    }
}
