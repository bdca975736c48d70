// Natives of com.velmora.opc.jni.client.da.OpcItemProperties: an item's property list and the value of
// one property as a number, a boolean or a string.
#include "com_velmora_opc_jni_client_da_OpcItemProperties.h"

#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"
#include "Receivers.h"

using namespace opc;

namespace {

constexpr env::Frame kQueryAvailableProperties{env::kUnexpectedNative, "OpcItemProperties::queryAvailableProperties",
                                               OLESTR("Enter OpcItemProperties.queryAvailableProperties"),
                                               OLESTR("Exit OpcItemProperties.queryAvailableProperties")};
constexpr env::Frame kGetNumericProperty{env::kUnexpectedNative, "OpcItemProperties::getNumericProperty",
                                         OLESTR("Enter OpcItemProperties.getNumericProperty"),
                                         OLESTR("Exit OpcItemProperties.getNumericProperty")};
constexpr env::Frame kGetBooleanProperty{env::kUnexpectedNative, "OpcItemProperties::getBooleanProperty",
                                         OLESTR("Enter OpcItemProperties.getBooleanProperty"),
                                         OLESTR("Exit OpcItemProperties.getBooleanProperty")};
constexpr env::Frame kGetStringProperty{env::kUnexpectedNative, "OpcItemProperties::getStringProperty",
                                        OLESTR("Enter OpcItemProperties.getStringProperty"),
                                        OLESTR("Exit OpcItemProperties.getStringProperty")};

// What QueryAvailableProperties hands back: every description text, then the three arrays.
struct AvailableProperties {
    DWORD count = 0;
    DWORD* ids = nullptr;
    LPWSTR* descriptions = nullptr;
    VARTYPE* types = nullptr;
    ~AvailableProperties() {
        for (DWORD i = 0; descriptions != nullptr && i < count; ++i) CoTaskMemFree(descriptions[i]);
        CoTaskMemFree(ids);
        CoTaskMemFree(descriptions);
        CoTaskMemFree(types);
    }
};

// What GetItemProperties hands back for one property: its value (cleared first) and its own code.
struct PropertyValue {
    VARIANT* values = nullptr;
    HRESULT* errors = nullptr;
    ~PropertyValue() {
        if (values != nullptr) VariantClear(&values[0]);
        CoTaskMemFree(values);
        CoTaskMemFree(errors);
    }
};

void queryAvailableProperties(JNIEnv* env, jlong itemProps, jstring itemId, jobject result) {
    if (itemId == nullptr || itemProps == 0) {
        OpcEnv::logError(env, OLESTR("Query Available Properties - Incoming id string/peer is null"));
        return;
    }
    AvailableProperties list;
    HRESULT hr;
    {
        WideString id = OpcEnv::newWideString(env, itemId);
        hr = OpcEnv::fromHandle<IOPCItemProperties>(itemProps)->QueryAvailableProperties(
            id.get(), &list.count, &list.ids, &list.descriptions, &list.types);
    }
    if (!OpcEnv::check(env, hr, OLESTR("IOPCItemProperties::QueryAvailableProperties")) || list.count == 0) return;
    if (result == nullptr || list.descriptions == nullptr || list.types == nullptr) {
        OpcEnv::logError(env, OLESTR("OpcItemProperties::QueryAvailableProperties->datatypes is null"));
        return;
    }
    const jmethodID addProperty = env::receiverMethod(
        env, result, "addProperty", "(ILjava/lang/String;I)V", OpcEnv::logError,
        OLESTR("OpcItemProperties::QueryAvailableProperties->class is null"),
        OLESTR("OpcItemProperties::QueryAvailableProperties->Method is null"));
    if (addProperty == nullptr) return;
    env::DeferredException deferred(env);
    for (DWORD i = 0; i < list.count; ++i) {
        // Entries without a description or without a type are not properties the caller can read.
        if (list.descriptions[i] == nullptr || list.types[i] == VT_EMPTY) continue;
        env::LocalRef<jstring> description(env, OpcEnv::newJavaString(env, list.descriptions[i]));
        if (!description) {
            deferred.collect();  // OutOfMemoryError
            continue;
        }
        const jint id = list.ids != nullptr ? static_cast<jint>(list.ids[i]) : 0;
        env->CallVoidMethod(result, addProperty, id, description.get(), static_cast<jint>(list.types[i]));
        deferred.collect();
    }
}

// The texts and results that tell the three readers apart.
template <typename R>
struct Reader {
    const OLECHAR* nullHandle;
    const OLECHAR* nullItem;
    R absent;  // no handle, no item, or no value returned
    R failed;  // the call or the property's own code failed
};

constexpr Reader<jdouble> kNumericReader{OLESTR("OpcItemProperties::getNumericProperty->argument is null"),
                                         OLESTR("OpcItemProperties::getNumericProperty->item is null"), 0.0, 0.0};
constexpr Reader<jboolean> kBooleanReader{OLESTR("OpcItemProperties::getBooleanProperty->argument is null"),
                                          OLESTR("OpcItemProperties::getBooleanProperty->item is null"), JNI_TRUE,
                                          JNI_FALSE};
constexpr Reader<jstring> kStringReader{OLESTR("OpcItemProperties::getStringProperty->argument is null"),
                                        OLESTR("OpcItemProperties::getStringProperty->item is null"), nullptr,
                                        nullptr};

// One GetItemProperties call for one property; `convert` turns the returned VARIANT into the result.
template <typename R, typename Convert>
R readProperty(JNIEnv* env, jlong itemProps, jstring itemId, jint propertyId, const Reader<R>& reader,
               Convert&& convert) {
    if (itemProps == 0) {
        OpcEnv::logError(env, reader.nullHandle);
        return reader.absent;
    }
    if (itemId == nullptr) {
        OpcEnv::logError(env, reader.nullItem);
        return reader.absent;
    }
    PropertyValue out;
    HRESULT hr;
    {
        WideString id = OpcEnv::newWideString(env, itemId);
        DWORD property = static_cast<DWORD>(propertyId);
        hr = OpcEnv::fromHandle<IOPCItemProperties>(itemProps)->GetItemProperties(id.get(), 1, &property, &out.values,
                                                                                 &out.errors);
    }
    if (!OpcEnv::check(env, hr, OLESTR("IOPCItemProperties::GetItemProperties"))) return reader.failed;
    if (out.errors != nullptr && !OpcEnv::check(env, out.errors[0], OLESTR("IOPCItemProperties::GetItemProperties2")))
        return reader.failed;
    if (out.values == nullptr) return reader.absent;
    return convert(out.values[0]);
}

jdouble getNumericProperty(JNIEnv* env, jlong itemProps, jstring itemId, jint propertyId) {
    return readProperty(env, itemProps, itemId, propertyId, kNumericReader,
                        [&](const VARIANT& value) { return OpcEnv::getNumericValue(env, value); });
}

jboolean getBooleanProperty(JNIEnv* env, jlong itemProps, jstring itemId, jint propertyId) {
    return readProperty(env, itemProps, itemId, propertyId, kBooleanReader, [](const VARIANT& value) -> jboolean {
        // VARIANT_TRUE and VARIANT_FALSE differ in their low byte; the type tag is not consulted.
        return (value.boolVal & 0xFF) != 0 ? JNI_TRUE : JNI_FALSE;
    });
}

jstring getStringProperty(JNIEnv* env, jlong itemProps, jstring itemId, jint propertyId) {
    return readProperty(env, itemProps, itemId, propertyId, kStringReader, [&](const VARIANT& value) -> jstring {
        // Only a BSTR value is read as text; any other value has no string to give.
        if (value.vt != VT_BSTR) return nullptr;
        const BSTR text = value.bstrVal;
        return OpcEnv::newJavaString(env, text != nullptr ? text : OLESTR(""), text != nullptr ? SysStringLen(text) : 0);
    });
}

}  // namespace

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcItemProperties_queryAvailableProperties(
    JNIEnv* env, jclass, jlong itemProps, jstring itemId, jobject result) {
    env::framedVoid(env, kQueryAvailableProperties, [&] { queryAvailableProperties(env, itemProps, itemId, result); });
}

extern "C" JNIEXPORT jdouble JNICALL Java_com_velmora_opc_jni_client_da_OpcItemProperties_getNumericProperty(
    JNIEnv* env, jclass, jlong itemProps, jstring itemId, jint propertyId) {
    return env::framed<jdouble>(env, kGetNumericProperty, 0.0,
                                [&] { return getNumericProperty(env, itemProps, itemId, propertyId); });
}

extern "C" JNIEXPORT jboolean JNICALL Java_com_velmora_opc_jni_client_da_OpcItemProperties_getBooleanProperty(
    JNIEnv* env, jclass, jlong itemProps, jstring itemId, jint propertyId) {
    return env::framed<jboolean>(env, kGetBooleanProperty, JNI_FALSE,
                                 [&] { return getBooleanProperty(env, itemProps, itemId, propertyId); });
}

extern "C" JNIEXPORT jstring JNICALL Java_com_velmora_opc_jni_client_da_OpcItemProperties_getStringProperty(
    JNIEnv* env, jclass, jlong itemProps, jstring itemId, jint propertyId) {
    return env::framed<jstring>(env, kGetStringProperty, nullptr,
                                [&] { return getStringProperty(env, itemProps, itemId, propertyId); });
}
