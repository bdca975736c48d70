// Result receivers: plain Java objects typed only by a method of fixed name and signature, looked up
// on the object's own class at every use.
#pragma once

#include <jni.h>

#include "JniRefs.h"
#include "OpcEnv.h"

namespace opc::env {

using LogSink = void (*)(JNIEnv*, const OLECHAR*);

// The receiver's method, or null after the text of the step that failed went to the sink: the class
// (none for a null receiver) or the method (the virtual machine's NoSuchMethodError then stays pending).
inline jmethodID receiverMethod(JNIEnv* env, jobject receiver, const char* name, const char* signature, LogSink sink,
                                const OLECHAR* noClass, const OLECHAR* noMethod) {
    const LocalRef<jclass> cls(env, receiver != nullptr ? env->GetObjectClass(receiver) : nullptr);
    if (!cls) {
        sink(env, noClass);
        return nullptr;
    }
    const jmethodID method = env->GetMethodID(cls.get(), name, signature);
    if (method == nullptr) sink(env, noMethod);
    return method;
}

}  // namespace opc::env
