// Natives of com.velmora.opc.jni.client.common.OpcCommon: locales, client name and error texts.
#include "com_velmora_opc_jni_client_common_OpcCommon.h"

#include "Frame.h"
#include "OpcEnv.h"
#include "Owned.h"

using namespace opc;

namespace {

constexpr env::Frame kAvailableLocales{env::kUnexpectedNative, "OpcCommon::availableLocales", nullptr, nullptr};
constexpr env::Frame kGetErrorString{env::kUnexpectedNative, "OpcCommon::getErrorString", nullptr, nullptr};
constexpr env::Frame kGetLocaleId{env::kUnexpectedNative, "OpcCommon::getLocaleId", nullptr, nullptr};
constexpr env::Frame kSetClientName{env::kUnexpectedNative, "OpcCommon::setClientName", nullptr, nullptr};
constexpr env::Frame kSetLocaleId{env::kUnexpectedNative, "OpcCommon::setLocaleId", nullptr, nullptr};

jintArray availableLocales(JNIEnv* env, jlong common) {
    if (common == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcCommon::availableLocales- argument is NULL"));
        return nullptr;
    }
    DWORD count = 0;
    support::TaskMem<LCID> locales;
    const HRESULT hr = OpcEnv::fromHandle<IOPCCommon>(common)->QueryAvailableLocaleIDs(&count, locales.put());
    if (!OpcEnv::check(env, hr, OLESTR("IOPCCommon::QueryAvailableLocaleIDs"))) return nullptr;
    // A server without locales answers null, not an empty array.
    if (count == 0 || !locales) return nullptr;
    const jsize n = static_cast<jsize>(count);
    jintArray out = env->NewIntArray(n);
    if (out == nullptr) return nullptr;  // OutOfMemoryError pending
    env->SetIntArrayRegion(out, 0, n, reinterpret_cast<const jint*>(locales.get()));
    return out;
}

jstring getErrorString(JNIEnv* env, jlong common, jint error) {
    if (common == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcCommon::getErrorString - argument is NULL"));
        return nullptr;
    }
    support::TaskMem<OLECHAR> text;
    const HRESULT hr = OpcEnv::fromHandle<IOPCCommon>(common)->GetErrorString(static_cast<HRESULT>(error), text.put());
    if (!OpcEnv::check(env, hr, OLESTR("IOPCCommon::GetErrorString"))) return nullptr;
    if (!text) return nullptr;
    return OpcEnv::newJavaString(env, text.get());
}

jint getLocaleId(JNIEnv* env, jlong common) {
    if (common == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcCommon::getLocaleId- argument is NULL"));
        return 0;
    }
    LCID locale = 0;
    const HRESULT hr = OpcEnv::fromHandle<IOPCCommon>(common)->GetLocaleID(&locale);
    if (!OpcEnv::check(env, hr, OLESTR("IOPCCommon::GetLocaleID"))) return 0;
    return static_cast<jint>(locale);
}

void setClientName(JNIEnv* env, jlong common, jstring name) {
    if (common == 0 || name == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcCommon::setClientName- argument is NULL"));
        return;
    }
    HRESULT hr;
    {
        const WideString clientName = OpcEnv::newWideString(env, name);
        hr = OpcEnv::fromHandle<IOPCCommon>(common)->SetClientName(clientName.get());
    }
    if (!OpcEnv::check(env, hr, OLESTR("IOPCCommon::SetClientName")))
        OpcEnv::logTrace(env, OLESTR("OpcCommon::setClientName- check returned false"));
}

void setLocaleId(JNIEnv* env, jlong common, jint localeId) {
    if (common == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcCommon::setLocaleId- argument is NULL"));
        return;
    }
    const HRESULT hr = OpcEnv::fromHandle<IOPCCommon>(common)->SetLocaleID(static_cast<LCID>(localeId));
    if (!OpcEnv::check(env, hr, OLESTR("IOPCCommon::SetLocaleID")))
        OpcEnv::logTrace(env, OLESTR("OpcCommon::setLocaleId- check returned false"));
}

}  // namespace

extern "C" JNIEXPORT jintArray JNICALL Java_com_velmora_opc_jni_client_common_OpcCommon_availableLocales(JNIEnv* env,
                                                                                                        jclass,
                                                                                                        jlong common) {
    return env::framed<jintArray>(env, kAvailableLocales, nullptr, [&] { return availableLocales(env, common); });
}

extern "C" JNIEXPORT jstring JNICALL Java_com_velmora_opc_jni_client_common_OpcCommon_getErrorString(JNIEnv* env, jclass,
                                                                                                    jlong common,
                                                                                                    jint error) {
    return env::framed<jstring>(env, kGetErrorString, nullptr, [&] { return getErrorString(env, common, error); });
}

extern "C" JNIEXPORT jint JNICALL Java_com_velmora_opc_jni_client_common_OpcCommon_getLocaleId(JNIEnv* env, jclass,
                                                                                              jlong common) {
    return env::framed<jint>(env, kGetLocaleId, 0, [&] { return getLocaleId(env, common); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_common_OpcCommon_setClientName(JNIEnv* env, jclass,
                                                                                                jlong common,
                                                                                                jstring name) {
    env::framedVoid(env, kSetClientName, [&] { setClientName(env, common, name); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_common_OpcCommon_setLocaleId(JNIEnv* env, jclass,
                                                                                              jlong common,
                                                                                              jint localeId) {
    env::framedVoid(env, kSetLocaleId, [&] { setLocaleId(env, common, localeId); });
}
