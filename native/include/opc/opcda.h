// OPC Data Access 2.0/3.0 custom interfaces, records, enumerations and constants, together
// with OPC Common, OPC Security and the OPC HRESULTs. Methods are in vtable order; records
// have the field order and default packing of the published interfaces.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <ocidl.h>

#include "opc/opccomn.h"
#include "opc/opcerror.h"
#include "opc/opcsec.h"

typedef DWORD OPCHANDLE;

// ---- Component categories --------------------------------------------------------------------

inline const CATID CATID_OPCDAServer10 = {0x63D5F430, 0xCFE4, 0x11D1, {0xB2, 0xC8, 0x00, 0x60, 0x08, 0x3B, 0xA1, 0xFB}};
inline const CATID CATID_OPCDAServer20 = {0x63D5F432, 0xCFE4, 0x11D1, {0xB2, 0xC8, 0x00, 0x60, 0x08, 0x3B, 0xA1, 0xFB}};
inline const CATID CATID_OPCDAServer30 = {0xCC603642, 0x66D7, 0x48F1, {0xB6, 0x9A, 0xB6, 0x25, 0xE7, 0x36, 0x52, 0xD7}};
inline const CATID CATID_XMLDAServer10 = {0x3098EDA4, 0xA006, 0x48B2, {0xA2, 0x7F, 0x24, 0x74, 0x53, 0x95, 0x94, 0x08}};

// ---- Interface identifiers -------------------------------------------------------------------

