package com.velmora.opc.client;

/** One server found by discovery on a host. */
public final class BOpcDeviceDiscoveryResult {
    private final String description;
    private final String clsid;
    private final String progId;
    private final String versionIndependentProgId;
    private final String host;
    private final String category;

    public BOpcDeviceDiscoveryResult(String description, String clsid, String progId,
            String versionIndependentProgId, String host, String category) {
        this.description = description;
        this.clsid = clsid;
        this.progId = progId;
        this.versionIndependentProgId = versionIndependentProgId;
        this.host = host;
        this.category = category;
    }

    /** The server class's user type name, or null. */
    public String getDescription() {
        return description;
    }

    /** Braced upper-case CLSID text. */
    public String getClsid() {
        return clsid;
    }

    public String getProgId() {
        return progId;
    }

    public String getVersionIndependentProgId() {
        return versionIndependentProgId;
    }

    public String getHost() {
        return host;
    }

    public String getCategory() {
        return category;
    }

    @Override
    public String toString() {
        return "BOpcDeviceDiscoveryResult[" + progId + " " + clsid + " \"" + description + "\" on " + host + "]";
    }
}
