package com.velmora.opc.client;

/** Interface ids in the braced text form that ComObjectClient.query takes. */
final class Iids {
    static final String IUNKNOWN = "{00000000-0000-0000-C000-000000000046}";
    static final String IOPC_COMMON = "{F31DFDE2-07B6-11D2-B2D8-0060083BA1FB}";
    static final String IOPC_ITEM_MGT = "{39C13A54-011E-11D0-9675-0020AFD8ADB3}";
    static final String IOPC_SYNC_IO = "{39C13A52-011E-11D0-9675-0020AFD8ADB3}";
    static final String IOPC_ASYNC_IO2 = "{39C13A71-011E-11D0-9675-0020AFD8ADB3}";
    static final String IOPC_BROWSE = "{39227004-A18F-4B57-8B0A-5235670F4468}";
    static final String IOPC_BROWSE_SERVER_ADDRESS_SPACE = "{39C13A4F-011E-11D0-9675-0020AFD8ADB3}";
    static final String IOPC_SECURITY_NT = "{7AA83A01-6C77-11D3-84F9-00008630A38B}";
    static final String IOPC_SECURITY_PRIVATE = "{7AA83A02-6C77-11D3-84F9-00008630A38B}";
    static final String IOPC_ITEM_PROPERTIES = "{39C13A72-011E-11D0-9675-0020AFD8ADB3}";
    static final String IOPC_GROUP_STATE_MGT = "{39C13A50-011E-11D0-9675-0020AFD8ADB3}";

    private Iids() {}
}
