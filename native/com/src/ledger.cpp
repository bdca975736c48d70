#include "internal.h"

namespace substrate {
std::atomic<long long> ledgerCounts[LEDGER_KINDS];
}

extern "C" long long LedgerLiveCount(int kind) {
    if (kind < 0 || kind >= LEDGER_KINDS) return -1;
    return substrate::ledgerCounts[kind].load(std::memory_order_relaxed);
}
