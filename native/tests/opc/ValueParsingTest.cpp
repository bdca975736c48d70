// Value texts to array VARIANTs, and the tokenizer behind them.
#include <gtest/gtest.h>

#include <limits>
#include <locale>
#include <sstream>
#include <string>
#include <vector>

#include "ValueParsing.h"

using namespace opc;

namespace {

std::string element(SAFEARRAY* array, LONG i, VARTYPE type) {
    union {
        SHORT i2; LONG i4; FLOAT r4; DOUBLE r8; VARIANT_BOOL b; BYTE ui1; USHORT ui2; ULONG ui4; BSTR s;
    } e{};
    SafeArrayGetElement(array, &i, &e);
    std::ostringstream out;
    switch (type) {
        case VT_I2: out << e.i2; break;
        case VT_I4: out << e.i4; break;
        case VT_R4: out << e.r4; break;
        case VT_R8: out << e.r8; break;
        case VT_BOOL: out << e.b; break;
        case VT_UI1: out << unsigned(e.ui1); break;
        case VT_UI2: out << e.ui2; break;
        case VT_UI4: out << e.ui4; break;
        case VT_BSTR:
            out << (e.s ? OpcEnv::toNarrowString(WideText(e.s, SysStringLen(e.s))) : "<null>");
            SysFreeString(e.s);
            break;
    }
    return "[" + out.str() + "]";
}

// The elements of the parsed array, each in brackets, or why there is none.
std::string parsed(const std::string& text, VARTYPE type) {
    VARIANT v;
    VariantInit(&v);
    const ArrayParse result = parseArray(text, type, v);
    if (result != ArrayParse::Converted) {
        if (v.vt != VT_EMPTY) return "<touched>";
        return result == ArrayParse::BadToken ? "<failed>" : result == ArrayParse::NoConversion ? "<none>" : "<create>";
    }
    LONG lower = -1, upper = -1;
    SafeArrayGetLBound(v.parray, 1, &lower);
    SafeArrayGetUBound(v.parray, 1, &upper);
    std::string out = v.vt != type || lower != 0 || SafeArrayGetDim(v.parray) != 1 ? "<shape>" : "";
    for (LONG i = 0; i <= upper; ++i) out += element(v.parray, i, static_cast<VARTYPE>(type & ~VT_ARRAY));
    VariantClear(&v);
    return out;
}

std::vector<std::string> tokens(const std::string& text, bool keepEmpty) {
    std::vector<std::string> out{"kept"};
    const size_t appended = OpcEnv::split(text, out, ',', keepEmpty);
    EXPECT_EQ(appended, out.size() - 1) << text;
    return {out.begin() + 1, out.end()};
}

}  // namespace

TEST(Split, KeepsEmptyTokensOnlyWhenAsked) {
    using Texts = std::vector<std::string>;
    EXPECT_EQ(tokens("a,,b", true), (Texts{"a", "", "b"}));
    EXPECT_EQ(tokens(" 1 ,", true), (Texts{" 1 ", ""}));
    EXPECT_EQ(tokens("", true), (Texts{""}));
    EXPECT_EQ(tokens(",a,,b,", false), (Texts{"a", "b"}));
    EXPECT_EQ(tokens("", false), Texts{});
}

TEST(ParseArray, ElementsAreReadAsAClassicStreamReadsThem) {
    EXPECT_EQ(parsed("1,2,3", VT_ARRAY | VT_I2), "[1][2][3]");
    EXPECT_EQ(parsed(" 7, 8", VT_ARRAY | VT_I4), "[7][8]");
    EXPECT_EQ(parsed("1.9,-32768", VT_ARRAY | VT_I2), "[1][-32768]");
    EXPECT_EQ(parsed("12abc,-1", VT_ARRAY | VT_UI4), "[12][4294967295]");
    EXPECT_EQ(parsed("-1,65535", VT_ARRAY | VT_UI2), "[65535][65535]");
    EXPECT_EQ(parsed("255,0", VT_ARRAY | VT_UI1), "[255][0]");
    EXPECT_EQ(parsed("2.5e3,-0.5", VT_ARRAY | VT_R8), "[2500][-0.5]");
    EXPECT_EQ(parsed("1.5,3e38", VT_ARRAY | VT_R4), "[1.5][3e+38]");
    EXPECT_EQ(parsed("true,TRUE,1,false", VT_ARRAY | VT_BOOL), "[-1][0][0][0]");
    EXPECT_EQ(parsed("", VT_ARRAY | VT_BOOL), "[0]");
    EXPECT_EQ(parsed("a,b,", VT_ARRAY | VT_BSTR), "[a][b][]");
    EXPECT_EQ(parsed("", VT_ARRAY | VT_BSTR), "[]");
    EXPECT_EQ(parsed("\xE9t\xE9", VT_ARRAY | VT_BSTR), "[\xE9t\xE9]");
}

