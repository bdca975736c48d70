// The write of many items of mixed types in one server call, shared by the synchronous and the
// asynchronous write natives.
#pragma once

#include <jni.h>

#include "OpcEnv.h"

namespace opc::OpcEnv {

// Builds one VARIANT per item from its value text and VARTYPE, writes them through io (the group's
// IOPCSyncIO when synchronous, else its IOPCAsyncIO2; may be null) and reports the outcome to the
// listener's OnReturnWrite on the calling thread. Answers the HRESULT of the server call, or 0 when
// none was made. A failed server call raises no Java exception.
jint write(JNIEnv* env, IUnknown* io, bool synchronous, jint count, jint transactionId, jintArray serverHandles,
           jintArray dataTypes, jobjectArray values, jobject writeListener);

}  // namespace opc::OpcEnv
