// Live-block counters of the COM runtime's allocators. Every task-memory block, BSTR and
// SAFEARRAY is counted from its allocation to its release, so a test can check that what a
// call allocated for its caller was freed.
#pragma once

enum LedgerKind { LEDGER_TASKMEM = 0, LEDGER_BSTR = 1, LEDGER_SAFEARRAY = 2, LEDGER_KINDS = 3 };

// Live blocks of a kind; thread-safe and cheap. Unknown kinds give -1.
extern "C" __attribute__((visibility("default"))) long long LedgerLiveCount(int kind);
