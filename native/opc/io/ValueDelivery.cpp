#include "ValueDelivery.h"

#include <charconv>
#include <cstdio>

#include "JniRefs.h"
#include "Owned.h"

namespace opc {

bool UpdateMethods::lookUp(JNIEnv* env, jclass receiverClass) {
    numeric = env->GetMethodID(receiverClass, "updateNumeric", "(IDJIIZ)V");
    if (numeric != nullptr) boolean = env->GetMethodID(receiverClass, "updateBoolean", "(IZJIIZ)V");
    if (boolean != nullptr) string = env->GetMethodID(receiverClass, "updateString", "(ILjava/lang/String;JIIZ)V");
    if (string != nullptr) error = env->GetMethodID(receiverClass, "updateError", "(IJIIZ)V");
    return error != nullptr;
}

namespace {

struct ArrayKind {
    VARTYPE type;
    const OLECHAR* syncNullText;
    const OLECHAR* callbackNullText;
};

constexpr ArrayKind kArrayKinds[] = {
    {VT_ARRAY | VT_BSTR, OLESTR("OpcSyncIO::read -> SafeArray -bstr is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -BSTR is null")},
    {VT_ARRAY | VT_R4, OLESTR("OpcSyncIO::read -> SafeArray -float is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -float is null")},
    {VT_ARRAY | VT_R8, OLESTR("OpcSyncIO::read -> SafeArray -double is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -double is null")},
    {VT_ARRAY | VT_I2, OLESTR("OpcSyncIO::read -> SafeArray -short is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -short is null")},
    {VT_ARRAY | VT_I4, OLESTR("OpcSyncIO::read -> SafeArray -char is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -long is null")},
    {VT_ARRAY | VT_BOOL, OLESTR("OpcSyncIO::read -> SafeArray -boolean is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -boolean is null")},
    {VT_ARRAY | VT_UI1, OLESTR("OpcSyncIO::read -> SafeArray -byte is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -byte is null")},
    {VT_ARRAY | VT_UI2, OLESTR("OpcSyncIO::read -> SafeArray -ushort is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -ushort is null")},
    {VT_ARRAY | VT_UI4, OLESTR("OpcSyncIO::read -> SafeArray -NULL is null"),
     OLESTR("OpcAsyncIo2::OnDataChange SafeArray -ulong is null")},
};

const ArrayKind* arrayKind(VARTYPE type) noexcept {
    for (const ArrayKind& kind : kArrayKinds)
        if (kind.type == type) return &kind;
    return nullptr;
}

template <typename E, typename Format>
void joinElements(SAFEARRAY* array, LONG upper, std::string& text, Format&& format) {
    char buffer[64];
    for (LONG i = 0; i <= upper; ++i) {
        E element{};
        SafeArrayGetElement(array, &i, &element);
        text.append(buffer, static_cast<size_t>(format(buffer, sizeof buffer, element)));
        if (i != upper) text.push_back(',');
    }
}

}  // namespace

ArrayText arrayText(const VARIANT& value, std::string& text) {
    text.clear();
    if (arrayKind(value.vt) == nullptr) return ArrayText::NotArray;
    SAFEARRAY* array = value.parray;
    if (array == nullptr) return ArrayText::NullArray;
    LONG upper = -1;
    SafeArrayGetUBound(array, 1, &upper);
    switch (value.vt & VT_TYPEMASK) {
        case VT_BSTR:
            for (LONG i = 0; i <= upper; ++i) {
                support::Bstr element;
                SafeArrayGetElement(array, &i, element.put());
                if (element.get() == nullptr) continue;  // neither text nor the separator after it
                text += OpcEnv::toNarrowString(WideText(element.get(), SysStringLen(element.get())));
                if (i != upper) text.push_back(',');
            }
            break;
        case VT_R4:
            joinElements<FLOAT>(array, upper, text, [](char* b, size_t n, FLOAT e) {
                return std::snprintf(b, n, "%.1f", static_cast<double>(e));
            });
            break;
        case VT_R8:
            joinElements<DOUBLE>(array, upper, text, [](char* b, size_t n, DOUBLE e) {
                return std::snprintf(b, n, "%.1lf", e);
            });
            break;
        case VT_I2:
            joinElements<SHORT>(array, upper, text, [](char* b, size_t n, SHORT e) {
                return std::snprintf(b, n, "%.1d", static_cast<int>(e));
            });
            break;
        case VT_I4:
            joinElements<LONG>(array, upper, text, [](char* b, size_t n, LONG e) {
                return std::snprintf(b, n, "%.1ld", static_cast<long>(e));
            });
            break;
        case VT_BOOL:
            joinElements<VARIANT_BOOL>(array, upper, text, [](char* b, size_t n, VARIANT_BOOL e) {
                return std::snprintf(b, n, "%s", e != 0 ? "true" : "false");
            });
            break;
        case VT_UI1:
            joinElements<BYTE>(array, upper, text, [](char* b, size_t n, BYTE e) {
                return std::snprintf(b, n, "%u", static_cast<unsigned>(e));
            });
            break;
        case VT_UI2:
            joinElements<USHORT>(array, upper, text, [](char* b, size_t n, USHORT e) {
                return std::snprintf(b, n, "%hu", static_cast<unsigned short>(e));
            });
            break;
        case VT_UI4:
            joinElements<ULONG>(array, upper, text, [](char* b, size_t n, ULONG e) {
                return std::snprintf(b, n, "%lu", static_cast<unsigned long>(e));
            });
            break;
    }
    return ArrayText::Rendered;
}

std::string streamText(double value) {
    // The stream's default format is printf's %g with 6 digits; to_chars writes the same text in the
    // classic locale without building a stream per value.
    char digits[32];
    const auto written = std::to_chars(digits, digits + sizeof digits, value, std::chars_format::general, 6);
    return std::string(digits, written.ptr);
}

std::string latin1ToModifiedUtf8(const std::string& bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (const char c : bytes) {
        const auto b = static_cast<unsigned char>(c);
        if (b >= 0x01 && b < 0x80) {
            out.push_back(c);
        } else {  // U+0000 and U+0080..U+00FF take two bytes in modified UTF-8
            out.push_back(static_cast<char>(0xC0 | (b >> 6)));
            out.push_back(static_cast<char>(0x80 | (b & 0x3F)));
        }
    }
    return out;
}

namespace {

jstring newUtfString(JNIEnv* env, const std::string& text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80 || c == 0) return env->NewStringUTF(latin1ToModifiedUtf8(text).c_str());
    return env->NewStringUTF(text.c_str());
}

}  // namespace

