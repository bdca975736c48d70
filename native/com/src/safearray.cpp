// SAFEARRAY: any number of dimensions with any lower bounds.
//
// Memory layout: 16 hidden bytes, then the descriptor with its bounds, then (separately) the data.
// The hidden bytes hold the element IID for interface arrays (FADF_HAVEIID) or the element VARTYPE
// in their last four bytes (FADF_HAVEVARTYPE). The bounds are stored last dimension first and
// indices are column-major: rgIndices[0] belongs to dimension 1 and varies fastest in memory.
#include "internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kHidden = 16;
constexpr USHORT kTypeFlags = FADF_HAVEIID | FADF_HAVEVARTYPE | FADF_RECORD | FADF_BSTR | FADF_UNKNOWN |
                              FADF_DISPATCH | FADF_VARIANT;
constexpr USHORT kForeignData = FADF_AUTO | FADF_STATIC | FADF_EMBEDDED;
constexpr ULONG kMaxLocks = 0xFFFF;

unsigned char* hiddenOf(SAFEARRAY* psa) { return reinterpret_cast<unsigned char*>(psa) - kHidden; }
VARTYPE* storedVartype(SAFEARRAY* psa) { return reinterpret_cast<VARTYPE*>(hiddenOf(psa) + kHidden - 4); }
GUID* storedIid(SAFEARRAY* psa) { return reinterpret_cast<GUID*>(hiddenOf(psa)); }

ULONG elementSize(VARTYPE vt) {
    switch (vt) {
        case VT_I1: case VT_UI1: return 1;
        case VT_I2: case VT_UI2: case VT_BOOL: return 2;
        case VT_I4: case VT_UI4: case VT_INT: case VT_UINT: case VT_R4: case VT_ERROR: return 4;
        case VT_I8: case VT_UI8: case VT_R8: case VT_CY: case VT_DATE: return 8;
        case VT_INT_PTR: case VT_UINT_PTR: case VT_BSTR: case VT_DISPATCH: case VT_UNKNOWN: return sizeof(void*);
        case VT_VARIANT: return sizeof(VARIANT);
        case VT_DECIMAL: return sizeof(DECIMAL);
        default: return 0;
    }
}

// Caller's dimension i (0-based) lives at rgsabound[cDims - 1 - i].
SAFEARRAYBOUND& boundOf(SAFEARRAY* psa, UINT i) { return psa->rgsabound[psa->cDims - 1 - i]; }

bool elementCount(SAFEARRAY* psa, size_t* count) {
    size_t n = 1;
    for (UINT i = 0; i < psa->cDims; ++i) {
        const size_t c = psa->rgsabound[i].cElements;
        if (c != 0 && n > SIZE_MAX / c) return false;
        n *= c;
    }
    *count = n;
    return true;
}

bool elementOffset(SAFEARRAY* psa, const LONG* rgIndices, size_t* offset) {
    size_t index = 0;
    size_t stride = 1;
    for (UINT i = 0; i < psa->cDims; ++i) {
        const SAFEARRAYBOUND& b = boundOf(psa, i);
        const long long rel = static_cast<long long>(rgIndices[i]) - b.lLbound;
        if (rel < 0 || rel >= static_cast<long long>(b.cElements)) return false;
        index += static_cast<size_t>(rel) * stride;
        stride *= b.cElements;
    }
    *offset = index * psa->cbElements;
    return true;
}

// Gives up what the elements own: strings, variant contents, interface references.
void clearElements(SAFEARRAY* psa, size_t count) {
    if (psa->pvData == nullptr) return;
    if (psa->fFeatures & FADF_BSTR) {
        auto* items = static_cast<BSTR*>(psa->pvData);
        for (size_t i = 0; i < count; ++i) {
            SysFreeString(items[i]);
            items[i] = nullptr;
        }
    } else if (psa->fFeatures & FADF_VARIANT) {
        auto* items = static_cast<VARIANT*>(psa->pvData);
        for (size_t i = 0; i < count; ++i) VariantClear(&items[i]);
    } else if (psa->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
        auto* items = static_cast<IUnknown**>(psa->pvData);
        for (size_t i = 0; i < count; ++i) {
            if (items[i] != nullptr) items[i]->Release();
            items[i] = nullptr;
        }
    }
}

