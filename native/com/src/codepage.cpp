// Code pages: Latin-1 as the ANSI page, and UTF-8.
#include "internal.h"

#include <cstring>

namespace {

constexpr char16_t kReplacement = 0xFFFD;
constexpr UINT kLatin1 = 28591;

thread_local DWORD lastError = 0;

bool isLatin1Page(UINT cp) { return cp == CP_ACP || cp == CP_OEMCP || cp == CP_THREAD_ACP || cp == kLatin1; }

void appendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Walks UTF-16 code points; unpaired surrogates are reported as invalid.
template <typename Visit>
void eachCodePoint(const char16_t* s, size_t n, Visit&& visit) {
    for (size_t i = 0; i < n; ++i) {
        const char16_t c = s[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < n && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
            visit(0x10000 + ((uint32_t(c) - 0xD800) << 10) + (uint32_t(s[i + 1]) - 0xDC00), true);
            ++i;
        } else {
            visit(c, !(c >= 0xD800 && c <= 0xDFFF));
        }
    }
}

// Decodes UTF-8; each invalid or truncated sequence gives one U+FFFD. Returns false if any was.
bool decodeUtf8(const unsigned char* s, size_t n, std::u16string& out) {
    bool valid = true;
    size_t i = 0;
    while (i < n) {
        const unsigned char b = s[i];
        uint32_t cp = 0;
        int extra = 0;
        uint32_t min = 0;
        if (b < 0x80) {
            out.push_back(b);
            ++i;
            continue;
        } else if (b >= 0xC2 && b <= 0xDF) {
            cp = b & 0x1F, extra = 1, min = 0x80;
        } else if (b >= 0xE0 && b <= 0xEF) {
            cp = b & 0x0F, extra = 2, min = 0x800;
        } else if (b >= 0xF0 && b <= 0xF4) {
            cp = b & 0x07, extra = 3, min = 0x10000;
        } else {
            out.push_back(kReplacement);
            valid = false;
            ++i;
            continue;
        }
        size_t j = 1;
        for (; j <= static_cast<size_t>(extra) && i + j < n && (s[i + j] & 0xC0) == 0x80; ++j)
            cp = (cp << 6) | (s[i + j] & 0x3F);
        if (j <= static_cast<size_t>(extra) || cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            out.push_back(kReplacement);
            valid = false;
            i += (j > 1 && j <= static_cast<size_t>(extra)) ? j : 1;
            continue;
        }
        if (cp >= 0x10000) {
            out.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
        i += j;
    }
    return valid;
}

int fail(DWORD error) {
    SetLastError(error);
    return 0;
}

// Hands the converted text over with the size rules shared by both directions.
template <typename Unit>
int deliver(const std::basic_string<Unit>& converted, Unit* dst, int dstSize) {
    const size_t needed = converted.size();
    if (needed > static_cast<size_t>(INT32_MAX)) return fail(ERROR_INVALID_PARAMETER);
    if (dstSize == 0) return static_cast<int>(needed);
    if (needed > static_cast<size_t>(dstSize)) {
        std::memcpy(dst, converted.data(), static_cast<size_t>(dstSize) * sizeof(Unit));
        return fail(ERROR_INSUFFICIENT_BUFFER);
    }
    std::memcpy(dst, converted.data(), needed * sizeof(Unit));
    return static_cast<int>(needed);
}

}  // namespace

namespace substrate {

std::string toUtf8(const char16_t* text, size_t length) {
    std::string out;
    out.reserve(length);
    eachCodePoint(text, length, [&](uint32_t cp, bool ok) { appendUtf8(out, ok ? cp : kReplacement); });
    return out;
}

std::string toUtf8(const std::u16string& text) { return toUtf8(text.data(), text.size()); }

std::u16string fromUtf8(const std::string& text) {
    std::u16string out;
    decodeUtf8(reinterpret_cast<const unsigned char*>(text.data()), text.size(), out);
    return out;
}

}  // namespace substrate

DWORD GetLastError(void) { return lastError; }
void SetLastError(DWORD dwErrCode) { lastError = dwErrCode; }
UINT GetACP(void) { return kLatin1; }

int MultiByteToWideChar(UINT CodePage, DWORD dwFlags, LPCCH lpMultiByteStr, int cbMultiByte, LPWSTR lpWideCharStr,
                        int cchWideChar) {
    if (lpMultiByteStr == nullptr || cbMultiByte == 0 || cbMultiByte < -1 || cchWideChar < 0 ||
        (lpWideCharStr == nullptr && cchWideChar != 0))
        return fail(ERROR_INVALID_PARAMETER);
    // With -1 the terminator is part of the source and so of the result.
    const size_t n = cbMultiByte == -1 ? std::strlen(lpMultiByteStr) + 1 : static_cast<size_t>(cbMultiByte);
    const auto* bytes = reinterpret_cast<const unsigned char*>(lpMultiByteStr);
    std::u16string converted;
    if (isLatin1Page(CodePage)) {
        converted.assign(bytes, bytes + n);
    } else if (CodePage == CP_UTF8) {
        if (!decodeUtf8(bytes, n, converted) && (dwFlags & MB_ERR_INVALID_CHARS))
            return fail(ERROR_NO_UNICODE_TRANSLATION);
    } else {
        return fail(ERROR_INVALID_PARAMETER);
    }
    return deliver(converted, lpWideCharStr, cchWideChar);
}

int WideCharToMultiByte(UINT CodePage, DWORD dwFlags, LPCWCH lpWideCharStr, int cchWideChar, LPSTR lpMultiByteStr,
                        int cbMultiByte, LPCCH lpDefaultChar, LPBOOL lpUsedDefaultChar) {
    if (lpWideCharStr == nullptr || cchWideChar == 0 || cchWideChar < -1 || cbMultiByte < 0 ||
        (lpMultiByteStr == nullptr && cbMultiByte != 0))
        return fail(ERROR_INVALID_PARAMETER);
    const size_t n =
        cchWideChar == -1 ? substrate::length16(lpWideCharStr) + 1 : static_cast<size_t>(cchWideChar);
    std::string converted;
    if (isLatin1Page(CodePage)) {
        const char fallback = lpDefaultChar != nullptr ? *lpDefaultChar : '?';
        bool used = false;
        eachCodePoint(lpWideCharStr, n, [&](uint32_t cp, bool) {
            if (cp <= 0xFF) {
                converted.push_back(static_cast<char>(cp));
            } else {
                converted.push_back(fallback);
                used = true;
            }
        });
        if (lpUsedDefaultChar != nullptr) *lpUsedDefaultChar = used ? TRUE : FALSE;
    } else if (CodePage == CP_UTF8) {
        if (lpDefaultChar != nullptr || lpUsedDefaultChar != nullptr) return fail(ERROR_INVALID_PARAMETER);
        bool valid = true;
        eachCodePoint(lpWideCharStr, n, [&](uint32_t cp, bool ok) {
            valid = valid && ok;
            appendUtf8(converted, ok ? cp : kReplacement);
        });
        if (!valid && (dwFlags & WC_ERR_INVALID_CHARS)) return fail(ERROR_NO_UNICODE_TRANSLATION);
    } else {
        return fail(ERROR_INVALID_PARAMETER);
    }
    return deliver(converted, lpMultiByteStr, cbMultiByte);
}
