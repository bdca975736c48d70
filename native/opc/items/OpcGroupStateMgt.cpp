// Natives of com.velmora.opc.jni.client.da.OpcGroupStateMgt: reading and changing a group's state.
#include "com_velmora_opc_jni_client_da_OpcGroupStateMgt.h"

#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"

using namespace opc;

namespace {

constexpr env::Frame kGetState{env::kUnexpectedNative, "OpcGroupStateMgt::getState",
                               OLESTR("Enter OpcGroupStateMgt.getState"), OLESTR("Exit OpcGroupStateMgt.getState")};
constexpr env::Frame kSetState{env::kUnexpectedNative, "OpcGroupStateMgt::setState",
                               OLESTR("Enter OpcGroupStateMgt.setState"), OLESTR("Exit OpcGroupStateMgt.setState")};

void getState(JNIEnv* env, jlong groupStateMgt, jobject receiver) {
    if (groupStateMgt == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcGroupStateMgmt::getState- argument is null"));
        return;
    }
    DWORD updateRate = 0;
    BOOL active = FALSE;
    support::TaskMem<OLECHAR> name;  // the server's copy, freed on every way out
    LONG timeBias = 0;
    FLOAT percentDeadband = 0.0f;
    LCID locale = 0;
    OPCHANDLE clientGroup = 0;
    OPCHANDLE serverGroup = 0;
    const HRESULT hr = OpcEnv::fromHandle<IOPCGroupStateMgt>(groupStateMgt)
                           ->GetState(&updateRate, &active, name.put(), &timeBias, &percentDeadband, &locale,
                                      &clientGroup, &serverGroup);
    if (!OpcEnv::check(env, hr, OLESTR("IOPCGroupStateMgt::GetState"))) return;
    if (receiver == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcGroupStateMgmt::getState- object is null"));
        return;
    }
    env::LocalRef<jclass> cls(env, env->GetObjectClass(receiver));
    if (!cls) {
        OpcEnv::logTrace(env, OLESTR("OpcGroupStateMgmt::getState- class  is null"));
        return;
    }
    const jmethodID set = env->GetMethodID(cls.get(), "set", "(IZLjava/lang/String;IFIII)V");
    if (set == nullptr || !name) {
        OpcEnv::logTrace(env, OLESTR("OpcGroupStateMgmt::getState- method is null"));
        return;
    }
    env::LocalRef<jstring> groupName(env, OpcEnv::newJavaString(env, name.get()));
    if (!groupName) return;  // OutOfMemoryError pending
    env->CallVoidMethod(receiver, set, static_cast<jint>(updateRate), active ? JNI_TRUE : JNI_FALSE, groupName.get(),
                        static_cast<jint>(timeBias), static_cast<jfloat>(percentDeadband), static_cast<jint>(locale),
                        static_cast<jint>(clientGroup), static_cast<jint>(serverGroup));
}

jint setState(JNIEnv* env, jlong groupStateMgt, jint updateRate, jboolean active, jint timeBias,
              jfloat percentDeadband, jint lcid, jint clientGroupHandle) {
    if (groupStateMgt == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::setState- argument is null"));
        return 0;
    }
    DWORD requestedRate = static_cast<DWORD>(updateRate);
    DWORD revisedRate = 0;
    BOOL isActive = active ? TRUE : FALSE;
    LONG bias = timeBias;
    FLOAT deadband = percentDeadband;
    DWORD locale = static_cast<DWORD>(lcid);
    OPCHANDLE clientGroup = static_cast<OPCHANDLE>(clientGroupHandle);
    const HRESULT hr = OpcEnv::fromHandle<IOPCGroupStateMgt>(groupStateMgt)
                           ->SetState(&requestedRate, &revisedRate, &isActive, &bias, &deadband, &locale, &clientGroup);
    if (!OpcEnv::check(env, hr, OLESTR("IOPCGroupStateMgt::SetState")))
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::setState- check returned false"));
    return static_cast<jint>(revisedRate);
}

}  // namespace

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcGroupStateMgt_getState(JNIEnv* env, jclass,
                                                                                              jlong groupStateMgt,
                                                                                              jobject receiver) {
    env::framedVoid(env, kGetState, [&] { getState(env, groupStateMgt, receiver); });
}

extern "C" JNIEXPORT jint JNICALL Java_com_velmora_opc_jni_client_da_OpcGroupStateMgt_setState(
    JNIEnv* env, jclass, jlong groupStateMgt, jint updateRate, jboolean active, jint timeBias, jfloat percentDeadband,
    jint lcid, jint clientGroupHandle) {
    return env::framed<jint>(env, kSetState, 0, [&] {
        return setState(env, groupStateMgt, updateRate, active, timeBias, percentDeadband, lcid, clientGroupHandle);
    });
}
