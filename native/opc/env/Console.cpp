#include "Console.h"

#include <cstdio>

#ifdef _WIN32
#include <cwchar>
#else
#include <substrate/console.h>
#endif

namespace opc::console {

void writeBytes(const char* text) { std::fputs(text, stdout); }

void writeWide(const OLECHAR* text) {
#ifdef _WIN32
    std::fputws(text, stdout);
#else
    // glibc's stdout keeps one orientation for good, so wide text goes out as UTF-8 bytes.
    ConsoleWriteUtf16(text);
#endif
}

void endLine() {
    std::fputs("\n", stdout);
    std::fflush(stdout);
}

}  // namespace opc::console
