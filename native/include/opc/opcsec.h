// OPC Security: NT access control and private (user/password) logon on a server object.
#pragma once

#include <windows.h>
#include <objbase.h>

inline const IID IID_IOPCSecurityNT = {0x7AA83A01, 0x6C77, 0x11D3, {0x84, 0xF9, 0x00, 0x00, 0x86, 0x30, 0xA3, 0x8B}};
inline const IID IID_IOPCSecurityPrivate = {0x7AA83A02, 0x6C77, 0x11D3, {0x84, 0xF9, 0x00, 0x00, 0x86, 0x30, 0xA3, 0x8B}};
inline const GUID LIBID_OPCSEC = {0x7AA83AFF, 0x6C77, 0x11D3, {0x84, 0xF9, 0x00, 0x00, 0x86, 0x30, 0xA3, 0x8B}};

struct IOPCSecurityNT : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE IsAvailableNT(BOOL* pbAvailable) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryMinImpersonationLevel(DWORD* pdwMinImpLevel) = 0;
    virtual HRESULT STDMETHODCALLTYPE ChangeUser() = 0;
};

struct IOPCSecurityPrivate : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE IsAvailablePriv(BOOL* pbAvailable) = 0;
    virtual HRESULT STDMETHODCALLTYPE Logon(LPCWSTR szUserID, LPCWSTR szPassword) = 0;
    virtual HRESULT STDMETHODCALLTYPE Logoff() = 0;
};
