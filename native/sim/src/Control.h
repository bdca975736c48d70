// The server's test controls: injected failures, the call record, per-item errors, null results
// and the live object counts. All of it is process-wide and thread-safe.
#pragma once

#include "Common.h"

#include <atomic>
#include <string>
#include <vector>

namespace sim {

// Records one call of `method` with its argument text and answers the failure injected for it,
// or S_OK.
HRESULT enter(const char* method, const std::string& args);

bool nullResults(const char* method);
// The error injected for reads and writes of the item, or S_OK.
HRESULT itemError(const WString& itemId);
bool anyItemErrors();

enum class Kind { Server, Group, Enum, ConnectionPoint, Factory, ServerList, Count };

// Counts an object of its kind for as long as it lives; a member of each COM object.
template <Kind K>
struct Live {
    Live() noexcept;
    Live(const Live&) noexcept : Live() {}
    ~Live();
};

void countObject(Kind kind, int delta) noexcept;
long liveObjects() noexcept;

template <Kind K>
Live<K>::Live() noexcept { countObject(K, +1); }
template <Kind K>
Live<K>::~Live() { countObject(K, -1); }

// Elements per IOPCBrowse::Browse answer; 0 = everything at once.
extern std::atomic<int> g_browsePortion;
// Leaves of the bench branch "Bench.Many"; 0 = no such branch.
extern std::atomic<int> g_benchLeaves;

// Module locks held through IClassFactory::LockServer.
extern std::atomic<long> g_moduleLocks;

// While set, the server is unreachable: every method answers RPC_E_DISCONNECTED and no update is sent.
extern std::atomic<bool> g_down;

// While set, servers answer QueryInterface for IOPCBrowse with E_NOINTERFACE, as OPC DA 2 servers do.
extern std::atomic<bool> g_withoutBrowse;

// While set, asynchronous requests complete on the calling thread before the method returns.
extern std::atomic<bool> g_inlineCompletion;

// The client sink methods that the server calls.
enum class Callback { DataChange, ReadComplete, WriteComplete, CancelComplete, ShutdownRequest, Count };
// Counts one call of a sink method; made just before the call, so a sink that sees the call sees it counted.
void countCallback(Callback method) noexcept;
// Counts connections of a connection point by its sink interface.
void countConnection(const IID& sinkIid, int delta) noexcept;

// Items whose value changes at every update of a group, chosen by id prefix. The generation
// (never 0) changes whenever the prefixes do, so that groups can cache the choice per item.
unsigned everyTickGeneration() noexcept;
std::vector<WString> everyTickPrefixes();
bool matchesAnyPrefix(const WString& id, const std::vector<WString>& prefixes);
// The server's own time for the last subscription update that it sent, and the time its sinks took.
void recordTickMicros(double micros, double inSinksMicros) noexcept;

}  // namespace sim
