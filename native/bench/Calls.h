// What the benchmark natives share: a monotonic clock that agrees with System.nanoTime, the arguments
// of a run of update calls copied out of Java arrays, and the result array of per-round times.
#pragma once

#include <jni.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace opc::bench {

inline int64_t nowNanos() noexcept {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// One update call per element: item handle, timestamp, quality and error, plus either a double or a
// UTF-16 text as the value. Copied before the clock starts so that the timed loops read native memory,
// as the library's own loops do.
struct Calls {
    std::vector<jint> handles;
    std::vector<jdouble> numbers;
    std::vector<std::u16string> texts;
    std::vector<jlong> times;
    std::vector<jint> qualities;
    std::vector<jint> errors;

    size_t size() const noexcept { return handles.size(); }

    // False (with IllegalArgumentException pending) when an array is missing or the lengths differ.
    bool copyFrom(JNIEnv* env, jintArray handles, jdoubleArray numbers, jobjectArray texts, jlongArray times,
                  jintArray qualities, jintArray errors);
};

// The four update methods of the receiver's class; false with NoSuchMethodError pending when one is missing.
struct UpdateIds {
    jmethodID numeric = nullptr;
    jmethodID string = nullptr;
    bool lookUp(JNIEnv* env, jobject receiver);
};

// The floor of a read completion: the OnReadCompleted call of a data callback with the same arrays as
// the library's: the value texts made from the numbers (6 significant digits) or from the texts' UTF-16
// units, one String each put into a new String array, and the handles, kinds, qualities, times and
// errors copied into new Java arrays. Prepared on a Java thread; called on any attached thread.
class ReadCompletionFloor {
public:
    ReadCompletionFloor() = default;
    ~ReadCompletionFloor();
    ReadCompletionFloor(const ReadCompletionFloor&) = delete;
    ReadCompletionFloor& operator=(const ReadCompletionFloor&) = delete;

    // Copies the arrays and looks up the receiver's method; false with an exception pending.
    bool prepare(JNIEnv* env, jobject receiver, jintArray handles, jintArray kinds, jdoubleArray numbers,
                 jobjectArray texts, jintArray qualities, jlongArray times, jintArray errors);
    // One call, the time just before it in *calledAt; false when an exception is pending after it.
    bool call(JNIEnv* env, int64_t* calledAt = nullptr) const;

private:
    JNIEnv* env_ = nullptr;  // the preparing thread's, which deletes the global references
    Calls calls_;
    std::vector<jint> kinds_;
    bool numeric_ = false;
    jmethodID completed_ = nullptr;
    jclass stringClass_ = nullptr;
    jobject receiver_ = nullptr;
};

// A Java long array of the measured nanoseconds, or null with an exception pending.
jlongArray toJava(JNIEnv* env, const std::vector<int64_t>& nanos);

void throwIllegalArgument(JNIEnv* env, const char* message);

}  // namespace opc::bench

#include "opc/platform.h"

namespace opc::bench {

// The interface pointer behind a handle that the Java side holds.
template <typename I>
I* fromHandle(jlong handle) {
    return reinterpret_cast<I*>(static_cast<intptr_t>(handle));
}

// The server handles of a Java int array (none for a null array).
std::vector<OPCHANDLE> handlesOf(JNIEnv* env, jintArray serverHandles);

// The VARIANT of each value text of the Java array, parsed as the write floor parses it (numbers,
// booleans, strings, arrays of numbers; VT_EMPTY where the text is null); false with
// IllegalArgumentException pending when the types are missing or of another length. The caller
// clears the VARIANTs.
bool parseValues(JNIEnv* env, jintArray types, jobjectArray texts, std::vector<VARIANT>& out);

}  // namespace opc::bench
