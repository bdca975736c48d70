// Base types, calling-convention and linkage macros of the Win32 API, sized as on Windows:
// DWORD, LONG and ULONG are 32-bit, WCHAR is a 16-bit UTF-16 unit.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define EXTERN_C extern "C"
#define EXTERN_C_START extern "C" {
#define EXTERN_C_END }
#else
#define EXTERN_C extern
#define EXTERN_C_START
#define EXTERN_C_END
#endif

// Linkage. Everything the COM runtime provides is visible outside its shared object, and a module
// marks its own entry points with __declspec(dllexport) exactly as it would on Windows.
#define DECLSPEC_IMPORT __attribute__((visibility("default")))
#define DECLSPEC_EXPORT __attribute__((visibility("default")))
#define DECLSPEC_SELECTANY __attribute__((weak))
#define DECLSPEC_NOVTABLE
#define DECLSPEC_NOTHROW
#define DECLSPEC_UUID(x)
#define __declspec(x) __declspec_##x
#define __declspec_dllexport __attribute__((visibility("default")))
#define __declspec_dllimport __attribute__((visibility("default")))
#define __declspec_selectany __attribute__((weak))
#define __declspec_novtable
#define __declspec_nothrow
#define __declspec_noinline __attribute__((noinline))
#define __declspec_noreturn __attribute__((noreturn))
#define __declspec_uuid(x)

// One calling convention on x86-64.
#define WINAPI
#define WINAPIV
#define APIENTRY
#define CALLBACK
#define __stdcall
#define __cdecl
#define STDMETHODCALLTYPE
#define STDMETHODVCALLTYPE
#define STDAPICALLTYPE
#define STDAPIVCALLTYPE

#define WINBASEAPI DECLSPEC_IMPORT
#define WINADVAPI DECLSPEC_IMPORT
#define WINNORMALIZEAPI DECLSPEC_IMPORT

#define CONST const
#define VOID void
#define FAR
#define NEAR
#define UNREFERENCED_PARAMETER(p) (void)(p)

typedef int BOOL;
typedef unsigned char BYTE;
typedef BYTE BOOLEAN;
typedef unsigned short WORD;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef short SHORT;
typedef unsigned short USHORT;
typedef char CHAR;
typedef unsigned char UCHAR;
typedef int INT;
typedef unsigned int UINT;
typedef float FLOAT;
typedef double DOUBLE;
typedef int64_t LONGLONG;
typedef uint64_t ULONGLONG;
typedef uint64_t DWORDLONG;
typedef int8_t INT8;
typedef uint8_t UINT8;
typedef int16_t INT16;
typedef uint16_t UINT16;
typedef int32_t INT32;
typedef uint32_t UINT32;
typedef int64_t INT64;
typedef uint64_t UINT64;
typedef int32_t LONG32;
typedef uint32_t ULONG32;
typedef uint32_t DWORD32;
typedef int64_t LONG64;
typedef uint64_t ULONG64;
typedef uint64_t DWORD64;
typedef intptr_t INT_PTR;
typedef uintptr_t UINT_PTR;
typedef intptr_t LONG_PTR;
typedef uintptr_t ULONG_PTR;
typedef uintptr_t DWORD_PTR;
typedef ULONG_PTR SIZE_T;
typedef LONG_PTR SSIZE_T;

typedef char16_t WCHAR;
typedef WCHAR* PWCHAR;
typedef WCHAR* LPWCH;
typedef WCHAR* PWCH;
typedef const WCHAR* LPCWCH;
typedef const WCHAR* PCWCH;
typedef WCHAR* LPWSTR;
typedef WCHAR* PWSTR;
typedef const WCHAR* LPCWSTR;
typedef const WCHAR* PCWSTR;
typedef CHAR* LPSTR;
typedef CHAR* PSTR;
typedef CHAR* LPCH;
typedef const CHAR* LPCSTR;
typedef const CHAR* PCSTR;
typedef const CHAR* LPCCH;
typedef const CHAR* PCCH;

