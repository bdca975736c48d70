// Array text and the batch form's number text.
#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>
#include <limits>
#include <type_traits>

#include "ValueDelivery.h"

using namespace opc;

namespace {

// A one-dimensional array variant built through the COM API, cleared at scope end.
template <typename E>
struct ArrayVariant {
    VARIANT v;
    ArrayVariant(VARTYPE element, std::initializer_list<E> items) {
        VariantInit(&v);
        v.vt = static_cast<VARTYPE>(VT_ARRAY | element);
        v.parray = SafeArrayCreateVector(element, 0, static_cast<ULONG>(items.size()));
        LONG i = 0;
        for (E item : items) {
            if constexpr (std::is_pointer_v<E>)
                SafeArrayPutElement(v.parray, &i, item);  // BSTRs go in by value
            else
                SafeArrayPutElement(v.parray, &i, &item);
            ++i;
        }
    }
    ~ArrayVariant() { VariantClear(&v); }
    std::string text() const {
        std::string out;
        EXPECT_EQ(arrayText(v, out), ArrayText::Rendered);
        return out;
    }
};

}  // namespace

TEST(ArrayText, NumbersBooleansAndEmptyArrays) {
    EXPECT_EQ((ArrayVariant<DOUBLE>(VT_R8, {1.26, 2.0, -3.14159}).text()), "1.3,2.0,-3.1");
    EXPECT_EQ((ArrayVariant<FLOAT>(VT_R4, {0.04f}).text()), "0.0");
    EXPECT_EQ((ArrayVariant<SHORT>(VT_I2, {-5, 0, 7}).text()), "-5,0,7");
    EXPECT_EQ((ArrayVariant<LONG>(VT_I4, {-2147483647 - 1, 12}).text()), "-2147483648,12");
    EXPECT_EQ((ArrayVariant<ULONG>(VT_UI4, {4294967295u}).text()), "4294967295");
    EXPECT_EQ((ArrayVariant<BYTE>(VT_UI1, {0, 255}).text()), "0,255");
    EXPECT_EQ((ArrayVariant<USHORT>(VT_UI2, {65535}).text()), "65535");
    EXPECT_EQ((ArrayVariant<VARIANT_BOOL>(VT_BOOL, {VARIANT_TRUE, VARIANT_FALSE}).text()), "true,false");
    EXPECT_EQ((ArrayVariant<DOUBLE>(VT_R8, {}).text()), "");
}

TEST(ArrayText, NullBstrElementsDropTheirSeparator) {
    // SafeArrayPutElement turns a null BSTR into an empty one, so null slots are simply left unset.
    const auto render = [](int nullSlot) {
        VARIANT v;
        VariantInit(&v);
        v.vt = VT_ARRAY | VT_BSTR;
        v.parray = SafeArrayCreateVector(VT_BSTR, 0, 3);
        const OLECHAR* texts[] = {OLESTR("ab"), OLESTR("c")};
        int next = 0;
        for (LONG i = 0; i < 3; ++i) {
            if (i == nullSlot) continue;
            BSTR element = SysAllocString(texts[next++]);
            SafeArrayPutElement(v.parray, &i, element);
            SysFreeString(element);
        }
        std::string out;
        EXPECT_EQ(arrayText(v, out), ArrayText::Rendered);
        VariantClear(&v);
        return out;
    };
    EXPECT_EQ(render(1), "ab,c");
    EXPECT_EQ(render(2), "ab,c,");
}

TEST(ArrayText, NotRenderableAndNullArrays) {
    VARIANT v;
    VariantInit(&v);
    std::string out = "stale";
    v.vt = VT_R8;
    EXPECT_EQ(arrayText(v, out), ArrayText::NotArray);
    EXPECT_EQ(out, "");
    v.vt = static_cast<VARTYPE>(VT_ARRAY | VT_I8);
    EXPECT_EQ(arrayText(v, out), ArrayText::NotArray);
    v.vt = static_cast<VARTYPE>(VT_ARRAY | VT_I4);
    v.parray = nullptr;
    EXPECT_EQ(arrayText(v, out), ArrayText::NullArray);
}

