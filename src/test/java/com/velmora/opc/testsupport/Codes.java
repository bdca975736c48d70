package com.velmora.opc.testsupport;

/** Interface identifiers, HRESULTs and VARTYPEs the tests pass to the natives or expect back. */
public final class Codes {
    public static final String IID_IUNKNOWN = "{00000000-0000-0000-C000-000000000046}";
    public static final String IID_IOPCSERVER = "{39C13A4D-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCCOMMON = "{F31DFDE2-07B6-11D2-B2D8-0060083BA1FB}";
    public static final String IID_IOPCITEMMGT = "{39C13A54-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCSYNCIO = "{39C13A52-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCASYNCIO2 = "{39C13A71-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCGROUPSTATEMGT = "{39C13A50-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCITEMPROPERTIES = "{39C13A72-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCBROWSESERVERADDRESSSPACE = "{39C13A4F-011E-11D0-9675-0020AFD8ADB3}";
    public static final String IID_IOPCBROWSE = "{39227004-A18F-4B57-8B0A-5235670F4468}";
    public static final String IID_IOPCSECURITYNT = "{7AA83A01-6C77-11D3-84F9-00008630A38B}";
    public static final String IID_IOPCSECURITYPRIVATE = "{7AA83A02-6C77-11D3-84F9-00008630A38B}";
    public static final String CATID_OPCDASERVER20 = "{63D5F432-CFE4-11D1-B2C8-0060083BA1FB}";

    public static final int S_FALSE = 1;
    public static final int E_FAIL = 0x80004005;
    public static final int E_NOINTERFACE = 0x80004002;
    public static final int RPC_E_DISCONNECTED = 0x80010108;
    public static final int E_INVALIDARG = 0x80070057;
    public static final int E_ACCESSDENIED = 0x80070005;
    public static final int CONNECT_E_NOCONNECTION = 0x80040200;
    public static final int CONNECT_E_ADVISELIMIT = 0x80040201;
    public static final int REGDB_E_CLASSNOTREG = 0x80040154;
    public static final int RPC_S_SERVER_UNAVAILABLE = 0x800706BA;
    public static final int RPC_X_NULL_REF_POINTER = 0x800706F4;
    public static final int OPC_E_INVALIDHANDLE = 0xC0040001;
    public static final int OPC_E_BADTYPE = 0xC0040004;
    public static final int OPC_E_BADRIGHTS = 0xC0040006;
    public static final int OPC_E_UNKNOWNITEMID = 0xC0040007;
    public static final int OPC_E_RANGE = 0xC004000B;

    public static final int VT_I2 = 2;
    public static final int VT_I4 = 3;
    public static final int VT_R8 = 5;
    public static final int VT_DATE = 7;
    public static final int VT_BSTR = 8;
    public static final int VT_BOOL = 11;
    public static final int VT_ARRAY = 0x2000;

    private Codes() {}
}
