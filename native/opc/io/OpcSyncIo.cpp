// Natives of com.velmora.opc.jni.client.da.OpcSyncIo: the synchronous read.
#include "com_velmora_opc_jni_client_da_OpcSyncIo.h"

#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"
#include "ValueDelivery.h"

using namespace opc;

namespace {

constexpr env::Frame kRead{env::kUnexpectedNative, "OpcSyncIo::read", OLESTR("Enter OpcSyncIo.read"),
                           OLESTR("Exit OpcSyncIo.read")};

using ItemStates = support::VariantRecords<OPCITEMSTATE, &OPCITEMSTATE::vDataValue>;

void deliverAll(JNIEnv* env, jobject receiver, const env::IntArrayCopy& handles, ItemStates& states,
                const HRESULT* errors) {
    env::LocalRef<jclass> cls(env, env->GetObjectClass(receiver));
    if (!cls) {
        OpcEnv::logError(env, OLESTR("OpcSyncIO::read -> jclass object clazz is null"));
        return;
    }
    UpdateMethods methods;
    if (!methods.lookUp(env, cls.get())) {
        OpcEnv::logError(env, OLESTR("OpcSyncIO::read -> jni method ids are null"));
        return;
    }
    env::DeferredException deferred(env);
    for (jsize i = 0; i < handles.size(); ++i) {
        OPCITEMSTATE& state = states[static_cast<size_t>(i)];
        OpcEnv::deliverValue(env, receiver, methods, handles[i], state.vDataValue, state.wQuality, state.ftTimeStamp,
                             errors[i], DeliveryPath::SyncRead);
        deferred.collect();
        VariantClear(&state.vDataValue);
    }
}

void read(JNIEnv* env, jlong syncIo, jintArray serverHandles, jboolean fromCache, jobject receiver) {
    if (syncIo == 0) {
        OpcEnv::logError(env, OLESTR("OpcSyncIo:read->argument is null"));
        return;
    }
    const OPCDATASOURCE source = fromCache ? OPC_DS_CACHE : OPC_DS_DEVICE;
    try {
        if (serverHandles == nullptr) {
            OpcEnv::logError(env, OLESTR("OpcSyncIO::read -> serverHandles is null"));
            return;
        }
        if (env->GetArrayLength(serverHandles) < 1) {
            OpcEnv::logError(env, OLESTR("OpcSyncIO::read -> GetArrayLength is zero"));
            return;
        }
        const env::IntArrayCopy handles(env, serverHandles);
        const DWORD count = static_cast<DWORD>(handles.size());
        ItemStates states;
        support::TaskMem<HRESULT> errors;
        const HRESULT hr = OpcEnv::fromHandle<IOPCSyncIO>(syncIo)->Read(
            source, count, reinterpret_cast<OPCHANDLE*>(const_cast<jint*>(handles.data())), states.put(count),
            errors.put());
        if (!OpcEnv::check(env, hr, OLESTR("IOPCSyncIO::Read"))) return;
        if (receiver == nullptr || states.get() == nullptr || !errors) {
            OpcEnv::logError(env, OLESTR("OpcSyncIO::read -> readResults or hresults is null"));
            return;
        }
        deliverAll(env, receiver, handles, states, errors.get());
    } catch (...) {
        OpcEnv::logError(env, OLESTR("Unexpected exception in SyncIo2::Read."));
    }
}

}  // namespace

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcSyncIo_read(JNIEnv* env, jclass, jlong syncIo,
                                                                                  jintArray serverHandles,
                                                                                  jboolean fromCache, jobject receiver) {
    env::framedVoid(env, kRead, [&] { read(env, syncIo, serverHandles, fromCache, receiver); });
}
