#include "Common.h"

#include <chrono>
#include <cstring>

namespace sim {

std::string narrow(const WCHAR* text) {
    if (text == nullptr) return "null";
    std::string out;
    for (const WCHAR* p = text; *p; ++p) out.push_back(static_cast<char>(*p & 0xFF));
    return out;
}

WString widen(const char* text) {
    WString out;
    for (const char* p = text; p && *p; ++p) out.push_back(static_cast<WCHAR>(static_cast<unsigned char>(*p)));
    return out;
}

LPWSTR taskString(const WString& text) {
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(WCHAR));
    return copy;
}

WString guidText(const GUID& guid) {
    OLECHAR buffer[40];
    return StringFromGUID2(guid, buffer, 40) > 0 ? WString(buffer) : WString();
}

FILETIME now() {
    using namespace std::chrono;
    constexpr unsigned long long kUnixEpochIn1601Ticks = 116444736000000000ULL;
    const auto micros = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    const unsigned long long ticks = kUnixEpochIn1601Ticks + static_cast<unsigned long long>(micros) * 10;
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(ticks & 0xFFFFFFFFu);
    ft.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    return ft;
}

}  // namespace sim
