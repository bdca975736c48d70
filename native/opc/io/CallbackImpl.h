// The data callback object that a group's connection point holds: it forwards data changes and
// the completions of asynchronous reads and writes to a Java callback object, on the server's threads.
#pragma once

#include <jni.h>

#include <atomic>

#include "OpcEnv.h"
#include "ValueDelivery.h"

namespace opc::io {

class CallbackImpl final : public IOPCDataCallback {
public:
    // Reference count 0 after construction; the creator adds the first reference.
    CallbackImpl(JNIEnv* env, jobject callback);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    HRESULT STDMETHODCALLTYPE OnDataChange(DWORD transactionId, OPCHANDLE group, HRESULT masterQuality,
                                           HRESULT masterError, DWORD count, OPCHANDLE* clientHandles,
                                           VARIANT* values, WORD* qualities, FILETIME* timestamps,
                                           HRESULT* errors) override;
    HRESULT STDMETHODCALLTYPE OnReadComplete(DWORD transactionId, OPCHANDLE group, HRESULT masterQuality,
                                             HRESULT masterError, DWORD count, OPCHANDLE* clientHandles,
                                             VARIANT* values, WORD* qualities, FILETIME* timestamps,
                                             HRESULT* errors) override;
    HRESULT STDMETHODCALLTYPE OnWriteComplete(DWORD transactionId, OPCHANDLE group, HRESULT masterError, DWORD count,
                                              OPCHANDLE* clientHandles, HRESULT* errors) override;
    HRESULT STDMETHODCALLTYPE OnCancelComplete(DWORD transactionId, OPCHANDLE group) override;

private:
    ~CallbackImpl();

    jobject callback_ = nullptr;  // global reference
    jmethodID asyncCallbackDeleted_ = nullptr;
    JavaVM* vm_ = nullptr;
    std::atomic<ULONG> references_{0};
    UpdateMethods update_;
    jmethodID onWriteCompleted_ = nullptr;
    jmethodID onReadCompleted_ = nullptr;
};

}  // namespace opc::io