// Copies count elements from src to dst (dst holds nothing yet), duplicating what they own.
HRESULT copyElements(USHORT features, ULONG cbElements, const void* src, void* dst, size_t count) {
    if (features & FADF_BSTR) {
        auto* from = static_cast<const BSTR*>(src);
        auto* to = static_cast<BSTR*>(dst);
        for (size_t i = 0; i < count; ++i) {
            to[i] = nullptr;
            if (from[i] == nullptr) continue;
            to[i] = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(from[i]), SysStringByteLen(from[i]));
            if (to[i] == nullptr) return E_OUTOFMEMORY;
        }
    } else if (features & FADF_VARIANT) {
        auto* from = static_cast<const VARIANT*>(src);
        auto* to = static_cast<VARIANT*>(dst);
        for (size_t i = 0; i < count; ++i) {
            VariantInit(&to[i]);
            const HRESULT hr = VariantCopy(&to[i], &from[i]);
            if (FAILED(hr)) return hr;
        }
    } else if (features & (FADF_UNKNOWN | FADF_DISPATCH)) {
        auto* from = static_cast<IUnknown* const*>(src);
        auto* to = static_cast<IUnknown**>(dst);
        for (size_t i = 0; i < count; ++i) {
            to[i] = from[i];
            if (to[i] != nullptr) to[i]->AddRef();
        }
    } else if (count != 0) {
        std::memcpy(dst, src, count * cbElements);
    }
    return S_OK;
}

void setElementType(SAFEARRAY* psa, VARTYPE vt) {
    psa->cbElements = elementSize(vt);
    std::memset(hiddenOf(psa), 0, kHidden);
    switch (vt) {
        case VT_BSTR: psa->fFeatures = FADF_BSTR | FADF_HAVEVARTYPE; break;
        case VT_VARIANT: psa->fFeatures = FADF_VARIANT | FADF_HAVEVARTYPE; break;
        case VT_UNKNOWN: psa->fFeatures = FADF_UNKNOWN | FADF_HAVEIID; *storedIid(psa) = IID_IUnknown; break;
        case VT_DISPATCH: psa->fFeatures = FADF_DISPATCH | FADF_HAVEIID; *storedIid(psa) = IID_IDispatch; break;
        case VT_RECORD: psa->fFeatures = FADF_RECORD; break;
        default: psa->fFeatures = FADF_HAVEVARTYPE; break;
    }
    if (psa->fFeatures & FADF_HAVEVARTYPE) *storedVartype(psa) = vt;
}

// Stops the process when psa is not a live descriptor of this runtime (foreign, or destroyed
// already), before anything is read through it.
void requireLive(const SAFEARRAY* psa, const char* what) {
    if (!substrate::blockIsLive(psa, LEDGER_SAFEARRAY)) {
        std::fprintf(stderr, "%s: %p is not a live SAFEARRAY\n", what, static_cast<const void*>(psa));
        std::abort();
    }
}

}  // namespace

HRESULT SafeArrayAllocDescriptor(UINT cDims, SAFEARRAY** ppsaOut) {
    if (ppsaOut == nullptr) return E_POINTER;
    *ppsaOut = nullptr;
    if (cDims == 0 || cDims >= 0x10000) return E_INVALIDARG;
    const size_t bytes = kHidden + sizeof(SAFEARRAY) + (cDims - 1) * sizeof(SAFEARRAYBOUND);
    auto* block = static_cast<unsigned char*>(std::calloc(1, bytes));
    if (block == nullptr) return E_OUTOFMEMORY;
    auto* psa = reinterpret_cast<SAFEARRAY*>(block + kHidden);
    psa->cDims = static_cast<USHORT>(cDims);
    substrate::blockAdd(psa, LEDGER_SAFEARRAY);
    *ppsaOut = psa;
    return S_OK;
}

