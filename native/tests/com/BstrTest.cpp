// BSTR: length-prefixed, may hold zeros, NULL is a legal empty string.
#include "ComTestSupport.h"

#include <cstring>

TEST(Bstr, NullAndEmptyAreDistinctButBothEmpty) {
    LedgerScope ledger;
    EXPECT_EQ(nullptr, SysAllocString(nullptr));
    EXPECT_EQ(0u, SysStringLen(nullptr));
    EXPECT_EQ(0u, SysStringByteLen(nullptr));
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
    EXPECT_EQ(6u, SysStringByteLen(s));
    EXPECT_EQ(6u, reinterpret_cast<const UINT*>(s)[-1]);  // the byte count right before the text
    EXPECT_EQ('b', s[2]);
    EXPECT_EQ(0, s[3]);  // terminated, terminator not counted
    SysFreeString(s);

    BSTR odd = SysAllocStringByteLen("abc", 3);
    ASSERT_NE(nullptr, odd);
    EXPECT_EQ(3u, SysStringByteLen(odd));
    EXPECT_EQ(1u, SysStringLen(odd));
    SysFreeString(odd);

    BSTR untilZero = SysAllocString(text);  // SysAllocString copies up to the first zero
    EXPECT_EQ(1u, SysStringLen(untilZero));
    SysFreeString(untilZero);
}

TEST(Bstr, ReallocationMayReadFromTheOldString) {
    LedgerScope ledger;
    BSTR s = SysAllocString(OLESTR("hello world"));
    ASSERT_TRUE(SysReAllocString(&s, s + 6));
    EXPECT_EQ(Text(OLESTR("world")), Text(s, SysStringLen(s)));
    ASSERT_TRUE(SysReAllocStringLen(&s, s, 3));
    EXPECT_EQ(Text(OLESTR("wor")), Text(s, SysStringLen(s)));
    SysFreeString(s);
}

#ifndef _WIN32
TEST(Bstr, LedgerCountsStringsNotTaskMemory) {
    const long long bstrs = LedgerLiveCount(LEDGER_BSTR);
    const long long blocks = LedgerLiveCount(LEDGER_TASKMEM);
    BSTR s = SysAllocString(OLESTR("x"));
    EXPECT_EQ(bstrs + 1, LedgerLiveCount(LEDGER_BSTR));
    EXPECT_EQ(blocks, LedgerLiveCount(LEDGER_TASKMEM));
    SysFreeString(s);
    EXPECT_EQ(bstrs, LedgerLiveCount(LEDGER_BSTR));
    EXPECT_EQ(-1, LedgerLiveCount(LEDGER_KINDS));
}

TEST(TaskMemory, ZeroBytesIsAValidBlockAndNullFreesNothing) {
    LedgerScope ledger;
    void* p = CoTaskMemAlloc(0);
    EXPECT_NE(nullptr, p);
    CoTaskMemFree(p);
    CoTaskMemFree(nullptr);
    void* grown = CoTaskMemRealloc(nullptr, 8);  // behaves as an allocation
    ASSERT_NE(nullptr, grown);
    std::memset(grown, 7, 8);
    grown = CoTaskMemRealloc(grown, 4096);
    ASSERT_NE(nullptr, grown);
    EXPECT_EQ(7, static_cast<unsigned char*>(grown)[7]);
    CoTaskMemFree(grown);
}

TEST(TaskMemoryDeathTest, FreeingAForeignPointerStopsTheProcess) {
    BSTR s = SysAllocString(OLESTR("not task memory"));
    EXPECT_DEATH(CoTaskMemFree(s), "not a live task-memory block");
    void* block = CoTaskMemAlloc(16);
    EXPECT_DEATH(SysFreeString(static_cast<BSTR>(block)), "not a live BSTR");
    CoTaskMemFree(block);
    SysFreeString(s);
}
#endif
