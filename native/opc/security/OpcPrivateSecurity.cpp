// Natives of com.velmora.opc.jni.client.da.OpcPrivateSecurity: a server's own user-and-password
// logon, sent only over a proxy raised to packet privacy.
#include "com_velmora_opc_jni_client_da_OpcPrivateSecurity.h"

#include "ClientSecurity.h"
#include "Frame.h"
#include "OpcEnv.h"

using namespace opc;

namespace {

constexpr env::Frame kIsAvailablePrivate{env::kUnexpectedNative, "OpcPrivateSecurity::isAvailablePrivate",
                                         OLESTR("Enter OpcPrivateSecurity.isAvailablePrivate"),
                                         OLESTR("Exit OpcPrivateSecurity.isAvailablePrivate")};
constexpr env::Frame kLogon{env::kUnexpectedNative, "OpcPrivateSecurity::logon",
                            OLESTR("Enter OpcPrivateSecurity.logon"), OLESTR("Exit OpcPrivateSecurity.logon")};
constexpr env::Frame kLogoff{env::kUnexpectedNative, "OpcPrivateSecurity::logoff",
                             OLESTR("Enter OpcPrivateSecurity.logoff"), OLESTR("Exit OpcPrivateSecurity.logoff")};

IOPCSecurityPrivate* securityOf(jlong priv) noexcept { return OpcEnv::fromHandle<IOPCSecurityPrivate>(priv); }

jboolean isAvailablePrivate(JNIEnv* env, jlong priv) {
    if (priv == 0) {
        OpcEnv::logError(env, OLESTR("OpcPrivateSecurity:isAvailablePrivate->argument is null"));
        return JNI_FALSE;
    }
    BOOL available = FALSE;
    securityOf(priv)->IsAvailablePriv(&available);  // the flag alone answers: a failed call leaves it FALSE
    return available ? JNI_TRUE : JNI_FALSE;
}

// The credentials travel as Java gave them, and only once the proxy encrypts what it sends.
jlong logon(JNIEnv* env, jlong priv, jstring user, jstring password) {
    jlong result = -1;
    try {
        if (priv == 0) {
            OpcEnv::logError(env, OLESTR("OpcPrivateSecurity:logOn->argument is null"));
            return result;
        }
        if (user == nullptr || password == nullptr) return result;
        const WideString userText = OpcEnv::newWideString(env, user);
        const WideString passwordText = OpcEnv::newWideString(env, password);
        if (!userText || !passwordText) return result;
        IOPCSecurityPrivate* server = securityOf(priv);
        HRESULT hr = security::setPrivacyBlanket(server);
        if (hr == S_OK) hr = server->Logon(userText.get(), passwordText.get());
        result = security::logonStatus(hr);
    } catch (...) {
        OpcEnv::logWarning(env, OLESTR("Unexpected exception in PrivateSecurity::Logon()"));
    }
    return result;
}

jboolean logoff(JNIEnv* env, jlong priv) {
    try {
        if (priv == 0) {
            OpcEnv::logError(env, OLESTR("OpcPrivateSecurity:logOff->argument is null"));
            return JNI_FALSE;
        }
        return securityOf(priv)->Logoff() == S_OK ? JNI_TRUE : JNI_FALSE;
    } catch (...) {
        OpcEnv::logWarning(env, OLESTR("Unexpected exception in PrivateSecurity::logOff()"));
        return JNI_FALSE;
    }
}

}  // namespace

extern "C" JNIEXPORT jboolean JNICALL Java_com_velmora_opc_jni_client_da_OpcPrivateSecurity_isAvailablePrivate(
    JNIEnv* env, jclass, jlong priv) {
    return env::framed<jboolean>(env, kIsAvailablePrivate, JNI_FALSE, [&] { return isAvailablePrivate(env, priv); });
}

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_client_da_OpcPrivateSecurity_logon(
    JNIEnv* env, jclass, jlong priv, jstring user, jstring password) {
    return env::framed<jlong>(env, kLogon, 0, [&] { return logon(env, priv, user, password); });
}

extern "C" JNIEXPORT jboolean JNICALL Java_com_velmora_opc_jni_client_da_OpcPrivateSecurity_logoff(JNIEnv* env,
                                                                                                  jclass,
                                                                                                  jlong priv) {
    return env::framed<jboolean>(env, kLogoff, JNI_FALSE, [&] { return logoff(env, priv); });
}
