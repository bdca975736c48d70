// Code-page conversion: length rules, size queries, errors, replacement characters.
#include "ComTestSupport.h"

#include <algorithm>
#include <cstring>

namespace {

void expectFailure(DWORD error, int result) {
    EXPECT_EQ(0, result);
    EXPECT_EQ(error, GetLastError());
}

}  // namespace

TEST(CodePage, MinusOneCountsAndWritesTheTerminatorExplicitLengthNeither) {
    for (UINT page : {UINT(CP_ACP), UINT(CP_UTF8)}) {
        WCHAR wide[8];
        std::fill(wide, wide + 8, WCHAR('x'));
        EXPECT_EQ(6, MultiByteToWideChar(page, 0, "hello", -1, nullptr, 0));
        EXPECT_EQ(6, MultiByteToWideChar(page, 0, "hello", -1, wide, 8));
        EXPECT_EQ(0, wide[5]);
        wide[5] = 'x';
        EXPECT_EQ(5, MultiByteToWideChar(page, 0, "hello", 5, wide, 8));
        EXPECT_EQ('x', wide[5]);

        char narrow[8];
        std::memset(narrow, 'x', sizeof(narrow));
        EXPECT_EQ(6, WideCharToMultiByte(page, 0, OLESTR("hello"), -1, narrow, 8, nullptr, nullptr));
        EXPECT_STREQ("hello", narrow);
        narrow[5] = 'x';
        EXPECT_EQ(5, WideCharToMultiByte(page, 0, OLESTR("hello"), 5, narrow, 8, nullptr, nullptr));
        EXPECT_EQ('x', narrow[5]);
    }
}

TEST(CodePage, ShortBuffersAndInvalidArgumentsFail) {
    EXPECT_EQ(3, WideCharToMultiByte(CP_UTF8, 0, OLESTR("\u00e9"), -1, nullptr, 0, nullptr, nullptr));
    WCHAR wide[4];
    char narrow[4];
    SetLastError(0);
    expectFailure(ERROR_INSUFFICIENT_BUFFER, MultiByteToWideChar(CP_ACP, 0, "hello", -1, wide, 3));
    expectFailure(ERROR_INSUFFICIENT_BUFFER, WideCharToMultiByte(CP_UTF8, 0, OLESTR("\u00e9"), 1, narrow, 1, nullptr,
                                                                 nullptr));
    expectFailure(ERROR_INVALID_PARAMETER, MultiByteToWideChar(CP_ACP, 0, "abc", 0, wide, 4));
    expectFailure(ERROR_INVALID_PARAMETER, MultiByteToWideChar(CP_ACP, 0, nullptr, 3, wide, 4));
    expectFailure(ERROR_INVALID_PARAMETER, MultiByteToWideChar(CP_ACP, 0, "abc", 3, nullptr, 4));
    expectFailure(ERROR_INVALID_PARAMETER, MultiByteToWideChar(CP_ACP, 0, "abc", 3, wide, -1));
    expectFailure(ERROR_INVALID_PARAMETER, WideCharToMultiByte(CP_ACP, 0, OLESTR("abc"), 0, narrow, 4, nullptr,
                                                               nullptr));
    expectFailure(ERROR_INVALID_PARAMETER, WideCharToMultiByte(CP_ACP, 0, nullptr, 3, narrow, 4, nullptr, nullptr));
}

TEST(CodePage, UnmappableCharactersBecomeTheDefaultCharacter) {
    char narrow[8] = {};
    BOOL used = FALSE;
    const WCHAR text[] = {'a', 0x4E2D, 0xE9, 0};
    EXPECT_EQ(4, WideCharToMultiByte(CP_ACP, 0, text, -1, narrow, 8, nullptr, &used));
    EXPECT_STREQ("a?\xE9", narrow);
    EXPECT_TRUE(used);
    EXPECT_EQ(4, WideCharToMultiByte(CP_THREAD_ACP, 0, text, -1, narrow, 8, "#", &used));
    EXPECT_STREQ("a#\xE9", narrow);
    EXPECT_EQ(2, WideCharToMultiByte(CP_ACP, 0, OLESTR("a"), -1, narrow, 8, nullptr, &used));
    EXPECT_FALSE(used);
#ifndef _WIN32
    // The ANSI page here is Latin-1, not 1252 with its euro sign at 0x80.
    WCHAR wide[2] = {};
    EXPECT_EQ(1, MultiByteToWideChar(CP_ACP, 0, "\x80", 1, wide, 2));
    EXPECT_EQ(0x80, wide[0]);
    const WCHAR euro[] = {0x20AC};
    EXPECT_EQ(1, WideCharToMultiByte(CP_ACP, 0, euro, 1, narrow, 2, nullptr, nullptr));
    EXPECT_EQ('?', narrow[0]);
#endif
}

TEST(CodePage, Utf8InvalidInputIsReplacedOrRefused) {
    WCHAR wide[4] = {};
    EXPECT_EQ(2, MultiByteToWideChar(CP_UTF8, 0, "\xC3\xA9" "a", 3, wide, 4));
    EXPECT_EQ(0xE9, wide[0]);
    EXPECT_EQ(1, MultiByteToWideChar(CP_UTF8, 0, "\xFF", 1, wide, 4));
    EXPECT_EQ(0xFFFD, wide[0]);
    expectFailure(ERROR_NO_UNICODE_TRANSLATION, MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "\xFF", 1, wide, 4));

    const WCHAR pair[] = {0xD83D, 0xDE00};
    char narrow[8] = {};
    EXPECT_EQ(4, WideCharToMultiByte(CP_UTF8, 0, pair, 2, narrow, 8, nullptr, nullptr));
    EXPECT_EQ(0, std::memcmp("\xF0\x9F\x98\x80", narrow, 4));
    expectFailure(ERROR_NO_UNICODE_TRANSLATION, WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, pair, 1, narrow, 8,
                                                                    nullptr, nullptr));
}

TEST(CodePage, Utf8RefusesDefaultCharacterArguments) {
    SKIP_UNDER_WINE("Wine 8 converts instead of refusing the default-character arguments for UTF-8");
    char narrow[4];
    BOOL used = FALSE;
    expectFailure(ERROR_INVALID_PARAMETER, WideCharToMultiByte(CP_UTF8, 0, OLESTR("a"), 1, narrow, 4, nullptr, &used));
}
