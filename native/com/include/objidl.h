// Object interfaces: enumerators, task allocator, client security, server information records.
#pragma once

#include <unknwn.h>

EXTERN_C DECLSPEC_IMPORT const IID IID_IEnumString;
EXTERN_C DECLSPEC_IMPORT const IID IID_IEnumUnknown;
EXTERN_C DECLSPEC_IMPORT const IID IID_IClientSecurity;
EXTERN_C DECLSPEC_IMPORT const IID IID_IMalloc;

struct IEnumUnknown : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG celt, IUnknown** rgelt, ULONG* pceltFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG celt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumUnknown** ppenum) = 0;
};
typedef IEnumUnknown* LPENUMUNKNOWN;

struct IEnumString : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG celt, LPOLESTR* rgelt, ULONG* pceltFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG celt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumString** ppenum) = 0;
};
typedef IEnumString* LPENUMSTRING;

struct IMalloc : public IUnknown {
    virtual void* STDMETHODCALLTYPE Alloc(SIZE_T cb) = 0;
    virtual void* STDMETHODCALLTYPE Realloc(void* pv, SIZE_T cb) = 0;
    virtual void STDMETHODCALLTYPE Free(void* pv) = 0;
    virtual SIZE_T STDMETHODCALLTYPE GetSize(void* pv) = 0;
    virtual int STDMETHODCALLTYPE DidAlloc(void* pv) = 0;
    virtual void STDMETHODCALLTYPE HeapMinimize() = 0;
};
typedef IMalloc* LPMALLOC;

struct IClientSecurity : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE QueryBlanket(IUnknown* pProxy, DWORD* pAuthnSvc, DWORD* pAuthzSvc,
                                                   OLECHAR** pServerPrincName, DWORD* pAuthnLevel,
                                                   DWORD* pImpLevel, void** pAuthInfo, DWORD* pCapabilites) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown* pProxy, DWORD dwAuthnSvc, DWORD dwAuthzSvc,
                                                 OLECHAR* pServerPrincName, DWORD dwAuthnLevel, DWORD dwImpLevel,
                                                 void* pAuthInfo, DWORD dwCapabilities) = 0;
    virtual HRESULT STDMETHODCALLTYPE CopyProxy(IUnknown* pProxy, IUnknown** ppCopy) = 0;
};

#define COLE_DEFAULT_PRINCIPAL ((OLECHAR*)(INT_PTR)-1)
#define COLE_DEFAULT_AUTHINFO ((void*)(INT_PTR)-1)

typedef struct _COSERVERINFO {
    DWORD dwReserved1;
    LPWSTR pwszName;
    COAUTHINFO* pAuthInfo;
    DWORD dwReserved2;
} COSERVERINFO;

typedef struct tagMULTI_QI {
    const IID* pIID;
    IUnknown* pItf;
    HRESULT hr;
} MULTI_QI;

typedef struct tagSOLE_AUTHENTICATION_SERVICE {
    DWORD dwAuthnSvc;
    DWORD dwAuthzSvc;
    OLECHAR* pPrincipalName;
    HRESULT hr;
} SOLE_AUTHENTICATION_SERVICE;

typedef enum tagEOLE_AUTHENTICATION_CAPABILITIES {
    EOAC_NONE = 0x0,
    EOAC_MUTUAL_AUTH = 0x1,
    EOAC_STATIC_CLOAKING = 0x20,
    EOAC_DYNAMIC_CLOAKING = 0x40,
    EOAC_ANY_AUTHORITY = 0x80,
    EOAC_MAKE_FULLSIC = 0x100,
    EOAC_DEFAULT = 0x800,
    EOAC_SECURE_REFS = 0x2,
    EOAC_ACCESS_CONTROL = 0x4,
    EOAC_APPID = 0x8,
    EOAC_DYNAMIC = 0x10,
    EOAC_REQUIRE_FULLSIC = 0x200,
    EOAC_AUTO_IMPERSONATE = 0x400,
    EOAC_DISABLE_AAA = 0x1000,
    EOAC_NO_CUSTOM_MARSHAL = 0x2000
} EOLE_AUTHENTICATION_CAPABILITIES;

typedef enum tagREGCLS {
    REGCLS_SINGLEUSE = 0,
    REGCLS_MULTIPLEUSE = 1,
    REGCLS_MULTI_SEPARATE = 2,
    REGCLS_SUSPENDED = 4,
    REGCLS_SURROGATE = 8
} REGCLS;
