// The data callback object that a group's connection point holds: it forwards data changes and
// the completions of asynchronous reads and writes to a Java callback object, on the server's threads.
#pragma once

#include <jni.h>

#include "CallbackObject.h"
#include "OpcEnv.h"
#include "ValueDelivery.h"

namespace opc::io {

class CallbackImpl final : public env::CallbackObject<CallbackImpl, IOPCDataCallback, IID_IOPCDataCallback> {
public:
    // Reference count 0 after construction; the creator adds the first reference.
    CallbackImpl(JNIEnv* env, jobject callback);

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
    friend class env::CallbackObject<CallbackImpl, IOPCDataCallback, IID_IOPCDataCallback>;
    ~CallbackImpl();

    jobject callback_ = nullptr;  // global reference
    jmethodID asyncCallbackDeleted_ = nullptr;
    JavaVM* vm_ = nullptr;
    UpdateMethods update_;
    jmethodID onWriteCompleted_ = nullptr;
    jmethodID onReadCompleted_ = nullptr;
    jclass logClass_ = nullptr;  // global reference: the log sinks' class, as the advising thread found it
};

}  // namespace opc::io
