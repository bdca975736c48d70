// The pure conversions of the library's environment.
#include <gtest/gtest.h>

#include "OpcEnv.h"

using namespace opc;

namespace {

FILETIME fileTime(uint64_t ticks) {
    FILETIME t;
    t.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
    t.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return t;
}

}  // namespace

TEST(JavaTime, EpochTruncationAndSign) {
    EXPECT_EQ(OpcEnv::toJavaTime(fileTime(116444736000000000ULL)), 0);
    EXPECT_EQ(OpcEnv::toJavaTime(fileTime(116444736000009999ULL)), 0);          // truncated, not rounded
    EXPECT_EQ(OpcEnv::toJavaTime(fileTime(116444736000000000ULL + 1230000)), 123);
    EXPECT_EQ(OpcEnv::toJavaTime(fileTime(0)), -11644473600000LL);
    // The high bit makes the count negative: truncation goes toward zero.
    EXPECT_EQ(OpcEnv::toJavaTime(fileTime(0xFFFFFFFFFFFFFFFFULL)), 0 - 11644473600000LL);
    EXPECT_EQ(OpcEnv::toJavaTime(fileTime(0xFFFFFFFFFFFF0000ULL)), -6 - 11644473600000LL);
}

TEST(NarrowString, KeepsLengthAndLowBytes) {
    EXPECT_EQ(OpcEnv::toNarrowString(WideText(OLESTR("12.5"))), "12.5");
    EXPECT_EQ(OpcEnv::toNarrowString(WideText(1, OLECHAR(0x0141))), std::string("\x41"));
    const WideText withZero{OLECHAR('a'), OLECHAR(0), OLECHAR(0x20AC)};
    const std::string narrow = OpcEnv::toNarrowString(withZero);
    ASSERT_EQ(narrow.size(), 3u);
    EXPECT_EQ(narrow[1], '\0');
    EXPECT_EQ(static_cast<unsigned char>(narrow[2]), 0xACu);
    EXPECT_EQ(OpcEnv::toNarrowString(WideText()), "");
}

TEST(HexText, LowercaseWithoutPrefixOrPadding) {
    EXPECT_EQ(OpcEnv::hexText(static_cast<HRESULT>(0x80010119)), "80010119");
    EXPECT_EQ(OpcEnv::hexText(S_FALSE), "1");
    EXPECT_EQ(OpcEnv::hexText(static_cast<HRESULT>(0x8004000F)), "8004000f");
    EXPECT_EQ(OpcEnv::hexText(S_OK), "0");
}

TEST(Handles, RoundTripPointers) {
    int object = 0;
    const jlong handle = OpcEnv::toHandle(&object);
    EXPECT_NE(handle, 0);
    EXPECT_EQ(OpcEnv::fromHandle<int>(handle), &object);
    EXPECT_EQ(OpcEnv::fromHandle<int>(0), nullptr);
}

TEST(FromIID, BracedUpperCaseInTaskMemory) {
    const IID unknown = IID_IUnknown;
    auto text = OpcEnv::fromIID(unknown);
    ASSERT_TRUE(text);
    EXPECT_EQ(WideText(text.get()), WideText(OLESTR("{00000000-0000-0000-C000-000000000046}")));
}
