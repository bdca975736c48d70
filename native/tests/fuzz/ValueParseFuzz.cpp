// Value text -> VARIANT, for every VARTYPE the write path accepts: the ten numeric types (the text
// read by atof), VT_BOOL, VT_BSTR and the nine array types (one element per comma-separated token).
// A converted array has exactly one element per token, renders again as a text of as many elements,
// and everything built is freed.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "ValueDelivery.h"
#include "ValueParsing.h"

using namespace opc;
using opc::fuzz::FuzzInput;

namespace {

constexpr VARTYPE kTypes[] = {VT_I2, VT_I4, VT_R4, VT_R8, VT_I1, VT_UI1, VT_UI2, VT_UI4, VT_INT, VT_UINT,
                              VT_BOOL, VT_BSTR};
constexpr VARTYPE kArrayElements[] = {VT_BSTR, VT_I2, VT_I4, VT_R4, VT_R8, VT_BOOL, VT_UI1, VT_UI2, VT_UI4};

void scalar(VARTYPE type, const std::string& text) {
    VARIANT v;
    VariantInit(&v);
    if (type == VT_BSTR) {
        const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
        v.vt = VT_BSTR;
        v.bstrVal = SysAllocStringLen(nullptr, static_cast<UINT>(length));
        MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), v.bstrVal, length);
    } else if (type == VT_BOOL) {
        v.vt = VT_BOOL;
        v.boolVal = text == "true" ? VARIANT_TRUE : VARIANT_FALSE;
    } else {
        const std::string zeroEnded(text.c_str());
        if (!OpcEnv::setNumericValue(nullptr, v, type, std::atof(zeroEnded.substr(0, 199).c_str())))
            opc::fuzz::fail("a numeric type refused");
        (void)OpcEnv::getNumericValue(nullptr, v);
    }
    VariantClear(&v);
}

void array(VARTYPE element, const std::string& text) {
    VARIANT v;
    VariantInit(&v);
    const ArrayParse result = parseArray(text, static_cast<VARTYPE>(VT_ARRAY | element), v);
    if (result == ArrayParse::NoConversion || result == ArrayParse::CannotCreate)
        opc::fuzz::fail("one of the nine array types not converted");
    if (result == ArrayParse::Converted) {
        const size_t tokens = static_cast<size_t>(std::count(text.begin(), text.end(), ',')) + 1;
        LONG upper = -1;
        SafeArrayGetUBound(v.parray, 1, &upper);
        if (static_cast<size_t>(upper) + 1 != tokens) opc::fuzz::fail("element count differs from token count");
        std::string rendered;
        if (arrayText(v, rendered) != ArrayText::Rendered) opc::fuzz::fail("a parsed array does not render");
        if (element != VT_BSTR && static_cast<size_t>(std::count(rendered.begin(), rendered.end(), ',')) + 1 != tokens)
            opc::fuzz::fail("rendered element count differs from token count");
    } else if (v.vt != VT_EMPTY) {
        opc::fuzz::fail("a failed parse left a value");
    }
    VariantClear(&v);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const opc::fuzz::LedgerUnchanged ledger;
    FuzzInput in(data, size);
    const uint8_t selector = in.take<uint8_t>();
    const std::string text = in.rest();
    if ((selector & 0x80) != 0)
        array(kArrayElements[selector % 9], text);
    else
        scalar(kTypes[selector % 12], text);
    return 0;
}
