// Natives of com.velmora.opc.jni.client.da.OpcNTSecurity: whether a server enforces NT access
// control, the impersonation level it needs, and switching the identity its calls arrive under.
#include "com_velmora_opc_jni_client_da_OpcNTSecurity.h"

#include "ClientSecurity.h"
#include "Frame.h"
#include "OpcEnv.h"

using namespace opc;

namespace {

constexpr env::Frame kIsAvailableNT{env::kUnexpectedNative, "OpcNTSecurity::isAvailableNT",
                                    OLESTR("Enter OpcNTSecurity.isAvailableNT"),
                                    OLESTR("Exit OpcNTSecurity.isAvailableNT")};
constexpr env::Frame kQueryImpersonationLevel{env::kUnexpectedNative, "OpcNTSecurity::queryImpersonationLevel",
                                              OLESTR("Enter OpcNTSecurity.queryImpersonationLevel"),
                                              OLESTR("Exit OpcNTSecurity.queryImpersonationLevel")};
constexpr env::Frame kChangeUser{env::kUnexpectedNative, "OpcNTSecurity::changeUser",
                                 OLESTR("Enter OpcNTSecurity.changeUser"), OLESTR("Exit OpcNTSecurity.changeUser")};

IOPCSecurityNT* securityOf(jlong nt) noexcept { return OpcEnv::fromHandle<IOPCSecurityNT>(nt); }

jlong minImpersonationLevel(IOPCSecurityNT* server) {
    DWORD level = 0;
    const HRESULT hr = server->QueryMinImpersonationLevel(&level);
    return security::impersonationResult(hr, level);
}

jboolean isAvailableNT(JNIEnv* env, jlong nt) {
    if (nt == 0) {
        OpcEnv::logError(env, OLESTR("OpcNTSecurity:isAvailableNT->argument is null"));
        return JNI_FALSE;
    }
    BOOL available = FALSE;
    securityOf(nt)->IsAvailableNT(&available);  // the flag alone answers: a failed call leaves it FALSE
    return available ? JNI_TRUE : JNI_FALSE;
}

jlong queryImpersonationLevel(JNIEnv* env, jlong nt) {
    if (nt == 0) {
        OpcEnv::logError(env, OLESTR("OpcNTSecurity:queryImpersonationLevel->argument is null"));
        return 0;
    }
    return minImpersonationLevel(securityOf(nt));
}

// The identity goes into the proxy's blanket first; only then is the server asked to look at the
// caller again.
jlong changeUser(JNIEnv* env, jlong nt, jstring user, jstring password) {
    jlong result = -1;
    try {
        if (nt == 0) {
            OpcEnv::logError(env, OLESTR("OpcNTSecurity:changeUser->argument is null"));
            return result;
        }
        if (user == nullptr || password == nullptr) return result;
        IOPCSecurityNT* server = securityOf(nt);
        const jlong level = minImpersonationLevel(server);
        const WideString userText = OpcEnv::newWideString(env, user);
        const WideString passwordText = OpcEnv::newWideString(env, password);
        if (!userText || !passwordText) return result;
        HRESULT hr = security::setIdentityBlanket(server, security::toThreadAnsi(userText.get()),
                                                  security::toThreadAnsi(passwordText.get()),
                                                  static_cast<DWORD>(level), security::processIdentities());
        if (hr == S_OK) hr = server->ChangeUser();
        result = security::changeUserStatus(hr);
    } catch (...) {
        OpcEnv::logWarning(env, OLESTR("Unexpected exception in NTSecurity::changeUser"));
    }
    return result;
}

}  // namespace

extern "C" JNIEXPORT jboolean JNICALL Java_com_velmora_opc_jni_client_da_OpcNTSecurity_isAvailableNT(JNIEnv* env,
                                                                                                    jclass, jlong nt) {
    return env::framed<jboolean>(env, kIsAvailableNT, JNI_FALSE, [&] { return isAvailableNT(env, nt); });
}

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_client_da_OpcNTSecurity_queryImpersonationLevel(
    JNIEnv* env, jclass, jlong nt) {
    return env::framed<jlong>(env, kQueryImpersonationLevel, 0, [&] { return queryImpersonationLevel(env, nt); });
}

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_client_da_OpcNTSecurity_changeUser(
    JNIEnv* env, jclass, jlong nt, jstring user, jstring password) {
    return env::framed<jlong>(env, kChangeUser, 0, [&] { return changeUser(env, nt, user, password); });
}
