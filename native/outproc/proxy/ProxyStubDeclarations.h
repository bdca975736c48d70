// Force-included into the generated proxy/stub sources. Their interface tables name the three
// IUnknown proxy routines that rpcrt4 exports; mingw-w64's rpcproxy.h does not declare them.
#pragma once
#include <objbase.h>

HRESULT STDMETHODCALLTYPE IUnknown_QueryInterface_Proxy(IUnknown* This, REFIID riid, void** ppvObject);
ULONG STDMETHODCALLTYPE IUnknown_AddRef_Proxy(IUnknown* This);
ULONG STDMETHODCALLTYPE IUnknown_Release_Proxy(IUnknown* This);
