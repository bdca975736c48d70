// IEnumString over a fixed list of texts (group names, browse results).
#pragma once

#include "Common.h"

#include <vector>

namespace sim {

// A new enumerator with one reference, owned by the caller.
IEnumString* newStringEnum(std::vector<WString> texts);

}  // namespace sim