HRESULT SafeArrayAllocDescriptorEx(VARTYPE vt, UINT cDims, SAFEARRAY** ppsaOut) {
    if (vt != VT_RECORD && elementSize(vt) == 0) return E_INVALIDARG;
    const HRESULT hr = SafeArrayAllocDescriptor(cDims, ppsaOut);
    if (SUCCEEDED(hr)) setElementType(*ppsaOut, vt);
    return hr;
}

HRESULT SafeArrayAllocData(SAFEARRAY* psa) {
    if (psa == nullptr) return E_INVALIDARG;
    size_t count = 0;
    if (!elementCount(psa, &count) || (psa->cbElements != 0 && count > SIZE_MAX / psa->cbElements))
        return E_OUTOFMEMORY;
    const size_t bytes = count * psa->cbElements;
    psa->pvData = std::calloc(1, bytes == 0 ? 1 : bytes);
    return psa->pvData == nullptr ? E_OUTOFMEMORY : S_OK;
}

SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT cDims, SAFEARRAYBOUND* rgsabound) {
    if (rgsabound == nullptr || elementSize(vt) == 0) return nullptr;
    SAFEARRAY* psa = nullptr;
    if (FAILED(SafeArrayAllocDescriptorEx(vt, cDims, &psa))) return nullptr;
    for (UINT i = 0; i < cDims; ++i) boundOf(psa, i) = rgsabound[i];
    if (FAILED(SafeArrayAllocData(psa))) {
        SafeArrayDestroyDescriptor(psa);
        return nullptr;
    }
    return psa;
}

SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lLbound, ULONG cElements) {
    SAFEARRAYBOUND bound{cElements, lLbound};
    return SafeArrayCreate(vt, 1, &bound);
}

HRESULT SafeArrayDestroyData(SAFEARRAY* psa) {
    if (psa == nullptr) return E_INVALIDARG;
    requireLive(psa, "SafeArrayDestroyData");
    if (__atomic_load_n(&psa->cLocks, __ATOMIC_ACQUIRE) > 0) return DISP_E_ARRAYISLOCKED;
    size_t count = 0;
    if (elementCount(psa, &count)) clearElements(psa, count);
    if (!(psa->fFeatures & kForeignData)) {
        std::free(psa->pvData);
        psa->pvData = nullptr;
    }
    return S_OK;
}

HRESULT SafeArrayDestroyDescriptor(SAFEARRAY* psa) {
    if (psa == nullptr) return S_OK;
    requireLive(psa, "SafeArrayDestroyDescriptor");
    if (__atomic_load_n(&psa->cLocks, __ATOMIC_ACQUIRE) > 0) return DISP_E_ARRAYISLOCKED;
    substrate::blockRemove(psa, LEDGER_SAFEARRAY);
    std::free(hiddenOf(psa));
    return S_OK;
}

HRESULT SafeArrayDestroy(SAFEARRAY* psa) {
    if (psa == nullptr) return S_OK;
    const HRESULT hr = SafeArrayDestroyData(psa);
    if (FAILED(hr)) return hr;
    return SafeArrayDestroyDescriptor(psa);
}

HRESULT SafeArrayLock(SAFEARRAY* psa) {
    if (psa == nullptr) return E_INVALIDARG;
    if (__atomic_add_fetch(&psa->cLocks, 1, __ATOMIC_ACQ_REL) > kMaxLocks) {
        __atomic_sub_fetch(&psa->cLocks, 1, __ATOMIC_ACQ_REL);
        return E_UNEXPECTED;
    }
    return S_OK;
}

