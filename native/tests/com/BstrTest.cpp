// BSTR and task memory: BSTRs are length-prefixed, may hold zeros, and NULL is a legal empty string.
#include "ComTestSupport.h"

TEST(Bstr, NullAndEmptyAreDistinctButBothEmpty) {
    LedgerScope ledger;
    EXPECT_EQ(nullptr, SysAllocString(nullptr));
    EXPECT_EQ(0u, SysStringLen(nullptr));
    SysFreeString(nullptr);  // a no-op

    BSTR empty = SysAllocString(OLESTR(""));
    ASSERT_NE(nullptr, empty);
    EXPECT_EQ(0u, SysStringLen(empty));
    EXPECT_EQ(0, empty[0]);
    SysFreeString(empty);
}

TEST(Bstr, LengthIsTheStoredPrefixNotTheFirstZero) {
    LedgerScope ledger;
    const OLECHAR text[] = {'a', 0, 'b'};
    BSTR s = SysAllocStringLen(text, 3);
    ASSERT_NE(nullptr, s);
    EXPECT_EQ(3u, SysStringLen(s));
    EXPECT_EQ(6u, reinterpret_cast<const UINT*>(s)[-1]);  // the byte count right before the text
    EXPECT_EQ('b', s[2]);
    EXPECT_EQ(0, s[3]);  // terminated, terminator not counted
    SysFreeString(s);

    BSTR untilZero = SysAllocString(text);  // SysAllocString copies up to the first zero
    EXPECT_EQ(1u, SysStringLen(untilZero));
    SysFreeString(untilZero);
}

#ifndef _WIN32
TEST(Ledger, CountsEachKindApartAndZeroByteBlocks) {
    const long long bstrs = LedgerLiveCount(LEDGER_BSTR);
    const long long blocks = LedgerLiveCount(LEDGER_TASKMEM);
    BSTR s = SysAllocString(OLESTR("x"));
    void* p = CoTaskMemAlloc(0);  // a valid block
    EXPECT_NE(nullptr, p);
    EXPECT_EQ(bstrs + 1, LedgerLiveCount(LEDGER_BSTR));
    EXPECT_EQ(blocks + 1, LedgerLiveCount(LEDGER_TASKMEM));
    SysFreeString(s);
    CoTaskMemFree(p);
    CoTaskMemFree(nullptr);
    EXPECT_EQ(bstrs, LedgerLiveCount(LEDGER_BSTR));
    EXPECT_EQ(blocks, LedgerLiveCount(LEDGER_TASKMEM));
    EXPECT_EQ(-1, LedgerLiveCount(LEDGER_KINDS));
}

TEST(LedgerDeathTest, FreeingAForeignPointerStopsTheProcess) {
    BSTR s = SysAllocString(OLESTR("not task memory"));
    EXPECT_DEATH(CoTaskMemFree(s), "not a live task-memory block");
    void* block = CoTaskMemAlloc(16);
    EXPECT_DEATH(SysFreeString(static_cast<BSTR>(block)), "not a live BSTR");
    SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 0, 4);
    EXPECT_DEATH(SafeArrayDestroy(reinterpret_cast<SAFEARRAY*>(block)), "not a live SAFEARRAY");
    EXPECT_DEATH(SysFreeString(reinterpret_cast<BSTR>(array)), "not a live BSTR");
    EXPECT_EQ(S_OK, SafeArrayDestroy(array));
    EXPECT_DEATH(SafeArrayDestroyDescriptor(array), "not a live SAFEARRAY");
    CoTaskMemFree(block);
    SysFreeString(s);
}
#endif