namespace OpcEnv {

bool renderArray(JNIEnv* env, const VARIANT& value, DeliveryPath path, std::string& text) {
    switch (arrayText(value, text)) {
        case ArrayText::NotArray:
            return false;
        case ArrayText::NullArray: {
            const ArrayKind* kind = arrayKind(value.vt);
            if (path == DeliveryPath::SyncRead)
                logError(env, kind->syncNullText);
            else
                logTrace(env, kind->callbackNullText);
            return true;
        }
        case ArrayText::Rendered:
            return true;
    }
    return false;
}

void deliverValue(JNIEnv* env, jobject receiver, const UpdateMethods& methods, jint handle, const VARIANT& value,
                  WORD quality, const FILETIME& timestamp, HRESULT error, DeliveryPath path) {
    const jlong time = toJavaTime(timestamp);
    const jint q = static_cast<jint>(quality);
    const jint hr = static_cast<jint>(error);
    const jboolean synchronous = path == DeliveryPath::SyncRead ? JNI_TRUE : JNI_FALSE;

    if (isNumeric(value)) {
        env->CallVoidMethod(receiver, methods.numeric, handle, getNumericValue(env, value), time, q, hr, synchronous);
        return;
    }
    if (value.vt == VT_BOOL) {
        env->CallVoidMethod(receiver, methods.boolean, handle, value.boolVal != 0 ? JNI_TRUE : JNI_FALSE, time, q, hr,
                            synchronous);
        return;
    }
    if (value.vt == VT_BSTR) {
        if (value.bstrVal == nullptr && path == DeliveryPath::DataCallback) return;
        env::LocalRef<jstring> text(env, newJavaString(env, value.bstrVal != nullptr ? value.bstrVal : OLESTR(""),
                                                       SysStringLen(value.bstrVal)));
        if (text) env->CallVoidMethod(receiver, methods.string, handle, text.get(), time, q, hr, synchronous);
        return;
    }
    std::string rendered;
    if (renderArray(env, value, path, rendered)) {
        env::LocalRef<jstring> text(env, newUtfString(env, rendered));
        if (text) env->CallVoidMethod(receiver, methods.string, handle, text.get(), time, q, hr, synchronous);
        return;
    }
    env->CallVoidMethod(receiver, methods.error, handle, time, q, hr, synchronous);
}

jint valueText(JNIEnv* env, const VARIANT& value, jstring& text) {
    if (isNumeric(value)) {
        text = env->NewStringUTF(streamText(getNumericValue(env, value)).c_str());
        return kKindNumeric;
    }
    if (value.vt == VT_BOOL) {
        text = env->NewStringUTF(value.boolVal != 0 ? "true" : "false");
        return kKindBoolean;
    }
    if (value.vt == VT_BSTR) {
        text = newJavaString(env, value.bstrVal != nullptr ? value.bstrVal : OLESTR(""), SysStringLen(value.bstrVal));
        return kKindString;
    }
    std::string rendered;
    if (renderArray(env, value, DeliveryPath::DataCallback, rendered)) {
        text = newUtfString(env, rendered);
        return kKindString;
    }
    text = env->NewStringUTF("");
    return kKindOther;
}

}  // namespace OpcEnv
}  // namespace opc
