// The COM runtime: apartments, security, task memory, identifiers, class activation.
#pragma once

#include <minwindef.h>
#include <winerror.h>
#include <rpcdce.h>
#include <wtypes.h>
#include <unknwn.h>
#include <objidl.h>
#include <comcat.h>

typedef enum tagCOINIT {
    COINIT_APARTMENTTHREADED = 0x2,
    COINIT_MULTITHREADED = 0x0,
    COINIT_DISABLE_OLE1DDE = 0x4,
    COINIT_SPEED_OVER_MEMORY = 0x8
} COINIT;


// Apartments and security.
WINOLEAPI CoInitializeEx(LPVOID pvReserved, DWORD dwCoInit);
WINOLEAPI CoInitialize(LPVOID pvReserved);
WINOLEAPI_(void) CoUninitialize(void);
WINOLEAPI CoInitializeSecurity(PSECURITY_DESCRIPTOR pSecDesc, LONG cAuthSvc, SOLE_AUTHENTICATION_SERVICE* asAuthSvc,
                               void* pReserved1, DWORD dwAuthnLevel, DWORD dwImpLevel, void* pAuthList,
                               DWORD dwCapabilities, void* pReserved3);
WINOLEAPI CoQueryProxyBlanket(IUnknown* pProxy, DWORD* pwAuthnSvc, DWORD* pAuthzSvc, LPOLESTR* pServerPrincName,
                              DWORD* pAuthnLevel, DWORD* pImpLevel, RPC_AUTH_IDENTITY_HANDLE* pAuthInfo,
                              DWORD* pCapabilites);
WINOLEAPI CoSetProxyBlanket(IUnknown* pProxy, DWORD dwAuthnSvc, DWORD dwAuthzSvc, OLECHAR* pServerPrincName,
                            DWORD dwAuthnLevel, DWORD dwImpLevel, RPC_AUTH_IDENTITY_HANDLE pAuthInfo,
                            DWORD dwCapabilities);
WINOLEAPI CoCopyProxy(IUnknown* pProxy, IUnknown** ppCopy);
WINOLEAPI_(DWORD) CoGetCurrentProcess(void);

// Task memory.
WINOLEAPI_(LPVOID) CoTaskMemAlloc(SIZE_T cb);
WINOLEAPI_(LPVOID) CoTaskMemRealloc(LPVOID pv, SIZE_T cb);
WINOLEAPI_(void) CoTaskMemFree(LPVOID pv);
WINOLEAPI CoGetMalloc(DWORD dwMemContext, LPMALLOC* ppMalloc);

// Identifiers.
WINOLEAPI CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid);
WINOLEAPI IIDFromString(LPCOLESTR lpsz, LPIID lpiid);
WINOLEAPI CLSIDFromProgID(LPCOLESTR lpszProgID, LPCLSID lpclsid);
WINOLEAPI ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* lplpszProgID);
WINOLEAPI StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz);
WINOLEAPI StringFromIID(REFIID rclsid, LPOLESTR* lplpsz);
WINOLEAPI_(int) StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax);
WINOLEAPI CoCreateGuid(GUID* pguid);

// Time.
WINOLEAPI CoFileTimeNow(FILETIME* lpFileTime);

// Class activation. The third parameter of CoGetClassObject takes a COSERVERINFO*.
WINOLEAPI CoGetClassObject(REFCLSID rclsid, DWORD dwClsContext, LPVOID pvReserved, REFIID riid, LPVOID* ppv);
WINOLEAPI CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter, DWORD dwClsContext, REFIID riid, LPVOID* ppv);
WINOLEAPI CoCreateInstanceEx(REFCLSID Clsid, IUnknown* punkOuter, DWORD dwClsCtx, COSERVERINFO* pServerInfo,
                             DWORD dwCount, MULTI_QI* pResults);
WINOLEAPI CoRegisterClassObject(REFCLSID rclsid, LPUNKNOWN pUnk, DWORD dwClsContext, DWORD flags,
                                LPDWORD lpdwRegister);
WINOLEAPI CoRevokeClassObject(DWORD dwRegister);

// Entry points of an in-process server module.
STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) __attribute__((visibility("default")));
STDAPI DllCanUnloadNow(void) __attribute__((visibility("default")));
STDAPI DllRegisterServer(void) __attribute__((visibility("default")));
STDAPI DllUnregisterServer(void) __attribute__((visibility("default")));
typedef HRESULT(STDAPICALLTYPE* LPFNGETCLASSOBJECT)(REFCLSID, REFIID, LPVOID*);
typedef HRESULT(STDAPICALLTYPE* LPFNCANUNLOADNOW)(void);