HRESULT SafeArrayUnlock(SAFEARRAY* psa) {
    if (psa == nullptr) return E_INVALIDARG;
    ULONG current = __atomic_load_n(&psa->cLocks, __ATOMIC_ACQUIRE);
    do {
        if (current == 0) return E_UNEXPECTED;
    } while (!__atomic_compare_exchange_n(&psa->cLocks, &current, current - 1, false, __ATOMIC_ACQ_REL,
                                          __ATOMIC_ACQUIRE));
    return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* psa, void** ppvData) {
    if (psa == nullptr || ppvData == nullptr) return E_INVALIDARG;
    const HRESULT hr = SafeArrayLock(psa);
    *ppvData = SUCCEEDED(hr) ? psa->pvData : nullptr;
    return hr;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* psa) { return SafeArrayUnlock(psa); }

HRESULT SafeArrayPtrOfIndex(SAFEARRAY* psa, LONG* rgIndices, void** ppvData) {
    if (psa == nullptr || rgIndices == nullptr || ppvData == nullptr) return E_INVALIDARG;
    size_t offset = 0;
    if (!elementOffset(psa, rgIndices, &offset)) return DISP_E_BADINDEX;
    *ppvData = static_cast<char*>(psa->pvData) + offset;
    return S_OK;
}

HRESULT SafeArrayPutElement(SAFEARRAY* psa, LONG* rgIndices, void* pv) {
    if (psa == nullptr || rgIndices == nullptr) return E_INVALIDARG;
    const bool byValue = (psa->fFeatures & (FADF_BSTR | FADF_UNKNOWN | FADF_DISPATCH)) != 0;
    if (pv == nullptr && !byValue) return E_INVALIDARG;
    size_t offset = 0;
    if (!elementOffset(psa, rgIndices, &offset)) return DISP_E_BADINDEX;
    HRESULT hr = SafeArrayLock(psa);
    if (FAILED(hr)) return hr;
    void* slot = static_cast<char*>(psa->pvData) + offset;
    if (psa->fFeatures & FADF_BSTR) {
        // pv is the BSTR itself; a null BSTR is stored as an empty string.
        auto source = static_cast<BSTR>(pv);
        BSTR copy = SysAllocStringByteLen(reinterpret_cast<LPCSTR>(source), SysStringByteLen(source));
        if (copy == nullptr) {
            hr = E_OUTOFMEMORY;
        } else {
            SysFreeString(*static_cast<BSTR*>(slot));
            *static_cast<BSTR*>(slot) = copy;
        }
    } else if (psa->fFeatures & FADF_VARIANT) {
        hr = VariantCopy(static_cast<VARIANT*>(slot), static_cast<VARIANT*>(pv));
    } else if (psa->fFeatures & (FADF_UNKNOWN | FADF_DISPATCH)) {
        // pv is the interface pointer itself.
        auto* fresh = static_cast<IUnknown*>(pv);
        if (fresh != nullptr) fresh->AddRef();
        IUnknown* old = *static_cast<IUnknown**>(slot);
        *static_cast<IUnknown**>(slot) = fresh;
        if (old != nullptr) old->Release();
    } else {
        std::memcpy(slot, pv, psa->cbElements);
    }
    SafeArrayUnlock(psa);
    return hr;
}

HRESULT SafeArrayGetElement(SAFEARRAY* psa, LONG* rgIndices, void* pv) {
    if (psa == nullptr || rgIndices == nullptr || pv == nullptr) return E_INVALIDARG;
    size_t offset = 0;
    if (!elementOffset(psa, rgIndices, &offset)) return DISP_E_BADINDEX;
    HRESULT hr = SafeArrayLock(psa);
    if (FAILED(hr)) return hr;
    const void* slot = static_cast<char*>(psa->pvData) + offset;
    if (psa->fFeatures & FADF_VARIANT) {
        VariantInit(static_cast<VARIANT*>(pv));  // the destination's old content is not ours to clear
        hr = VariantCopy(static_cast<VARIANT*>(pv), static_cast<const VARIANT*>(slot));
    } else {
        hr = copyElements(psa->fFeatures, psa->cbElements, slot, pv, 1);
    }
    SafeArrayUnlock(psa);
    return hr;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* psa, UINT nDim, LONG* plUbound) {
    if (psa == nullptr || plUbound == nullptr) return E_INVALIDARG;
    if (nDim == 0 || nDim > psa->cDims) return DISP_E_BADINDEX;
    const SAFEARRAYBOUND& b = boundOf(psa, nDim - 1);
    *plUbound = static_cast<LONG>(static_cast<long long>(b.lLbound) + b.cElements - 1);
    return S_OK;
}

