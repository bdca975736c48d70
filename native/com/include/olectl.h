// Connection-point and self-registration results, the self-registration entry points.
#pragma once

#include <ocidl.h>

#define CONNECT_E_FIRST _HRESULT_TYPEDEF_(0x80040200)
#define CONNECT_E_NOCONNECTION _HRESULT_TYPEDEF_(0x80040200)
#define CONNECT_E_ADVISELIMIT _HRESULT_TYPEDEF_(0x80040201)
#define CONNECT_E_CANNOTCONNECT _HRESULT_TYPEDEF_(0x80040202)
#define CONNECT_E_OVERRIDDEN _HRESULT_TYPEDEF_(0x80040203)
#define SELFREG_E_TYPELIB _HRESULT_TYPEDEF_(0x80040200)
#define SELFREG_E_CLASS _HRESULT_TYPEDEF_(0x80040201)

STDAPI DllRegisterServer(void) __attribute__((visibility("default")));
STDAPI DllUnregisterServer(void) __attribute__((visibility("default")));
