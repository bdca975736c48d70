// Small helpers shared by the simulation server's files.
#pragma once

#include "opc/platform.h"

#include <cstring>
#include <string>

namespace sim {

using WString = std::basic_string<WCHAR>;

// ASCII view of a wide text (each unit's low byte); "null" for a null pointer.
std::string narrow(const WCHAR* text);
WString widen(const char* text);

// A copy of the text in task memory, or nullptr if it cannot be allocated.
LPWSTR taskString(const WString& text);

FILETIME now();

// The braced upper-case text of a GUID.
WString guidText(const GUID& guid);

}  // namespace sim

namespace sim {

// Comma-separated numbers for the call record; long lists end in ",...".
template <typename T>
std::string joinNumbers(DWORD count, const T* values) {
    constexpr DWORD kShown = 32;
    std::string out;
    if (values == nullptr) return "null";
    for (DWORD i = 0; i < count && i < kShown; ++i) {
        if (i) out += ',';
        out += std::to_string(values[i]);
    }
    if (count > kShown) out += ",...";
    return out;
}

// Task memory for `count` elements, zero-filled; nullptr if it cannot be allocated.
template <typename T>
T* taskArray(DWORD count) {
    const size_t bytes = sizeof(T) * (count ? count : 1);
    void* block = CoTaskMemAlloc(bytes);
    if (block) std::memset(block, 0, bytes);
    return static_cast<T*>(block);
}

}  // namespace sim
