// The process's standard output, for the lines written when the Java side cannot take them.
#pragma once

#include "opc/platform.h"

namespace opc::console {

// Bytes as they are (ASCII).
void writeBytes(const char* text);
// Wide text (UTF-16), on the stream Windows writes wide text on.
void writeWide(const OLECHAR* text);
// End of line and flush.
void endLine();

}  // namespace opc::console
