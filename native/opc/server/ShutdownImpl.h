// The shutdown callback object that a server's IOPCShutdown connection point holds: it forwards the
// server's shutdown request to a Java listener, on the server's thread.
#pragma once

#include <jni.h>

#include <atomic>

#include "OpcEnv.h"

namespace opc::server {

class ShutdownImpl final : public IOPCShutdown {
public:
    // Reference count 0 after construction; the creator adds the first reference.
    ShutdownImpl(JNIEnv* env, jobject listener);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE ShutdownRequest(LPCWSTR reason) override;

    // Set once the connection point has accepted the object.
    void setAdvised() noexcept { advised_.store(true, std::memory_order_release); }

private:
    ~ShutdownImpl();

    std::atomic<bool> advised_{false};
    jobject listener_ = nullptr;  // global reference
    jmethodID shutdownDeleted_ = nullptr;
    JavaVM* vm_ = nullptr;
    std::atomic<ULONG> references_{0};
    jmethodID shutdownRequest_ = nullptr;
};

}  // namespace opc::server