HRESULT SafeArrayGetLBound(SAFEARRAY* psa, UINT nDim, LONG* plLbound) {
    if (psa == nullptr || plLbound == nullptr) return E_INVALIDARG;
    if (nDim == 0 || nDim > psa->cDims) return DISP_E_BADINDEX;
    *plLbound = boundOf(psa, nDim - 1).lLbound;
    return S_OK;
}

UINT SafeArrayGetDim(SAFEARRAY* psa) { return psa == nullptr ? 0 : psa->cDims; }

UINT SafeArrayGetElemsize(SAFEARRAY* psa) { return psa == nullptr ? 0 : psa->cbElements; }

HRESULT SafeArrayGetVartype(SAFEARRAY* psa, VARTYPE* pvt) {
    if (psa == nullptr || pvt == nullptr) return E_INVALIDARG;
    if (psa->fFeatures & FADF_RECORD) {
        *pvt = VT_RECORD;
    } else if (psa->fFeatures & FADF_HAVEIID) {
        *pvt = (psa->fFeatures & FADF_DISPATCH) ? VT_DISPATCH : VT_UNKNOWN;
    } else if (psa->fFeatures & FADF_HAVEVARTYPE) {
        *pvt = *storedVartype(psa);
    } else {
        return E_INVALIDARG;
    }
    return S_OK;
}

HRESULT SafeArrayGetIID(SAFEARRAY* psa, GUID* pguid) {
    if (psa == nullptr || pguid == nullptr || !(psa->fFeatures & FADF_HAVEIID)) return E_INVALIDARG;
    *pguid = *storedIid(psa);
    return S_OK;
}

HRESULT SafeArrayCopyData(SAFEARRAY* psaSource, SAFEARRAY* psaTarget) {
    if (psaSource == nullptr || psaTarget == nullptr || psaSource->cDims != psaTarget->cDims ||
        psaSource->cbElements != psaTarget->cbElements)
        return E_INVALIDARG;
    for (UINT i = 0; i < psaSource->cDims; ++i) {
        if (psaSource->rgsabound[i].cElements != psaTarget->rgsabound[i].cElements ||
            psaSource->rgsabound[i].lLbound != psaTarget->rgsabound[i].lLbound)
            return E_INVALIDARG;
    }
    size_t count = 0;
    if (!elementCount(psaSource, &count)) return E_OUTOFMEMORY;
    clearElements(psaTarget, count);
    return copyElements(psaSource->fFeatures, psaSource->cbElements, psaSource->pvData, psaTarget->pvData, count);
}

HRESULT SafeArrayCopy(SAFEARRAY* psa, SAFEARRAY** ppsaOut) {
    if (ppsaOut == nullptr) return E_INVALIDARG;
    *ppsaOut = nullptr;
    if (psa == nullptr) return S_OK;
    if (psa->fFeatures & FADF_RECORD) return E_NOTIMPL;
    SAFEARRAY* copy = nullptr;
    HRESULT hr = SafeArrayAllocDescriptor(psa->cDims, &copy);
    if (FAILED(hr)) return hr;
    std::memcpy(hiddenOf(copy), hiddenOf(psa), kHidden);
    copy->fFeatures = psa->fFeatures & kTypeFlags;
    copy->cbElements = psa->cbElements;
    std::memcpy(copy->rgsabound, psa->rgsabound, psa->cDims * sizeof(SAFEARRAYBOUND));
    hr = SafeArrayAllocData(copy);
    if (SUCCEEDED(hr)) hr = SafeArrayCopyData(psa, copy);
    if (FAILED(hr)) {
        SafeArrayDestroy(copy);
        return hr;
    }
    *ppsaOut = copy;
    return S_OK;
}
