// A client sink for the simulation server tests: records every data callback and shutdown request
// that reaches it (copying, as the arrays stay the server's), with the thread it came on.
#pragma once

#include "SimFixture.h"

#include "ComObject.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

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
        std::vector<double> numbers;        // numeric and boolean values (0 for others)
        std::vector<std::u16string> texts;  // BSTR values
        std::thread::id thread;
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
        reasons_.push_back(reason ? std::u16string(reason) : u"<null>");
        return S_OK;
    }

    // Waits for the first call of the kind.
    bool waitFor(const std::string& kind, Call* out) { return waitFor(kind, 1, out); }
    // Waits for the nth call (1-based) of the kind.
    bool waitFor(const std::string& kind, size_t nth, Call* out) {
        std::unique_lock<std::mutex> guard(lock_);
        return changed_.wait_for(guard, std::chrono::seconds(5), [&] {
            size_t seen = 0;
            for (const Call& call : calls_) {
                if (call.kind == kind && ++seen == nth) { *out = call; return true; }
            }
            return false;
        });
    }
    std::vector<Call> calls(const std::string& kind) {
        std::lock_guard<std::mutex> guard(lock_);
        std::vector<Call> out;
        for (const Call& call : calls_) {
            if (call.kind == kind) out.push_back(call);
        }
        return out;
    }
    std::vector<std::u16string> reasons() {
        std::lock_guard<std::mutex> guard(lock_);
        return reasons_;
    }

    // A numeric or boolean value as a double (0 for other types).
    static double number(const VARIANT& v) {
        switch (v.vt) {
            case VT_I1: return v.cVal;
            case VT_I2: return v.iVal;
            case VT_I4: return v.lVal;
            case VT_INT: return v.intVal;
            case VT_UI1: return v.bVal;
            case VT_UI2: return v.uiVal;
            case VT_UI4: return v.ulVal;
            case VT_UINT: return v.uintVal;
            case VT_R4: return v.fltVal;
            case VT_R8: return v.dblVal;
            case VT_BOOL: return v.boolVal ? 1 : 0;
            default: return 0;
        }
    }

private:
    HRESULT record(const char* kind, DWORD tid, OPCHANDLE g, HRESULT me, DWORD n, OPCHANDLE* h, VARIANT* v,
                   HRESULT* e) {
        if (onCall) onCall(kind);
        Call call{kind, tid, g, me, {}, {}, {}, {}, {}, std::this_thread::get_id()};
        for (DWORD i = 0; i < n; ++i) {
            call.clients.push_back(h[i]);
            call.types.push_back(v ? v[i].vt : VARTYPE(VT_EMPTY));
            call.errors.push_back(e[i]);
            call.numbers.push_back(v ? number(v[i]) : 0);
            call.texts.push_back(v && v[i].vt == VT_BSTR && v[i].bstrVal ? std::u16string(v[i].bstrVal) : u"");
        }
        std::lock_guard<std::mutex> guard(lock_);
        calls_.push_back(std::move(call));
        changed_.notify_all();
        return S_OK;
    }
    std::mutex lock_;
    std::condition_variable changed_;
    std::vector<Call> calls_;
    std::vector<std::u16string> reasons_;
};

// Connects the sink to the container's connection point for `iid`; the cookie.
inline DWORD connect(IUnknown* container, const IID& iid, IUnknown* sink, ComPtr<IConnectionPoint>* point) {
    ComPtr<IConnectionPointContainer> cpc;
    EXPECT_EQ(S_OK, container->QueryInterface(IID_IConnectionPointContainer, cpc.putVoid()));
    EXPECT_EQ(S_OK, cpc->FindConnectionPoint(iid, point->put()));
    DWORD cookie = 0;
    EXPECT_EQ(S_OK, (*point)->Advise(sink, &cookie));
    return cookie;
}
