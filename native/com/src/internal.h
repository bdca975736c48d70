// Shared internals of the COM runtime; nothing here is exported.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <substrate/ledger.h>

#include <atomic>
#include <string>
#include <vector>

namespace substrate {

// Ledger counters, one per LedgerKind. Relaxed increments keep the hot paths cheap.
extern std::atomic<long long> ledgerCounts[LEDGER_KINDS];
inline void ledgerAdd(LedgerKind kind) { ledgerCounts[kind].fetch_add(1, std::memory_order_relaxed); }
inline void ledgerRemove(LedgerKind kind) { ledgerCounts[kind].fetch_sub(1, std::memory_order_relaxed); }

// Live task-memory blocks and BSTRs by address (8-byte aligned) and kind; each call also keeps the
// kind's count. blockRemove answers false, and changes nothing, for a pointer that is not a live
// block of the kind: nothing is read through it.
void blockAdd(void* block, LedgerKind kind);
bool blockRemove(const void* block, LedgerKind kind);
bool blockIsLive(const void* block, LedgerKind kind);

// True when the calling thread may use COM: it entered an apartment, or the process has a
// multithreaded apartment that an uninitialised thread implicitly belongs to.
bool apartmentAvailable();
// The first marshalled call sets process security implicitly, as an explicit call would.
void markSecurityInitialized();

// UTF-16 / UTF-8 helpers. Unpaired surrogates and invalid bytes become U+FFFD.
std::string toUtf8(const char16_t* text, size_t length);
std::string toUtf8(const std::u16string& text);
std::u16string fromUtf8(const std::string& text);
inline size_t length16(const char16_t* s) {
    size_t n = 0;
    while (s[n] != 0) ++n;
    return n;
}

// GUID text: 38 characters, braced, upper-case hex.
std::u16string guidText(const GUID& guid);
// Parses a braced GUID followed by the end of the text.
bool parseGuid(const char16_t* text, GUID* out);

// Registry lookups used by activation and identifiers: the default (unnamed) string value of
// HKEY_CLASSES_ROOT\<path>; false when the key or value is missing.
bool classRootString(const std::u16string& path, std::u16string* value);

// The folder holding the COM runtime library itself, with a trailing '/'.
const std::string& runtimeFolder();

}  // namespace substrate