TEST(ArrayText, EveryMagnitudeRendersWhole) {
    const auto printed = [](const char* format, double value) {
        char buffer[512];
        std::snprintf(buffer, sizeof buffer, format, value);
        return std::string(buffer);
    };
    const double big = std::numeric_limits<double>::max();
    const std::string r8 = ArrayVariant<DOUBLE>(VT_R8, {1e300, 2.0, -big, 1e61}).text();
    EXPECT_EQ(r8, printed("%.1lf", 1e300) + ",2.0," + printed("%.1lf", -big) + "," + printed("%.1lf", 1e61));
    EXPECT_EQ(r8.size(), 303u + 5 + 312 + 1 + 63);  // 1e61 is stored as 9.99...e60
    const float bigFloat = std::numeric_limits<float>::max();
    EXPECT_EQ((ArrayVariant<FLOAT>(VT_R4, {bigFloat, -bigFloat}).text()),
              printed("%.1f", bigFloat) + "," + printed("%.1f", -bigFloat));
}

// Arrays that are not what their VARTYPE declares render nothing; bounds other than 0 are honoured.
TEST(ArrayText, ShapesComeFromTheArrayItself) {
    const auto render = [](VARTYPE declared, SAFEARRAY* array, std::string& out) {
        VARIANT v;
        VariantInit(&v);
        v.vt = declared;
        v.parray = array;
        const ArrayText result = arrayText(v, out);
        VariantClear(&v);
        return result;
    };
    std::string out;
    SAFEARRAYBOUND shifted{3, -2};
    SAFEARRAY* array = SafeArrayCreate(VT_I4, 1, &shifted);
    for (LONG i = -2; i <= 0; ++i) {
        LONG value = 10 * i;
        SafeArrayPutElement(array, &i, &value);
    }
    EXPECT_EQ(render(VT_ARRAY | VT_I4, array, out), ArrayText::Rendered);
    EXPECT_EQ(out, "-20,-10,0");

    SAFEARRAYBOUND distant{1, 2000000000};
    array = SafeArrayCreate(VT_UI2, 1, &distant);
    LONG last = 2000000000;
    USHORT seven = 7;
    SafeArrayPutElement(array, &last, &seven);
    EXPECT_EQ(render(VT_ARRAY | VT_UI2, array, out), ArrayText::Rendered);
    EXPECT_EQ(out, "7");

    SAFEARRAYBOUND square[] = {{2, 0}, {2, 0}};
    EXPECT_EQ(render(VT_ARRAY | VT_I4, SafeArrayCreate(VT_I4, 2, square), out), ArrayText::Malformed);
    EXPECT_EQ(render(VT_ARRAY | VT_UI1, SafeArrayCreateVector(VT_R8, 0, 2), out), ArrayText::Malformed);
    EXPECT_EQ(render(VT_ARRAY | VT_I4, SafeArrayCreateVector(VT_R4, 0, 2), out), ArrayText::Malformed);
    EXPECT_EQ(render(VT_ARRAY | VT_BSTR, SafeArrayCreateVector(VT_I8, 0, 2), out), ArrayText::Malformed);
    EXPECT_EQ(render(VT_ARRAY | VT_UI4, SafeArrayCreateVector(VT_BSTR, 0, 2), out),
              ArrayText::Malformed);
    EXPECT_EQ(out, "");

    // Bounds whose upper end wraps past the largest index cannot be walked.
    array = SafeArrayCreateVector(VT_UI1, 0, 2);
    array->rgsabound[0].lLbound = 0x7FFFFFFF;
    EXPECT_EQ(render(VT_ARRAY | VT_UI1, array, out), ArrayText::Malformed);
}

TEST(StreamText, SixSignificantDigits) {
    EXPECT_EQ(streamText(3.14159265), "3.14159");
    EXPECT_EQ(streamText(1234567.0), "1.23457e+06");
    EXPECT_EQ(streamText(42.0), "42");
    EXPECT_EQ(streamText(0.1), "0.1");
    EXPECT_EQ(streamText(123456.7), "123457");
}

TEST(ModifiedUtf8, Latin1BytesBecomeTwoByteSequences) {
    EXPECT_EQ(latin1ToModifiedUtf8("abc"), "abc");
    EXPECT_EQ(latin1ToModifiedUtf8(std::string("\xE9", 1)), "\xC3\xA9");
    EXPECT_EQ(latin1ToModifiedUtf8(std::string("\0", 1)), "\xC0\x80");
}
