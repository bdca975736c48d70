// The server's own share of an operation, timed without Java: the same synchronous read on the
// same group with the results freed, and the path from a refresh request to the data change
// arriving at a data callback that does nothing.
#include "opc/platform.h"

#include <condition_variable>
#include <functional>
#include <mutex>

#include "Calls.h"
#include "ComObject.h"
#include "ComPtr.h"

using namespace opc::bench;
using opc::support::ComPtr;

namespace {

void throwFailure(JNIEnv* env, const char* what, HRESULT hr) {
    const std::string text = std::string(what) + " failed: 0x" + [hr] {
        char digits[16];
        std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(hr));
        return std::string(digits);
    }();
    jclass cls = env->FindClass("java/lang/IllegalStateException");
    if (cls != nullptr) env->ThrowNew(cls, text.c_str());
}

// A data callback that only notes when the data change, read completion or write completion of the
// awaited transaction arrives and how many items it carried. Subscription updates (transaction 0)
// and other transactions are not counted.
class NullSink : public opc::support::ComObject<NullSink, IOPCDataCallback> {
public:
    // Made on a read completion of the awaited transaction instead of nothing: hands the values over
    // and answers when it did (0 when it failed), which counts as the completion's arrival.
    using Handover = std::function<int64_t()>;

    explicit NullSink(Handover handover = {}) : handover_(std::move(handover)) {}

    void* interfaceFor(REFIID iid) {
        return IsEqualIID(iid, IID_IOPCDataCallback) ? static_cast<IOPCDataCallback*>(this) : nullptr;
    }

