// A JNI environment for a COM thread that calls into the library (data changes, completions,
// shutdown requests, final releases). A thread that is not attached to the virtual machine is
// attached for the duration of the callback and detached at its end; a thread that already is
// attached (a Java thread inside an in-process server call) keeps its attachment, its pending
// exception, and its local references. While the callback runs, the thread's log lines go to the
// class given at construction (see CallbackLogScope).
#pragma once

#include <jni.h>

#include "OpcEnv.h"

namespace opc::env {

class CallbackThread {
public:
    CallbackThread(JavaVM* vm, jclass logClass) noexcept : vm_(vm), log_(logClass) {
        if (vm_ == nullptr) return;
        void* existing = nullptr;
        if (vm_->GetEnv(&existing, JNI_VERSION_1_6) == JNI_OK) {
            env_ = static_cast<JNIEnv*>(existing);
            saved_ = env_->ExceptionOccurred();
            if (saved_ != nullptr) env_->ExceptionClear();
        } else {
            void* attachedEnv = nullptr;
            if (vm_->AttachCurrentThread(&attachedEnv, nullptr) != JNI_OK) return;
            env_ = static_cast<JNIEnv*>(attachedEnv);
            attached_ = true;
        }
        framed_ = env_->PushLocalFrame(kLocalCapacity) == 0;
    }

    ~CallbackThread() {
        if (env_ == nullptr) return;
        settle();
        if (framed_) env_->PopLocalFrame(nullptr);
        if (saved_ != nullptr) {
            env_->Throw(saved_);
            env_->DeleteLocalRef(saved_);
        }
        if (attached_) vm_->DetachCurrentThread();
    }

    CallbackThread(const CallbackThread&) = delete;
    CallbackThread& operator=(const CallbackThread&) = delete;

    JNIEnv* env() const noexcept { return env_; }

    // After each call into Java: an exception thrown by the Java side has no Java caller to go to
    // here, so it is printed and cleared, and the callback goes on with clean JNI calls.
    void settle() const noexcept {
        if (env_ != nullptr && env_->ExceptionCheck()) env_->ExceptionDescribe();
    }

private:
    static constexpr jint kLocalCapacity = 16;
    JavaVM* vm_;
    JNIEnv* env_ = nullptr;
    jthrowable saved_ = nullptr;
    bool attached_ = false;
    bool framed_ = false;
    CallbackLogScope log_;
};

}  // namespace opc::env
