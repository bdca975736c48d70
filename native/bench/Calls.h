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

// A Java long array of the measured nanoseconds, or null with an exception pending.
jlongArray toJava(JNIEnv* env, const std::vector<int64_t>& nanos);

void throwIllegalArgument(JNIEnv* env, const char* message);

}  // namespace opc::bench

#include "opc/platform.h"

namespace opc::bench {

// The VARIANT of each value text of the Java array, parsed as the write floor parses it (numbers,
// booleans, strings, arrays of numbers; VT_EMPTY where the text is null); false with
// IllegalArgumentException pending when the types are missing or of another length. The caller
// clears the VARIANTs.
bool parseValues(JNIEnv* env, jintArray types, jobjectArray texts, std::vector<VARIANT>& out);

}  // namespace opc::bench
