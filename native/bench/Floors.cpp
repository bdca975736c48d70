// The floors: the least that any library must do to hand the same values to the same Java receiver.
// Each makes exactly the update calls that the library's natives make for one read or one data
// change, with the same arguments, and nothing else; the times are per round of all items.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "Calls.h"

using namespace opc::bench;

namespace {

constexpr jboolean kAsynchronous = JNI_FALSE;

// Nothing to do after an item's update call.
struct NoStep {
    void operator()(size_t) const {}
};

// The calls on the calling thread, each followed by afterItem(i). A Java exception stops the run and
// stays pending.
template <typename After = NoStep>
bool numericRound(JNIEnv* env, jobject receiver, jmethodID method, const Calls& calls, jboolean synchronous,
                  After afterItem = {}) {
    for (size_t i = 0; i < calls.size(); ++i) {
        env->CallVoidMethod(receiver, method, calls.handles[i], calls.numbers[i], calls.times[i], calls.qualities[i],
                            calls.errors[i], synchronous);
        afterItem(i);
        if (env->ExceptionCheck()) return false;
    }
    return true;
}

// A Java String per item made from its UTF-16 units, as a BSTR value is, and released per item.
template <typename After = NoStep>
bool stringRound(JNIEnv* env, jobject receiver, jmethodID method, const Calls& calls, jboolean synchronous,
                 After afterItem = {}) {
    for (size_t i = 0; i < calls.size(); ++i) {
        const std::u16string& text = calls.texts[i];
        jstring value = env->NewString(reinterpret_cast<const jchar*>(text.data()), static_cast<jsize>(text.size()));
        if (value == nullptr) return false;
        env->CallVoidMethod(receiver, method, calls.handles[i], value, calls.times[i], calls.qualities[i],
                            calls.errors[i], synchronous);
        env->DeleteLocalRef(value);
        afterItem(i);
        if (env->ExceptionCheck()) return false;
    }
    return true;
}

// Times each of `rounds` rounds into *nanos; false as soon as a round fails.
template <typename Round>
bool timeRounds(jint rounds, Round&& round, std::vector<int64_t>* nanos) {
    nanos->reserve(static_cast<size_t>(rounds > 0 ? rounds : 0));
    for (jint r = 0; r < rounds; ++r) {
        const int64_t start = nowNanos();
        if (!round()) return false;
        nanos->push_back(nowNanos() - start);
    }
    return true;
}

// The per-round times of rounds on the calling thread, or null with the failing round's exception pending.
template <typename Round>
jlongArray timeRounds(JNIEnv* env, jint rounds, Round&& round) {
    std::vector<int64_t> nanos;
    return timeRounds(rounds, round, &nanos) ? toJava(env, nanos) : nullptr;
}

// Copies the calls out of the Java arrays (numbers or texts as the values) and looks up the
// receiver's update methods. False with an exception pending when the values, an array or a
// method are missing or the lengths differ.
bool prepare(JNIEnv* env, jobject receiver, jintArray handles, jdoubleArray numbers, jobjectArray texts,
             jlongArray times, jintArray qualities, jintArray errors, Calls* calls, UpdateIds* ids) {
    if (numbers == nullptr && texts == nullptr) {
        throwIllegalArgument(env, "no values");
        return false;
    }
    return calls->copyFrom(env, handles, numbers, texts, times, qualities, errors) && ids->lookUp(env, receiver);
}

void throwIllegalState(JNIEnv* env, const char* message) {
    jclass cls = env->FindClass("java/lang/IllegalStateException");
    if (cls != nullptr) env->ThrowNew(cls, message);
}

// One round of update calls: numeric ones when the calls carry numbers, else string ones.
template <typename After = NoStep>
bool updateRound(JNIEnv* env, jobject receiver, const UpdateIds& ids, const Calls& calls, jboolean synchronous,
                 After afterItem = {}) {
    return calls.numbers.empty() ? stringRound(env, receiver, ids.string, calls, synchronous, afterItem)
                                 : numericRound(env, receiver, ids.numeric, calls, synchronous, afterItem);
}

// The update calls of one read per round on the calling thread: numeric ones when numbers are given,
// else string ones made from the texts.
jlongArray callingThreadFloor(JNIEnv* env, jobject receiver, jintArray handles, jdoubleArray numbers,
                              jobjectArray texts, jlongArray times, jintArray qualities, jintArray errors,
                              jboolean synchronous, jint rounds) {
    Calls calls;
    UpdateIds ids;
    if (!prepare(env, receiver, handles, numbers, texts, times, qualities, errors, &calls, &ids)) return nullptr;
    return timeRounds(env, rounds, [&] { return updateRound(env, receiver, ids, calls, synchronous); });
}

// Takes the pending exception of a native thread as a global reference, to be thrown again on the
// calling thread by rethrow.
jobject carryException(JNIEnv* threadEnv) {
    jthrowable local = threadEnv->ExceptionOccurred();
    threadEnv->ExceptionClear();
    jobject carried = threadEnv->NewGlobalRef(local);
    threadEnv->DeleteLocalRef(local);
    return carried;
}

// Throws and deletes the carried exception; false when there is none.
bool rethrow(JNIEnv* env, jobject carried) {
    if (carried == nullptr) return false;
    env->Throw(static_cast<jthrowable>(carried));
    env->DeleteGlobalRef(carried);
    return true;
}

// One native thread that lives as long as the process and runs the jobs given to it one at a time,
// as a server's callback thread runs its callbacks: a floor that is called once per update then
// attaches the same thread every time, as the server's thread is attached by the library.
class FloorThread {
public:
    static FloorThread& instance() {
        static FloorThread* thread = new FloorThread;  // never destroyed: its thread runs until exit
        return *thread;
    }

