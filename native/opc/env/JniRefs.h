// Scoped owners for JNI acquisitions. Every destructor makes only calls that the JNI permits while an
// exception is pending (DeleteLocalRef, PopLocalFrame, DeleteGlobalRef, Release*).
#pragma once

#include <jni.h>

#include <utility>

namespace opc::env {

template <typename J>
class LocalRef {
public:
    LocalRef() noexcept = default;
    LocalRef(JNIEnv* env, J ref) noexcept : env_(env), ref_(ref) {}
    LocalRef(LocalRef&& other) noexcept : env_(other.env_), ref_(std::exchange(other.ref_, nullptr)) {}
    LocalRef& operator=(LocalRef&& other) noexcept {
        reset();
        env_ = other.env_;
        ref_ = std::exchange(other.ref_, nullptr);
        return *this;
    }
    LocalRef(const LocalRef&) = delete;
    LocalRef& operator=(const LocalRef&) = delete;
    ~LocalRef() { reset(); }

    J get() const noexcept { return ref_; }
    explicit operator bool() const noexcept { return ref_ != nullptr; }
    [[nodiscard]] J release() noexcept { return std::exchange(ref_, nullptr); }
    void reset() noexcept {
        if (ref_ != nullptr) env_->DeleteLocalRef(ref_);
        ref_ = nullptr;
    }

private:
    JNIEnv* env_ = nullptr;
    J ref_ = nullptr;
};

// Room for `capacity` local references, all freed together when the frame ends.
class LocalFrame {
public:
    LocalFrame(JNIEnv* env, jint capacity) noexcept : env_(env), pushed_(env->PushLocalFrame(capacity) == 0) {}
    ~LocalFrame() {
        if (pushed_) env_->PopLocalFrame(nullptr);
    }
    LocalFrame(const LocalFrame&) = delete;
    LocalFrame& operator=(const LocalFrame&) = delete;
    bool ok() const noexcept { return pushed_; }

private:
    JNIEnv* env_;
    bool pushed_;
};

// A global reference, deleted with whatever environment the destroying thread has.
class GlobalRef {
public:
    GlobalRef() noexcept = default;
    GlobalRef(JNIEnv* env, jobject local) noexcept : ref_(local ? env->NewGlobalRef(local) : nullptr) {}
    GlobalRef(const GlobalRef&) = delete;
    GlobalRef& operator=(const GlobalRef&) = delete;
    ~GlobalRef() = default;  // must be released explicitly through reset(env): no environment here

    jobject get() const noexcept { return ref_; }
    explicit operator bool() const noexcept { return ref_ != nullptr; }
    void reset(JNIEnv* env) noexcept {
        if (ref_ != nullptr) env->DeleteGlobalRef(ref_);
        ref_ = nullptr;
    }

private:
    jobject ref_ = nullptr;
};

// Elements of a Java int array copied into native memory (small arrays on the stack).
class IntArrayCopy {
public:
    IntArrayCopy(JNIEnv* env, jintArray array) : length_(array ? env->GetArrayLength(array) : 0) {
        data_ = length_ <= kInline ? inline_ : new jint[static_cast<size_t>(length_)];
        if (length_ > 0) env->GetIntArrayRegion(array, 0, length_, data_);
    }
    ~IntArrayCopy() {
        if (data_ != inline_) delete[] data_;
    }
    IntArrayCopy(const IntArrayCopy&) = delete;
    IntArrayCopy& operator=(const IntArrayCopy&) = delete;

    jsize size() const noexcept { return length_; }
    jint* data() noexcept { return data_; }
    const jint* data() const noexcept { return data_; }
    jint operator[](jsize i) const noexcept { return data_[i]; }

private:
    static constexpr jsize kInline = 64;
    jsize length_;
    jint inline_[kInline];
    jint* data_;
};

}  // namespace opc::env

namespace opc::env {

// For loops that call into Java once per element: the first Java exception is kept aside so the
// loop can go on with clean JNI calls, and is thrown again when the loop's scope ends.
class DeferredException {
public:
    explicit DeferredException(JNIEnv* env) noexcept : env_(env) {}
    ~DeferredException() {
        if (first_ == nullptr) return;
        if (!env_->ExceptionCheck()) env_->Throw(first_);
        env_->DeleteLocalRef(first_);
    }
    DeferredException(const DeferredException&) = delete;
    DeferredException& operator=(const DeferredException&) = delete;

    // Call after each Java call of the loop.
    void collect() noexcept {
        if (!env_->ExceptionCheck()) return;
        jthrowable thrown = env_->ExceptionOccurred();
        env_->ExceptionClear();
        if (first_ == nullptr)
            first_ = thrown;
        else
            env_->DeleteLocalRef(thrown);
    }

private:
    JNIEnv* env_;
    jthrowable first_ = nullptr;
};

}  // namespace opc::env
