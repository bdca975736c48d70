// Natives of com.velmora.opc.jni.ComObjectClient: deriving and giving up interface handles.
#include "com_velmora_opc_jni_ComObjectClient.h"

#include "ComPtr.h"
#include "Frame.h"
#include "OpcEnv.h"

using namespace opc;

namespace {

constexpr env::Frame kQuery{env::kUnexpectedNative, "ComObjectClient::query", nullptr, nullptr};
constexpr env::Frame kRelease{env::kUnexpectedNative, "ComObjectClient::release", OLESTR("Enter release"),
                              OLESTR("Exit release")};

jlong query(JNIEnv* env, jlong handle, jstring iidText) {
    if (handle == 0 || iidText == nullptr) return 0;
    IID iid;
    if (!OpcEnv::check(env, OpcEnv::toIID(env, iidText, &iid), OLESTR("OpcEnv::toIID"))) return 0;
    support::ComPtr<IUnknown> result;
    const HRESULT hr = OpcEnv::fromHandle<IUnknown>(handle)->QueryInterface(iid, result.putVoid());
    if (!OpcEnv::check(env, hr, OLESTR("IUnknown::QueryInterface"))) return 0;
    return OpcEnv::toHandle(result.detach());
}

void release(jlong handle) {
    if (handle == 0) return;
    try {
        OpcEnv::fromHandle<IUnknown>(handle)->Release();
    } catch (...) {
        // Giving up a handle never reports anything.
    }
}

}  // namespace

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_ComObjectClient_query(JNIEnv* env, jclass, jlong handle,
                                                                                  jstring iid) {
    return env::framed<jlong>(env, kQuery, 0, [&] { return query(env, handle, iid); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_ComObjectClient_release(JNIEnv* env, jclass, jlong handle) {
    env::framedVoid(env, kRelease, [&] { release(handle); });
}
