// Keeps the caller's pending Java exception across JNI calls that must run anyway (log sinks,
// callbacks): it is saved and cleared on entry and thrown again on exit, winning over any exception
// raised in between. Without a caller exception, one raised in between stays pending.
#pragma once

#include <jni.h>

namespace opc::env {

class PendingExceptionGuard {
public:
    explicit PendingExceptionGuard(JNIEnv* env) noexcept : env_(env), saved_(env->ExceptionOccurred()) {
        if (saved_ != nullptr) env_->ExceptionClear();
    }
    ~PendingExceptionGuard() {
        if (saved_ == nullptr) return;
        if (env_->ExceptionCheck()) env_->ExceptionClear();
        env_->Throw(saved_);
        env_->DeleteLocalRef(saved_);
    }
    PendingExceptionGuard(const PendingExceptionGuard&) = delete;
    PendingExceptionGuard& operator=(const PendingExceptionGuard&) = delete;

private:
    JNIEnv* env_;
    jthrowable saved_;
};

}  // namespace opc::env
