// The console: wide text out as UTF-8 bytes on standard output.
#include "internal.h"

#include <substrate/console.h>

#include <cstdio>

void ConsoleWriteUtf16(const char16_t* text) {
    if (text == nullptr) return;
    const std::string bytes = substrate::toUtf8(text, substrate::length16(text));
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
    std::fflush(stdout);
}
