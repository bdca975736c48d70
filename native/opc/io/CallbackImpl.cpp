#include "CallbackImpl.h"

#include <memory>

#include "CallbackThread.h"
#include "JniRefs.h"

namespace opc::io {

CallbackImpl::CallbackImpl(JNIEnv* env, jobject callback) {
    env->GetJavaVM(&vm_);
    if (callback == nullptr) {
        OpcEnv::logError(env, OLESTR("OpcAsyncIO2::CallbackImpl constructor, call back object is NULL"));
        return;
    }
    callback_ = env->NewGlobalRef(callback);
    if (callback_ == nullptr) {
        OpcEnv::logError(env,
                         OLESTR("OpcAsyncIO2::CallbackImpl constructor, call back object's global object creation failed"));
        return;
    }
    logClass_ = OpcEnv::newLogClassRef(env);
    env::LocalRef<jclass> cls(env, env->GetObjectClass(callback));
    if (!cls) {
        OpcEnv::logError(env,
                         OLESTR("OpcAsyncIO2::CallbackImpl constructor, call back object's relavant class object is null"));
        return;
    }
    // A missing method leaves its id null (and the virtual machine's NoSuchMethodError cleared, so the
    // look-ups after it can run); calls through a null id are never made.
    const auto find = [&](const char* name, const char* signature) {
        const jmethodID id = env->GetMethodID(cls.get(), name, signature);
        if (id == nullptr && env->ExceptionCheck()) env->ExceptionClear();
        return id;
    };
    update_.boolean = find("updateBoolean", "(IZJIIZ)V");
    update_.error = find("updateError", "(IJIIZ)V");
    update_.numeric = find("updateNumeric", "(IDJIIZ)V");
    update_.string = find("updateString", "(ILjava/lang/String;JIIZ)V");
    onWriteCompleted_ = find("OnWriteCompleted", "(IIII[I[I)V");
    onReadCompleted_ = find("OnReadCompleted", "(IIII[I[I[Ljava/lang/String;[I[J[I)V");
    asyncCallbackDeleted_ = find("asyncCallbackDeleted", "()V");
}

CallbackImpl::~CallbackImpl() {
    try {
        env::CallbackThread thread(vm_, logClass_);
        JNIEnv* env = thread.env();
        if (env != nullptr && callback_ != nullptr) {
            if (asyncCallbackDeleted_ != nullptr) env->CallVoidMethod(callback_, asyncCallbackDeleted_);
            thread.settle();
            env->DeleteGlobalRef(callback_);
        }
        if (env != nullptr && logClass_ != nullptr) env->DeleteGlobalRef(logClass_);
    } catch (...) {
    }
}

HRESULT STDMETHODCALLTYPE CallbackImpl::OnDataChange(DWORD, OPCHANDLE, HRESULT, HRESULT, DWORD count,
                                                     OPCHANDLE* clientHandles, VARIANT* values, WORD* qualities,
                                                     FILETIME* timestamps, HRESULT* errors) {
    env::CallbackThread thread(vm_, logClass_);
    JNIEnv* env = thread.env();
    if (env == nullptr || callback_ == nullptr) return S_OK;
    try {
        const bool complete = update_.numeric && update_.boolean && update_.string && update_.error;
        for (DWORD i = 0; complete && i < count; ++i) {
            OpcEnv::deliverValue(env, callback_, update_, static_cast<jint>(clientHandles[i]), values[i], qualities[i],
                                 timestamps[i], errors[i], DeliveryPath::DataCallback);
            thread.settle();
        }
    } catch (...) {
        OpcEnv::logError(env, OLESTR("Unexpected exception in AsyncIo2."));
    }
    return S_OK;
}

namespace {

jintArray intArray(JNIEnv* env, DWORD count, const jint* values) {
    jintArray array = env->NewIntArray(static_cast<jsize>(count));
    if (array != nullptr) env->SetIntArrayRegion(array, 0, static_cast<jsize>(count), values);
    return array;
}

}  // namespace

HRESULT STDMETHODCALLTYPE CallbackImpl::OnReadComplete(DWORD transactionId, OPCHANDLE, HRESULT masterQuality,
                                                       HRESULT masterError, DWORD count, OPCHANDLE* clientHandles,
                                                       VARIANT* values, WORD* qualities, FILETIME* timestamps,
                                                       HRESULT* errors) {
    if (count == 0) return S_OK;
    env::CallbackThread thread(vm_, logClass_);
    JNIEnv* env = thread.env();
    if (env == nullptr) return S_OK;
    try {
        if (errors == nullptr || clientHandles == nullptr || values == nullptr || qualities == nullptr) {
            OpcEnv::logError(env, OLESTR("Cannot allocate memory - AsyncIo2::OnReadComplete"));
            return S_OK;
        }
        const jsize n = static_cast<jsize>(count);
        env::LocalRef<jclass> stringClass(env, env->FindClass("java/lang/String"));
        env::LocalRef<jstring> empty(env, env->NewStringUTF(""));
        if (!stringClass || !empty) return S_OK;
        env::LocalRef<jobjectArray> texts(env, env->NewObjectArray(n, stringClass.get(), empty.get()));
        const std::unique_ptr<jint[]> kinds(new jint[count]);
        const std::unique_ptr<jint[]> quality(new jint[count]);
        const std::unique_ptr<jlong[]> times(new jlong[count]);
        if (!texts) return S_OK;
        for (DWORD i = 0; i < count; ++i) {
            quality[i] = static_cast<jint>(qualities[i]);
            times[i] = OpcEnv::toJavaTime(timestamps[i]);
            jstring text = nullptr;
            kinds[i] = OpcEnv::valueText(env, values[i], text);
            if (text != nullptr) {
                env->SetObjectArrayElement(texts.get(), static_cast<jsize>(i), text);
                env->DeleteLocalRef(text);
            }
            thread.settle();
        }
        env::LocalRef<jintArray> handleArray(env, intArray(env, count, reinterpret_cast<const jint*>(clientHandles)));
        env::LocalRef<jintArray> kindArray(env, intArray(env, count, kinds.get()));
        env::LocalRef<jintArray> qualityArray(env, intArray(env, count, quality.get()));
        env::LocalRef<jintArray> errorArray(env, intArray(env, count, reinterpret_cast<const jint*>(errors)));
        env::LocalRef<jlongArray> timeArray(env, env->NewLongArray(n));
        if (!handleArray || !kindArray || !qualityArray || !errorArray || !timeArray) {
            thread.settle();
            return S_OK;
        }
        env->SetLongArrayRegion(timeArray.get(), 0, n, times.get());
        if (callback_ != nullptr && onReadCompleted_ != nullptr)
            env->CallVoidMethod(callback_, onReadCompleted_, static_cast<jint>(transactionId),
                                static_cast<jint>(masterQuality), static_cast<jint>(masterError), n, handleArray.get(),
                                kindArray.get(), texts.get(), qualityArray.get(), timeArray.get(), errorArray.get());
    } catch (...) {
        thread.settle();
        OpcEnv::logError(env, OLESTR("Unexpected exception in AsyncIo2::OnReadComplete"));
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE CallbackImpl::OnWriteComplete(DWORD transactionId, OPCHANDLE group, HRESULT masterError,
                                                        DWORD count, OPCHANDLE* clientHandles, HRESULT* errors) {
    if (count == 0) return S_OK;
    env::CallbackThread thread(vm_, logClass_);
    JNIEnv* env = thread.env();
    if (env == nullptr) return S_OK;
    try {
        env::LocalRef<jintArray> errorArray(env, errors ? intArray(env, count, reinterpret_cast<const jint*>(errors)) : nullptr);
        env::LocalRef<jintArray> handleArray(
            env, clientHandles ? intArray(env, count, reinterpret_cast<const jint*>(clientHandles)) : nullptr);
        if (!errorArray || !handleArray) {
            thread.settle();
            OpcEnv::logError(env, OLESTR("Cannot allocate memory - AsyncIo2::OnWriteComplete"));
            return S_OK;
        }
        if (callback_ != nullptr && onWriteCompleted_ != nullptr)
            env->CallVoidMethod(callback_, onWriteCompleted_, static_cast<jint>(transactionId), static_cast<jint>(group),
                                static_cast<jint>(masterError), static_cast<jint>(count), handleArray.get(),
                                errorArray.get());
    } catch (...) {
        thread.settle();
        OpcEnv::logError(env, OLESTR("Unexpected exception in AsyncIo2::OnWriteComplete"));
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE CallbackImpl::OnCancelComplete(DWORD, OPCHANDLE) { return S_OK; }

}  // namespace opc::io
