// Component categories and the GUID enumerator.
#pragma once

#include <unknwn.h>

typedef GUID CATID;
#define REFCATID const CATID&

EXTERN_C DECLSPEC_IMPORT const IID IID_IEnumGUID;
#define IID_IEnumCLSID IID_IEnumGUID
#define IID_IEnumCATID IID_IEnumGUID

struct IEnumGUID : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG celt, GUID* rgelt, ULONG* pceltFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG celt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IEnumGUID** ppenum) = 0;
};
typedef IEnumGUID* LPENUMGUID;
typedef IEnumGUID IEnumCLSID;
typedef IEnumGUID IEnumCATID;
typedef IEnumGUID* LPENUMCLSID;
