// GUID text: parsing with its exact error codes and partial writes, and upper-case rendering.
#include "ComTestSupport.h"

#include <cstring>

namespace {

const GUID kSample = {0x39C13A4D, 0x011E, 0x11D0, {0x96, 0x75, 0x00, 0x20, 0xAF, 0xD8, 0xAD, 0xB3}};
const Text kSampleText = OLESTR("{39C13A4D-011E-11D0-9675-0020AFD8ADB3}");

GUID filled() {
    GUID g;
    std::memset(&g, 0xAB, sizeof(g));
    return g;
}

}  // namespace

TEST(Guid, ClsidFromStringTakesBracedGuidsInEitherCaseAndNullAndZeroesOtherwise) {
    for (LPCOLESTR text : {kSampleText.c_str(), OLESTR("{39c13a4d-011e-11d0-9675-0020afd8adb3}")}) {
        GUID g = filled();
        EXPECT_EQ(S_OK, CLSIDFromString(text, &g));
        EXPECT_TRUE(g == kSample);
    }
    GUID g = filled();
    EXPECT_EQ(S_OK, CLSIDFromString(nullptr, &g));
    EXPECT_TRUE(IsEqualGUID(GUID_NULL, g));
    // Text without braces is taken for a ProgID; an unknown one leaves a null GUID.
    for (LPCOLESTR text : {OLESTR("39C13A4D-011E-11D0-9675-0020AFD8ADB3"), OLESTR("No.Such.ProgId.1"), OLESTR("")}) {
        g = filled();
        EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromString(text, &g));
        EXPECT_TRUE(IsEqualGUID(GUID_NULL, g));
    }
}

TEST(Guid, ClsidFromStringLeavesAPartialGuidForMalformedBracedText) {
    GUID g = filled();
    // Data1 complete, then a bad separator: Data2 onwards untouched.
    EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromString(OLESTR("{39C13A4D+011E-11D0-9675-0020AFD8ADB3}"), &g));
    EXPECT_EQ(0x39C13A4Du, g.Data1);
    EXPECT_EQ(0xABABu, g.Data2);
    EXPECT_EQ(0xAB, g.Data4[7]);

    EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromString(OLESTR("{39C13A4D-01G1-11D0-9675-0020AFD8ADB3}"), &g));
    g = filled();
    // Only trailing text is wrong: the whole GUID is written.
    EXPECT_EQ(CO_E_CLASSSTRING, CLSIDFromString((kSampleText + OLESTR("x")).c_str(), &g));
    EXPECT_TRUE(g == kSample);
}

TEST(Guid, IidFromStringChecksLengthFirstAndNeverReadsProgIds) {
    GUID g = filled();
    const GUID untouched = filled();
    for (LPCOLESTR text : {OLESTR("{39C13A4D-011E-11D0-9675-0020AFD8ADB3}x"),
                           OLESTR("{39C13A4D-011E-11D0-9675-0020AFD8ADB}"), OLESTR("Scripting.Dictionary")})
        EXPECT_EQ(E_INVALIDARG, IIDFromString(text, &g));
    EXPECT_EQ(CO_E_IIDSTRING, IIDFromString(OLESTR("x39C13A4D-011E-11D0-9675-0020AFD8ADB3}"), &g));
    EXPECT_EQ(0, std::memcmp(&untouched, &g, sizeof(g)));
    EXPECT_EQ(CO_E_IIDSTRING, IIDFromString(OLESTR("{39C13A4D-011E-11D0-9675-0020AFD8ADB3)"), &g));
    EXPECT_EQ(0x39C13A4Du, g.Data1);  // parsed up to the bad closing character
    EXPECT_EQ(S_OK, IIDFromString(nullptr, &g));
    EXPECT_TRUE(IsEqualGUID(GUID_NULL, g));
    EXPECT_EQ(S_OK, IIDFromString(OLESTR("{00000001-0000-0000-c000-000000000046}"), &g));
    EXPECT_TRUE(IsEqualIID(IID_IClassFactory, g));
}

TEST(Guid, TextIsBracedAndUpperCase) {
    LedgerScope ledger;
    LPOLESTR text = nullptr;
    ASSERT_EQ(S_OK, StringFromIID(IID_IClassFactory, &text));  // in task memory
    EXPECT_EQ(Text(OLESTR("{00000001-0000-0000-C000-000000000046}")), Text(text));
    CoTaskMemFree(text);
    OLECHAR buffer[40];
    EXPECT_EQ(39, StringFromGUID2(kSample, buffer, 39));  // the terminator counts
    EXPECT_EQ(kSampleText, Text(buffer));
    EXPECT_EQ(0, StringFromGUID2(kSample, buffer, 38));
    EXPECT_FALSE(kSample != kSample);
}