inline const IID IID_IOPCServer = {0x39C13A4D, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCServerPublicGroups = {0x39C13A4E, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCBrowseServerAddressSpace = {0x39C13A4F, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCGroupStateMgt = {0x39C13A50, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCPublicGroupStateMgt = {0x39C13A51, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCSyncIO = {0x39C13A52, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCAsyncIO = {0x39C13A53, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCItemMgt = {0x39C13A54, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IEnumOPCItemAttributes = {0x39C13A55, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCDataCallback = {0x39C13A70, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCAsyncIO2 = {0x39C13A71, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCItemProperties = {0x39C13A72, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
inline const IID IID_IOPCItemDeadbandMgt = {0x5946DA93, 0x8B39, 0x4EC8, {0xAB, 0x3D, 0xAA, 0x73, 0xDF, 0x5B, 0xC8, 0x6F}};
inline const IID IID_IOPCItemSamplingMgt = {0x3E22D313, 0xF08B, 0x41A5, {0x86, 0xC8, 0x95, 0xE9, 0x5C, 0xB4, 0x9F, 0xFC}};
inline const IID IID_IOPCBrowse = {0x39227004, 0xA18F, 0x4B57, {0x8B, 0x0A, 0x52, 0x35, 0x67, 0x0F, 0x44, 0x68}};
inline const IID IID_IOPCItemIO = {0x85C0B427, 0x2893, 0x4CBC, {0xBD, 0x78, 0xE5, 0xFC, 0x51, 0x46, 0xF0, 0x8F}};
inline const IID IID_IOPCSyncIO2 = {0x730F5F0F, 0x55B1, 0x4C81, {0x9E, 0x18, 0xFF, 0x8A, 0x09, 0x04, 0xE1, 0xFA}};
inline const IID IID_IOPCAsyncIO3 = {0x0967B97B, 0x36EF, 0x423E, {0xB6, 0xF8, 0x6B, 0xFF, 0x1E, 0x40, 0xD3, 0x9D}};
inline const IID IID_IOPCGroupStateMgt2 = {0x8E368666, 0xD72E, 0x4F78, {0x87, 0xED, 0x64, 0x76, 0x11, 0xC6, 0x1C, 0x9F}};
inline const GUID LIBID_OPCDA = {0x3B540B51, 0x0378, 0x4551, {0xAD, 0xCC, 0xEA, 0x9B, 0x10, 0x43, 0x02, 0xBF}};

// ---- Enumerations ------------------------------------------------------------------------------

typedef enum tagOPCDATASOURCE { OPC_DS_CACHE = 1, OPC_DS_DEVICE = 2 } OPCDATASOURCE;

typedef enum tagOPCBROWSETYPE { OPC_BRANCH = 1, OPC_LEAF = 2, OPC_FLAT = 3 } OPCBROWSETYPE;

typedef enum tagOPCNAMESPACETYPE { OPC_NS_HIERARCHIAL = 1, OPC_NS_FLAT = 2 } OPCNAMESPACETYPE;

typedef enum tagOPCBROWSEDIRECTION {
    OPC_BROWSE_UP = 1,
    OPC_BROWSE_DOWN = 2,
    OPC_BROWSE_TO = 3
} OPCBROWSEDIRECTION;

typedef enum tagOPCEUTYPE { OPC_NOENUM = 0, OPC_ANALOG = 1, OPC_ENUMERATED = 2 } OPCEUTYPE;

typedef enum tagOPCSERVERSTATE {
    OPC_STATUS_RUNNING = 1,
    OPC_STATUS_FAILED = 2,
    OPC_STATUS_NOCONFIG = 3,
    OPC_STATUS_SUSPENDED = 4,
    OPC_STATUS_TEST = 5,
    OPC_STATUS_COMM_FAULT = 6
} OPCSERVERSTATE;

typedef enum tagOPCENUMSCOPE {
    OPC_ENUM_PRIVATE_CONNECTIONS = 1,
    OPC_ENUM_PUBLIC_CONNECTIONS = 2,
    OPC_ENUM_ALL_CONNECTIONS = 3,
    OPC_ENUM_PRIVATE = 4,
    OPC_ENUM_PUBLIC = 5,
    OPC_ENUM_ALL = 6
} OPCENUMSCOPE;

typedef enum tagOPCBROWSEFILTER {
    OPC_BROWSE_FILTER_ALL = 1,
    OPC_BROWSE_FILTER_BRANCHES = 2,
    OPC_BROWSE_FILTER_ITEMS = 3
} OPCBROWSEFILTER;

// ---- Access rights, browse flags --------------------------------------------------------------

#define OPC_READABLE 0x1
#define OPC_WRITEABLE 0x2
#define OPC_BROWSE_HASCHILDREN 0x1
#define OPC_BROWSE_ISITEM 0x2

// ---- Quality word: QQSSSSLL in the low byte -----------------------------------------------------

#define OPC_QUALITY_MASK 0xC0
#define OPC_STATUS_MASK 0xFC
#define OPC_LIMIT_MASK 0x03

#define OPC_QUALITY_BAD 0x00
#define OPC_QUALITY_UNCERTAIN 0x40
#define OPC_QUALITY_GOOD 0xC0

#define OPC_QUALITY_CONFIG_ERROR 0x04
#define OPC_QUALITY_NOT_CONNECTED 0x08
#define OPC_QUALITY_DEVICE_FAILURE 0x0C
#define OPC_QUALITY_SENSOR_FAILURE 0x10
#define OPC_QUALITY_LAST_KNOWN 0x14
#define OPC_QUALITY_COMM_FAILURE 0x18
#define OPC_QUALITY_OUT_OF_SERVICE 0x1C
#define OPC_QUALITY_WAITING_FOR_INITIAL_DATA 0x20
#define OPC_QUALITY_LAST_USABLE 0x44
#define OPC_QUALITY_SENSOR_CAL 0x50
#define OPC_QUALITY_EGU_EXCEEDED 0x54
#define OPC_QUALITY_SUB_NORMAL 0x58
#define OPC_QUALITY_LOCAL_OVERRIDE 0xD8

#define OPC_LIMIT_OK 0x00
#define OPC_LIMIT_LOW 0x01
#define OPC_LIMIT_HIGH 0x02
#define OPC_LIMIT_CONST 0x03

// ---- Standard item property identifiers ---------------------------------------------------------

#define OPC_PROPERTY_DATATYPE 1
#define OPC_PROPERTY_VALUE 2
#define OPC_PROPERTY_QUALITY 3
#define OPC_PROPERTY_TIMESTAMP 4
#define OPC_PROPERTY_ACCESS_RIGHTS 5
#define OPC_PROPERTY_SCAN_RATE 6
#define OPC_PROPERTY_EU_TYPE 7
#define OPC_PROPERTY_EU_INFO 8
#define OPC_PROPERTY_EU_UNITS 100
#define OPC_PROPERTY_DESCRIPTION 101
#define OPC_PROPERTY_HIGH_EU 102
#define OPC_PROPERTY_LOW_EU 103
#define OPC_PROPERTY_HIGH_IR 104
#define OPC_PROPERTY_LOW_IR 105
#define OPC_PROPERTY_CLOSE_LABEL 106
#define OPC_PROPERTY_OPEN_LABEL 107
#define OPC_PROPERTY_TIMEZONE 108
#define OPC_PROPERTY_CONDITION_STATUS 300
#define OPC_PROPERTY_ALARM_QUICK_HELP 301
#define OPC_PROPERTY_ALARM_AREA_LIST 302
#define OPC_PROPERTY_PRIMARY_ALARM_AREA 303
#define OPC_PROPERTY_CONDITION_LOGIC 304
#define OPC_PROPERTY_LIMIT_EXCEEDED 305
#define OPC_PROPERTY_DEADBAND 306
#define OPC_PROPERTY_HIHI_LIMIT 307
#define OPC_PROPERTY_HI_LIMIT 308
#define OPC_PROPERTY_LO_LIMIT 309
#define OPC_PROPERTY_LOLO_LIMIT 310
#define OPC_PROPERTY_CHANGE_RATE_LIMIT 311
#define OPC_PROPERTY_DEVIATION_LIMIT 312
#define OPC_PROPERTY_SOUND_FILE 313
#define OPC_PROPERTY_TYPE_SYSTEM_ID 600
#define OPC_PROPERTY_DICTIONARY_ID 601
#define OPC_PROPERTY_TYPE_ID 602
#define OPC_PROPERTY_DICTIONARY 603
#define OPC_PROPERTY_TYPE_DESCRIPTION 604
#define OPC_PROPERTY_CONSISTENCY_WINDOW 605
#define OPC_PROPERTY_WRITE_BEHAVIOR 606
#define OPC_PROPERTY_UNCONVERTED_ITEM_ID 607
#define OPC_PROPERTY_UNFILTERED_ITEM_ID 608
#define OPC_PROPERTY_DATA_FILTER_VALUE 609

// ---- Records ------------------------------------------------------------------------------------

typedef struct tagOPCITEMDEF {
    LPWSTR szAccessPath;
    LPWSTR szItemID;
    BOOL bActive;
    OPCHANDLE hClient;
    DWORD dwBlobSize;
    BYTE* pBlob;
    VARTYPE vtRequestedDataType;
    WORD wReserved;
} OPCITEMDEF;

typedef struct tagOPCITEMRESULT {
    OPCHANDLE hServer;
    VARTYPE vtCanonicalDataType;
    WORD wReserved;
    DWORD dwAccessRights;
    DWORD dwBlobSize;
    BYTE* pBlob;
} OPCITEMRESULT;

typedef struct tagOPCITEMSTATE {
    OPCHANDLE hClient;
    FILETIME ftTimeStamp;
    WORD wQuality;
    WORD wReserved;
    VARIANT vDataValue;
} OPCITEMSTATE;

typedef struct tagOPCSERVERSTATUS {
    FILETIME ftStartTime;
    FILETIME ftCurrentTime;
    FILETIME ftLastUpdateTime;
    OPCSERVERSTATE dwServerState;
    DWORD dwGroupCount;
    DWORD dwBandWidth;
    WORD wMajorVersion;
    WORD wMinorVersion;
    WORD wBuildNumber;
    WORD wReserved;
    LPWSTR szVendorInfo;
} OPCSERVERSTATUS;

typedef struct tagOPCITEMATTRIBUTES {
    LPWSTR szAccessPath;
    LPWSTR szItemID;
    BOOL bActive;
    OPCHANDLE hClient;
    OPCHANDLE hServer;
    DWORD dwAccessRights;
    DWORD dwBlobSize;
    BYTE* pBlob;
    VARTYPE vtRequestedDataType;
    VARTYPE vtCanonicalDataType;
    OPCEUTYPE dwEUType;
    VARIANT vEUInfo;
} OPCITEMATTRIBUTES;

typedef struct tagOPCITEMPROPERTY {
    VARTYPE vtDataType;
    WORD wReserved;
    DWORD dwPropertyID;
    LPWSTR szItemID;
    LPWSTR szDescription;
    VARIANT vValue;
    HRESULT hrErrorID;
    DWORD dwReserved;
} OPCITEMPROPERTY;

typedef struct tagOPCITEMPROPERTIES {
    HRESULT hrErrorID;
    DWORD dwNumProperties;
    OPCITEMPROPERTY* pItemProperties;
    DWORD dwReserved;
} OPCITEMPROPERTIES;

typedef struct tagOPCBROWSEELEMENT {
    LPWSTR szName;
    LPWSTR szItemID;
    DWORD dwFlagValue;
    DWORD dwReserved;
    OPCITEMPROPERTIES ItemProperties;
} OPCBROWSEELEMENT;

typedef struct tagOPCITEMVQT {
    VARIANT vDataValue;
    BOOL bQualitySpecified;
    WORD wQuality;
    WORD wReserved;
    BOOL bTimeStampSpecified;
    DWORD dwReserved;
    FILETIME ftTimeStamp;
} OPCITEMVQT;

// Stream headers of the data-object transport of the first interface generation.
typedef struct tagOPCGROUPHEADER {
    DWORD dwSize;
    DWORD dwItemCount;
    OPCHANDLE hClientGroup;
    DWORD dwTransactionID;
    HRESULT hrStatus;
} OPCGROUPHEADER;

typedef struct tagOPCITEMHEADER1 {
    OPCHANDLE hClient;
    DWORD dwValueOffset;
    WORD wQuality;
    WORD wReserved;
    FILETIME ftTimeStampItem;
} OPCITEMHEADER1;

typedef struct tagOPCITEMHEADER2 {
    OPCHANDLE hClient;
    DWORD dwValueOffset;
    WORD wQuality;
    WORD wReserved;
} OPCITEMHEADER2;

typedef struct tagOPCGROUPHEADERWRITE {
    DWORD dwItemCount;
    OPCHANDLE hClientGroup;
    DWORD dwTransactionID;
    HRESULT hrStatus;
} OPCGROUPHEADERWRITE;

typedef struct tagOPCITEMHEADERWRITE {
    OPCHANDLE hClient;
    HRESULT dwError;
} OPCITEMHEADERWRITE;

// Layouts are part of the wire and vtable contract: check them for the pointer size at hand.
constexpr bool kOpcPtr64 = sizeof(void*) == 8;
static_assert(sizeof(OPCITEMDEF) == (kOpcPtr64 ? 48 : 28), "OPCITEMDEF layout");
static_assert(sizeof(OPCITEMRESULT) == (kOpcPtr64 ? 24 : 20), "OPCITEMRESULT layout");
static_assert(sizeof(OPCITEMSTATE) == (kOpcPtr64 ? 40 : 32), "OPCITEMSTATE layout");
static_assert(sizeof(OPCSERVERSTATUS) == (kOpcPtr64 ? 56 : 48), "OPCSERVERSTATUS layout");
static_assert(sizeof(OPCITEMPROPERTY) == (kOpcPtr64 ? 56 : 40), "OPCITEMPROPERTY layout");
static_assert(sizeof(OPCITEMPROPERTIES) == (kOpcPtr64 ? 24 : 16), "OPCITEMPROPERTIES layout");
static_assert(sizeof(OPCBROWSEELEMENT) == (kOpcPtr64 ? 48 : 32), "OPCBROWSEELEMENT layout");
static_assert(sizeof(OPCITEMATTRIBUTES) == (kOpcPtr64 ? 80 : 56), "OPCITEMATTRIBUTES layout");
static_assert(sizeof(OPCITEMVQT) == (kOpcPtr64 ? 48 : 40), "OPCITEMVQT layout");

// ---- Server-level interfaces --------------------------------------------------------------------

struct IOPCServer : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE AddGroup(LPCWSTR szName, BOOL bActive, DWORD dwRequestedUpdateRate,
                                               OPCHANDLE hClientGroup, LONG* pTimeBias, FLOAT* pPercentDeadband,
                                               DWORD dwLCID, OPCHANDLE* phServerGroup,
                                               DWORD* pRevisedUpdateRate, REFIID riid, LPUNKNOWN* ppUnk) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetErrorString(HRESULT dwError, LCID dwLocale, LPWSTR* ppString) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetGroupByName(LPCWSTR szName, REFIID riid, LPUNKNOWN* ppUnk) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStatus(OPCSERVERSTATUS** ppServerStatus) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveGroup(OPCHANDLE hServerGroup, BOOL bForce) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateGroupEnumerator(OPCENUMSCOPE dwScope, REFIID riid, LPUNKNOWN* ppUnk) = 0;
};

struct IOPCServerPublicGroups : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetPublicGroupByName(LPCWSTR szName, REFIID riid, LPUNKNOWN* ppUnk) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemovePublicGroup(OPCHANDLE hServerGroup, BOOL bForce) = 0;
};

struct IOPCBrowseServerAddressSpace : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryOrganization(OPCNAMESPACETYPE* pNameSpaceType) = 0;
    virtual HRESULT STDMETHODCALLTYPE ChangeBrowsePosition(OPCBROWSEDIRECTION dwBrowseDirection, LPCWSTR szString) = 0;
    virtual HRESULT STDMETHODCALLTYPE BrowseOPCItemIDs(OPCBROWSETYPE dwBrowseFilterType, LPCWSTR szFilterCriteria,
                                                       VARTYPE vtDataTypeFilter, DWORD dwAccessRightsFilter,
                                                       LPENUMSTRING* ppIEnumString) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetItemID(LPWSTR szItemDataID, LPWSTR* szItemID) = 0;
    virtual HRESULT STDMETHODCALLTYPE BrowseAccessPaths(LPCWSTR szItemID, LPENUMSTRING* ppIEnumString) = 0;
};

struct IOPCItemProperties : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryAvailableProperties(LPWSTR szItemID, DWORD* pdwCount,
                                                               DWORD** ppPropertyIDs, LPWSTR** ppDescriptions,
                                                               VARTYPE** ppvtDataTypes) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetItemProperties(LPWSTR szItemID, DWORD dwCount, DWORD* pdwPropertyIDs,
                                                        VARIANT** ppvData, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE LookupItemIDs(LPWSTR szItemID, DWORD dwCount, DWORD* pdwPropertyIDs,
                                                    LPWSTR** ppszNewItemIDs, HRESULT** ppErrors) = 0;
};

struct IOPCBrowse : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetProperties(DWORD dwItemCount, LPWSTR* pszItemIDs,
                                                    BOOL bReturnPropertyValues, DWORD dwPropertyCount,
                                                    DWORD* pdwPropertyIDs,
                                                    OPCITEMPROPERTIES** ppItemProperties) = 0;
    virtual HRESULT STDMETHODCALLTYPE Browse(LPWSTR szItemID, LPWSTR* pszContinuationPoint,
                                             DWORD dwMaxElementsReturned, OPCBROWSEFILTER dwBrowseFilter,
                                             LPWSTR szElementNameFilter, LPWSTR szVendorFilter,
                                             BOOL bReturnAllProperties, BOOL bReturnPropertyValues,
                                             DWORD dwPropertyCount, DWORD* pdwPropertyIDs, BOOL* pbMoreElements,
                                             DWORD* pdwCount, OPCBROWSEELEMENT** ppBrowseElements) = 0;
};

struct IOPCItemIO : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Read(DWORD dwCount, LPCWSTR* pszItemIDs, DWORD* pdwMaxAge,
                                           VARIANT** ppvValues, WORD** ppwQualities,
                                           FILETIME** ppftTimeStamps, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE WriteVQT(DWORD dwCount, LPCWSTR* pszItemIDs, OPCITEMVQT* pItemVQT,
                                               HRESULT** ppErrors) = 0;
};

// ---- Group-level interfaces ---------------------------------------------------------------------

struct IOPCGroupStateMgt : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetState(DWORD* pUpdateRate, BOOL* pActive, LPWSTR* ppName, LONG* pTimeBias,
                                               FLOAT* pPercentDeadband, DWORD* pLCID, OPCHANDLE* phClientGroup,
                                               OPCHANDLE* phServerGroup) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetState(DWORD* pRequestedUpdateRate, DWORD* pRevisedUpdateRate,
                                               BOOL* pActive, LONG* pTimeBias, FLOAT* pPercentDeadband,
                                               DWORD* pLCID, OPCHANDLE* phClientGroup) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetName(LPCWSTR szName) = 0;
    virtual HRESULT STDMETHODCALLTYPE CloneGroup(LPCWSTR szName, REFIID riid, LPUNKNOWN* ppUnk) = 0;
};

struct IOPCGroupStateMgt2 : public IOPCGroupStateMgt {
    virtual HRESULT STDMETHODCALLTYPE SetKeepAlive(DWORD dwKeepAliveTime, DWORD* pdwRevisedKeepAliveTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetKeepAlive(DWORD* pdwKeepAliveTime) = 0;
};

struct IOPCPublicGroupStateMgt : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetState(BOOL* pPublic) = 0;
    virtual HRESULT STDMETHODCALLTYPE MoveToPublic() = 0;
};

struct IOPCSyncIO : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Read(OPCDATASOURCE dwSource, DWORD dwCount, OPCHANDLE* phServer,
                                           OPCITEMSTATE** ppItemValues, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE Write(DWORD dwCount, OPCHANDLE* phServer, VARIANT* pItemValues,
                                            HRESULT** ppErrors) = 0;
};

struct IOPCSyncIO2 : public IOPCSyncIO {
    virtual HRESULT STDMETHODCALLTYPE ReadMaxAge(DWORD dwCount, OPCHANDLE* phServer, DWORD* pdwMaxAge,
                                                 VARIANT** ppvValues, WORD** ppwQualities,
                                                 FILETIME** ppftTimeStamps, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE WriteVQT(DWORD dwCount, OPCHANDLE* phServer, OPCITEMVQT* pItemVQT,
                                               HRESULT** ppErrors) = 0;
};

struct IOPCAsyncIO : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Read(DWORD dwConnection, OPCDATASOURCE dwSource, DWORD dwCount,
                                           OPCHANDLE* phServer, DWORD* pTransactionID, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE Write(DWORD dwConnection, DWORD dwCount, OPCHANDLE* phServer,
                                            VARIANT* pItemValues, DWORD* pTransactionID, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE Refresh(DWORD dwConnection, OPCDATASOURCE dwSource, DWORD* pTransactionID) = 0;
    virtual HRESULT STDMETHODCALLTYPE Cancel(DWORD dwTransactionID) = 0;
};

struct IEnumOPCItemAttributes : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG celt, OPCITEMATTRIBUTES** ppItemArray, ULONG* pceltFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG celt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumOPCItemAttributes** ppEnumItemAttributes) = 0;
};

struct IOPCItemMgt : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE AddItems(DWORD dwCount, OPCITEMDEF* pItemArray, OPCITEMRESULT** ppAddResults,
                                               HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE ValidateItems(DWORD dwCount, OPCITEMDEF* pItemArray, BOOL bBlobUpdate,
                                                    OPCITEMRESULT** ppValidationResults, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE RemoveItems(DWORD dwCount, OPCHANDLE* phServer, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetActiveState(DWORD dwCount, OPCHANDLE* phServer, BOOL bActive,
                                                     HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetClientHandles(DWORD dwCount, OPCHANDLE* phServer, OPCHANDLE* phClient,
                                                       HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetDatatypes(DWORD dwCount, OPCHANDLE* phServer,
                                                   VARTYPE* pRequestedDatatypes, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE CreateEnumerator(REFIID riid, LPUNKNOWN* ppUnk) = 0;
};

struct IOPCAsyncIO2 : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Read(DWORD dwCount, OPCHANDLE* phServer, DWORD dwTransactionID,
                                           DWORD* pdwCancelID, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE Write(DWORD dwCount, OPCHANDLE* phServer, VARIANT* pItemValues,
                                            DWORD dwTransactionID, DWORD* pdwCancelID, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE Refresh2(OPCDATASOURCE dwSource, DWORD dwTransactionID,
                                               DWORD* pdwCancelID) = 0;
    virtual HRESULT STDMETHODCALLTYPE Cancel2(DWORD dwCancelID) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetEnable(BOOL bEnable) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetEnable(BOOL* pbEnable) = 0;
};

struct IOPCAsyncIO3 : public IOPCAsyncIO2 {
    virtual HRESULT STDMETHODCALLTYPE ReadMaxAge(DWORD dwCount, OPCHANDLE* phServer, DWORD* pdwMaxAge,
                                                 DWORD dwTransactionID, DWORD* pdwCancelID, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE WriteVQT(DWORD dwCount, OPCHANDLE* phServer, OPCITEMVQT* pItemVQT,
                                               DWORD dwTransactionID, DWORD* pdwCancelID, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE RefreshMaxAge(DWORD dwMaxAge, DWORD dwTransactionID, DWORD* pdwCancelID) = 0;
};

struct IOPCItemDeadbandMgt : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetItemDeadband(DWORD dwCount, OPCHANDLE* phServer, FLOAT* pPercentDeadband,
                                                      HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetItemDeadband(DWORD dwCount, OPCHANDLE* phServer,
                                                      FLOAT** ppPercentDeadband, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearItemDeadband(DWORD dwCount, OPCHANDLE* phServer, HRESULT** ppErrors) = 0;
};

struct IOPCItemSamplingMgt : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetItemSamplingRate(DWORD dwCount, OPCHANDLE* phServer,
                                                          DWORD* pdwRequestedSamplingRate,
                                                          DWORD** ppdwRevisedSamplingRate, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetItemSamplingRate(DWORD dwCount, OPCHANDLE* phServer,
                                                          DWORD** ppdwSamplingRate, HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearItemSamplingRate(DWORD dwCount, OPCHANDLE* phServer,
                                                            HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetItemBufferEnable(DWORD dwCount, OPCHANDLE* phServer, BOOL* pbEnable,
                                                          HRESULT** ppErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetItemBufferEnable(DWORD dwCount, OPCHANDLE* phServer, BOOL** ppbEnable,
                                                          HRESULT** ppErrors) = 0;
};

// ---- The client's data sink, connected at a group's connection point ---------------------------

struct IOPCDataCallback : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnDataChange(DWORD dwTransid, OPCHANDLE hGroup, HRESULT hrMasterquality,
                                                   HRESULT hrMastererror, DWORD dwCount, OPCHANDLE* phClientItems,
                                                   VARIANT* pvValues, WORD* pwQualities, FILETIME* pftTimeStamps,
                                                   HRESULT* pErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnReadComplete(DWORD dwTransid, OPCHANDLE hGroup, HRESULT hrMasterquality,
                                                     HRESULT hrMastererror, DWORD dwCount, OPCHANDLE* phClientItems,
                                                     VARIANT* pvValues, WORD* pwQualities, FILETIME* pftTimeStamps,
                                                     HRESULT* pErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnWriteComplete(DWORD dwTransid, OPCHANDLE hGroup, HRESULT hrMastererr,
                                                      DWORD dwCount, OPCHANDLE* pClienthandles, HRESULT* pErrors) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnCancelComplete(DWORD dwTransid, OPCHANDLE hGroup) = 0;
};
