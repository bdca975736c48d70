// Natives of com.velmora.opc.jni.client.da.OpcSyncIo: the synchronous read and writes.
#include "com_velmora_opc_jni_client_da_OpcSyncIo.h"

#include "ArrayWrite.h"
#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"
#include "ValueDelivery.h"
#include "ValueParsing.h"

using namespace opc;

namespace {

constexpr env::Frame kRead{env::kUnexpectedNative, "OpcSyncIo::read", OLESTR("Enter OpcSyncIo.read"),
                           OLESTR("Exit OpcSyncIo.read")};
constexpr env::Frame kWriteArray{env::kUnexpectedNative, "OpcSyncIo::writeArray", OLESTR("Enter OpcSyncIo.writeArray"),
                                 OLESTR("Exit OpcSyncIo.writeArray")};
constexpr env::Frame kWriteBoolean{env::kUnexpectedNative, "OpcSyncIo::writeBoolean",
                                   OLESTR("Enter OpcSyncIo.writeBoolean"), OLESTR("Exit OpcSyncIo.writeBoolean")};
constexpr env::Frame kWriteNumeric{env::kUnexpectedNative, "OpcSyncIo::writeNumeric",
                                   OLESTR("Enter OpcSyncIo.writeNumeric"), OLESTR("Exit OpcSyncIo.writeNumeric")};
constexpr env::Frame kWriteString{env::kUnexpectedNative, "OpcSyncIo::writeString", OLESTR("Enter OpcSyncIo.writeString"),
                                  OLESTR("Exit OpcSyncIo.writeString")};

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

jint writeArray(JNIEnv* env, jlong syncIo, jint count, jintArray serverHandles, jintArray dataTypes, jobjectArray values,
                jobject writeListener) {
    return OpcEnv::write(env, OpcEnv::fromHandle<IOPCSyncIO>(syncIo), true, count, 0, serverHandles, dataTypes, values,
                         writeListener);
}

// One item through IOPCSyncIO::Write: the item's own error when the server gives one, else the
// call's HRESULT; -1 with HresultException pending when the call failed.
jint writeOne(JNIEnv* env, jlong syncIo, jint serverHandle, VARIANT& value) {
    OPCHANDLE handle = static_cast<OPCHANDLE>(serverHandle);
    support::TaskMem<HRESULT> errors;
    const HRESULT hr = OpcEnv::fromHandle<IOPCSyncIO>(syncIo)->Write(1, &handle, &value, errors.put());
    if (!OpcEnv::check(env, hr, OLESTR("IOPCSyncIO::Write"))) return -1;
    return static_cast<jint>(errors ? errors.get()[0] : hr);
}

jint writeBoolean(JNIEnv* env, jlong syncIo, jint serverHandle, jboolean value) {
    if (syncIo == 0) {
        OpcEnv::logError(env, OLESTR("OpcSyncIO:writeBoolean->argument is null"));
        return -1;
    }
    support::Variant variant;
    variant.vt = VT_BOOL;
    variant.boolVal = value ? VARIANT_TRUE : VARIANT_FALSE;
    return writeOne(env, syncIo, serverHandle, variant);
}

jint writeNumeric(JNIEnv* env, jlong syncIo, jint serverHandle, jint dataType, jdouble value) {
    if (syncIo == 0) {
        OpcEnv::logError(env, OLESTR("OpcSyncIO:writeNumeric->argument is null"));
        return -1;
    }
    support::Variant variant;
    if (!OpcEnv::setNumericValue(env, variant, static_cast<VARTYPE>(dataType), value)) return -1;
    return writeOne(env, syncIo, serverHandle, variant);
}

const OLECHAR* cannotCreateText(VARTYPE type) noexcept {
    switch (type) {
        case VT_ARRAY | VT_BSTR: return OLESTR("OpcSyncIO::Cannot create safearray of BSTR");
        case VT_ARRAY | VT_I2: return OLESTR("OpcSyncIO::Cannot create Integer safearray");
        case VT_ARRAY | VT_I4: return OLESTR("OpcSynIO::Cannot create Long safearray");
        case VT_ARRAY | VT_R4: return OLESTR("OpcSyncIO::Cannot create real4 safearray");
        case VT_ARRAY | VT_R8: return OLESTR("OpcSyncIO::Cannot create real8 safearray");
        case VT_ARRAY | VT_BOOL: return OLESTR("Cannot create boolean safearray");
        case VT_ARRAY | VT_UI1: return OLESTR("OpcSyncIO::Cannot create byte safearray");
        case VT_ARRAY | VT_UI2: return OLESTR("Cannot create UShort safearray");
        case VT_ARRAY | VT_UI4: return OLESTR("Cannot create ULong safearray");
        default: return OLESTR("");
    }
}

jint writeString(JNIEnv* env, jlong syncIo, jint serverHandle, jstring value, jint dataType) {
    if (syncIo == 0) {
        OpcEnv::logError(env, OLESTR("OpcSyncIO:writeString->argument is null"));
        return -1;
    }
    if (value == nullptr) return -1;
    support::Variant variant;
    const auto type = static_cast<VARTYPE>(dataType);
    if (type == VT_BSTR) {
        OpcEnv::toVariant(env, variant, VT_BSTR, value);
        return writeOne(env, syncIo, serverHandle, variant);
    }
    switch (OpcEnv::parseArray(env, value, type, variant)) {
        case ArrayParse::Converted:
            return writeOne(env, syncIo, serverHandle, variant);
        case ArrayParse::CannotCreate:
            OpcEnv::logTrace(env, cannotCreateText(type));
            return OPC_E_RANGE;
        default:
            return OPC_E_RANGE;
    }
}

}  // namespace

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcSyncIo_read(JNIEnv* env, jclass, jlong syncIo,
                                                                                  jintArray serverHandles,
                                                                                  jboolean fromCache, jobject receiver) {
    env::framedVoid(env, kRead, [&] { read(env, syncIo, serverHandles, fromCache, receiver); });
}

extern "C" JNIEXPORT jint JNICALL Java_com_velmora_opc_jni_client_da_OpcSyncIo_writeArray(
    JNIEnv* env, jclass, jlong syncIo, jint count, jintArray serverHandles, jintArray dataTypes, jobjectArray values,
    jobject writeListener) {
    return env::framed<jint>(env, kWriteArray, -1, [&] {
        return writeArray(env, syncIo, count, serverHandles, dataTypes, values, writeListener);
    });
}

extern "C" JNIEXPORT jint JNICALL Java_com_velmora_opc_jni_client_da_OpcSyncIo_writeBoolean(JNIEnv* env, jclass,
                                                                                          jlong syncIo, jint serverHandle,
                                                                                          jboolean value) {
    return env::framed<jint>(env, kWriteBoolean, -1, [&] { return writeBoolean(env, syncIo, serverHandle, value); });
}

extern "C" JNIEXPORT jint JNICALL Java_com_velmora_opc_jni_client_da_OpcSyncIo_writeNumeric(
    JNIEnv* env, jclass, jlong syncIo, jint serverHandle, jint dataType, jdouble value) {
    return env::framed<jint>(env, kWriteNumeric, -1,
                             [&] { return writeNumeric(env, syncIo, serverHandle, dataType, value); });
}

extern "C" JNIEXPORT jint JNICALL Java_com_velmora_opc_jni_client_da_OpcSyncIo_writeString(
    JNIEnv* env, jclass, jlong syncIo, jint serverHandle, jstring value, jint dataType) {
    return env::framed<jint>(env, kWriteString, -1,
                             [&] { return writeString(env, syncIo, serverHandle, value, dataType); });
}
