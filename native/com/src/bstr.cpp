// BSTR: [4 bytes unused][4-byte byte length][characters][zero character]. The pointer handed out is
// the first character, 8-byte aligned. The ledger knows every live string by address, which catches
// frees of foreign or already freed strings before anything is read through them.
#include "internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t kPrefix = 8;
constexpr UINT kMaxBytes = 0x7FFFFFF0u;

char* blockOf(BSTR s) { return reinterpret_cast<char*>(s) - kPrefix; }
uint32_t* lengthOf(BSTR s) { return reinterpret_cast<uint32_t*>(reinterpret_cast<char*>(s) - 4); }

// Takes the string out of the ledger, or stops the process when it is not a live BSTR.
void removeLive(BSTR s, const char* what) {
    if (!substrate::blockRemove(s, LEDGER_BSTR)) {
        std::fprintf(stderr, "%s: %p is not a live BSTR\n", what, static_cast<void*>(s));
        std::abort();
    }
}

// A string of byteLength bytes, zero-filled, with a two-byte terminator after them.
BSTR allocateBytes(UINT byteLength) {
    if (byteLength > kMaxBytes) return nullptr;
    auto* block = static_cast<char*>(std::calloc(1, kPrefix + byteLength + sizeof(OLECHAR) + 1));
    if (block == nullptr) return nullptr;
    auto* s = reinterpret_cast<BSTR>(block + kPrefix);
    *lengthOf(s) = byteLength;
    substrate::blockAdd(s, LEDGER_BSTR);
    return s;
}

}  // namespace

BSTR SysAllocStringLen(const OLECHAR* strIn, UINT ui) {
    if (ui > kMaxBytes / sizeof(OLECHAR)) return nullptr;
    BSTR s = allocateBytes(ui * sizeof(OLECHAR));
    if (s != nullptr && strIn != nullptr) std::memcpy(s, strIn, ui * sizeof(OLECHAR));
    return s;
}

BSTR SysAllocString(const OLECHAR* psz) {
    if (psz == nullptr) return nullptr;
    return SysAllocStringLen(psz, static_cast<UINT>(substrate::length16(psz)));
}

BSTR SysAllocStringByteLen(LPCSTR psz, UINT len) {
    BSTR s = allocateBytes(len);
    if (s != nullptr && psz != nullptr) std::memcpy(s, psz, len);
    return s;
}

void SysFreeString(BSTR bstrString) {
    if (bstrString == nullptr) return;
    removeLive(bstrString, "SysFreeString");
    std::free(blockOf(bstrString));
}

INT SysReAllocStringLen(BSTR* pbstr, const OLECHAR* psz, UINT len) {
    if (pbstr == nullptr) return FALSE;
    BSTR fresh = SysAllocStringLen(psz, len);  // before the free: psz may point into *pbstr
    if (fresh == nullptr) return FALSE;
    SysFreeString(*pbstr);
    *pbstr = fresh;
    return TRUE;
}

INT SysReAllocString(BSTR* pbstr, const OLECHAR* psz) {
    if (pbstr == nullptr) return FALSE;
    BSTR fresh = SysAllocString(psz);
    if (fresh == nullptr && psz != nullptr) return FALSE;
    SysFreeString(*pbstr);
    *pbstr = fresh;
    return TRUE;
}

UINT SysStringByteLen(BSTR bstr) {
    if (bstr == nullptr) return 0;
    return *lengthOf(bstr);
}

UINT SysStringLen(BSTR pbstr) { return SysStringByteLen(pbstr) / sizeof(OLECHAR); }
