// The server's own share of an operation, timed without Java: the same synchronous read on the
// same group with the results freed, and the path from a refresh request to the data change
// arriving at a data callback that does nothing.
#include "opc/platform.h"

#include <condition_variable>
#include <mutex>

#include "Calls.h"
#include "ComObject.h"
#include "ComPtr.h"

using namespace opc::bench;
using opc::support::ComPtr;

namespace {

template <typename I>
I* fromHandle(jlong handle) {
    return reinterpret_cast<I*>(static_cast<intptr_t>(handle));
}

void throwFailure(JNIEnv* env, const char* what, HRESULT hr) {
    const std::string text = std::string(what) + " failed: 0x" + [hr] {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(hr));
        return std::string(digits);
    }();
    jclass cls = env->FindClass("java/lang/IllegalStateException");
    if (cls != nullptr) env->ThrowNew(cls, text.c_str());
}

// A data callback that only notes when data changes arrive and how many items they carried.
class NullSink : public opc::support::ComObject<NullSink, IOPCDataCallback> {
public:
    void* interfaceFor(REFIID iid) {
        return IsEqualIID(iid, IID_IOPCDataCallback) ? static_cast<IOPCDataCallback*>(this) : nullptr;
    }

    HRESULT STDMETHODCALLTYPE OnDataChange(DWORD, OPCHANDLE, HRESULT, HRESULT, DWORD count, OPCHANDLE*, VARIANT*,
                                           WORD*, FILETIME*, HRESULT*) override {
        const int64_t arrived = nowNanos();
        std::lock_guard<std::mutex> guard(lock_);
        if (items_ == 0) arrived_ = arrived;
        items_ += count;
        changed_.notify_all();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnReadComplete(DWORD, OPCHANDLE, HRESULT, HRESULT, DWORD, OPCHANDLE*, VARIANT*, WORD*,
                                             FILETIME*, HRESULT*) override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnWriteComplete(DWORD, OPCHANDLE, HRESULT, DWORD, OPCHANDLE*, HRESULT*) override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnCancelComplete(DWORD, OPCHANDLE) override { return S_OK; }

    void clear() {
        std::lock_guard<std::mutex> guard(lock_);
        items_ = 0;
        arrived_ = 0;
    }

    // The arrival time of the first data change since clear(), once `expected` items have come;
    // 0 when they have not come within the timeout.
    int64_t awaitItems(DWORD expected, int timeoutMs) {
        std::unique_lock<std::mutex> guard(lock_);
        const bool done = changed_.wait_for(guard, std::chrono::milliseconds(timeoutMs),
                                            [&] { return items_ >= expected; });
        return done ? arrived_ : 0;
    }

private:
    std::mutex lock_;
    std::condition_variable changed_;
    DWORD items_ = 0;
    int64_t arrived_ = 0;
};

constexpr int kTimeoutMs = 10000;

}  // namespace

extern "C" {

// Per round: IOPCSyncIO::Read of the handles, then every value cleared and both result blocks freed.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_serverRead(JNIEnv* env, jclass, jlong syncIo,
                                                                              jintArray serverHandles,
                                                                              jboolean fromCache, jint rounds) {
    if (syncIo == 0 || serverHandles == nullptr) {
        throwIllegalArgument(env, "no IOPCSyncIO handle or no server handles");
        return nullptr;
    }
    const jsize count = env->GetArrayLength(serverHandles);
    std::vector<OPCHANDLE> handles(static_cast<size_t>(count));
    env->GetIntArrayRegion(serverHandles, 0, count, reinterpret_cast<jint*>(handles.data()));
    IOPCSyncIO* io = fromHandle<IOPCSyncIO>(syncIo);
    std::vector<int64_t> nanos;
    for (jint r = 0; r < rounds; ++r) {
        const int64_t start = nowNanos();
        OPCITEMSTATE* states = nullptr;
        HRESULT* errors = nullptr;
        const HRESULT hr = io->Read(fromCache ? OPC_DS_CACHE : OPC_DS_DEVICE, static_cast<DWORD>(count),
                                    handles.data(), &states, &errors);
        for (jsize i = 0; states != nullptr && i < count; ++i) VariantClear(&states[i].vDataValue);
        CoTaskMemFree(states);
        CoTaskMemFree(errors);
        nanos.push_back(nowNanos() - start);
        if (FAILED(hr)) {
            throwFailure(env, "IOPCSyncIO::Read", hr);
            return nullptr;
        }
    }
    return toJava(env, nanos);
}

// Connects a do-nothing data callback to the group of the IOPCAsyncIO2 handle, waits for the first
// subscription update of `expected` items, then per round times IOPCAsyncIO2::Refresh2 (from the
// cache) up to the arrival of its data change. Disconnects before returning.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_serverRefresh(JNIEnv* env, jclass,
                                                                                 jlong asyncIo, jint expected,
                                                                                 jint rounds) {
    if (asyncIo == 0 || expected < 1) {
        throwIllegalArgument(env, "no IOPCAsyncIO2 handle or no items");
        return nullptr;
    }
    IOPCAsyncIO2* io = fromHandle<IOPCAsyncIO2>(asyncIo);
    ComPtr<IConnectionPointContainer> container;
    HRESULT hr = io->QueryInterface(IID_IConnectionPointContainer, container.putVoid());
    ComPtr<IConnectionPoint> point;
    if (SUCCEEDED(hr)) hr = container->FindConnectionPoint(IID_IOPCDataCallback, point.put());
    if (FAILED(hr)) {
        throwFailure(env, "IConnectionPointContainer::FindConnectionPoint", hr);
        return nullptr;
    }
    const ComPtr<NullSink> sink = ComPtr<NullSink>::attach(new NullSink);
    DWORD cookie = 0;
    hr = point->Advise(sink.get(), &cookie);
    if (FAILED(hr)) {
        throwFailure(env, "IConnectionPoint::Advise", hr);
        return nullptr;
    }
    const auto want = static_cast<DWORD>(expected);
    std::vector<int64_t> nanos;
    const char* failure = nullptr;
    if (sink->awaitItems(want, kTimeoutMs) == 0) failure = "the first subscription update";
    for (jint r = 0; failure == nullptr && r < rounds; ++r) {
        sink->clear();
        DWORD cancelId = 0;
        const int64_t start = nowNanos();
        hr = io->Refresh2(OPC_DS_CACHE, static_cast<DWORD>(r + 1), &cancelId);
        if (FAILED(hr)) {
            failure = "IOPCAsyncIO2::Refresh2";
            break;
        }
        const int64_t arrived = sink->awaitItems(want, kTimeoutMs);
        if (arrived == 0) failure = "the data change of a refresh";
        nanos.push_back(arrived - start);
    }
    point->Unadvise(cookie);
    if (failure != nullptr) {
        throwFailure(env, failure, FAILED(hr) ? hr : E_FAIL);
        return nullptr;
    }
    return toJava(env, nanos);
}

}  // extern "C"
