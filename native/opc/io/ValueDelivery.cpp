#include "ValueDelivery.h"

#include <charconv>
#include <cstdio>
#include <type_traits>

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

// Appends the printf text of the arguments whole, however long it is (a double of magnitude 1e308
// has 309 digits before the point): the stack buffer serves the common case, the text the rest.
template <typename... Args>
void appendFormatted(std::string& text, const char* format, Args... args) {
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, format, args...);
    if (n < 0) return;
    const auto length = static_cast<size_t>(n);
    if (length < sizeof buffer) {
        text.append(buffer, length);
        return;
    }
    const size_t at = text.size();
    text.resize(at + length + 1);
    std::snprintf(&text[at], length + 1, format, args...);
    text.resize(at + length);
}

constexpr USHORT kElementKindFlags = FADF_RECORD | FADF_HAVEIID | FADF_BSTR | FADF_UNKNOWN | FADF_DISPATCH | FADF_VARIANT;

// The number of elements when the array is what a VARIANT of the type declares: one dimension,
// elements of the element type's size, BSTRs exactly when the type says so, and the array's own
// element type (when it records one) the declared one. -1 otherwise.
long long elementCount(SAFEARRAY* array, VARTYPE element, size_t elementSize) {
    if (SafeArrayGetDim(array) != 1 || SafeArrayGetElemsize(array) != elementSize) return -1;
    const USHORT expected = element == VT_BSTR ? FADF_BSTR : 0;
    if ((array->fFeatures & kElementKindFlags) != expected) return -1;
    VARTYPE recorded = VT_EMPTY;
    if ((array->fFeatures & FADF_HAVEVARTYPE) != 0 && (FAILED(SafeArrayGetVartype(array, &recorded)) || recorded != element))
        return -1;
    LONG lower = 0;
    LONG upper = 0;
    if (FAILED(SafeArrayGetLBound(array, 1, &lower)) || FAILED(SafeArrayGetUBound(array, 1, &upper))) return -1;
    const long long count = static_cast<long long>(upper) - lower + 1;
    if (count < 0 || static_cast<unsigned long long>(count) != array->rgsabound[0].cElements) return -1;
    return count;
}

template <typename E, typename Append>
bool joinElements(SAFEARRAY* array, VARTYPE element, std::string& text, Append&& append) {
    const long long count = elementCount(array, element, sizeof(E));
    if (count < 0) return false;
    if (count == 0) return true;
    const support::ArrayData data(array);
    const E* items = data.elements<E>();
    if (items == nullptr) return false;
    for (long long i = 0; i < count; ++i) {
        if constexpr (std::is_same_v<E, BSTR>) {
            if (items[i] == nullptr) continue;  // neither text nor the separator after it
        }
        append(items[i]);
        if (i != count - 1) text.push_back(',');
    }
    return true;
}

}  // namespace

ArrayText arrayText(const VARIANT& value, std::string& text) {
    text.clear();
    if (arrayKind(value.vt) == nullptr) return ArrayText::NotArray;
    SAFEARRAY* array = value.parray;
    if (array == nullptr) return ArrayText::NullArray;
    const VARTYPE element = static_cast<VARTYPE>(value.vt & VT_TYPEMASK);
    bool wellFormed = false;
    switch (element) {
        case VT_BSTR:
            wellFormed = joinElements<BSTR>(array, element, text, [&text](BSTR e) {
                text += OpcEnv::toNarrowString(WideText(e, SysStringLen(e)));
            });
            break;
        case VT_R4:
            wellFormed = joinElements<FLOAT>(array, element, text, [&text](FLOAT e) {
                appendFormatted(text, "%.1f", static_cast<double>(e));
            });
            break;
        case VT_R8:
            wellFormed = joinElements<DOUBLE>(array, element, text, [&text](DOUBLE e) {
                appendFormatted(text, "%.1lf", e);
            });
            break;
        case VT_I2:
            wellFormed = joinElements<SHORT>(array, element, text, [&text](SHORT e) {
                appendFormatted(text, "%.1d", static_cast<int>(e));
            });
            break;
        case VT_I4:
            wellFormed = joinElements<LONG>(array, element, text, [&text](LONG e) {
                appendFormatted(text, "%.1ld", static_cast<long>(e));
            });
            break;
        case VT_BOOL:
            wellFormed = joinElements<VARIANT_BOOL>(array, element, text, [&text](VARIANT_BOOL e) {
                text += e != 0 ? "true" : "false";
            });
            break;
        case VT_UI1:
            wellFormed = joinElements<BYTE>(array, element, text, [&text](BYTE e) {
                appendFormatted(text, "%u", static_cast<unsigned>(e));
            });
            break;
        case VT_UI2:
            wellFormed = joinElements<USHORT>(array, element, text, [&text](USHORT e) {
                appendFormatted(text, "%hu", static_cast<unsigned short>(e));
            });
            break;
        case VT_UI4:
            wellFormed = joinElements<ULONG>(array, element, text, [&text](ULONG e) {
                appendFormatted(text, "%lu", static_cast<unsigned long>(e));
            });
            break;
    }
    if (wellFormed) return ArrayText::Rendered;
    text.clear();
    return ArrayText::Malformed;
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
        case ArrayText::Malformed:
            logError(env, path == DeliveryPath::SyncRead
                              ? OLESTR("OpcSyncIO::read -> SafeArray does not match its VARTYPE")
                              : OLESTR("OpcAsyncIo2::OnDataChange SafeArray does not match its VARTYPE"));
            return false;
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
