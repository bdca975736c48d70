// GUID text conversions and programmatic identifiers.
#include "internal.h"

#include <cstring>

namespace {
constexpr int kGuidChars = 39;  // braced text plus terminator
}

namespace substrate {

namespace {

int hexValue(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

// Reads `digits` hex digits into *field, starting from zero and updating it digit by digit, so
// a failure leaves the digits read so far in place (callers rely on that partial write).
template <typename T>
bool readHex(const char16_t*& p, int digits, T* field) {
    *field = 0;
    for (int i = 0; i < digits; ++i) {
        const int v = hexValue(*p);
        if (v < 0) return false;
        *field = static_cast<T>((*field << 4) | v);
        ++p;
    }
    return true;
}

bool expect(const char16_t*& p, char16_t c) {
    if (*p != c) return false;
    ++p;
    return true;
}

// Parses "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" into *out, field by field.
bool parseBraced(const char16_t*& p, GUID* out) {
    if (!expect(p, u'{') || !readHex(p, 8, &out->Data1) || !expect(p, u'-') || !readHex(p, 4, &out->Data2) ||
        !expect(p, u'-') || !readHex(p, 4, &out->Data3) || !expect(p, u'-'))
        return false;
    for (int i = 0; i < 8; ++i) {
        if (i == 2 && !expect(p, u'-')) return false;
        if (!readHex(p, 2, &out->Data4[i])) return false;
    }
    return expect(p, u'}');
}

}  // namespace

bool parseGuid(const char16_t* text, GUID* out) {
    GUID g{};
    const char16_t* p = text;
    if (!parseBraced(p, &g) || *p != 0) return false;
    *out = g;
    return true;
}

std::u16string guidText(const GUID& g) {
    static const char16_t kHex[] = u"0123456789ABCDEF";
    std::u16string s;
    s.reserve(38);
    auto put = [&](uint64_t v, int digits) {
        for (int i = digits - 1; i >= 0; --i) s.push_back(kHex[(v >> (4 * i)) & 0xF]);
    };
    s.push_back(u'{');
    put(g.Data1, 8);
    s.push_back(u'-');
    put(g.Data2, 4);
    s.push_back(u'-');
    put(g.Data3, 4);
    s.push_back(u'-');
    for (int i = 0; i < 8; ++i) {
        if (i == 2) s.push_back(u'-');
        put(g.Data4[i], 2);
    }
    s.push_back(u'}');
    return s;
}

}  // namespace substrate

HRESULT IIDFromString(LPCOLESTR lpsz, LPIID lpiid) {
    if (lpiid == nullptr) return E_INVALIDARG;
    if (lpsz == nullptr) {
        *lpiid = GUID_NULL;
        return S_OK;
    }
    if (substrate::length16(lpsz) != kGuidChars - 1) return E_INVALIDARG;
    if (lpsz[0] != u'{') return CO_E_IIDSTRING;
    const char16_t* p = lpsz;
    return substrate::parseBraced(p, lpiid) ? S_OK : CO_E_IIDSTRING;
}

HRESULT CLSIDFromProgID(LPCOLESTR lpszProgID, LPCLSID lpclsid) {
    if (lpszProgID == nullptr || lpclsid == nullptr) return E_INVALIDARG;
    std::u16string text;
    GUID g{};
    if (*lpszProgID == 0 || !substrate::classRootString(std::u16string(lpszProgID) + u"\\CLSID", &text) ||
        !substrate::parseGuid(text.c_str(), &g)) {
        *lpclsid = GUID_NULL;
        return CO_E_CLASSSTRING;
    }
    *lpclsid = g;
    return S_OK;
}

HRESULT CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid) {
    if (pclsid == nullptr) return E_INVALIDARG;
    if (lpsz == nullptr) {
        *pclsid = GUID_NULL;
        return S_OK;
    }
    if (lpsz[0] == u'{') {
        // Malformed braced text leaves what was parsed; trailing text after a whole GUID fails
        // with the GUID written.
        const char16_t* p = lpsz;
        return substrate::parseBraced(p, pclsid) && *p == 0 ? S_OK : CO_E_CLASSSTRING;
    }
    return CLSIDFromProgID(lpsz, pclsid);
}

HRESULT ProgIDFromCLSID(REFCLSID clsid, LPOLESTR* lplpszProgID) {
    if (lplpszProgID == nullptr) return E_INVALIDARG;
    *lplpszProgID = nullptr;
    std::u16string progId;
    if (!substrate::classRootString(u"CLSID\\" + substrate::guidText(clsid) + u"\\ProgID", &progId))
        return REGDB_E_CLASSNOTREG;
    auto* out = static_cast<LPOLESTR>(CoTaskMemAlloc((progId.size() + 1) * sizeof(OLECHAR)));
    if (out == nullptr) return E_OUTOFMEMORY;
    std::memcpy(out, progId.c_str(), (progId.size() + 1) * sizeof(OLECHAR));
    *lplpszProgID = out;
    return S_OK;
}

int StringFromGUID2(REFGUID rguid, LPOLESTR lpsz, int cchMax) {
    if (lpsz == nullptr || cchMax < kGuidChars) return 0;
    const std::u16string text = substrate::guidText(rguid);
    std::memcpy(lpsz, text.c_str(), kGuidChars * sizeof(OLECHAR));
    return kGuidChars;
}

HRESULT StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz) {
    if (lplpsz == nullptr) return E_INVALIDARG;
    *lplpsz = static_cast<LPOLESTR>(CoTaskMemAlloc(kGuidChars * sizeof(OLECHAR)));
    if (*lplpsz == nullptr) return E_OUTOFMEMORY;
    StringFromGUID2(rclsid, *lplpsz, kGuidChars);
    return S_OK;
}

HRESULT StringFromIID(REFIID rclsid, LPOLESTR* lplpsz) { return StringFromCLSID(rclsid, lplpsz); }
