#include "Control.h"

#include "AddressSpace.h"
#include "Engine.h"
#include "Server.h"
#include "sim/SimControl.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>

namespace sim {

std::atomic<long> g_moduleLocks{0};
std::atomic<bool> g_inlineCompletion{false};
std::atomic<bool> g_down{false};
std::atomic<bool> g_withoutBrowse{false};

namespace {

struct Failure {
    HRESULT hr = S_OK;
    int times = 0;  // -1 = always
};

struct CallRecord {
    int count = 0;
    std::string lastArgs;
};

struct ControlState {
    std::mutex lock;
    std::map<std::string, Failure, std::less<>> failures;
    std::map<std::string, CallRecord, std::less<>> calls;
    std::map<WString, HRESULT> itemErrors;
    std::map<std::string, bool, std::less<>> nulls;
    std::vector<WString> everyTick;  // id prefixes
};

ControlState& state() {
    static ControlState* s = new ControlState();  // never destroyed: objects may outlive static teardown
    return *s;
}

std::atomic<long> g_live[static_cast<int>(Kind::Count)];
std::atomic<bool> g_anyItemErrors{false};
std::atomic<bool> g_anyNulls{false};

const char* const kKindNames[] = {"server", "group", "enum", "connectionpoint", "factory", "serverlist"};

std::atomic<long> g_callbacks[static_cast<int>(Callback::Count)];
const char* const kCallbackNames[] = {"OnDataChange", "OnReadComplete", "OnWriteComplete", "OnCancelComplete",
                                      "ShutdownRequest"};

enum { kDataCallbackConnections, kShutdownConnections, kConnectionKinds };
std::atomic<long> g_connections[kConnectionKinds];

std::atomic<unsigned> g_everyTickGeneration{1};
std::atomic<double> g_lastTickMicros{0};
std::atomic<double> g_lastCallbackMicros{0};

void changeEveryTickSet() {
    unsigned next = g_everyTickGeneration.load() + 1;
    if (next == 0) next = 1;
    g_everyTickGeneration = next;
}

// The ids of a comma-separated list, blanks around them dropped.
std::vector<WString> splitIds(const char* list) {
    std::vector<WString> ids;
    std::string current;
    for (const char* p = list;; ++p) {
        if (*p == ',' || *p == '\0') {
            const size_t first = current.find_first_not_of(' ');
            if (first != std::string::npos) ids.push_back(widen(current.substr(first, current.find_last_not_of(' ') - first + 1).c_str()));
            current.clear();
            if (*p == '\0') break;
        } else {
            current += *p;
        }
    }
    return ids;
}

}  // namespace

HRESULT enter(const char* method, const std::string& args) {
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto rec = s.calls.find(method);
    if (rec == s.calls.end()) rec = s.calls.emplace(method, CallRecord{}).first;
    ++rec->second.count;
    rec->second.lastArgs = args;
    if (g_down.load(std::memory_order_relaxed)) return RPC_E_DISCONNECTED;
    if (s.failures.empty()) return S_OK;
    auto f = s.failures.find(method);
    if (f == s.failures.end()) return S_OK;
    const HRESULT hr = f->second.hr;
    if (f->second.times > 0 && --f->second.times == 0) s.failures.erase(f);
    return hr;
}

bool nullResults(const char* method) {
    if (!g_anyNulls.load(std::memory_order_relaxed)) return false;
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto it = s.nulls.find(method);
    return it != s.nulls.end() && it->second;
}

bool anyItemErrors() { return g_anyItemErrors.load(std::memory_order_relaxed); }

HRESULT itemError(const WString& itemId) {
    if (!anyItemErrors()) return S_OK;
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto it = s.itemErrors.find(itemId);
    return it == s.itemErrors.end() ? S_OK : it->second;
}

void countObject(Kind kind, int delta) noexcept {
    g_live[static_cast<int>(kind)].fetch_add(delta, std::memory_order_relaxed);
}

long liveObjects() noexcept {
    long total = 0;
    for (auto& n : g_live) total += n.load(std::memory_order_relaxed);
    return total;
}

void countCallback(Callback method) noexcept {
    g_callbacks[static_cast<int>(method)].fetch_add(1, std::memory_order_relaxed);
}

void countConnection(const IID& sinkIid, int delta) noexcept {
    if (IsEqualIID(sinkIid, IID_IOPCDataCallback)) {
        g_connections[kDataCallbackConnections].fetch_add(delta);
    } else if (IsEqualIID(sinkIid, IID_IOPCShutdown)) {
        g_connections[kShutdownConnections].fetch_add(delta);
    }
}

unsigned everyTickGeneration() noexcept { return g_everyTickGeneration.load(std::memory_order_acquire); }

std::vector<WString> everyTickPrefixes() {
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    return s.everyTick;
}

bool matchesAnyPrefix(const WString& id, const std::vector<WString>& prefixes) {
    for (const WString& prefix : prefixes) {
        if (id.compare(0, prefix.size(), prefix) == 0) return true;
    }
    return false;
}

void recordTickMicros(double micros, double inSinksMicros) noexcept {
    g_lastCallbackMicros.store(inSinksMicros, std::memory_order_relaxed);
    g_lastTickMicros.store(micros, std::memory_order_relaxed);
}

}  // namespace sim

