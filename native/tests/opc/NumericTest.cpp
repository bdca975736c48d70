// Numeric variant access: which types count, how doubles narrow and wrap.
// The valid paths never touch Java, so no JNI environment is needed here; the exception paths are
// exercised end to end from Java.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "OpcEnv.h"

using namespace opc;

namespace {

VARIANT stored(VARTYPE type, double value) {
    VARIANT v;
    VariantInit(&v);
    EXPECT_TRUE(OpcEnv::setNumericValue(nullptr, v, type, value));
    EXPECT_EQ(v.vt, type);
    return v;
}

}  // namespace

TEST(Numeric, TypeSet) {
    for (VARTYPE t : {VT_I2, VT_I4, VT_R4, VT_R8, VT_I1, VT_UI1, VT_UI2, VT_UI4, VT_INT, VT_UINT})
        EXPECT_TRUE(OpcEnv::isNumeric(t)) << t;
    for (int t : {int(VT_EMPTY), int(VT_BOOL), int(VT_CY), int(VT_DATE), int(VT_DECIMAL), int(VT_I8), int(VT_UI8),
                  int(VT_BSTR), VT_ARRAY | VT_R8, VT_BYREF | VT_I4})
        EXPECT_FALSE(OpcEnv::isNumeric(static_cast<VARTYPE>(t))) << t;
}

TEST(Numeric, SignedNarrowingWrapsThroughInt32) {
    EXPECT_EQ(stored(VT_I2, 70000.0).iVal, 4464);
    EXPECT_EQ(stored(VT_I2, -32769.0).iVal, 32767);
    EXPECT_EQ(stored(VT_I4, 1e10).lVal, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(stored(VT_I4, std::nan("")).lVal, std::numeric_limits<int32_t>::min());
    EXPECT_EQ(stored(VT_I4, -2.9).lVal, -2);
    EXPECT_EQ(stored(VT_INT, 2147483647.9).intVal, 2147483647);
    EXPECT_EQ(stored(VT_I1, -129.7).cVal, 127);
}

TEST(Numeric, UnsignedNarrowingWrapsThroughInt64) {
    EXPECT_EQ(stored(VT_UI4, 1e10).ulVal, 1410065408u);
    EXPECT_EQ(stored(VT_UI4, -1.0).ulVal, 4294967295u);
    EXPECT_EQ(stored(VT_UI4, std::nan("")).ulVal, 0u);
    EXPECT_EQ(stored(VT_UINT, 1e30).uintVal, 0u);
    EXPECT_EQ(stored(VT_UI1, 255.9).bVal, 255);
    EXPECT_EQ(stored(VT_UI1, 256.0).bVal, 0);
    EXPECT_EQ(stored(VT_UI2, 65537.0).uiVal, 1);
}

TEST(Numeric, FloatsAndReadBack) {
    EXPECT_TRUE(std::isinf(stored(VT_R4, 1e300).fltVal));
    EXPECT_FLOAT_EQ(stored(VT_R4, 0.1).fltVal, 0.1f);
    EXPECT_EQ(stored(VT_R8, -0.0).dblVal, 0.0);

    VARIANT v = stored(VT_UI4, 4294967295.0);
    EXPECT_EQ(OpcEnv::getNumericValue(nullptr, v), 4294967295.0);
    v = stored(VT_I1, -5);
    EXPECT_EQ(OpcEnv::getNumericValue(nullptr, v), -5.0);
    v = stored(VT_R4, 1.5);
    EXPECT_EQ(OpcEnv::getNumericValue(nullptr, v), 1.5);
}
