// OPC Common: locale and error text services, the shutdown sink and the server browser.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <comcat.h>

// Interface and class identifiers. Inline variables: one definition per module, usable by
// the client library and the server alike.
inline const IID IID_IOPCShutdown = {0xF31DFDE1, 0x07B6, 0x11D2, {0xB2, 0xD8, 0x00, 0x60, 0x08, 0x3B, 0xA1, 0xFB}};
inline const IID IID_IOPCCommon = {0xF31DFDE2, 0x07B6, 0x11D2, {0xB2, 0xD8, 0x00, 0x60, 0x08, 0x3B, 0xA1, 0xFB}};
inline const IID IID_IOPCServerList = {0x13486D50, 0x4821, 0x11D2, {0xA4, 0x94, 0x3C, 0xB3, 0x06, 0xC1, 0x00, 0x00}};
inline const IID IID_IOPCEnumGUID = {0x55C382C8, 0x21C7, 0x4E88, {0x96, 0xC1, 0xBE, 0xCF, 0xB1, 0xE3, 0xF4, 0x83}};
inline const IID IID_IOPCServerList2 = {0x9DD0B56C, 0xAD9E, 0x43EE, {0x83, 0x05, 0x48, 0x7F, 0x31, 0x88, 0xBF, 0x7A}};
inline const CLSID CLSID_OpcServerList = {0x13486D51, 0x4821, 0x11D2, {0xA4, 0x94, 0x3C, 0xB3, 0x06, 0xC1, 0x00, 0x00}};
inline const CLSID& CLSID_OPCServerList = CLSID_OpcServerList;
inline const GUID APPID_OpcServerList = {0x13486D44, 0x4821, 0x11D2, {0xA4, 0x94, 0x3C, 0xB3, 0x06, 0xC1, 0x00, 0x00}};
inline const GUID LIBID_OpcEnumLib = {0x13486D43, 0x4821, 0x11D2, {0xA4, 0x94, 0x3C, 0xB3, 0x06, 0xC1, 0x00, 0x00}};
inline const GUID LIBID_OPCCOMN = {0xB28EEDB1, 0xAC6F, 0x11D1, {0x84, 0xD5, 0x00, 0x60, 0x8C, 0xB8, 0xA7, 0xE9}};

struct IOPCShutdown : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE ShutdownRequest(LPCWSTR szReason) = 0;
};

struct IOPCCommon : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetLocaleID(LCID dwLcid) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetLocaleID(LCID* pdwLcid) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryAvailableLocaleIDs(DWORD* pdwCount, LCID** pdwLcid) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetErrorString(HRESULT dwError, LPWSTR* ppString) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetClientName(LPCWSTR szName) = 0;
};

struct IOPCServerList : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE EnumClassesOfCategories(ULONG cImplemented, CATID rgcatidImpl[],
                                                              ULONG cRequired, CATID rgcatidReq[],
                                                              IEnumGUID** ppenumClsid) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetClassDetails(REFCLSID clsid, LPOLESTR* ppszProgID,
                                                      LPOLESTR* ppszUserType) = 0;
    virtual HRESULT STDMETHODCALLTYPE CLSIDFromProgID(LPCOLESTR szProgId, LPCLSID clsid) = 0;
};

struct IOPCEnumGUID : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Next(ULONG celt, GUID* rgelt, ULONG* pceltFetched) = 0;
    virtual HRESULT STDMETHODCALLTYPE Skip(ULONG celt) = 0;
    virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
    virtual HRESULT STDMETHODCALLTYPE Clone(IOPCEnumGUID** ppenum) = 0;
};

struct IOPCServerList2 : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE EnumClassesOfCategories(ULONG cImplemented, CATID rgcatidImpl[],
                                                              ULONG cRequired, CATID rgcatidReq[],
                                                              IOPCEnumGUID** ppenumClsid) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetClassDetails(REFCLSID clsid, LPOLESTR* ppszProgID,
                                                      LPOLESTR* ppszUserType, LPOLESTR* ppszVerIndProgID) = 0;
    virtual HRESULT STDMETHODCALLTYPE CLSIDFromProgID(LPCOLESTR szProgId, LPCLSID clsid) = 0;
};