using namespace sim;

extern "C" {

void SimFailNext(const char* method, HRESULT hr, int times) {
    if (method == nullptr) return;
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (times == 0) {
        s.failures.erase(std::string(method));
    } else {
        s.failures[method] = Failure{hr, times < 0 ? -1 : times};
    }
}

void SimSetItemError(const char* itemId, HRESULT hr) {
    if (itemId == nullptr) return;
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (hr == S_OK) {
        s.itemErrors.erase(widen(itemId));
    } else {
        s.itemErrors[widen(itemId)] = hr;
    }
    g_anyItemErrors = !s.itemErrors.empty();
}

void SimSetNullResults(const char* method, int on) {
    if (method == nullptr) return;
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    if (on) {
        s.nulls[method] = true;
    } else {
        s.nulls.erase(std::string(method));
    }
    g_anyNulls = !s.nulls.empty();
}

int SimCallCount(const char* method) {
    if (method == nullptr) return 0;
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto it = s.calls.find(method);
    return it == s.calls.end() ? 0 : it->second.count;
}

const char* SimLastCallArgs(const char* method) {
    thread_local std::string copy;
    copy.clear();
    if (method == nullptr) return copy.c_str();
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto it = s.calls.find(method);
    if (it != s.calls.end()) copy = it->second.lastArgs;
    return copy.c_str();
}

void SimClearCalls() {
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.calls.clear();
}

long SimLiveObjects(const char* kind) {
    if (kind == nullptr) return liveObjects();
    for (int i = 0; i < static_cast<int>(Kind::Count); ++i) {
        if (std::strcmp(kind, kKindNames[i]) == 0) return g_live[i].load();
    }
    return 0;
}

int SimShutdown(const char* reason) {
    if (reason == nullptr) return shutdownAll(nullptr);
    const WString text = widen(reason);
    return shutdownAll(text.c_str());
}

void SimSetBrowsePortion(int elements) { g_browsePortion = elements < 0 ? 0 : elements; }

void SimSetBenchBranch(int leaves) { g_benchLeaves = leaves < 0 ? 0 : leaves; }

void SimSetAsyncDelay(int milliseconds) { g_asyncDelayMs = milliseconds < 0 ? 0 : milliseconds; }

void SimSetInlineCompletion(int on) { g_inlineCompletion = on != 0; }

int SimSendWriteComplete(DWORD transactionId, HRESULT masterError, const char* itemIds, HRESULT itemError) {
    if (itemIds == nullptr) return 0;
    const std::vector<WString> ids = splitIds(itemIds);
    if (ids.empty()) return 0;
    return writeCompleteAll(transactionId, masterError, ids, itemError);
}

void SimSetChangeEveryTick(const char* prefix, int on) {
    if (prefix == nullptr) return;
    const WString text = widen(prefix);
    ControlState& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    auto& prefixes = s.everyTick;
    const auto found = std::find(prefixes.begin(), prefixes.end(), text);
    if (on && found == prefixes.end()) prefixes.push_back(text);
    if (!on && found != prefixes.end()) prefixes.erase(found);
    changeEveryTickSet();  // under the lock, so a reader never pairs new prefixes with an old generation
}

double SimLastTickMicros() { return g_lastTickMicros.load(std::memory_order_relaxed); }

double SimLastCallbackMicros() { return g_lastCallbackMicros.load(std::memory_order_relaxed); }

long SimConnections(const char* kind) {
    if (kind == nullptr) return g_connections[kDataCallbackConnections] + g_connections[kShutdownConnections];
    if (std::strcmp(kind, "datacallback") == 0) return g_connections[kDataCallbackConnections];
    if (std::strcmp(kind, "shutdown") == 0) return g_connections[kShutdownConnections];
    return 0;
}

long SimCallbacksMade(const char* method) {
    if (method == nullptr) return 0;
    for (int i = 0; i < static_cast<int>(Callback::Count); ++i) {
        if (std::strcmp(method, kCallbackNames[i]) == 0) return g_callbacks[i].load();
    }
    return 0;
}

void SimSetDown(int on) {
    const bool down = on != 0;
    if (g_down.exchange(down) == down || !down) return;
    dropAllConnections();
}

void SimSetWithoutBrowse(int on) { g_withoutBrowse = on != 0; }

void SimReset() {
    g_down = false;
    g_withoutBrowse = false;
    g_asyncDelayMs = 0;
    g_browsePortion = 0;
    g_benchLeaves = 0;
    g_inlineCompletion = false;
    g_lastTickMicros = 0;
    g_lastCallbackMicros = 0;
    for (auto& count : g_callbacks) count = 0;
    {
        ControlState& s = state();
        std::lock_guard<std::mutex> guard(s.lock);
        s.failures.clear();
        s.calls.clear();
        s.itemErrors.clear();
        s.nulls.clear();
        g_anyItemErrors = false;
        g_anyNulls = false;
        if (!s.everyTick.empty()) {
            s.everyTick.clear();
            changeEveryTickSet();
        }
    }
    AddressSpace::instance().reset();
}

}  // extern "C"
