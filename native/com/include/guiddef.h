// GUID, IID and CLSID with the C++ reference forms REFIID / REFCLSID.
#pragma once

#include <minwindef.h>
#include <string.h>

typedef struct _GUID {
    DWORD Data1;
    unsigned short Data2;
    unsigned short Data3;
    unsigned char Data4[8];
} GUID;

typedef GUID IID;
typedef GUID CLSID;
typedef GUID FMTID;
typedef GUID* LPGUID;
typedef const GUID* LPCGUID;
typedef IID* LPIID;
typedef CLSID* LPCLSID;

#ifdef __cplusplus
#define REFGUID const GUID&
#define REFIID const IID&
#define REFCLSID const CLSID&
#define REFFMTID const FMTID&

inline int IsEqualGUID(REFGUID a, REFGUID b) { return memcmp(&a, &b, sizeof(GUID)) == 0; }
inline bool operator==(REFGUID a, REFGUID b) { return IsEqualGUID(a, b) != 0; }
inline bool operator!=(REFGUID a, REFGUID b) { return !(a == b); }
#else
#define REFGUID const GUID*
#define REFIID const IID*
#define REFCLSID const CLSID*
#define IsEqualGUID(a, b) (!memcmp(a, b, sizeof(GUID)))
#endif
#define IsEqualIID(a, b) IsEqualGUID(a, b)
#define IsEqualCLSID(a, b) IsEqualGUID(a, b)
#define InlineIsEqualGUID(a, b) IsEqualGUID(a, b)

// DEFINE_GUID declares the name, or defines it in the one translation unit that defines INITGUID.
#undef DEFINE_GUID
#ifdef INITGUID
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
    EXTERN_C const GUID DECLSPEC_SELECTANY name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}
#else
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) EXTERN_C const GUID name
#endif

EXTERN_C DECLSPEC_IMPORT const GUID GUID_NULL;
#define IID_NULL GUID_NULL
#define CLSID_NULL GUID_NULL
#define CATID_NULL GUID_NULL
