// VARIANT initialisation, clearing and copying.
#include "internal.h"

#include <cstring>

namespace {

// The types VariantClear accepts: base types up to VT_UINT (except 15), VT_RECORD and VT_CLSID,
// alone or with VT_BYREF and/or VT_ARRAY; by-reference or array forms of EMPTY and NULL are not.
bool isClearable(VARTYPE vt) {
    const VARTYPE base = vt & VT_TYPEMASK;
    const VARTYPE extra = vt & ~VT_TYPEMASK;
    if (extra != 0 && extra != VT_BYREF && extra != VT_ARRAY && extra != (VT_BYREF | VT_ARRAY)) return false;
    if (extra != 0 && (base == VT_EMPTY || base == VT_NULL)) return false;
    if (base <= VT_LPWSTR) return base != 15 && base < VT_VOID;
    return base == VT_RECORD || base == VT_CLSID;
}

}  // namespace

void VariantInit(VARIANTARG* pvarg) {
    std::memset(pvarg, 0, sizeof(*pvarg));
    pvarg->vt = VT_EMPTY;
}

HRESULT VariantClear(VARIANTARG* pvarg) {
    if (!isClearable(pvarg->vt)) return DISP_E_BADVARTYPE;
    if (!(pvarg->vt & VT_BYREF)) {
        if (pvarg->vt & VT_ARRAY) {
            const HRESULT hr = SafeArrayDestroy(pvarg->parray);
            if (FAILED(hr)) return hr;
        } else {
            switch (pvarg->vt) {
                case VT_BSTR:
                    SysFreeString(pvarg->bstrVal);
                    break;
                case VT_UNKNOWN:
                case VT_DISPATCH:
                    if (pvarg->punkVal != nullptr) pvarg->punkVal->Release();
                    break;
                case VT_RECORD:
                    // Records are not supported by this runtime beyond giving up the type reference
                    // (IRecordInfo derives from IUnknown).
                    if (pvarg->pRecInfo != nullptr) reinterpret_cast<IUnknown*>(pvarg->pRecInfo)->Release();
                    break;
                default:
                    break;
            }
        }
    }
    pvarg->vt = VT_EMPTY;
    return S_OK;
}

HRESULT VariantCopy(VARIANTARG* pvargDest, const VARIANTARG* pvargSrc) {
    if (pvargDest == nullptr || pvargSrc == nullptr) return E_INVALIDARG;
    const VARTYPE vt = pvargSrc->vt;
    if (!isClearable(vt) || (vt & VT_TYPEMASK) == VT_CLSID) return DISP_E_BADVARTYPE;
    if (pvargDest == pvargSrc) return S_OK;
    HRESULT hr = VariantClear(pvargDest);
    if (FAILED(hr)) return hr;

    VARIANT copy;
    std::memcpy(&copy, pvargSrc, sizeof(copy));
    if (!(vt & VT_BYREF)) {
        if (vt & VT_ARRAY) {
            copy.parray = nullptr;
            hr = SafeArrayCopy(pvargSrc->parray, &copy.parray);
            if (FAILED(hr)) return hr;
        } else if (vt == VT_BSTR) {
            if (pvargSrc->bstrVal != nullptr) {
                copy.bstrVal = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(pvargSrc->bstrVal),
                                                     SysStringByteLen(pvargSrc->bstrVal));
                if (copy.bstrVal == nullptr) return E_OUTOFMEMORY;
            }
        } else if (vt == VT_UNKNOWN || vt == VT_DISPATCH) {
            if (copy.punkVal != nullptr) copy.punkVal->AddRef();
        } else if (vt == VT_RECORD) {
            return E_NOTIMPL;
        }
    }
    std::memcpy(pvargDest, &copy, sizeof(copy));
    return S_OK;
}

HRESULT VariantCopyInd(VARIANT* pvarDest, const VARIANTARG* pvargSrc) {
    if (pvarDest == nullptr || pvargSrc == nullptr) return E_INVALIDARG;
    if (!(pvargSrc->vt & VT_BYREF)) return VariantCopy(pvarDest, pvargSrc);
    if (!isClearable(pvargSrc->vt)) return DISP_E_BADVARTYPE;

    const VARTYPE vt = pvargSrc->vt & ~VT_BYREF;
    VARIANT direct;
    VariantInit(&direct);
    if (vt == VT_VARIANT) return VariantCopy(pvarDest, pvargSrc->pvarVal);
    direct.vt = vt;
    if (vt & VT_ARRAY) {
        direct.parray = *pvargSrc->pparray;
    } else {
        switch (vt) {
            case VT_I1: case VT_UI1: direct.bVal = *pvargSrc->pbVal; break;
            case VT_I2: case VT_UI2: case VT_BOOL: direct.iVal = *pvargSrc->piVal; break;
            case VT_I4: case VT_UI4: case VT_INT: case VT_UINT: case VT_R4: case VT_ERROR:
                direct.lVal = *pvargSrc->plVal; break;
            case VT_I8: case VT_UI8: case VT_R8: case VT_DATE: case VT_CY:
                direct.llVal = *pvargSrc->pllVal; break;
            case VT_BSTR: direct.bstrVal = *pvargSrc->pbstrVal; break;
            case VT_UNKNOWN: case VT_DISPATCH: direct.punkVal = *pvargSrc->ppunkVal; break;
            case VT_DECIMAL: {
                direct.decVal = *pvargSrc->pdecVal;
                direct.vt = VT_DECIMAL;
                break;
            }
            default: return DISP_E_BADVARTYPE;
        }
    }
    return VariantCopy(pvarDest, &direct);  // deep copy of the referenced value
}
