#include "ShutdownImpl.h"

#include "CallbackThread.h"
#include "Console.h"
#include "JniRefs.h"

namespace opc::server {

ShutdownImpl::ShutdownImpl(JNIEnv* env, jobject listener) {
    if (listener == nullptr) {
        OpcEnv::logError(env, OLESTR("ShutdownImpl constructor failed"));
        return;
    }
    env->GetJavaVM(&vm_);
    listener_ = env->NewGlobalRef(listener);
    env::LocalRef<jclass> cls(env, env->GetObjectClass(listener));
    if (!cls) return;
    // A missing method leaves its id null; calls through a null id are never made.
    shutdownDeleted_ = env->GetMethodID(cls.get(), "shutdownDeleted", "()V");
    if (shutdownDeleted_ == nullptr) env->ExceptionClear();
    shutdownRequest_ = env->GetMethodID(cls.get(), "shutdownRequest", "(Ljava/lang/String;)V");
    if (shutdownRequest_ == nullptr) env->ExceptionClear();
}

ShutdownImpl::~ShutdownImpl() {
    try {
        env::CallbackThread thread(vm_);
        JNIEnv* env = thread.env();
        if (env == nullptr) return;
        if (advised_.load(std::memory_order_acquire) && listener_ != nullptr && shutdownDeleted_ != nullptr) {
            env->CallVoidMethod(listener_, shutdownDeleted_);
            thread.settle();
        }
        if (listener_ != nullptr) env->DeleteGlobalRef(listener_);
    } catch (...) {
    }
}

HRESULT STDMETHODCALLTYPE ShutdownImpl::ShutdownRequest(LPCWSTR reason) {
    advised_.store(false, std::memory_order_release);
    try {
        env::CallbackThread thread(vm_);
        // A request without a reason writes no console line, but the listener hears of it all the same:
        // the server is going away either way.
        if (reason != nullptr) {
            console::writeWide(OLESTR("OPC Server shutdown reason: "));
            console::writeWide(reason);
            console::endLine();
        }
        JNIEnv* env = thread.env();
        if (env != nullptr && listener_ != nullptr && shutdownRequest_ != nullptr) {
            env->CallVoidMethod(listener_, shutdownRequest_, static_cast<jstring>(nullptr));
            thread.settle();
        }
    } catch (...) {
        console::writeWide(OLESTR("Exception while handling shutdown request: "));
        if (reason != nullptr) console::writeWide(reason);
        console::endLine();
    }
    return S_OK;
}

}  // namespace opc::server
