// Natives of com.velmora.opc.jni.client.da.OpcBrowse: every element directly below an item id, in one
// go, following the server's continuation points.
#include "com_velmora_opc_jni_client_da_OpcBrowse.h"

#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"
#include "Receivers.h"

using namespace opc;

namespace {

constexpr env::Frame kBrowse{env::kUnexpectedNative, "OpcBrowse::browse", OLESTR("Enter OpcBrowse.browse"),
                             OLESTR("Exit OpcBrowse.browse")};

OLECHAR kEmpty[] = OLESTR("");
// Asked of every element, in this order: canonical data type, then access rights.
DWORD kPropertyIds[] = {OPC_PROPERTY_DATATYPE, OPC_PROPERTY_ACCESS_RIGHTS};

// One answer of IOPCBrowse::Browse: each element's strings and property records go, then the block.
struct BrowseElements {
    DWORD count = 0;
    OPCBROWSEELEMENT* elements = nullptr;
    BrowseElements() = default;
    BrowseElements(const BrowseElements&) = delete;
    BrowseElements& operator=(const BrowseElements&) = delete;
    ~BrowseElements() {
        for (DWORD i = 0; elements != nullptr && i < count; ++i) {
            OPCBROWSEELEMENT& element = elements[i];
            CoTaskMemFree(element.szName);
            CoTaskMemFree(element.szItemID);
            OPCITEMPROPERTIES& properties = element.ItemProperties;
            for (DWORD p = 0; properties.pItemProperties != nullptr && p < properties.dwNumProperties; ++p) {
                OPCITEMPROPERTY& property = properties.pItemProperties[p];
                CoTaskMemFree(property.szItemID);
                CoTaskMemFree(property.szDescription);
                VariantClear(&property.vValue);
            }
            CoTaskMemFree(properties.pItemProperties);
        }
        CoTaskMemFree(elements);
    }
};

// What add receives from an element's two properties: the canonical type (a VARTYPE held as a
// 16-bit integer) and the access-rights bits; 0 where the element carries no such property.
struct ElementTraits {
    jint canonicalType = 0;
    LONG rights = 0;
};

ElementTraits traitsOf(const OPCITEMPROPERTIES& properties) {
    ElementTraits traits;
    const OPCITEMPROPERTY* values = properties.pItemProperties;
    if (values == nullptr) return traits;
    if (properties.dwNumProperties >= 1 && values[0].vValue.vt != VT_EMPTY)
        traits.canonicalType = static_cast<jint>(static_cast<SHORT>(values[0].vValue.iVal));
    if (properties.dwNumProperties >= 2 && values[1].vValue.vt != VT_EMPTY) traits.rights = values[1].vValue.lVal;
    return traits;
}

constexpr jboolean flag(DWORD bits, DWORD mask) noexcept { return (bits & mask) != 0 ? JNI_TRUE : JNI_FALSE; }

// One add call per element in the server's order. False when an element's properties carry a
// failure (HresultException pending) or a string could not be made: the browse ends there.
bool deliver(JNIEnv* env, jobject elements, jmethodID add, const BrowseElements& answer,
             env::DeferredException& deferred) {
    for (DWORD i = 0; i < answer.count; ++i) {
        const OPCBROWSEELEMENT& element = answer.elements[i];
        if (!OpcEnv::check(env, element.ItemProperties.hrErrorID, OLESTR("OpcBrowse::process"))) return false;
        const env::LocalRef<jstring> name(env, element.szName ? OpcEnv::newJavaString(env, element.szName) : nullptr);
        const env::LocalRef<jstring> itemId(env,
                                            element.szItemID ? OpcEnv::newJavaString(env, element.szItemID) : nullptr);
        if (env->ExceptionCheck()) return false;
        const ElementTraits traits = traitsOf(element.ItemProperties);
        const DWORD rights = static_cast<DWORD>(traits.rights);
        env->CallVoidMethod(elements, add, name.get(), itemId.get(), flag(element.dwFlagValue, OPC_BROWSE_ISITEM),
                            flag(element.dwFlagValue, OPC_BROWSE_HASCHILDREN), traits.canonicalType,
                            flag(rights, OPC_READABLE), flag(rights, OPC_WRITEABLE));
        deferred.collect();
    }
    return true;
}

void browse(JNIEnv* env, jlong browser, jstring itemId, jobject elements) {
    if (elements == nullptr || browser == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcBrowse::browse-Incoming elements array is null"));
        return;
    }
    const jmethodID add = env::receiverMethod(env, elements, "add", "(Ljava/lang/String;Ljava/lang/String;ZZIZZ)V",
                                              OpcEnv::logTrace, OLESTR("OpcBrowse::browse-Incoming elements -class is null"),
                                              OLESTR("OpcBrowse::browse- elements -add method is null"));
    if (add == nullptr) return;
    if (itemId == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcBrowse::browse-ID is null"));
        return;
    }
    IOPCBrowse* server = OpcEnv::fromHandle<IOPCBrowse>(browser);
    WideString id = OpcEnv::newWideString(env, itemId);
    // The first call carries the constant ""; every later one the point the server returned last,
    // which is ours to free once it has been passed back and replaced.
    LPWSTR continuation = kEmpty;
    support::TaskMem<OLECHAR> held;
    BOOL more = TRUE;
    env::DeferredException deferred(env);
    while (more) {
        BrowseElements answer;
        const HRESULT hr = server->Browse(id.get(), &continuation, 0, OPC_BROWSE_FILTER_ALL, kEmpty, kEmpty, FALSE,
                                          TRUE, 2, kPropertyIds, &more, &answer.count, &answer.elements);
        if (continuation != held.get()) held.reset(continuation == kEmpty ? nullptr : continuation);
        if (answer.elements != nullptr && !deliver(env, elements, add, answer, deferred)) break;
        // A failed call, or more elements promised without a point to go on from, would repeat forever.
        if (FAILED(hr) || !held) break;
    }
}

}  // namespace

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcBrowse_browse(JNIEnv* env, jclass,
                                                                                      jlong browser, jstring itemId,
                                                                                      jobject elements) {
    env::framedVoid(env, kBrowse, [&] { browse(env, browser, itemId, elements); });
}