    HRESULT STDMETHODCALLTYPE OnDataChange(DWORD transaction, OPCHANDLE, HRESULT, HRESULT, DWORD count, OPCHANDLE*,
                                           VARIANT*, WORD*, FILETIME*, HRESULT*) override {
        note(transaction, count, nowNanos());
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnReadComplete(DWORD transaction, OPCHANDLE, HRESULT, HRESULT, DWORD count, OPCHANDLE*,
                                             VARIANT*, WORD*, FILETIME*, HRESULT*) override {
        const int64_t arrived = nowNanos();
        note(transaction, count, handover_ && awaited(transaction) ? handover_() : arrived);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnWriteComplete(DWORD transaction, OPCHANDLE, HRESULT, DWORD count, OPCHANDLE*,
                                              HRESULT*) override {
        note(transaction, count, nowNanos());
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
    bool awaited(DWORD transaction) {
        std::lock_guard<std::mutex> guard(lock_);
        return transaction == transaction_;
    }

    void note(DWORD transaction, DWORD count, int64_t arrived) {
        std::lock_guard<std::mutex> guard(lock_);
        if (transaction != transaction_) return;
        if (items_ == 0) arrived_ = arrived;
        items_ += count;
        changed_.notify_all();
    }

    const Handover handover_;
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
    std::vector<OPCHANDLE> handles = handlesOf(env, serverHandles);
    const auto count = static_cast<jsize>(handles.size());
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
    std::vector<OPCHANDLE> handles = handlesOf(env, serverHandles);
    const auto count = static_cast<jsize>(handles.size());
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

}  // extern "C"

namespace {

// Connects a do-nothing data callback (or one that makes the handover on a read completion) to the
// group of the IOPCAsyncIO2 handle, disables its subscription updates, and per round times
// issue(transaction) up to the arrival of that transaction's `expected` items at the callback.
// Disconnects before returning; null with an exception pending when a step fails.
template <typename Issue>
jlongArray timeCompletions(JNIEnv* env, jlong asyncIo, jint expected, jint rounds, const char* what, Issue&& issue,
                           NullSink::Handover handover = {}) {
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
    const ComPtr<NullSink> sink = ComPtr<NullSink>::attach(new NullSink(std::move(handover)));
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
        const int64_t start = nowNanos();
        hr = issue(io, transaction);
        if (FAILED(hr)) {
            failure = what;
            break;
        }
        const int64_t arrived = sink->awaitItems(want, kTimeoutMs);
        if (arrived == 0) {
            failure = "the completion of a request";
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

// IOPCAsyncIO2::Read of the handles under the transaction; the issue's error block freed.
auto readIssue(const std::vector<OPCHANDLE>& handles) {
    return [&handles](IOPCAsyncIO2* io, DWORD transaction) {
        DWORD cancelId = 0;
        HRESULT* errors = nullptr;
        const HRESULT hr = io->Read(static_cast<DWORD>(handles.size()), const_cast<OPCHANDLE*>(handles.data()),
                                    transaction, &cancelId, &errors);
        CoTaskMemFree(errors);
        return hr;
    };
}

// The add method of a collector of the given signature, or none without a receiver; false with
// NoSuchMethodError pending when the receiver lacks it.
bool addMethod(JNIEnv* env, jobject receiver, const char* signature, jmethodID* add) {
    *add = nullptr;
    if (receiver == nullptr) return true;
    jclass cls = env->GetObjectClass(receiver);
    *add = env->GetMethodID(cls, "add", signature);
    env->DeleteLocalRef(cls);
    return *add != nullptr;
}

// The UTF-16 units of a Java string.
std::u16string unitsOf(JNIEnv* env, jstring text) {
    const jsize length = env->GetStringLength(text);
    std::u16string units(static_cast<size_t>(length), u'\0');
    env->GetStringRegion(text, 0, length, reinterpret_cast<jchar*>(units.data()));
    return units;
}

// A new String of a server's text (null for none).
jstring newString(JNIEnv* env, LPCWSTR text) {
    if (text == nullptr) return nullptr;
    jsize length = 0;
    while (text[length] != 0) ++length;
    return env->NewString(reinterpret_cast<const jchar*>(text), length);
}

// The VARIANTs of value texts, cleared at scope end.
struct Values {
    std::vector<VARIANT> variants;
    Values() = default;
    ~Values() {
        for (VARIANT& v : variants) VariantClear(&v);
    }
    Values(const Values&) = delete;
    Values& operator=(const Values&) = delete;
};

}  // namespace

extern "C" {

// Per round: IOPCAsyncIO2::Refresh2 from the cache up to the arrival of its data change of `expected`
// items at a do-nothing data callback (subscription updates disabled).
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_serverRefresh(JNIEnv* env, jclass,
                                                                                 jlong asyncIo, jint expected,
                                                                                 jint rounds) {
    return timeCompletions(env, asyncIo, expected, rounds, "IOPCAsyncIO2::Refresh2",
                           [](IOPCAsyncIO2* io, DWORD transaction) {
                               DWORD cancelId = 0;
                               return io->Refresh2(OPC_DS_CACHE, transaction, &cancelId);
                           });
}

// Per round: IOPCAsyncIO2::Read of the handles up to the arrival of its read completion at a
// do-nothing data callback; the issue's error block is freed.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_serverReadAsync(JNIEnv* env, jclass,
                                                                                   jlong asyncIo,
                                                                                   jintArray serverHandles,
                                                                                   jint rounds) {
    std::vector<OPCHANDLE> handles = handlesOf(env, serverHandles);
    return timeCompletions(env, asyncIo, static_cast<jint>(handles.size()), rounds, "IOPCAsyncIO2::Read",
                           readIssue(handles));
}

// The same, with the floor of a read completion made on the server's callback thread, attached and
// detached as a callback must: up to the floor's OnReadCompleted call of the receiver, the least whole
// asynchronous read.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_readAsyncFloor(
    JNIEnv* env, jclass, jlong asyncIo, jintArray serverHandles, jobject receiver, jintArray handleArray,
    jintArray kindArray, jdoubleArray numberArray, jobjectArray textArray, jintArray qualityArray,
    jlongArray timeArray, jintArray errorArray, jint rounds) {
    ReadCompletionFloor floor;
    if (!floor.prepare(env, receiver, handleArray, kindArray, numberArray, textArray, qualityArray, timeArray,
                       errorArray))
        return nullptr;
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    std::vector<OPCHANDLE> handles = handlesOf(env, serverHandles);
    return timeCompletions(env, asyncIo, static_cast<jint>(handles.size()), rounds, "IOPCAsyncIO2::Read",
                           readIssue(handles), [vm, &floor]() -> int64_t {
                               void* attached = nullptr;
                               if (vm->AttachCurrentThread(&attached, nullptr) != JNI_OK) return 0;
                               auto* threadEnv = static_cast<JNIEnv*>(attached);
                               int64_t calledAt = 0;
                               const bool called = floor.call(threadEnv, &calledAt);
                               if (!called) threadEnv->ExceptionClear();  // the round then fails
                               vm->DetachCurrentThread();
                               return called ? calledAt : 0;
                           });
}

// Per round: IOPCSyncIO::Write of the VARIANTs parsed (once, before the rounds) from the value texts,
// with the result block freed.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_serverWrite(JNIEnv* env, jclass, jlong syncIo,
                                                                               jintArray serverHandles,
                                                                               jintArray types, jobjectArray texts,
                                                                               jint rounds) {
    std::vector<OPCHANDLE> handles = handlesOf(env, serverHandles);
    Values values;
    if (syncIo == 0 || !parseValues(env, types, texts, values.variants)) return nullptr;
    if (values.variants.size() != handles.size()) {
        throwIllegalArgument(env, "handles and values of different lengths");
        return nullptr;
    }
    std::vector<int64_t> nanos;
    for (jint r = 0; r < rounds; ++r) {
        const int64_t start = nowNanos();
        HRESULT* errors = nullptr;
        const HRESULT hr = fromHandle<IOPCSyncIO>(syncIo)->Write(static_cast<DWORD>(handles.size()), handles.data(),
                                                                 values.variants.data(), &errors);
        CoTaskMemFree(errors);
        nanos.push_back(nowNanos() - start);
        if (FAILED(hr)) {
            throwFailure(env, "IOPCSyncIO::Write", hr);
            return nullptr;
        }
    }
    return toJava(env, nanos);
}

// Per round: IOPCAsyncIO2::Write of the VARIANTs parsed before the rounds, up to the arrival of its
// write completion at a do-nothing data callback.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_serverWriteAsync(JNIEnv* env, jclass,
                                                                                    jlong asyncIo,
                                                                                    jintArray serverHandles,
                                                                                    jintArray types,
                                                                                    jobjectArray texts, jint rounds) {
    std::vector<OPCHANDLE> handles = handlesOf(env, serverHandles);
    Values values;
    if (!parseValues(env, types, texts, values.variants)) return nullptr;
    if (values.variants.size() != handles.size()) {
        throwIllegalArgument(env, "handles and values of different lengths");
        return nullptr;
    }
    return timeCompletions(env, asyncIo, static_cast<jint>(handles.size()), rounds, "IOPCAsyncIO2::Write",
                           [&](IOPCAsyncIO2* io, DWORD transaction) {
                               DWORD cancelId = 0;
                               HRESULT* errors = nullptr;
                               const HRESULT hr = io->Write(static_cast<DWORD>(handles.size()), handles.data(),
                                                            values.variants.data(), transaction, &cancelId, &errors);
                               CoTaskMemFree(errors);
                               return hr;
                           });
}

// Per round: IOPCBrowse::Browse of the branch, every element with its canonical type and access
// rights, following the continuation points to the end; every answer freed. With a receiver (a
// browse-element collector), each element also goes to its add(name, itemId, true, false, 5, true,
// true) as two new Strings, as the floor's calls do: the server calls and the floor's made together,
// from native code. The result holds rounds + 1 values, the last one the element count of the last round.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_serverBrowse(JNIEnv* env, jclass, jlong browser,
                                                                                jstring itemId, jobject receiver,
                                                                                jint rounds) {
    if (browser == 0 || itemId == nullptr) {
        throwIllegalArgument(env, "no IOPCBrowse handle or no item id");
        return nullptr;
    }
    jmethodID add = nullptr;
    if (!addMethod(env, receiver, "(Ljava/lang/String;Ljava/lang/String;ZZIZZ)V", &add)) return nullptr;
    std::u16string id = unitsOf(env, itemId);
    OLECHAR empty[] = OLESTR("");
    DWORD propertyIds[] = {OPC_PROPERTY_DATATYPE, OPC_PROPERTY_ACCESS_RIGHTS};
    IOPCBrowse* server = fromHandle<IOPCBrowse>(browser);
    std::vector<int64_t> nanos;
    int64_t elements = 0;
    for (jint r = 0; r < rounds; ++r) {
        elements = 0;
        const int64_t start = nowNanos();
        LPWSTR continuation = empty;
        BOOL more = TRUE;
        while (more) {
            DWORD count = 0;
            OPCBROWSEELEMENT* answer = nullptr;
            LPWSTR passed = continuation;
            const HRESULT hr = server->Browse(reinterpret_cast<LPWSTR>(id.data()), &continuation, 0,
                                              OPC_BROWSE_FILTER_ALL, empty, empty, FALSE, TRUE, 2, propertyIds, &more,
                                              &count, &answer);
            if (passed != empty && passed != continuation) CoTaskMemFree(passed);
            for (DWORD i = 0; answer != nullptr && i < count; ++i) {
                if (add != nullptr) {
                    jstring name = newString(env, answer[i].szName);
                    jstring elementId = newString(env, answer[i].szItemID);
                    env->CallVoidMethod(receiver, add, name, elementId, JNI_TRUE, JNI_FALSE, jint{VT_R8}, JNI_TRUE,
                                        JNI_TRUE);
                    env->DeleteLocalRef(name);
                    env->DeleteLocalRef(elementId);
                    if (env->ExceptionCheck()) add = nullptr;  // no more calls; the round ends with it pending
                }
                CoTaskMemFree(answer[i].szName);
                CoTaskMemFree(answer[i].szItemID);
                OPCITEMPROPERTIES& properties = answer[i].ItemProperties;
                for (DWORD p = 0; properties.pItemProperties != nullptr && p < properties.dwNumProperties; ++p) {
                    CoTaskMemFree(properties.pItemProperties[p].szItemID);
                    CoTaskMemFree(properties.pItemProperties[p].szDescription);
                    VariantClear(&properties.pItemProperties[p].vValue);
                }
                CoTaskMemFree(properties.pItemProperties);
            }
            CoTaskMemFree(answer);
            elements += count;
            if (env->ExceptionCheck() || FAILED(hr)) {
                if (continuation != empty) CoTaskMemFree(continuation);
                if (!env->ExceptionCheck()) throwFailure(env, "IOPCBrowse::Browse", hr);
                return nullptr;
            }
            if (continuation == nullptr) break;
        }
        if (continuation != empty) CoTaskMemFree(continuation);
        nanos.push_back(nowNanos() - start);
    }
    nanos.push_back(elements);
    return toJava(env, nanos);
}

// Per round: IOPCBrowseServerAddressSpace::ChangeBrowsePosition to the branch, BrowseOPCItemIDs of
// its leaves, and per name IEnumString::Next of one string and GetItemID; every string freed. With a
// receiver (an address-space collector), each name and item id also goes to its add(name, itemId) as
// two new Strings: the server calls and the floor's calls made together, from native code. The
// result holds rounds + 1 values, the last one the name count of the last round.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_serverBrowseItemIds(JNIEnv* env, jclass,
                                                                                       jlong browser, jstring path,
                                                                                       jobject receiver,
                                                                                       jint rounds) {
    if (browser == 0 || path == nullptr) {
        throwIllegalArgument(env, "no IOPCBrowseServerAddressSpace handle or no path");
        return nullptr;
    }
    jmethodID add = nullptr;
    if (!addMethod(env, receiver, "(Ljava/lang/String;Ljava/lang/String;)V", &add)) return nullptr;
    const std::u16string branch = unitsOf(env, path);
    OLECHAR empty[] = OLESTR("");
    auto* space = fromHandle<IOPCBrowseServerAddressSpace>(browser);
    std::vector<int64_t> nanos;
    int64_t names = 0;
    for (jint r = 0; r < rounds; ++r) {
        names = 0;
        const int64_t start = nowNanos();
        HRESULT hr = space->ChangeBrowsePosition(OPC_BROWSE_TO, reinterpret_cast<LPCWSTR>(branch.c_str()));
        ComPtr<IEnumString> found;
        if (SUCCEEDED(hr)) hr = space->BrowseOPCItemIDs(OPC_LEAF, empty, VT_EMPTY, 0, found.put());
        if (FAILED(hr) || !found) {
            throwFailure(env, "IOPCBrowseServerAddressSpace::BrowseOPCItemIDs", hr);
            return nullptr;
        }
        for (;;) {
            LPOLESTR name = nullptr;
            ULONG fetched = 0;
            found->Next(1, &name, &fetched);
            if (fetched != 1) break;
            LPWSTR itemId = nullptr;
            space->GetItemID(name, &itemId);
            if (add != nullptr) {
                jstring javaName = newString(env, name);
                jstring javaId = newString(env, itemId);
                env->CallVoidMethod(receiver, add, javaName, javaId);
                env->DeleteLocalRef(javaName);
                env->DeleteLocalRef(javaId);
            }
            CoTaskMemFree(itemId);
            CoTaskMemFree(name);
            if (env->ExceptionCheck()) return nullptr;
            ++names;
        }
        nanos.push_back(nowNanos() - start);
    }
    nanos.push_back(names);
    return toJava(env, nanos);
}

}  // extern "C"