    // Runs the job on the thread and waits for its end.
    void run(const std::function<void()>& job) {
        std::unique_lock<std::mutex> guard(lock_);
        job_ = &job;
        ready_.notify_all();
        ready_.wait(guard, [&] { return job_ == nullptr; });
    }

private:
    FloorThread() {
        std::thread([this] {
            std::unique_lock<std::mutex> guard(lock_);
            for (;;) {
                ready_.wait(guard, [&] { return job_ != nullptr; });
                (*job_)();
                job_ = nullptr;
                ready_.notify_all();
            }
        }).detach();
    }

    std::mutex lock_;
    std::condition_variable ready_;
    const std::function<void()>* job_ = nullptr;
};

// Waits on a timer of the calling thread for `millis`, as a server's update thread waits for its next
// update: a thread that wakes from its timer meets colder caches (and on a virtual machine perhaps a
// halted processor) than one just handed work, and the library's callbacks run on such a thread.
void idle(jint millis) {
    if (millis <= 0) return;
    std::mutex lock;
    std::condition_variable timer;  // never notified: the wait ends at its deadline
    std::unique_lock<std::mutex> guard(lock);
    const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(millis);
    timer.wait_until(guard, due, [&] { return std::chrono::steady_clock::now() >= due; });
}

// The numeric update calls (synchronous flag false) on the floor's thread, once per round after a wait
// of `idleMillis` on its timer. With attachPerRound the thread attaches and detaches within each timed
// round; else it is attached once around all rounds and each round times the calls alone. The
// receiver's exception is thrown here; null with an exception pending on failure.
jlongArray floorThreadRounds(JNIEnv* env, jobject receiver, jintArray handles, jdoubleArray numbers,
                             jlongArray times, jintArray qualities, jintArray errors, jint idleMillis, jint rounds,
                             bool attachPerRound) {
    Calls calls;
    UpdateIds ids;
    if (!prepare(env, receiver, handles, numbers, nullptr, times, qualities, errors, &calls, &ids)) return nullptr;
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    jobject shared = env->NewGlobalRef(receiver);
    if (shared == nullptr) return nullptr;
    std::vector<int64_t> nanos;
    nanos.reserve(static_cast<size_t>(rounds > 0 ? rounds : 0));
    jobject thrown = nullptr;  // global: the receiver's exception, carried over to this thread
    bool failed = false;
    const auto attach = [&]() -> JNIEnv* {
        void* attached = nullptr;
        if (vm->AttachCurrentThread(&attached, nullptr) == JNI_OK) return static_cast<JNIEnv*>(attached);
        failed = true;
        return nullptr;
    };
    FloorThread::instance().run([&] {
        JNIEnv* const once = attachPerRound ? nullptr : attach();
        for (jint r = 0; r < rounds && !failed && thrown == nullptr; ++r) {
            idle(idleMillis);
            const int64_t start = nowNanos();
            JNIEnv* const threadEnv = attachPerRound ? attach() : once;
            if (threadEnv == nullptr) break;
            if (!numericRound(threadEnv, shared, ids.numeric, calls, kAsynchronous)) thrown = carryException(threadEnv);
            if (attachPerRound) vm->DetachCurrentThread();
            nanos.push_back(nowNanos() - start);
        }
        if (once != nullptr) vm->DetachCurrentThread();
    });
    env->DeleteGlobalRef(shared);
    if (rethrow(env, thrown)) return nullptr;
    if (failed) {
        throwIllegalState(env, "AttachCurrentThread failed");
        return nullptr;
    }
    return toJava(env, nanos);
}

}  // namespace