// What a classic stream makes of the token as Read, stored as Element, printed as element() prints it.
template <typename Read, typename Element>
std::string streamed(const std::string& token, Read limit = std::numeric_limits<Read>::max()) {
    std::istringstream in(token);
    in.imbue(std::locale::classic());
    Read value{};
    in >> value;
    if (in.fail() || value > limit) return "<failed>";
    std::ostringstream out;
    out << +static_cast<Element>(value);
    return "[" + out.str() + "]";
}

TEST(ParseArray, PlainTokensGiveWhatTheStreamGives) {
    for (const std::string token :
         {"0", "-0", "7", "-7", "00012", "32767", "-32768", "32768", "-32769", "255", "256", "65535", "65536",
          "123456789", "999999999", "1234567890", "4294967295", "5.", "0.1", "-2.25", "1.175494e-38",
          "0.00000000000000000001", "340282356779733661637539395458142568447", "123456789012345678901234567890",
          "123456789012345678901234567890.12345678901234567890123"}) {
        EXPECT_EQ(parsed(token, VT_ARRAY | VT_I2), (streamed<int16_t, SHORT>(token))) << token;
        EXPECT_EQ(parsed(token, VT_ARRAY | VT_I4), (streamed<int32_t, LONG>(token))) << token;
        EXPECT_EQ(parsed(token, VT_ARRAY | VT_UI1), (streamed<uint32_t, BYTE>(token, 255u))) << token;
        EXPECT_EQ(parsed(token, VT_ARRAY | VT_UI2), (streamed<uint16_t, USHORT>(token))) << token;
        EXPECT_EQ(parsed(token, VT_ARRAY | VT_UI4), (streamed<uint32_t, ULONG>(token))) << token;
        EXPECT_EQ(parsed(token, VT_ARRAY | VT_R4), (streamed<float, FLOAT>(token))) << token;
        EXPECT_EQ(parsed(token, VT_ARRAY | VT_R8), (streamed<double, DOUBLE>(token))) << token;
    }
}

TEST(ParseArray, OneBadTokenFailsTheWholeArray) {
    for (const char* text : {"1,,3", "1,a", "1, ", "", "70000", "-32769"})
        EXPECT_EQ(parsed(text, VT_ARRAY | VT_I2), "<failed>") << text;
    for (const char* text : {"256,5", "5,256", "-1"}) EXPECT_EQ(parsed(text, VT_ARRAY | VT_UI1), "<failed>") << text;
    EXPECT_EQ(parsed("2147483648", VT_ARRAY | VT_I4), "<failed>");
    EXPECT_EQ(parsed("65536", VT_ARRAY | VT_UI2), "<failed>");
    EXPECT_EQ(parsed("1e39", VT_ARRAY | VT_R4), "<failed>");
    EXPECT_EQ(parsed("x", VT_ARRAY | VT_R8), "<failed>");
    for (VARTYPE type : {VARTYPE(VT_I4), VARTYPE(VT_BSTR), VARTYPE(VT_ARRAY | VT_I1), VARTYPE(VT_ARRAY | VT_I8),
                         VARTYPE(VT_ARRAY | VT_VARIANT), VARTYPE(VT_ARRAY | VT_BYREF | VT_I4)})
        EXPECT_EQ(parsed("1,2", type), "<none>") << type;
}