typedef void* PVOID;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef void* HANDLE;
typedef HANDLE* PHANDLE;
typedef BOOL* PBOOL;
typedef BOOL* LPBOOL;
typedef BYTE* PBYTE;
typedef BYTE* LPBYTE;
typedef WORD* PWORD;
typedef WORD* LPWORD;
typedef DWORD* PDWORD;
typedef DWORD* LPDWORD;
typedef LONG* PLONG;
typedef LONG* LPLONG;
typedef ULONG* PULONG;
typedef SHORT* PSHORT;
typedef USHORT* PUSHORT;
typedef INT* PINT;
typedef INT* LPINT;
typedef UINT* PUINT;
typedef FLOAT* PFLOAT;

typedef LONG HRESULT;
typedef LONG SCODE;
typedef LONG LSTATUS;
typedef DWORD LCID;
typedef WORD LANGID;
typedef UINT_PTR WPARAM;
typedef LONG_PTR LPARAM;
typedef LONG_PTR LRESULT;
typedef DWORD ACCESS_MASK;
typedef PVOID PSECURITY_DESCRIPTOR;

struct HINSTANCE__;
typedef struct HINSTANCE__* HINSTANCE;
typedef HINSTANCE HMODULE;
typedef INT_PTR(WINAPI* FARPROC)();
typedef INT_PTR(WINAPI* NEARPROC)();
typedef INT_PTR(WINAPI* PROC)();

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#define MAX_PATH 260

#define MAKEWORD(a, b) ((WORD)(((BYTE)((DWORD_PTR)(a) & 0xff)) | ((WORD)((BYTE)((DWORD_PTR)(b) & 0xff))) << 8))
#define MAKELONG(a, b) ((LONG)(((WORD)((DWORD_PTR)(a) & 0xffff)) | ((DWORD)((WORD)((DWORD_PTR)(b) & 0xffff))) << 16))
#define LOWORD(l) ((WORD)((DWORD_PTR)(l) & 0xffff))
#define HIWORD(l) ((WORD)((DWORD_PTR)(l) >> 16))
#define LOBYTE(w) ((BYTE)((DWORD_PTR)(w) & 0xff))
#define HIBYTE(w) ((BYTE)((DWORD_PTR)(w) >> 8))
#define MAKELCID(lgid, srtid) ((DWORD)((((DWORD)((WORD)(srtid))) << 16) | ((DWORD)((WORD)(lgid)))))
#define MAKELANGID(p, s) ((((WORD)(s)) << 10) | (WORD)(p))
#define LANG_NEUTRAL 0x00
#define LANG_ENGLISH 0x09
#define SUBLANG_NEUTRAL 0x00
#define SUBLANG_DEFAULT 0x01
#define SUBLANG_SYS_DEFAULT 0x02
#define SORT_DEFAULT 0x0
#define LOCALE_SYSTEM_DEFAULT 0x0800
#define LOCALE_USER_DEFAULT 0x0400
#define LOCALE_NEUTRAL 0x0000
#define LOCALE_INVARIANT 0x007f

typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME, *LPFILETIME;

typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME, *PSYSTEMTIME, *LPSYSTEMTIME;

typedef struct _SECURITY_ATTRIBUTES {
    DWORD nLength;
    LPVOID lpSecurityDescriptor;
    BOOL bInheritHandle;
} SECURITY_ATTRIBUTES, *PSECURITY_ATTRIBUTES, *LPSECURITY_ATTRIBUTES;

typedef union _LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    };
    LONGLONG QuadPart;
} LARGE_INTEGER, *PLARGE_INTEGER;

typedef union _ULARGE_INTEGER {
    struct {
        DWORD LowPart;
        DWORD HighPart;
    };
    ULONGLONG QuadPart;
} ULARGE_INTEGER, *PULARGE_INTEGER;
