// Natives of com.velmora.opc.jni.client.da.OpcItemMgt: adding, validating, removing and (de)activating items.
#include "com_velmora_opc_jni_client_da_OpcItemMgt.h"

#include <vector>

#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"
#include "Receivers.h"

using namespace opc;

namespace {

constexpr env::Frame kAddItems{env::kUnexpectedNative, "OpcItemMgt::addItems", OLESTR("Enter OpcItemMgt.addItems"),
                               OLESTR("Exit OpcItemMgt.addItems")};
constexpr env::Frame kValidateItems{env::kUnexpectedNative, "OpcItemMgt::validateItems",
                                    OLESTR("Enter OpcItemMgt.validateItems"), OLESTR("Exit OpcItemMgt.validateItems")};
constexpr env::Frame kRemoveItems{env::kUnexpectedNative, "OpcItemMgt::removeItems",
                                  OLESTR("Enter OpcItemMgt.removeItems"), OLESTR("Exit OpcItemMgt.removeItems")};
constexpr env::Frame kSetActiveState{env::kUnexpectedNative, "OpcItemMgt::setActiveState",
                                     OLESTR("Enter OpcItemMgt.setActiveState"),
                                     OLESTR("Exit OpcItemMgt.setActiveState")};

OLECHAR kEmpty[] = OLESTR("");

// The item definitions of one call and the wide copies of their item ids.
struct ItemDefinitions {
    std::vector<OPCITEMDEF> defs;
    std::vector<WideString> ids;
};

// What AddItems and ValidateItems hand back: the records (with their blobs) and the errors.
struct ItemResults {
    DWORD count = 0;
    OPCITEMRESULT* results = nullptr;
    HRESULT* errors = nullptr;
    ~ItemResults() {
        for (DWORD i = 0; results != nullptr && i < count; ++i) CoTaskMemFree(results[i].pBlob);
        CoTaskMemFree(results);
        CoTaskMemFree(errors);
    }
};

// The messages that tell addItems and validateItems apart.
struct ItemTexts {
    const OLECHAR* nullArgument;
    const OLECHAR* noItems;
    const OLECHAR* nullResults;
    const OLECHAR* noClass;
    const OLECHAR* noMethod;
    const OLECHAR* operation;
};

constexpr ItemTexts kAddTexts{OLESTR("ItemMgmt::AddItems->incoming argument is not valid"),
                              OLESTR("ItemMgmt::AddItems->No of items to be added is 0 or mgt is NULL"),
                              OLESTR("ItemMgmt::AddItems->HRESULTS is null"),
                              OLESTR("ItemMgmt::AddItems->class is null"),
                              OLESTR("ItemMgmt::AddItems->Method is null"),
                              OLESTR("IOPCItemMgt::AddItems")};
constexpr ItemTexts kValidateTexts{OLESTR("ItemMgmt::ValidateItems ->incoming argument is null"),
                                   OLESTR("ItemMgmt::ValidateItems ->GetArrayLength is zero"),
                                   OLESTR("ItemMgmt::ValidateItems ->Hresults is null"),
                                   OLESTR("ItemMgmt::ValidateItems ->class is null"),
                                   OLESTR("ItemMgmt::ValidateItems ->method is null"),
                                   OLESTR("IOPCItemMgt::validateItems")};

// Builds one definition per item id, reading the parallel arrays one element at a time.
// False when reading them raised a Java exception (an array shorter than the item ids).
bool buildDefinitions(JNIEnv* env, jobjectArray itemIds, jintArray clientHandles, jbooleanArray active,
                      jintArray requestedTypes, jsize n, bool logNullIds, ItemDefinitions& items) {
    items.defs.resize(static_cast<size_t>(n));
    items.ids.resize(static_cast<size_t>(n));
    for (jsize i = 0; i < n; ++i) {
        OPCITEMDEF& def = items.defs[static_cast<size_t>(i)];
        def.szAccessPath = kEmpty;
        env::LocalRef<jstring> id(env, static_cast<jstring>(env->GetObjectArrayElement(itemIds, i)));
        if (env->ExceptionCheck()) return false;
        if (!id && logNullIds) OpcEnv::logError(env, OLESTR("ItemMgt::AddItems- Item Id inside Item ID array is null"));
        WideString& copy = items.ids[static_cast<size_t>(i)];
        if (id) copy = OpcEnv::newWideString(env, id.get());
        def.szItemID = copy ? copy.get() : kEmpty;
        jboolean isActive = JNI_FALSE;
        jint clientHandle = 0;
        jint requested = 0;
        env->GetBooleanArrayRegion(active, i, 1, &isActive);
        env->GetIntArrayRegion(clientHandles, i, 1, &clientHandle);
        env->GetIntArrayRegion(requestedTypes, i, 1, &requested);
        if (env->ExceptionCheck()) return false;
        def.bActive = isActive ? TRUE : FALSE;
        def.hClient = static_cast<OPCHANDLE>(clientHandle);
        def.dwBlobSize = 0;
        def.pBlob = nullptr;
        def.vtRequestedDataType = static_cast<VARTYPE>(static_cast<uint32_t>(requested) & 0xFFFF);
        def.wReserved = static_cast<WORD>(static_cast<uint32_t>(requested) >> 16);
    }
    return true;
}

// One addResult call per item, with the caller's own item id strings.
void deliverResults(JNIEnv* env, jobjectArray itemIds, jobject collector, ItemResults& out, const ItemTexts& texts) {
    if (collector == nullptr || out.results == nullptr || out.errors == nullptr) {
        OpcEnv::logError(env, texts.nullResults);
        return;
    }
    const jmethodID addResult = env::receiverMethod(env, collector, "addResult", "(Ljava/lang/String;IIII)V",
                                                    OpcEnv::logError, texts.noClass, texts.noMethod);
    if (addResult == nullptr) return;
    env::DeferredException deferred(env);
    for (DWORD i = 0; i < out.count; ++i) {
        OPCITEMRESULT& result = out.results[i];
        env::LocalRef<jobject> id(env, env->GetObjectArrayElement(itemIds, static_cast<jsize>(i)));
        env->CallVoidMethod(collector, addResult, id.get(), static_cast<jint>(result.hServer),
                            static_cast<jint>(result.vtCanonicalDataType), static_cast<jint>(result.dwAccessRights),
                            static_cast<jint>(out.errors[i]));
        deferred.collect();
        CoTaskMemFree(result.pBlob);
        result.pBlob = nullptr;
    }
}

void addItems(JNIEnv* env, jlong itemMgt, jobjectArray itemIds, jintArray clientHandles, jbooleanArray active,
              jintArray requestedTypes, jobject collector) {
    if (itemMgt == 0 || itemIds == nullptr || clientHandles == nullptr || active == nullptr || requestedTypes == nullptr) {
        OpcEnv::logError(env, kAddTexts.nullArgument);
        return;
    }
    const jsize n = env->GetArrayLength(itemIds);
    ItemDefinitions items;
    if (!buildDefinitions(env, itemIds, clientHandles, active, requestedTypes, n, true, items)) return;
    if (n <= 0) {
        OpcEnv::logError(env, kAddTexts.noItems);
        return;
    }
    ItemResults out;
    out.count = static_cast<DWORD>(n);
    const HRESULT hr =
        OpcEnv::fromHandle<IOPCItemMgt>(itemMgt)->AddItems(out.count, items.defs.data(), &out.results, &out.errors);
    if (!OpcEnv::check(env, hr, kAddTexts.operation)) return;
    deliverResults(env, itemIds, collector, out, kAddTexts);
}

void validateItems(JNIEnv* env, jlong itemMgt, jobjectArray itemIds, jintArray clientHandles, jbooleanArray active,
                   jintArray requestedTypes, jobject collector) {
    if (itemMgt == 0 || itemIds == nullptr || clientHandles == nullptr || active == nullptr || requestedTypes == nullptr) {
        OpcEnv::logError(env, kValidateTexts.nullArgument);
        return;
    }
    const jsize n = env->GetArrayLength(itemIds);
    if (n <= 0) {
        OpcEnv::logError(env, kValidateTexts.noItems);
        return;
    }
    ItemDefinitions items;
    if (!buildDefinitions(env, itemIds, clientHandles, active, requestedTypes, n, false, items)) return;
    ItemResults out;
    out.count = static_cast<DWORD>(n);
    const HRESULT hr = OpcEnv::fromHandle<IOPCItemMgt>(itemMgt)->ValidateItems(out.count, items.defs.data(), FALSE,
                                                                               &out.results, &out.errors);
    // The outcome of the check does not stop the delivery: a failed call returns no arrays.
    OpcEnv::check(env, hr, kValidateTexts.operation);
    deliverResults(env, itemIds, collector, out, kValidateTexts);
}

jintArray errorArray(JNIEnv* env, const HRESULT* errors, jsize n) {
    jintArray out = env->NewIntArray(n);
    if (out != nullptr) env->SetIntArrayRegion(out, 0, n, reinterpret_cast<const jint*>(errors));
    return out;
}

jintArray removeItems(JNIEnv* env, jlong itemMgt, jintArray serverHandles) {
    if (itemMgt == 0 || serverHandles == nullptr) {
        OpcEnv::logError(env, OLESTR("ItemMgmt::RemoveItems-> Server Handles is NULL or mgt is NULL"));
        return nullptr;
    }
    const env::IntArrayCopy handles(env, serverHandles);
    if (handles.size() <= 0) {
        OpcEnv::logError(env, OLESTR("ItemMgmt::RemoveItems-> Server Handles is not NULL, but contains no elements"));
        return nullptr;
    }
    support::TaskMem<HRESULT> errors;
    const HRESULT hr = OpcEnv::fromHandle<IOPCItemMgt>(itemMgt)->RemoveItems(
        static_cast<DWORD>(handles.size()), reinterpret_cast<OPCHANDLE*>(const_cast<jint*>(handles.data())),
        errors.put());
    if (!OpcEnv::check(env, hr, OLESTR("IOPCItemMgt::RemoveItems")))
        OpcEnv::logError(env, OLESTR("ItemMgmt::Remove Items interface call failed"));
    if (!errors) {
        OpcEnv::logError(env, OLESTR("ItemMgmt::Remove Items -HRESULTs array is null "));
        return nullptr;
    }
    return errorArray(env, errors.get(), handles.size());
}

jintArray setActiveState(JNIEnv* env, jlong itemMgt, jintArray serverHandles, jboolean active) {
    if (serverHandles == nullptr) {
        OpcEnv::logError(env, OLESTR("OpcItemMgt::setActiveState->serverHandles is null"));
        return nullptr;
    }
    if (itemMgt == 0) {
        OpcEnv::logError(env, OLESTR("OpcItemMgt::setActiveState->mgt is NULL"));
        return nullptr;
    }
    const env::IntArrayCopy handles(env, serverHandles);
    if (handles.size() <= 0) {
        OpcEnv::logError(env, OLESTR("OpcItemMgt::setActiveState->GetArrayLength is zero"));
        return nullptr;
    }
    support::TaskMem<HRESULT> errors;
    const HRESULT hr = OpcEnv::fromHandle<IOPCItemMgt>(itemMgt)->SetActiveState(
        static_cast<DWORD>(handles.size()), reinterpret_cast<OPCHANDLE*>(const_cast<jint*>(handles.data())),
        active ? TRUE : FALSE, errors.put());
    if (!OpcEnv::check(env, hr, OLESTR("IOPCItemMgt::SetActiveState")))
        OpcEnv::logTrace(env, OLESTR("OpcItemMgt::setActiveState->check returned false"));
    if (!errors) {
        OpcEnv::logError(env, OLESTR("OpcItemMgt::setActiveState->HREULTs in the return value is null"));
        return nullptr;
    }
    return errorArray(env, errors.get(), handles.size());
}

}  // namespace

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcItemMgt_addItems(
    JNIEnv* env, jclass, jlong itemMgt, jobjectArray itemIds, jintArray clientHandles, jbooleanArray active,
    jintArray requestedTypes, jobject collector) {
    env::framedVoid(env, kAddItems, [&] {
        addItems(env, itemMgt, itemIds, clientHandles, active, requestedTypes, collector);
    });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcItemMgt_validateItems(
    JNIEnv* env, jclass, jlong itemMgt, jobjectArray itemIds, jintArray clientHandles, jbooleanArray active,
    jintArray requestedTypes, jobject collector) {
    env::framedVoid(env, kValidateItems, [&] {
        validateItems(env, itemMgt, itemIds, clientHandles, active, requestedTypes, collector);
    });
}

extern "C" JNIEXPORT jintArray JNICALL Java_com_velmora_opc_jni_client_da_OpcItemMgt_removeItems(JNIEnv* env, jclass,
                                                                                              jlong itemMgt,
                                                                                              jintArray serverHandles) {
    return env::framed<jintArray>(env, kRemoveItems, nullptr, [&] { return removeItems(env, itemMgt, serverHandles); });
}

extern "C" JNIEXPORT jintArray JNICALL Java_com_velmora_opc_jni_client_da_OpcItemMgt_setActiveState(
    JNIEnv* env, jclass, jlong itemMgt, jintArray serverHandles, jboolean active) {
    return env::framed<jintArray>(env, kSetActiveState, nullptr,
                                  [&] { return setActiveState(env, itemMgt, serverHandles, active); });
}
