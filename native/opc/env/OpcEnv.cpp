#include "OpcEnv.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "Console.h"
#include "JniRefs.h"
#include "PendingException.h"

namespace opc::OpcEnv {

namespace {

size_t wideLength(const OLECHAR* text) noexcept {
    size_t n = 0;
    while (text[n] != 0) ++n;
    return n;
}

void consoleLine(const char* prefix, const OLECHAR* text) {
    console::writeBytes(prefix);
    console::writeWide(text);
    console::endLine();
}

constexpr const char* kLogClass = "com/velmora/opc/OpcEnv";

// The callback scope of this thread, if any (see env::CallbackLogScope).
thread_local bool callbackActive = false;
thread_local jclass callbackLogClass = nullptr;

// The four sinks differ only in the Java method and the console prefix.
void logTo(JNIEnv* env, const char* method, const char* prefix, const OLECHAR* text) {
    env::PendingExceptionGuard keep(env);
    const bool callback = callbackActive;
    env::LocalRef<jclass> found(env, callbackLogClass == nullptr ? env->FindClass(kLogClass) : nullptr);
    const jclass cls = callbackLogClass != nullptr ? callbackLogClass : found.get();
    const jmethodID mid = cls != nullptr ? env->GetStaticMethodID(cls, method, "(Ljava/lang/String;)V") : nullptr;
    if (mid == nullptr) {
        if (callback) env->ExceptionClear();  // the look-up error would have no Java caller to reach
        consoleLine(prefix, text);
        return;
    }
    env::LocalRef<jstring> message(env, newJavaString(env, text));
    if (message) env->CallStaticVoidMethod(cls, mid, message.get());
    // The log method's own exception stays pending for a Java caller; a callback prints and clears it.
    if (env->ExceptionCheck() && callback) env->ExceptionDescribe();
}

}  // namespace

std::string hexText(HRESULT hr) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%x", static_cast<unsigned>(hr));
    return digits;
}

bool check(JNIEnv* env, HRESULT hr, const OLECHAR* operation) {
    if (hr >= 0) return true;
    // An exception already pending is the first failure of this call and stays the one Java sees;
    // no class can be looked up while it is pending, so this failure goes to the console.
    if (!env->ExceptionCheck()) {
        env::LocalRef<jclass> cls(env, env->FindClass(env::kHresultException));
        const jmethodID ctor = cls ? env->GetMethodID(cls.get(), "<init>", "(ILjava/lang/String;)V") : nullptr;
        if (ctor != nullptr && operation != nullptr) {
            env::LocalRef<jstring> text(env, newJavaString(env, operation));
            if (!text) return false;  // OutOfMemoryError pending
            env::LocalRef<jthrowable> error(
                env, static_cast<jthrowable>(env->NewObject(cls.get(), ctor, static_cast<jint>(hr), text.get())));
            if (error) env->Throw(error.get());
            return false;
        }
    }
    const std::string code = "[" + hexText(hr) + "] ";
    console::writeBytes(code.c_str());
    console::writeWide(operation != nullptr ? operation : OLESTR("null"));
    console::endLine();
    return false;
}

void throwJavaException(JNIEnv* env, const char* className, const char* message) {
    env::LocalRef<jclass> cls(env, env->FindClass(className));
    if (!cls) return;  // the virtual machine's NoClassDefFoundError is pending
    env->ThrowNew(cls.get(), message);
}

jclass newLogClassRef(JNIEnv* env) {
    env::LocalRef<jclass> cls(env, env->FindClass(kLogClass));
    if (!cls) {
        env->ExceptionClear();
        return nullptr;
    }
    return static_cast<jclass>(env->NewGlobalRef(cls.get()));
}

void logError(JNIEnv* env, const OLECHAR* text) { logTo(env, "logError", "[OPC error] ", text); }
void logWarning(JNIEnv* env, const OLECHAR* text) { logTo(env, "logWarning", "[OPC warning] ", text); }
void logTrace(JNIEnv* env, const OLECHAR* text) { logTo(env, "logTrace", "[OPC trace] ", text); }
void logMessage(JNIEnv* env, const OLECHAR* text) { logTo(env, "logMessage", "[OPC message] ", text); }

jstring newJavaString(JNIEnv* env, const OLECHAR* text, size_t length) {
    return env->NewString(asJchars(text), static_cast<jsize>(length));
}

jstring newJavaString(JNIEnv* env, const OLECHAR* text) { return newJavaString(env, text, wideLength(text)); }

