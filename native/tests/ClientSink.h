// What the tests of a server share, in process on Linux and out of process on Windows: interface
// queries, values, and a client sink that records every callback with the thread it came on.
#pragma once

#include "opc/platform.h"
#include "ComObject.h"
#include "ComPtr.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

using Text = std::basic_string<OLECHAR>;

template <typename I>
opc::support::ComPtr<I> as(IUnknown* object, const IID& iid) {
    opc::support::ComPtr<I> out;
    EXPECT_EQ(S_OK, object->QueryInterface(iid, out.putVoid()));
    return out;
}

inline VARIANT r8(double value) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_R8;
    v.dblVal = value;
    return v;
}

// A numeric or boolean value as a double (0 for other types).
inline double number(const VARIANT& v) {
    switch (v.vt) {
        case VT_I1: return v.cVal;
        case VT_I2: return v.iVal;
        case VT_I4: return v.lVal;
        case VT_UI1: return v.bVal;
        case VT_UI2: return v.uiVal;
        case VT_UI4: return v.ulVal;
        case VT_R4: return v.fltVal;
        case VT_R8: return v.dblVal;
        case VT_BOOL: return v.boolVal ? 1 : 0;
        default: return 0;
    }
}

class Sink final : public opc::support::ComObject<Sink, IOPCDataCallback, IOPCShutdown> {
public:
    struct Call {
        std::string kind;  // "data", "read", "write", "cancel"
        DWORD transaction;
        OPCHANDLE group;
        HRESULT masterError;
        std::vector<OPCHANDLE> clients;
        std::vector<VARTYPE> types;
        std::vector<HRESULT> errors;
        std::vector<double> numbers;  // numeric and boolean values (0 for others)
        std::vector<Text> texts;      // BSTR values
        DWORD thread;
    };

    // Runs on the callback's thread before the call is recorded (for calls back into the server).
    std::function<void(const std::string& kind)> onCall;

    void* interfaceFor(REFIID iid) {
        if (IsEqualIID(iid, IID_IOPCDataCallback)) return static_cast<IOPCDataCallback*>(this);
        if (IsEqualIID(iid, IID_IOPCShutdown)) return static_cast<IOPCShutdown*>(this);
        return nullptr;
    }
    HRESULT STDMETHODCALLTYPE OnDataChange(DWORD tid, OPCHANDLE g, HRESULT, HRESULT me, DWORD n, OPCHANDLE* h,
                                           VARIANT* v, WORD*, FILETIME*, HRESULT* e) override {
        return record("data", tid, g, me, n, h, v, e);
    }
    HRESULT STDMETHODCALLTYPE OnReadComplete(DWORD tid, OPCHANDLE g, HRESULT, HRESULT me, DWORD n, OPCHANDLE* h,
                                             VARIANT* v, WORD*, FILETIME*, HRESULT* e) override {
        return record("read", tid, g, me, n, h, v, e);
    }
    HRESULT STDMETHODCALLTYPE OnWriteComplete(DWORD tid, OPCHANDLE g, HRESULT me, DWORD n, OPCHANDLE* h,
                                              HRESULT* e) override {
        return record("write", tid, g, me, n, h, nullptr, e);
    }
    HRESULT STDMETHODCALLTYPE OnCancelComplete(DWORD tid, OPCHANDLE g) override {
        return record("cancel", tid, g, S_OK, 0, nullptr, nullptr, nullptr);
    }
    HRESULT STDMETHODCALLTYPE ShutdownRequest(LPCWSTR reason) override {
        std::lock_guard<std::mutex> guard(lock_);
        reasons_.push_back(reason ? Text(reason) : Text(OLESTR("<null>")));
        return S_OK;
    }

    // Waits up to ten seconds for the nth call (1-based) of the kind.
    bool waitFor(const std::string& kind, Call* out, size_t nth = 1) {
        return wait([&](const Call& call, size_t seenOfKind) { return call.kind == kind && seenOfKind == nth; },
                    kind, out);
    }
    // Waits up to ten seconds for a call of the kind with the transaction id.
    bool waitForTransaction(const std::string& kind, DWORD transaction, Call* out) {
        return wait([&](const Call& call, size_t) { return call.kind == kind && call.transaction == transaction; },
                    kind, out);
    }
    std::vector<Call> calls(const std::string& kind) {
        std::lock_guard<std::mutex> guard(lock_);
        std::vector<Call> out;
        for (const Call& call : calls_) {
            if (call.kind == kind) out.push_back(call);
        }
        return out;
    }
    std::vector<Text> reasons() {
        std::lock_guard<std::mutex> guard(lock_);
        return reasons_;
    }

private:
    // match(call, how many calls of the kind up to this one).
    template <typename Match>
    bool wait(Match match, const std::string& kind, Call* out) {
        std::unique_lock<std::mutex> guard(lock_);
        return changed_.wait_for(guard, std::chrono::seconds(10), [&] {
            size_t seen = 0;
            for (const Call& call : calls_) {
                if (call.kind == kind) ++seen;
                if (match(call, seen)) return *out = call, true;
            }
            return false;
        });
    }
    HRESULT record(const char* kind, DWORD tid, OPCHANDLE g, HRESULT me, DWORD n, OPCHANDLE* h, VARIANT* v,
                   HRESULT* e) {
        if (onCall) onCall(kind);
        Call call{kind, tid, g, me, {}, {}, {}, {}, {}, GetCurrentThreadId()};
        for (DWORD i = 0; i < n; ++i) {
            call.clients.push_back(h[i]);
            call.types.push_back(v ? v[i].vt : VARTYPE(VT_EMPTY));
            call.errors.push_back(e ? e[i] : S_OK);
            call.numbers.push_back(v ? number(v[i]) : 0);
            call.texts.push_back(v && v[i].vt == VT_BSTR && v[i].bstrVal ? Text(v[i].bstrVal) : Text());
        }
        std::lock_guard<std::mutex> guard(lock_);
        calls_.push_back(std::move(call));
        changed_.notify_all();
        return S_OK;
    }
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<Call> calls_;
    std::vector<Text> reasons_;
};