extern "C" {

JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_numericFloor(
    JNIEnv* env, jclass, jobject receiver, jintArray handles, jdoubleArray numbers, jlongArray times,
    jintArray qualities, jintArray errors, jboolean synchronous, jint rounds) {
    return callingThreadFloor(env, receiver, handles, numbers, nullptr, times, qualities, errors, synchronous, rounds);
}

JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_stringFloor(
    JNIEnv* env, jclass, jobject receiver, jintArray handles, jobjectArray texts, jlongArray times,
    jintArray qualities, jintArray errors, jboolean synchronous, jint rounds) {
    return callingThreadFloor(env, receiver, handles, nullptr, texts, times, qualities, errors, synchronous, rounds);
}

// The least whole read: per round, IOPCSyncIO::Read of the handles, the floor's update calls (numeric
// when numbers are given, else string ones made from the texts, synchronous flag true), each followed
// by the clearing of its value, then both result blocks freed. Made together, the server's allocations
// and the calls' meet in the caches as they do in a library's read; less the floor alone, this is the
// server's share.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_readFloor(
    JNIEnv* env, jclass, jlong syncIo, jintArray serverHandles, jboolean fromCache, jobject receiver,
    jintArray handles, jdoubleArray numbers, jobjectArray texts, jlongArray times, jintArray qualities,
    jintArray errors, jint rounds) {
    if (syncIo == 0 || serverHandles == nullptr) {
        throwIllegalArgument(env, "no IOPCSyncIO handle or no server handles");
        return nullptr;
    }
    Calls calls;
    UpdateIds ids;
    if (!prepare(env, receiver, handles, numbers, texts, times, qualities, errors, &calls, &ids)) return nullptr;
    std::vector<OPCHANDLE> items = handlesOf(env, serverHandles);
    auto* io = fromHandle<IOPCSyncIO>(syncIo);
    HRESULT hr = S_OK;
    jlongArray nanos = timeRounds(env, rounds, [&] {
        OPCITEMSTATE* states = nullptr;
        HRESULT* itemErrors = nullptr;
        hr = io->Read(fromCache ? OPC_DS_CACHE : OPC_DS_DEVICE, static_cast<DWORD>(items.size()), items.data(),
                      &states, &itemErrors);
        // Each value is cleared once its update call has returned, as a read must do by its contract:
        // clearing them all afterwards instead measured some 15 ns per string item less. Those that a
        // failed round left are cleared after it.
        size_t cleared = 0;
        const bool called = FAILED(hr) || states == nullptr ||
                            updateRound(env, receiver, ids, calls, JNI_TRUE, [&](size_t i) {
                                if (i >= items.size()) return;
                                VariantClear(&states[i].vDataValue);
                                cleared = i + 1;
                            });
        for (size_t i = cleared; states != nullptr && i < items.size(); ++i) VariantClear(&states[i].vDataValue);
        CoTaskMemFree(states);
        CoTaskMemFree(itemErrors);
        return SUCCEEDED(hr) && called;
    });
    if (FAILED(hr) && !env->ExceptionCheck()) throwIllegalState(env, "IOPCSyncIO::Read failed");
    return nanos;
}

// The floor of a data change (attachedThreadFloor): the numeric update calls (synchronous flag false)
// from the floor's native thread, attached once for all rounds; before each round it waits on its
// timer for `idleMillis`, as a server's thread waits for its next update; each round's time covers
// the calls.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_attachedThreadFloor(
    JNIEnv* env, jclass, jobject receiver, jintArray handles, jdoubleArray numbers, jlongArray times,
    jintArray qualities, jintArray errors, jint idleMillis, jint rounds) {
    return floorThreadRounds(env, receiver, handles, numbers, times, qualities, errors, idleMillis, rounds, false);
}

// The floor of a whole callback (callbackFloor): the same, but the thread attaches to the virtual
// machine within each round and detaches at its end, and the round's time covers all three, as a
// server's callback thread is attached by the library for each callback.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_callbackFloor(
    JNIEnv* env, jclass, jobject receiver, jintArray handles, jdoubleArray numbers, jlongArray times,
    jintArray qualities, jintArray errors, jint idleMillis, jint rounds) {
    return floorThreadRounds(env, receiver, handles, numbers, times, qualities, errors, idleMillis, rounds, true);
}

// The time of each of `count` attach-and-detach pairs: on a fresh native thread each (fresh true), or
// repeatedly on one native thread, as a server's callback thread does between callbacks.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_attachDetach(JNIEnv* env, jclass, jint count,
                                                                                jboolean fresh) {
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    std::vector<int64_t> nanos;
    nanos.reserve(static_cast<size_t>(count > 0 ? count : 0));
    std::atomic<bool> failed{false};
    const auto pair = [&] {
        void* threadEnv = nullptr;
        const int64_t start = nowNanos();
        if (vm->AttachCurrentThread(&threadEnv, nullptr) != JNI_OK) {
            failed = true;
            return;
        }
        vm->DetachCurrentThread();
        nanos.push_back(nowNanos() - start);
    };
    if (fresh) {
        for (jint i = 0; i < count && !failed; ++i) std::thread(pair).join();
    } else {
        std::thread([&] {
            for (jint i = 0; i < count && !failed; ++i) pair();
        }).join();
    }
    if (failed) {
        throwIllegalState(env, "AttachCurrentThread failed");
        return nullptr;
    }
    return toJava(env, nanos);
}

}  // extern "C"
