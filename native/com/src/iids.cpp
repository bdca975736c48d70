// Identifiers of the standard interfaces, defined once for every module of the process.
#include "internal.h"

#include <ocidl.h>

#define STD_OLE_GUID(name, l) \
    const IID name = {l, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}
#define CONNECTION_GUID(name, l) \
    const IID name = {l, 0xBAB4, 0x101A, {0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07}}

const GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
STD_OLE_GUID(IID_IUnknown, 0x00000000);
STD_OLE_GUID(IID_IClassFactory, 0x00000001);
STD_OLE_GUID(IID_IMalloc, 0x00000002);
STD_OLE_GUID(IID_IEnumUnknown, 0x00000100);
STD_OLE_GUID(IID_IEnumString, 0x00000101);
STD_OLE_GUID(IID_IClientSecurity, 0x0000013D);
STD_OLE_GUID(IID_IDispatch, 0x00020400);
STD_OLE_GUID(IID_IEnumGUID, 0x0002E000);
CONNECTION_GUID(IID_IConnectionPointContainer, 0xB196B284);
CONNECTION_GUID(IID_IEnumConnectionPoints, 0xB196B285);
CONNECTION_GUID(IID_IConnectionPoint, 0xB196B286);
CONNECTION_GUID(IID_IEnumConnections, 0xB196B287);
