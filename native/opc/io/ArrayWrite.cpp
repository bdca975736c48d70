#include "ArrayWrite.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <vector>

#include "JniRefs.h"
#include "Owned.h"
#include "ValueParsing.h"
#include "Receivers.h"

namespace opc::OpcEnv {

namespace {

size_t itemCount(jint count) {
    if (count < 0) throw std::bad_array_new_length();
    return static_cast<size_t>(count);
}

// The native side of one write: a server handle and a value per item; the values are cleared with it.
struct WriteItems {
    std::vector<OPCHANDLE> handles;
    std::vector<VARIANT> values;
    std::vector<jint> types;  // the requested VARTYPE of each item, as Java passed it

    explicit WriteItems(jint count) : handles(itemCount(count)), values(itemCount(count)) {
        for (VARIANT& value : values) VariantInit(&value);
    }
    ~WriteItems() {
        for (VARIANT& value : values) VariantClear(&value);
    }
    WriteItems(const WriteItems&) = delete;
    WriteItems& operator=(const WriteItems&) = delete;
};

// The modified UTF-8 characters of a Java string, released at scope end.
class Utf8Chars {
public:
    Utf8Chars(JNIEnv* env, jstring text) : env_(env), text_(text), chars_(env->GetStringUTFChars(text, nullptr)) {
        if (chars_ == nullptr) throw std::bad_alloc();  // OutOfMemoryError pending
    }
    ~Utf8Chars() { env_->ReleaseStringUTFChars(text_, chars_); }
    Utf8Chars(const Utf8Chars&) = delete;
    Utf8Chars& operator=(const Utf8Chars&) = delete;
    const char* get() const noexcept { return chars_; }

private:
    JNIEnv* env_;
    jstring text_;
    const char* chars_;
};

// The modified UTF-8 of a number or boolean text, cut to at most 199 bytes, in the caller's buffer.
// A text of up to 66 units (at most 198 bytes) is copied straight into it; a longer one goes through
// the virtual machine's own copy.
const char* shortUtf8(JNIEnv* env, jstring text, char (&copy)[200]) {
    constexpr jsize kDirect = (sizeof copy - 2) / 3;
    const jsize length = env->GetStringLength(text);
    if (length <= kDirect) {
        const jsize bytes = env->GetStringUTFLength(text);
        env->GetStringUTFRegion(text, 0, length, copy);
        copy[bytes] = 0;
        return copy;
    }
    const Utf8Chars chars(env, text);
    std::strncpy(copy, chars.get(), sizeof copy - 1);
    copy[sizeof copy - 1] = 0;
    return copy;
}

// Numbers are read with atof from a copy of at most 199 characters, booleans are "true" exactly;
// every other type is parsed from the text. A null text leaves the value empty.
void buildValue(JNIEnv* env, VARIANT& value, jint dataType, jstring text) {
    if (text == nullptr) return;
    const auto type = static_cast<VARTYPE>(static_cast<uint32_t>(dataType) & 0xFFFF);
    if (isNumeric(type)) {
        char copy[200];
        const double number = std::atof(shortUtf8(env, text, copy));
        value.vt = type;
        setNumericValue(env, value, type, number);
    } else if (type == VT_BOOL) {
        char copy[200];
        value.vt = VT_BOOL;
        value.boolVal = std::strcmp(shortUtf8(env, text, copy), "true") == 0 ? VARIANT_TRUE : VARIANT_FALSE;
    } else {
        toVariant(env, value, type, text);
    }
}

// The caller passes three arrays of at least count elements; anything else is refused before any
// element is read, so that no Java exception is raised in the middle of the items.
void checkArrays(JNIEnv* env, jint count, jintArray serverHandles, jintArray dataTypes, jobjectArray values) {
    if (count <= 0) return;
    if (serverHandles == nullptr || dataTypes == nullptr || values == nullptr ||
        env->GetArrayLength(serverHandles) < count || env->GetArrayLength(dataTypes) < count ||
        env->GetArrayLength(values) < count)
        throw std::invalid_argument("write arrays shorter than the count");
}

}  // namespace

jint write(JNIEnv* env, IUnknown* io, bool synchronous, jint count, jint transactionId, jintArray serverHandles,
           jintArray dataTypes, jobjectArray values, jobject writeListener) {
    HRESULT result = 0;
    try {
        checkArrays(env, count, serverHandles, dataTypes, values);
        WriteItems items(count);
        if (count > 0) {
            env->GetIntArrayRegion(serverHandles, 0, count, reinterpret_cast<jint*>(items.handles.data()));
            items.types.resize(static_cast<size_t>(count));
            env->GetIntArrayRegion(dataTypes, 0, count, items.types.data());
        }
        for (jint i = 0; i < count; ++i) {
            const env::LocalRef<jstring> text(env, static_cast<jstring>(env->GetObjectArrayElement(values, i)));
            buildValue(env, items.values[static_cast<size_t>(i)], items.types[static_cast<size_t>(i)], text.get());
        }

        const auto n = static_cast<DWORD>(count);
        DWORD cancelId = 0;
        support::TaskMem<HRESULT> errors;
        if (synchronous) {
            if (io == nullptr) {
                logError(env, OLESTR("OpcEnv::write->sio is null"));
                return 0;
            }
            result = static_cast<IOPCSyncIO*>(io)->Write(n, items.handles.data(), items.values.data(), errors.put());
        } else {
            if (io == nullptr) {
                logError(env, OLESTR("OpcEnv::write->asio is null"));
                return 0;
            }
            result = static_cast<IOPCAsyncIO2*>(io)->Write(n, items.handles.data(), items.values.data(),
                                                           static_cast<DWORD>(transactionId), &cancelId, errors.put());
        }

        env::LocalRef<jintArray> itemErrors;
        if (result == S_FALSE && errors) {
            itemErrors = env::LocalRef<jintArray>(env, env->NewIntArray(count));
            if (!itemErrors)
                logError(env, OLESTR("Cannot allocate memory - OpcEnv::write"));
            else
                env->SetIntArrayRegion(itemErrors.get(), 0, count, reinterpret_cast<const jint*>(errors.get()));
        }
        // An OutOfMemoryError from the error array is what Java sees; the listener is not called with it pending.
        if (env->ExceptionCheck()) return result;

        const jmethodID onReturnWrite = env::receiverMethod(
            env, writeListener, "OnReturnWrite", "(ZIIII[I[I)V", logError,
            OLESTR("OpcEnv::write - jclass object clazz is null"), OLESTR("OpcEnv::write - jni method ids are null"));
        if (onReturnWrite == nullptr) return result;
        env->CallVoidMethod(writeListener, onReturnWrite, synchronous ? JNI_TRUE : JNI_FALSE, static_cast<jint>(result),
                            count, transactionId, static_cast<jint>(cancelId), serverHandles, itemErrors.get());
    } catch (...) {
        logError(env, OLESTR("Unexpected exception in OpcEnv::write."));
    }
    return static_cast<jint>(result);
}

}  // namespace opc::OpcEnv
