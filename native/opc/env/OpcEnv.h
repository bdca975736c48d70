// The shared routines of the library: error reporting, log sinks, conversions and numeric variant
// access. Every routine that touches Java takes the calling thread's JNI environment first.
#pragma once

#include <jni.h>

#include "opc/platform.h"

#include <cstdint>
#include <memory>
#include <string>

#include "Owned.h"

namespace opc {

using WideText = std::basic_string<OLECHAR>;

// jchar and OLECHAR are both 16-bit UTF-16 code units.
inline const jchar* asJchars(const OLECHAR* text) noexcept { return reinterpret_cast<const jchar*>(text); }
inline const OLECHAR* asOlechars(const jchar* text) noexcept { return reinterpret_cast<const OLECHAR*>(text); }

// A zero-terminated UTF-16 copy of a Java string, freed when it goes out of scope.
class WideString {
public:
    WideString() noexcept = default;
    explicit WideString(size_t length) : chars_(new OLECHAR[length + 1]()) {}
    const OLECHAR* get() const noexcept { return chars_.get(); }
    OLECHAR* get() noexcept { return chars_.get(); }
    explicit operator bool() const noexcept { return chars_ != nullptr; }

private:
    std::unique_ptr<OLECHAR[]> chars_;
};

namespace OpcEnv {

// Error reporting ---------------------------------------------------------------------------------

// True for a success code; otherwise raises HresultException(hr, operation) in Java (or writes the
// console fallback line "[hex] operation") and answers false.
bool check(JNIEnv* env, HRESULT hr, const OLECHAR* operation);
// Raises a new Java exception of the class (JNI slash form) with the message.
void throwJavaException(JNIEnv* env, const char* className, const char* message);
// The trace hook of the call frames: it emits nothing.
inline void traceCall(JNIEnv*, const OLECHAR*) noexcept {}

// Log sinks: com.velmora.opc.OpcEnv's static log methods, the console when they cannot be found.
void logError(JNIEnv* env, const OLECHAR* text);
void logWarning(JNIEnv* env, const OLECHAR* text);
void logTrace(JNIEnv* env, const OLECHAR* text);
void logMessage(JNIEnv* env, const OLECHAR* text);

// The log sinks' class as a new global reference, looked up through the class loader of the calling
// native (so on a Java thread); null when it cannot be found, with the look-up error cleared.
jclass newLogClassRef(JNIEnv* env);

// Identifiers, strings, handles and time --------------------------------------------------------

WideString newWideString(JNIEnv* env, jstring string);
HRESULT toIID(JNIEnv* env, jstring string, IID* out);
HRESULT toCLSID(JNIEnv* env, jstring string, CLSID* out);
// The braced upper-case text of a GUID, owned by the caller (task memory), or null.
support::TaskMem<OLECHAR> fromIID(const GUID& guid);
std::string toNarrowString(const WideText& wide);
jlong toJavaTime(const FILETIME& time) noexcept;

// A new Java string of `length` UTF-16 units, or of the units before the terminating zero.
jstring newJavaString(JNIEnv* env, const OLECHAR* text, size_t length);
jstring newJavaString(JNIEnv* env, const OLECHAR* text);

// HRESULT as lowercase hexadecimal digits without prefix or leading zeros.
std::string hexText(HRESULT hr);

template <typename I>
I* fromHandle(jlong handle) noexcept {
    return reinterpret_cast<I*>(static_cast<intptr_t>(handle));
}
inline jlong toHandle(const void* pointer) noexcept {
    return static_cast<jlong>(reinterpret_cast<intptr_t>(pointer));
}

// Numeric variant access -------------------------------------------------------------------------

bool isNumeric(VARTYPE type) noexcept;
inline bool isNumeric(const VARIANT& value) noexcept { return isNumeric(value.vt); }
double getNumericValue(JNIEnv* env, const VARIANT& value);
bool setNumericValue(JNIEnv* env, VARIANT& value, VARTYPE type, double number);

}  // namespace OpcEnv

namespace env {

// While one lives on a thread, the log sinks of that thread use the given class (a global reference
// from newLogClassRef, or null to look it up) and leave no exception of their own pending: a COM
// thread that calls back into the library has no Java caller to surface one, nor a class loader
// that knows the library's classes.
class CallbackLogScope {
public:
    explicit CallbackLogScope(jclass logClass) noexcept;
    ~CallbackLogScope();
    CallbackLogScope(const CallbackLogScope&) = delete;
    CallbackLogScope& operator=(const CallbackLogScope&) = delete;

private:
    jclass previousClass_;
    bool previousActive_;
};

inline constexpr const char* kUnexpectedNative = "com/velmora/opc/jni/UnexpectedNativeException";
inline constexpr const char* kOpcException = "com/velmora/opc/OpcException";
inline constexpr const char* kHresultException = "com/velmora/opc/jni/HresultException";
inline constexpr const char* kNumberFormatException = "java/lang/NumberFormatException";
}  // namespace env

}  // namespace opc
