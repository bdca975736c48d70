// The shutdown callback object that a server's IOPCShutdown connection point holds: it forwards the
// server's shutdown request to a Java listener, on the server's thread.
#pragma once

#include <jni.h>

#include <atomic>

#include "CallbackObject.h"
#include "OpcEnv.h"

namespace opc::server {

class ShutdownImpl final : public env::CallbackObject<ShutdownImpl, IOPCShutdown, IID_IOPCShutdown> {
public:
    // Reference count 0 after construction; the creator adds the first reference.
    ShutdownImpl(JNIEnv* env, jobject listener);

    HRESULT STDMETHODCALLTYPE ShutdownRequest(LPCWSTR reason) override;

    // Set once the connection point has accepted the object.
    void setAdvised() noexcept { advised_.store(true, std::memory_order_release); }

private:
    friend class env::CallbackObject<ShutdownImpl, IOPCShutdown, IID_IOPCShutdown>;
    ~ShutdownImpl();

    std::atomic<bool> advised_{false};
    jobject listener_ = nullptr;  // global reference
    jmethodID shutdownDeleted_ = nullptr;
    JavaVM* vm_ = nullptr;
    jmethodID shutdownRequest_ = nullptr;
    jclass logClass_ = nullptr;  // global reference: the log sinks' class, as the advising thread found it
};

}  // namespace opc::server
