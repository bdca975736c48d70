// The call frame that every native shares: the entry and exit trace texts, a starting result, and
// the one catch-all that keeps native exceptions out of the Java virtual machine.
#pragma once

#include <jni.h>

#include <type_traits>
#include <utility>

#include "OpcEnv.h"

namespace opc::env {

struct Frame {
    const char* failClass;       // JNI slash form
    const char* failText;        // e.g. "OpcDaServer::addGroup"
    const OLECHAR* enterText;    // nullptr when the native has no trace texts
    const OLECHAR* exitText;
};

// A native exception raised while a Java exception is already pending leaves that Java exception
// as the one the caller sees: it is the earlier failure, and the JNI allows no class look-up then.
inline void reportNativeException(JNIEnv* env, const Frame& frame) noexcept {
    if (env->ExceptionCheck()) return;
    OpcEnv::throwJavaException(env, frame.failClass, frame.failText);
}

template <typename R, typename Work>
R framed(JNIEnv* env, const Frame& frame, R start, Work&& work) noexcept {
    R result = start;
    if (frame.enterText) OpcEnv::traceCall(env, frame.enterText);
    try {
        result = std::forward<Work>(work)();
    } catch (...) {
        result = start;
        reportNativeException(env, frame);
    }
    if (frame.exitText) OpcEnv::traceCall(env, frame.exitText);
    return result;
}

template <typename Work>
void framedVoid(JNIEnv* env, const Frame& frame, Work&& work) noexcept {
    if (frame.enterText) OpcEnv::traceCall(env, frame.enterText);
    try {
        std::forward<Work>(work)();
    } catch (...) {
        reportNativeException(env, frame);
    }
    if (frame.exitText) OpcEnv::traceCall(env, frame.exitText);
}

}  // namespace opc::env
