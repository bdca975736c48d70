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

// A data callback that only notes when the data change of the awaited refresh arrives and how many
// items it carried. Subscription updates (transaction 0) and other refreshes are not counted.
class NullSink : public opc::support::ComObject<NullSink, IOPCDataCallback> {
public:
    void* interfaceFor(REFIID iid) {
        return IsEqualIID(iid, IID_IOPCDataCallback) ? static_cast<IOPCDataCallback*>(this) : nullptr;
    }

    HRESULT STDMETHODCALLTYPE OnDataChange(DWORD transaction, OPCHANDLE, HRESULT, HRESULT, DWORD count, OPCHANDLE*,
                                           VARIANT*, WORD*, FILETIME*, HRESULT*) override {
        const int64_t arrived = nowNanos();
        std::lock_guard<std::mutex> guard(lock_);
        if (transaction != transaction_) return S_OK;
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

    void await(DWORD transaction) {
        std::lock_guard<std::mutex> guard(lock_);
        transaction_ = transaction;
        items_ = 0;
        arrived_ = 0;
    }

    // The arrival time of the first data change of the awaited transaction, once `expected` items have come;
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
    DWORD transaction_ = 0;
    DWORD items_ = 0;
    int64_t arrived_ = 0;
};

constexpr int kTimeoutMs = 10000;
constexpr DWORD kFirstTransaction = 0x5000;

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

// Writes `first + i` to the i-th item through IOPCSyncIO::Write, so that every item has a new value.
JNIEXPORT void JNICALL Java_com_velmora_opc_bench_BenchNatives_writeNumbers(JNIEnv* env, jclass, jlong syncIo,
                                                                          jintArray serverHandles, jdouble first) {
    if (syncIo == 0 || serverHandles == nullptr) {
        throwIllegalArgument(env, "no IOPCSyncIO handle or no server handles");
        return;
    }
    const jsize count = env->GetArrayLength(serverHandles);
    std::vector<OPCHANDLE> handles(static_cast<size_t>(count));
    env->GetIntArrayRegion(serverHandles, 0, count, reinterpret_cast<jint*>(handles.data()));
    std::vector<VARIANT> values(static_cast<size_t>(count));
    for (jsize i = 0; i < count; ++i) {
        values[static_cast<size_t>(i)].vt = VT_R8;
        values[static_cast<size_t>(i)].dblVal = first + i;
    }
    HRESULT* errors = nullptr;
    const HRESULT hr = fromHandle<IOPCSyncIO>(syncIo)->Write(static_cast<DWORD>(count), handles.data(),
                                                            values.data(), &errors);
    CoTaskMemFree(errors);
    if (hr != S_OK) throwFailure(env, "IOPCSyncIO::Write", hr);
}

// Stops the subscription updates of the group of the IOPCAsyncIO2 handle (which needs a connected
// data callback), so that its data changes come from refreshes alone.
JNIEXPORT void JNICALL Java_com_velmora_opc_bench_BenchNatives_disableSubscription(JNIEnv* env, jclass,
                                                                                 jlong asyncIo) {
    if (asyncIo == 0) {
        throwIllegalArgument(env, "no IOPCAsyncIO2 handle");
        return;
    }
    const HRESULT hr = fromHandle<IOPCAsyncIO2>(asyncIo)->SetEnable(FALSE);
    if (FAILED(hr)) throwFailure(env, "IOPCAsyncIO2::SetEnable", hr);
}

// Connects a do-nothing data callback to the group of the IOPCAsyncIO2 handle, disables its
// subscription updates, and per round times IOPCAsyncIO2::Refresh2 from the cache up to the arrival
// of its data change of `expected` items. Disconnects before returning.
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
    hr = io->SetEnable(FALSE);
    if (FAILED(hr)) failure = "IOPCAsyncIO2::SetEnable";
    for (jint r = 0; failure == nullptr && r < rounds; ++r) {
        const auto transaction = static_cast<DWORD>(kFirstTransaction + r);
        sink->await(transaction);
        DWORD cancelId = 0;
        const int64_t start = nowNanos();
        hr = io->Refresh2(OPC_DS_CACHE, transaction, &cancelId);
        if (FAILED(hr)) {
            failure = "IOPCAsyncIO2::Refresh2";
            break;
        }
        const int64_t arrived = sink->awaitItems(want, kTimeoutMs);
        if (arrived == 0) {
            failure = "the data change of a refresh";
            hr = E_FAIL;
            break;
        }
        nanos.push_back(arrived - start);
    }
    point->Unadvise(cookie);
    if (failure != nullptr) {
        throwFailure(env, failure, hr);
        return nullptr;
    }
    return toJava(env, nanos);
}

}  // extern "C"
