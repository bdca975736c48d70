// Value texts to array VARIANTs, and the tokenizer behind them.
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "ValueParsing.h"

using namespace opc;

namespace {

std::vector<std::string> tokens(const std::string& text, bool keepEmpty = true) {
    std::vector<std::string> out{"kept"};
    const size_t n = OpcEnv::split(text, out, ',', keepEmpty);
    EXPECT_EQ(n, out.size() - 1) << text;
    out.erase(out.begin());
    return out;
}

// The elements of a parsed array as text, or "<failed>" / "<none>" when out stayed empty.
template <typename E>
std::vector<std::string> parsed(const std::string& text, VARTYPE type) {
    VARIANT v;
    VariantInit(&v);
    const ArrayParse result = parseArray(text, type, v);
    if (result != ArrayParse::Converted) {
        EXPECT_EQ(v.vt, VT_EMPTY);
        return {result == ArrayParse::BadToken ? "<failed>" : "<none>"};
    }
    EXPECT_EQ(v.vt, type);
    LONG lower = -1, upper = -1;
    SafeArrayGetLBound(v.parray, 1, &lower);
    SafeArrayGetUBound(v.parray, 1, &upper);
    EXPECT_EQ(lower, 0);
    EXPECT_EQ(SafeArrayGetDim(v.parray), 1u);
    std::vector<std::string> out;
    for (LONG i = 0; i <= upper; ++i) {
        E element{};
        SafeArrayGetElement(v.parray, &i, &element);
        if constexpr (std::is_same_v<E, BSTR>) {
            out.push_back(element == nullptr ? "<null>" : OpcEnv::toNarrowString(WideText(element, SysStringLen(element))));
            SysFreeString(element);
        } else if constexpr (std::is_floating_point_v<E>) {
            out.push_back(std::to_string(element));
        } else {
            out.push_back(std::to_string(static_cast<long long>(element)));
        }
    }
    VariantClear(&v);
    return out;
}

using Texts = std::vector<std::string>;

}  // namespace

TEST(Split, KeepsEmptyTokensOnlyWhenAsked) {
    EXPECT_EQ(tokens("a,,b"), (Texts{"a", "", "b"}));
    EXPECT_EQ(tokens("a,"), (Texts{"a", ""}));
    EXPECT_EQ(tokens(""), (Texts{""}));
    EXPECT_EQ(tokens(",", true), (Texts{"", ""}));
    EXPECT_EQ(tokens(" 1 , 2"), (Texts{" 1 ", " 2"}));  // never trimmed
    EXPECT_EQ(tokens("a,,b,", false), (Texts{"a", "b"}));
    EXPECT_EQ(tokens("", false), Texts{});
}

TEST(ParseArray, IntegersReadAsAStreamReadsThem) {
    EXPECT_EQ(parsed<SHORT>("1,2,3", VT_ARRAY | VT_I2), (Texts{"1", "2", "3"}));
    EXPECT_EQ(parsed<LONG>(" 7, 8", VT_ARRAY | VT_I4), (Texts{"7", "8"}));
    EXPECT_EQ(parsed<SHORT>("1.9,2", VT_ARRAY | VT_I2), (Texts{"1", "2"}));
    EXPECT_EQ(parsed<ULONG>("12abc", VT_ARRAY | VT_UI4), (Texts{"12"}));
    EXPECT_EQ(parsed<SHORT>("-32768,32767", VT_ARRAY | VT_I2), (Texts{"-32768", "32767"}));
    EXPECT_EQ(parsed<LONG>("-2147483648,2147483647", VT_ARRAY | VT_I4), (Texts{"-2147483648", "2147483647"}));
    // Unsigned types accept a minus sign and wrap.
    EXPECT_EQ(parsed<USHORT>("-1", VT_ARRAY | VT_UI2), (Texts{"65535"}));
    EXPECT_EQ(parsed<ULONG>("-1,4294967295", VT_ARRAY | VT_UI4), (Texts{"4294967295", "4294967295"}));
    EXPECT_EQ(parsed<BYTE>("255,0", VT_ARRAY | VT_UI1), (Texts{"255", "0"}));
}

