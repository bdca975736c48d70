// VARIANT -> delivery text: scalars of the types a server may send, and arrays of random shape
// (any element type, one to three dimensions, any bounds, with or without a recorded element type)
// declared as any of the nine array types or as another VARTYPE. The array text must be whole
// printable ASCII for numbers and booleans, come only from one-dimensional arrays, and everything
// built is freed.
#include <cmath>
#include <string>

#include "FuzzInput.h"
#include "ValueDelivery.h"

using namespace opc;
using opc::fuzz::FuzzInput;

namespace {

constexpr VARTYPE kDeclared[] = {VT_BSTR, VT_R4, VT_R8, VT_I2, VT_I4, VT_BOOL, VT_UI1, VT_UI2, VT_UI4};
constexpr VARTYPE kElements[] = {VT_I1,  VT_UI1, VT_I2,   VT_UI2,  VT_BOOL,  VT_I4,    VT_UI4,
                                 VT_INT, VT_UINT, VT_R4,  VT_R8,   VT_I8,    VT_UI8,   VT_CY,
                                 VT_DATE, VT_ERROR, VT_BSTR, VT_VARIANT, VT_DECIMAL};
constexpr VARTYPE kScalars[] = {VT_EMPTY, VT_NULL, VT_I2, VT_I4, VT_R4, VT_R8, VT_CY, VT_DATE, VT_ERROR,
                                VT_BOOL, VT_I1, VT_UI1, VT_UI2, VT_UI4, VT_I8, VT_UI8, VT_INT, VT_UINT, VT_BSTR};

template <typename T, size_t N>
T pick(const T (&options)[N], uint8_t selector) {
    return options[selector % N];
}

BSTR takeString(FuzzInput& in) {
    const uint8_t length = in.take<uint8_t>();
    if (length == 0xFF) return nullptr;
    const std::string units = in.bytes((length % 16u) * 2u);
    return SysAllocStringLen(reinterpret_cast<const OLECHAR*>(units.data()), static_cast<UINT>(units.size() / 2));
}

void scalar(FuzzInput& in) {
    VARIANT v;
    VariantInit(&v);
    v.vt = pick(kScalars, in.take<uint8_t>());
    if (v.vt == VT_BSTR) {
        v.bstrVal = takeString(in);
        const std::string narrow = OpcEnv::toNarrowString(WideText(v.bstrVal == nullptr ? OLESTR("") : v.bstrVal,
                                                                    SysStringLen(v.bstrVal)));
        const std::string utf = latin1ToModifiedUtf8(narrow);
        if (utf.find('\0') != std::string::npos) opc::fuzz::fail("modified UTF-8 holds a zero byte");
    } else {
        v.llVal = in.take<LONGLONG>();
    }
    std::string text;
    if (arrayText(v, text) != ArrayText::NotArray) opc::fuzz::fail("a scalar rendered as an array");
    if (OpcEnv::isNumeric(v)) {
        const std::string number = streamText(OpcEnv::getNumericValue(nullptr, v));
        if (number.empty()) opc::fuzz::fail("empty number text");
    }
    VariantClear(&v);
}

// A SAFEARRAY made through the API (so its own description is true), or a bare descriptor with
// raw elements and no recorded type.
SAFEARRAY* makeArray(FuzzInput& in, VARTYPE element, bool bare, UINT dims) {
    SAFEARRAYBOUND bounds[3];
    size_t count = 1;
    for (UINT d = 0; d < dims; ++d) {
        bounds[d].lLbound = in.take<LONG>();
        bounds[d].cElements = in.take<uint8_t>() % 9u;
        count *= bounds[d].cElements;
    }
    SAFEARRAY* array = nullptr;
    if (bare) {
        if (FAILED(SafeArrayAllocDescriptor(dims, &array))) return nullptr;
        array->cbElements = 1u << (in.take<uint8_t>() % 5u);
        for (UINT d = 0; d < dims; ++d) array->rgsabound[dims - 1 - d] = bounds[d];
        if (FAILED(SafeArrayAllocData(array))) {
            SafeArrayDestroyDescriptor(array);
            return nullptr;
        }
    } else {
        array = SafeArrayCreate(element, dims, bounds);
        if (array == nullptr) return nullptr;
    }
    void* data = nullptr;
    if (FAILED(SafeArrayAccessData(array, &data))) return array;
    if (!bare && element == VT_BSTR) {
        for (size_t i = 0; i < count; ++i) static_cast<BSTR*>(data)[i] = takeString(in);
    } else if (!bare && element == VT_VARIANT) {
        for (size_t i = 0; i < count; ++i) {
            VARIANT& item = static_cast<VARIANT*>(data)[i];
            item.vt = VT_I4;
            item.lVal = in.take<LONG>();
        }
    } else {
        const std::string raw = in.bytes(count * array->cbElements);
        std::memcpy(data, raw.data(), raw.size());
    }
    SafeArrayUnaccessData(array);
    return array;
}

void array(FuzzInput& in, uint8_t mode) {
    const uint8_t declaredSelector = in.take<uint8_t>();
    VARTYPE declared = static_cast<VARTYPE>(VT_ARRAY | pick(kDeclared, declaredSelector));
    if (declaredSelector >= 0xF0) declared = in.take<VARTYPE>();  // any VARTYPE at all
    const uint8_t shape = in.take<uint8_t>();
    const VARTYPE element = pick(kElements, shape);
    const UINT dims = 1 + (mode >> 2) % 3;
    SAFEARRAY* parray = (mode & 0x80) != 0 ? nullptr : makeArray(in, element, (shape & 0x80) != 0, dims);

    VARIANT v;
    VariantInit(&v);
    v.vt = declared;
    v.parray = parray;
    std::string text;
    const ArrayText result = arrayText(v, text);
    if (result == ArrayText::Rendered) {
        if (SafeArrayGetDim(parray) != 1) opc::fuzz::fail("rendered an array of more than one dimension");
        if ((declared & VT_TYPEMASK) != VT_BSTR) {
            for (const char c : text)
                if (c < 0x20 || c > 0x7E) opc::fuzz::fail("array text holds a byte no element text has");
        }
    } else if (result != ArrayText::Malformed && !text.empty()) {
        opc::fuzz::fail("text without a rendered array");
    }
    if (parray != nullptr) SafeArrayDestroy(parray);  // the array's own description decides the freeing
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const opc::fuzz::LedgerUnchanged ledger;
    FuzzInput in(data, size);
    const uint8_t mode = in.take<uint8_t>();
    if (mode % 4 == 0)
        scalar(in);
    else
        array(in, mode);
    return 0;
}
