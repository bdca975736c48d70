// The console of this platform is a byte stream: wide text goes out as UTF-8.
#pragma once

// Writes the zero-terminated UTF-16 text to standard output as UTF-8, without adding a newline.
// Unpaired surrogates become U+FFFD. A null text writes nothing.
extern "C" __attribute__((visibility("default"))) void ConsoleWriteUtf16(const char16_t* text);
