#include "Calls.h"

namespace opc::bench {

void throwIllegalArgument(JNIEnv* env, const char* message) {
    jclass cls = env->FindClass("java/lang/IllegalArgumentException");
    if (cls != nullptr) env->ThrowNew(cls, message);
}

namespace {

template <typename J, typename E>
bool copyArray(JNIEnv* env, J array, std::vector<E>& out, jsize length,
               void (JNIEnv::*region)(J, jsize, jsize, E*)) {
    if (array == nullptr || env->GetArrayLength(array) != length) return false;
    out.resize(static_cast<size_t>(length));
    (env->*region)(array, 0, length, out.data());
    return true;
}

}  // namespace

bool Calls::copyFrom(JNIEnv* env, jintArray handleArray, jdoubleArray numberArray, jobjectArray textArray,
                     jlongArray timeArray, jintArray qualityArray, jintArray errorArray) {
    if (handleArray == nullptr) {
        throwIllegalArgument(env, "no item handles");
        return false;
    }
    const jsize n = env->GetArrayLength(handleArray);
    bool ok = copyArray(env, handleArray, handles, n, &JNIEnv::GetIntArrayRegion) &&
              copyArray(env, timeArray, times, n, &JNIEnv::GetLongArrayRegion) &&
              copyArray(env, qualityArray, qualities, n, &JNIEnv::GetIntArrayRegion) &&
              copyArray(env, errorArray, errors, n, &JNIEnv::GetIntArrayRegion);
    if (ok && numberArray != nullptr) ok = copyArray(env, numberArray, numbers, n, &JNIEnv::GetDoubleArrayRegion);
    if (ok && textArray != nullptr) {
        ok = env->GetArrayLength(textArray) == n;
        texts.resize(ok ? static_cast<size_t>(n) : 0);
        for (jsize i = 0; ok && i < n; ++i) {
            auto text = static_cast<jstring>(env->GetObjectArrayElement(textArray, i));
            if (text == nullptr) {
                ok = false;
                break;
            }
            const jsize length = env->GetStringLength(text);
            texts[static_cast<size_t>(i)].resize(static_cast<size_t>(length));
            env->GetStringRegion(text, 0, length, reinterpret_cast<jchar*>(texts[static_cast<size_t>(i)].data()));
            env->DeleteLocalRef(text);
        }
    }
    if (!ok) throwIllegalArgument(env, "call arguments missing or of different lengths");
    return ok;
}

bool UpdateIds::lookUp(JNIEnv* env, jobject receiver) {
    if (receiver == nullptr) {
        throwIllegalArgument(env, "no receiver");
        return false;
    }
    jclass cls = env->GetObjectClass(receiver);
    numeric = env->GetMethodID(cls, "updateNumeric", "(IDJIIZ)V");
    if (numeric != nullptr) string = env->GetMethodID(cls, "updateString", "(ILjava/lang/String;JIIZ)V");
    env->DeleteLocalRef(cls);
    return numeric != nullptr && string != nullptr;
}

jlongArray toJava(JNIEnv* env, const std::vector<int64_t>& nanos) {
    const auto n = static_cast<jsize>(nanos.size());
    jlongArray out = env->NewLongArray(n);
    if (out != nullptr) env->SetLongArrayRegion(out, 0, n, reinterpret_cast<const jlong*>(nanos.data()));
    return out;
}

}  // namespace opc::bench
