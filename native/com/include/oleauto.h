// Automation services: BSTR, VARIANT and SAFEARRAY functions.
#pragma once

#include <oaidl.h>

// BSTR: a 32-bit byte length precedes the characters; a zero character follows, uncounted.
WINOLEAUTAPI_(BSTR) SysAllocString(const OLECHAR* psz);
WINOLEAUTAPI_(BSTR) SysAllocStringLen(const OLECHAR* strIn, UINT ui);
WINOLEAUTAPI_(BSTR) SysAllocStringByteLen(LPCSTR psz, UINT len);
WINOLEAUTAPI_(INT) SysReAllocString(BSTR* pbstr, const OLECHAR* psz);
WINOLEAUTAPI_(INT) SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len);
WINOLEAUTAPI_(void) SysFreeString(BSTR bstrString);
WINOLEAUTAPI_(UINT) SysStringLen(BSTR pbstr);
WINOLEAUTAPI_(UINT) SysStringByteLen(BSTR bstr);

WINOLEAUTAPI_(void) VariantInit(VARIANTARG* pvarg);
WINOLEAUTAPI VariantClear(VARIANTARG* pvarg);
WINOLEAUTAPI VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc);
WINOLEAUTAPI VariantCopyInd(VARIANT* pvarDest, const VARIANTARG* pvargSrc);

WINOLEAUTAPI_(SAFEARRAY*) SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound);
WINOLEAUTAPI_(SAFEARRAY*) SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements);
WINOLEAUTAPI SafeArrayAllocDescriptor(UINT cDims, SAFEARRAY** ppsaOut);
WINOLEAUTAPI SafeArrayAllocDescriptorEx(VARTYPE vt, UINT cDims, SAFEARRAY** ppsaOut);
WINOLEAUTAPI SafeArrayAllocData(SAFEARRAY* psa);
WINOLEAUTAPI SafeArrayDestroy(SAFEARRAY* psa);
WINOLEAUTAPI SafeArrayDestroyData(SAFEARRAY* psa);
WINOLEAUTAPI SafeArrayDestroyDescriptor(SAFEARRAY* psa);
WINOLEAUTAPI SafeArrayPutElement(SAFEARRAY* psa, LONG* rgIndices, void* pv);
WINOLEAUTAPI SafeArrayGetElement(SAFEARRAY* psa, LONG* rgIndices, void* pv);
WINOLEAUTAPI SafeArrayPtrOfIndex(SAFEARRAY* psa, LONG* rgIndices, void** ppvData);
WINOLEAUTAPI SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound);
WINOLEAUTAPI SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound);
WINOLEAUTAPI_(UINT) SafeArrayGetDim(SAFEARRAY* psa);
WINOLEAUTAPI_(UINT) SafeArrayGetElemsize(SAFEARRAY* psa);
WINOLEAUTAPI SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt);
WINOLEAUTAPI SafeArrayGetIID(SAFEARRAY* psa, GUID* pguid);
WINOLEAUTAPI SafeArrayLock(SAFEARRAY* psa);
WINOLEAUTAPI SafeArrayUnlock(SAFEARRAY* psa);
WINOLEAUTAPI SafeArrayAccessData(SAFEARRAY* psa, void** ppvData);
WINOLEAUTAPI SafeArrayUnaccessData(SAFEARRAY* psa);
WINOLEAUTAPI SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut);
WINOLEAUTAPI SafeArrayCopyData(SAFEARRAY* psaSource, SAFEARRAY* psaTarget);