TEST(ParseArray, OneBadTokenFailsTheWholeArray) {
    EXPECT_EQ(parsed<LONG>("1,,3", VT_ARRAY | VT_I4), Texts{"<failed>"});
    EXPECT_EQ(parsed<LONG>("1,a", VT_ARRAY | VT_I4), Texts{"<failed>"});
    EXPECT_EQ(parsed<LONG>("1, ", VT_ARRAY | VT_I4), Texts{"<failed>"});
    EXPECT_EQ(parsed<SHORT>("70000", VT_ARRAY | VT_I2), Texts{"<failed>"});
    EXPECT_EQ(parsed<LONG>("2147483648", VT_ARRAY | VT_I4), Texts{"<failed>"});
    EXPECT_EQ(parsed<USHORT>("65536", VT_ARRAY | VT_UI2), Texts{"<failed>"});
    EXPECT_EQ(parsed<BYTE>("256,5", VT_ARRAY | VT_UI1), Texts{"<failed>"});
    EXPECT_EQ(parsed<BYTE>("5,256", VT_ARRAY | VT_UI1), Texts{"<failed>"});
    EXPECT_EQ(parsed<BYTE>("-1", VT_ARRAY | VT_UI1), Texts{"<failed>"});
    EXPECT_EQ(parsed<FLOAT>("1e39", VT_ARRAY | VT_R4), Texts{"<failed>"});
    for (VARTYPE element : {VT_I2, VT_I4, VT_R4, VT_R8, VT_UI1, VT_UI2, VT_UI4})
        EXPECT_EQ(parsed<LONG>("", static_cast<VARTYPE>(VT_ARRAY | element)), Texts{"<failed>"}) << element;
}

TEST(ParseArray, RealsBooleansAndStrings) {
    EXPECT_EQ(parsed<DOUBLE>("2.5e3,-0.5", VT_ARRAY | VT_R8), (Texts{"2500.000000", "-0.500000"}));
    EXPECT_EQ(parsed<FLOAT>("1.5,3", VT_ARRAY | VT_R4), (Texts{"1.500000", "3.000000"}));
    EXPECT_EQ(parsed<VARIANT_BOOL>("true,TRUE,1,false", VT_ARRAY | VT_BOOL), (Texts{"-1", "0", "0", "0"}));
    EXPECT_EQ(parsed<VARIANT_BOOL>("", VT_ARRAY | VT_BOOL), (Texts{"0"}));
    EXPECT_EQ(parsed<BSTR>("a,b,", VT_ARRAY | VT_BSTR), (Texts{"a", "b", ""}));
    EXPECT_EQ(parsed<BSTR>("", VT_ARRAY | VT_BSTR), (Texts{""}));
    // Bytes above 0x7F are Latin-1 characters in the narrow code page.
    VARIANT v;
    VariantInit(&v);
    ASSERT_EQ(parseArray("\xE9t\xE9,x", VT_ARRAY | VT_BSTR, v), ArrayParse::Converted);
    LONG i = 0;
    BSTR first = nullptr;
    SafeArrayGetElement(v.parray, &i, &first);
    EXPECT_EQ(WideText(first, SysStringLen(first)), WideText(OLESTR("\u00E9t\u00E9")));
    SysFreeString(first);
    VariantClear(&v);
}

TEST(ParseArray, TypesWithoutAConversionLeaveTheVariantAlone) {
    for (VARTYPE type : {VARTYPE(VT_I4), VARTYPE(VT_BSTR), VARTYPE(VT_ARRAY | VT_I1), VARTYPE(VT_ARRAY | VT_I8),
                         VARTYPE(VT_ARRAY | VT_DATE), VARTYPE(VT_ARRAY | VT_VARIANT), VARTYPE(VT_ARRAY | VT_BYREF | VT_I4)})
        EXPECT_EQ(parsed<LONG>("1,2", type), Texts{"<none>"}) << type;
}