WideString newWideString(JNIEnv* env, jstring string) {
    if (string == nullptr) return {};
    const jsize length = env->GetStringLength(string);
    WideString copy(static_cast<size_t>(length));
    env->GetStringRegion(string, 0, length, reinterpret_cast<jchar*>(copy.get()));
    // A U+0000 inside the Java string ends the text; the rest of the buffer stays zero.
    OLECHAR* chars = copy.get();
    jsize end = 0;
    while (end < length && chars[end] != 0) ++end;
    std::memset(chars + end, 0, sizeof(OLECHAR) * static_cast<size_t>(length - end + 1));
    return copy;
}

HRESULT toIID(JNIEnv* env, jstring string, IID* out) {
    if (string == nullptr) return E_FAIL;
    const WideString text = newWideString(env, string);
    if (!text) return E_FAIL;
    return IIDFromString(text.get(), out);
}

HRESULT toCLSID(JNIEnv* env, jstring string, CLSID* out) {
    const WideString text = newWideString(env, string);
    return CLSIDFromString(text.get(), out);
}

support::TaskMem<OLECHAR> fromIID(const GUID& guid) {
    LPOLESTR text = nullptr;
    if (FAILED(StringFromIID(guid, &text))) return support::TaskMem<OLECHAR>{};
    return support::TaskMem<OLECHAR>{text};
}

std::string toNarrowString(const WideText& wide) {
    std::string narrow(wide.size(), ' ');
    for (size_t i = 0; i < wide.size(); ++i) narrow[i] = static_cast<char>(wide[i] & 0xFF);
    return narrow;
}

jlong toJavaTime(const FILETIME& time) noexcept {
    const int64_t ticks = static_cast<int64_t>((static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
    return ticks / 10000 - 11644473600000LL;
}

// Numeric variant access --------------------------------------------------------------------------

namespace {

// The processor's truncating conversions: NaN and values out of range give the most negative value.
int32_t truncate32(double v) noexcept {
    if (!(v > -2147483649.0 && v < 2147483648.0)) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(v);
}

int64_t truncate64(double v) noexcept {
    if (!(v >= -9223372036854775808.0 && v < 9223372036854775808.0)) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(v);
}

}  // namespace

bool isNumeric(VARTYPE type) noexcept {
    switch (type) {
        case VT_I2: case VT_I4: case VT_R4: case VT_R8: case VT_I1:
        case VT_UI1: case VT_UI2: case VT_UI4: case VT_INT: case VT_UINT:
            return true;
        default:
            return false;
    }
}

double getNumericValue(JNIEnv* env, const VARIANT& value) {
    switch (value.vt) {
        case VT_I2: return value.iVal;
        case VT_I4: return value.lVal;
        case VT_I1: return value.cVal;
        case VT_INT: return value.intVal;
        case VT_UI1: return value.bVal;
        case VT_UI2: return value.uiVal;
        case VT_UI4: return value.ulVal;
        case VT_UINT: return value.uintVal;
        case VT_R4: return value.fltVal;
        case VT_R8: return value.dblVal;
        default:
            throwJavaException(env, env::kNumberFormatException, "[OpcEnv::getNumericValue] Variant is not analog.");
            return 0.0;
    }
}

bool setNumericValue(JNIEnv* env, VARIANT& value, VARTYPE type, double number) {
    switch (type) {
        case VT_R8: value.dblVal = number; break;
        case VT_R4: value.fltVal = static_cast<float>(number); break;
        case VT_I4: value.lVal = truncate32(number); break;
        case VT_INT: value.intVal = truncate32(number); break;
        case VT_I2: value.iVal = static_cast<SHORT>(truncate32(number)); break;
        case VT_I1: value.cVal = static_cast<CHAR>(truncate32(number)); break;
        case VT_UI1: value.bVal = static_cast<BYTE>(truncate64(number)); break;
        case VT_UI2: value.uiVal = static_cast<USHORT>(truncate64(number)); break;
        case VT_UI4: value.ulVal = static_cast<ULONG>(truncate64(number)); break;
        case VT_UINT: value.uintVal = static_cast<UINT>(truncate64(number)); break;
        default:
            throwJavaException(env, env::kNumberFormatException, "[OpcEnv::setNumericValue] Variant is not numeric.");
            return false;
    }
    value.vt = type;
    return true;
}

}  // namespace opc::OpcEnv

namespace opc::env {

CallbackLogScope::CallbackLogScope(jclass logClass) noexcept
    : previousClass_(OpcEnv::callbackLogClass), previousActive_(OpcEnv::callbackActive) {
    OpcEnv::callbackLogClass = logClass;
    OpcEnv::callbackActive = true;
}

CallbackLogScope::~CallbackLogScope() {
    OpcEnv::callbackLogClass = previousClass_;
    OpcEnv::callbackActive = previousActive_;
}

}  // namespace opc::env
