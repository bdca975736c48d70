// The floors of the batch operations: a write of many value texts, the completion of an asynchronous
// read, and the elements of a browse. Each does, from native code, what any library must do to carry
// the same values between the same Java objects, and nothing else; the times are per round of all items.
#include "opc/platform.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "Calls.h"

using namespace opc::bench;

namespace {

bool isNumber(VARTYPE type) {
    switch (type) {
        case VT_I1: case VT_I2: case VT_I4: case VT_INT: case VT_UI1: case VT_UI2: case VT_UI4: case VT_UINT:
        case VT_R4: case VT_R8:
            return true;
        default:
            return false;
    }
}

void setNumber(VARIANT& out, VARTYPE type, double value) {
    out.vt = type;
    switch (type) {
        case VT_I1: out.cVal = static_cast<CHAR>(value); break;
        case VT_I2: out.iVal = static_cast<SHORT>(value); break;
        case VT_I4: out.lVal = static_cast<LONG>(value); break;
        case VT_INT: out.intVal = static_cast<INT>(value); break;
        case VT_UI1: out.bVal = static_cast<BYTE>(value); break;
        case VT_UI2: out.uiVal = static_cast<USHORT>(value); break;
        case VT_UI4: out.ulVal = static_cast<ULONG>(value); break;
        case VT_UINT: out.uintVal = static_cast<UINT>(value); break;
        case VT_R4: out.fltVal = static_cast<FLOAT>(value); break;
        default: out.dblVal = value; break;
    }
}

template <typename T>
bool putTokens(SAFEARRAY* array, const char* text, VARTYPE element) {
    T* data = nullptr;
    if (FAILED(SafeArrayAccessData(array, reinterpret_cast<void**>(&data)))) return false;
    const char* at = text;
    for (ULONG i = 0; i < array->rgsabound[0].cElements; ++i) {
        char* end = nullptr;
        if (element == VT_R4 || element == VT_R8)
            data[i] = static_cast<T>(std::strtod(at, &end));
        else
            data[i] = static_cast<T>(std::strtol(at, &end, 10));
        const char* comma = std::strchr(end, ',');
        at = comma != nullptr ? comma + 1 : end;
    }
    SafeArrayUnaccessData(array);
    return true;
}

// The array of a comma-separated list of numbers or words, one element per token.
void setArray(VARIANT& out, VARTYPE type, const char* text) {
    ULONG count = 1;
    for (const char* c = text; *c != 0; ++c) count += *c == ',' ? 1 : 0;
    const auto element = static_cast<VARTYPE>(type & ~VT_ARRAY);
    SAFEARRAY* array = SafeArrayCreateVector(element, 0, count);
    if (array == nullptr) return;
    bool ok = false;
    switch (element) {
        case VT_R8: ok = putTokens<DOUBLE>(array, text, element); break;
        case VT_R4: ok = putTokens<FLOAT>(array, text, element); break;
        case VT_I4: ok = putTokens<LONG>(array, text, element); break;
        case VT_I2: ok = putTokens<SHORT>(array, text, element); break;
        default: break;
    }
    if (!ok) {
        SafeArrayDestroy(array);
        return;
    }
    out.vt = type;
    out.parray = array;
}

// The VARIANT of one value text of the given type: numbers, booleans ("true" exactly), strings, and
// arrays of numbers. The 8-bit text is read into a buffer on the stack.
void parse(JNIEnv* env, jstring text, VARTYPE type, VARIANT& out) {
    const jsize length = env->GetStringLength(text);
    if (type == VT_BSTR) {
        BSTR value = SysAllocStringLen(nullptr, static_cast<UINT>(length));
        if (value == nullptr) return;
        env->GetStringRegion(text, 0, length, reinterpret_cast<jchar*>(value));
        out.vt = VT_BSTR;
        out.bstrVal = value;
        return;
    }
    char buffer[512];
    const jsize bytes = env->GetStringUTFLength(text);
    if (bytes >= static_cast<jsize>(sizeof buffer)) return;
    env->GetStringUTFRegion(text, 0, length, buffer);
    buffer[bytes] = 0;
    if (isNumber(type)) {
        setNumber(out, type, std::strtod(buffer, nullptr));
    } else if (type == VT_BOOL) {
        out.vt = VT_BOOL;
        out.boolVal = std::strcmp(buffer, "true") == 0 ? VARIANT_TRUE : VARIANT_FALSE;
    } else if ((type & VT_ARRAY) != 0) {
        setArray(out, type, buffer);
    }
}

struct Variants {
    std::vector<VARIANT> values;
    explicit Variants(size_t n) : values(n) {
        for (VARIANT& v : values) VariantInit(&v);
    }
    ~Variants() { clear(); }
    void clear() {
        for (VARIANT& v : values) VariantClear(&v);
    }
    Variants(const Variants&) = delete;
    Variants& operator=(const Variants&) = delete;
};

jmethodID method(JNIEnv* env, jobject receiver, const char* name, const char* signature) {
    if (receiver == nullptr) {
        throwIllegalArgument(env, "no receiver");
        return nullptr;
    }
    jclass cls = env->GetObjectClass(receiver);
    const jmethodID id = env->GetMethodID(cls, name, signature);
    env->DeleteLocalRef(cls);
    return id;
}

template <typename Round>
jlongArray timeRounds(JNIEnv* env, jint rounds, Round&& round) {
    std::vector<int64_t> nanos;
    for (jint r = 0; r < rounds; ++r) {
        const int64_t start = nowNanos();
        if (!round()) return nullptr;
        nanos.push_back(nowNanos() - start);
    }
    return toJava(env, nanos);
}

// The per-item results as one Java int array, handed to the receiver with the handles.
jintArray resultArray(JNIEnv* env, const std::vector<jint>& results) {
    const auto n = static_cast<jsize>(results.size());
    jintArray array = env->NewIntArray(n);
    if (array != nullptr) env->SetIntArrayRegion(array, 0, n, results.data());
    return array;
}

}  // namespace

// Shared with the other benchmark natives (Calls.h): the server handles of a Java array, the VARIANTs
// of the value texts (built once before a server is timed), and the floor of a read completion.
namespace opc::bench {

std::vector<OPCHANDLE> handlesOf(JNIEnv* env, jintArray serverHandles) {
    const jsize count = serverHandles != nullptr ? env->GetArrayLength(serverHandles) : 0;
    std::vector<OPCHANDLE> handles(static_cast<size_t>(count));
    if (count > 0) env->GetIntArrayRegion(serverHandles, 0, count, reinterpret_cast<jint*>(handles.data()));
    return handles;
}

bool parseValues(JNIEnv* env, jintArray types, jobjectArray texts, std::vector<VARIANT>& out) {
    const jsize n = texts != nullptr ? env->GetArrayLength(texts) : 0;
    if (types == nullptr || env->GetArrayLength(types) != n) {
        throwIllegalArgument(env, "value texts and types of different lengths");
        return false;
    }
    std::vector<jint> codes(static_cast<size_t>(n));
    env->GetIntArrayRegion(types, 0, n, codes.data());
    out.assign(static_cast<size_t>(n), VARIANT{});
    for (jsize i = 0; i < n; ++i) {
        VariantInit(&out[static_cast<size_t>(i)]);
        auto text = static_cast<jstring>(env->GetObjectArrayElement(texts, i));
        if (text != nullptr) parse(env, text, static_cast<VARTYPE>(codes[static_cast<size_t>(i)]), out[static_cast<size_t>(i)]);
        env->DeleteLocalRef(text);
    }
    return true;
}

ReadCompletionFloor::~ReadCompletionFloor() {
    if (env_ == nullptr) return;
    if (receiver_ != nullptr) env_->DeleteGlobalRef(receiver_);
    if (stringClass_ != nullptr) env_->DeleteGlobalRef(stringClass_);
}

bool ReadCompletionFloor::prepare(JNIEnv* env, jobject receiver, jintArray handles, jintArray kinds,
                                  jdoubleArray numbers, jobjectArray texts, jintArray qualities, jlongArray times,
                                  jintArray errors) {
    completed_ = method(env, receiver, "OnReadCompleted", "(IIII[I[I[Ljava/lang/String;[I[J[I)V");
    if (completed_ == nullptr) return false;
    if (!calls_.copyFrom(env, handles, numbers, texts, times, qualities, errors)) return false;
    const auto n = static_cast<jsize>(calls_.size());
    if (kinds == nullptr || env->GetArrayLength(kinds) != n) {
        throwIllegalArgument(env, "kinds of another length");
        return false;
    }
    kinds_.resize(calls_.size());
    env->GetIntArrayRegion(kinds, 0, n, kinds_.data());
    numeric_ = numbers != nullptr;
    jclass stringClass = env->FindClass("java/lang/String");
    if (stringClass == nullptr) return false;
    env_ = env;
    stringClass_ = static_cast<jclass>(env->NewGlobalRef(stringClass));
    receiver_ = env->NewGlobalRef(receiver);
    env->DeleteLocalRef(stringClass);
    return stringClass_ != nullptr && receiver_ != nullptr;
}

bool ReadCompletionFloor::call(JNIEnv* env, int64_t* calledAt) const {
    const auto n = static_cast<jsize>(calls_.size());
    jobjectArray texts = env->NewObjectArray(n, stringClass_, nullptr);
    if (texts == nullptr) return false;
    for (jsize i = 0; i < n; ++i) {
        jstring text;
        if (numeric_) {
            char digits[32];
            const auto written = std::to_chars(digits, digits + sizeof digits - 1, calls_.numbers[size_t(i)],
                                               std::chars_format::general, 6);
            *written.ptr = 0;
            text = env->NewStringUTF(digits);
        } else {
            const std::u16string& units = calls_.texts[size_t(i)];
            text = env->NewString(reinterpret_cast<const jchar*>(units.data()), static_cast<jsize>(units.size()));
        }
        if (text == nullptr) return false;
        env->SetObjectArrayElement(texts, i, text);
        env->DeleteLocalRef(text);
    }
    jintArray handles = env->NewIntArray(n);
    jintArray kinds = env->NewIntArray(n);
    jintArray qualities = env->NewIntArray(n);
    jlongArray times = env->NewLongArray(n);
    jintArray errors = env->NewIntArray(n);
    if (handles == nullptr || kinds == nullptr || qualities == nullptr || times == nullptr || errors == nullptr)
        return false;
    env->SetIntArrayRegion(handles, 0, n, calls_.handles.data());
    env->SetIntArrayRegion(kinds, 0, n, kinds_.data());
    env->SetIntArrayRegion(qualities, 0, n, calls_.qualities.data());
    env->SetLongArrayRegion(times, 0, n, calls_.times.data());
    env->SetIntArrayRegion(errors, 0, n, calls_.errors.data());
    if (calledAt != nullptr) *calledAt = nowNanos();
    env->CallVoidMethod(receiver_, completed_, 1, 0, 0, n, handles, kinds, texts, qualities, times, errors);
    for (jobject local : {static_cast<jobject>(texts), static_cast<jobject>(handles), static_cast<jobject>(kinds),
                          static_cast<jobject>(qualities), static_cast<jobject>(times), static_cast<jobject>(errors)})
        env->DeleteLocalRef(local);
    return !env->ExceptionCheck();
}

}  // namespace opc::bench

extern "C" {

// Per round: every value text read from the Java array and parsed into its VARIANT, the VARIANTs
// cleared, and the per-item results handed over in one call: OnReturnWrite(true, 0, n, 0, 0,
// handles, results) of a write listener, or OnWriteCompleted(0, 0, 0, n, handles, results) of a data
// callback (synchronous false).
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_writeFloor(JNIEnv* env, jclass, jobject receiver,
                                                                              jboolean synchronous, jintArray handles,
                                                                              jintArray types, jobjectArray texts,
                                                                              jint rounds) {
    const jmethodID hand = synchronous ? method(env, receiver, "OnReturnWrite", "(ZIIII[I[I)V")
                                       : method(env, receiver, "OnWriteCompleted", "(IIII[I[I)V");
    if (hand == nullptr) return nullptr;
    const jsize n = texts != nullptr ? env->GetArrayLength(texts) : 0;
    if (handles == nullptr || types == nullptr || env->GetArrayLength(handles) != n ||
        env->GetArrayLength(types) != n) {
        throwIllegalArgument(env, "handles, types and texts of different lengths");
        return nullptr;
    }
    std::vector<jint> codes(static_cast<size_t>(n));
    env->GetIntArrayRegion(types, 0, n, codes.data());
    const std::vector<jint> results(static_cast<size_t>(n), 0);
    Variants values(static_cast<size_t>(n));
    return timeRounds(env, rounds, [&] {
        for (jsize i = 0; i < n; ++i) {
            auto text = static_cast<jstring>(env->GetObjectArrayElement(texts, i));
            if (text != nullptr) parse(env, text, static_cast<VARTYPE>(codes[static_cast<size_t>(i)]),
                                       values.values[static_cast<size_t>(i)]);
            env->DeleteLocalRef(text);
        }
        values.clear();
        jintArray itemResults = resultArray(env, results);
        if (itemResults == nullptr) return false;
        if (synchronous)
            env->CallVoidMethod(receiver, hand, JNI_TRUE, 0, n, 0, 0, handles, itemResults);
        else
            env->CallVoidMethod(receiver, hand, 0, 0, 0, n, handles, itemResults);
        env->DeleteLocalRef(itemResults);
        return !env->ExceptionCheck();
    });
}

// Per round: the OnReadCompleted call of a data callback with the same arrays as the library's
// (ReadCompletionFloor).
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_readCompletedFloor(
    JNIEnv* env, jclass, jobject receiver, jintArray handleArray, jintArray kindArray, jdoubleArray numberArray,
    jobjectArray textArray, jintArray qualityArray, jlongArray timeArray, jintArray errorArray, jint rounds) {
    ReadCompletionFloor floor;
    if (!floor.prepare(env, receiver, handleArray, kindArray, numberArray, textArray, qualityArray, timeArray,
                       errorArray))
        return nullptr;
    return timeRounds(env, rounds, [&] { return floor.call(env); });
}

// Per round: one add call per element with two Strings made from the UTF-16 units of its name and item
// id: add(name, itemId) of an address-space collector, or with flags (an item, no children, VT_R8,
// readable and writable: what the bench branch's leaves carry) add(name, itemId, true, false, 5,
// true, true) of a browse-element collector.
JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_bench_BenchNatives_addFloor(JNIEnv* env, jclass, jobject receiver,
                                                                            jboolean withFlags, jobjectArray names,
                                                                            jobjectArray itemIds, jint rounds) {
    const jmethodID add = withFlags ? method(env, receiver, "add", "(Ljava/lang/String;Ljava/lang/String;ZZIZZ)V")
                                    : method(env, receiver, "add", "(Ljava/lang/String;Ljava/lang/String;)V");
    if (add == nullptr) return nullptr;
    const jsize n = names != nullptr ? env->GetArrayLength(names) : 0;
    if (itemIds == nullptr || env->GetArrayLength(itemIds) != n) {
        throwIllegalArgument(env, "names and item ids of different lengths");
        return nullptr;
    }
    std::vector<std::u16string> nameUnits(static_cast<size_t>(n));
    std::vector<std::u16string> idUnits(static_cast<size_t>(n));
    for (jsize i = 0; i < n; ++i) {
        for (auto [array, units] : {std::pair{names, &nameUnits}, std::pair{itemIds, &idUnits}}) {
            auto text = static_cast<jstring>(env->GetObjectArrayElement(array, i));
            if (text == nullptr) {
                throwIllegalArgument(env, "a null name or item id");
                return nullptr;
            }
            const jsize length = env->GetStringLength(text);
            (*units)[size_t(i)].resize(static_cast<size_t>(length));
            env->GetStringRegion(text, 0, length, reinterpret_cast<jchar*>((*units)[size_t(i)].data()));
            env->DeleteLocalRef(text);
        }
    }
    const auto make = [env](const std::u16string& units) {
        return env->NewString(reinterpret_cast<const jchar*>(units.data()), static_cast<jsize>(units.size()));
    };
    return timeRounds(env, rounds, [&] {
        for (jsize i = 0; i < n; ++i) {
            jstring name = make(nameUnits[size_t(i)]);
            jstring itemId = make(idUnits[size_t(i)]);
            if (name == nullptr || itemId == nullptr) return false;
            if (withFlags)
                env->CallVoidMethod(receiver, add, name, itemId, JNI_TRUE, JNI_FALSE, VT_R8, JNI_TRUE, JNI_TRUE);
            else
                env->CallVoidMethod(receiver, add, name, itemId);
            env->DeleteLocalRef(name);
            env->DeleteLocalRef(itemId);
            if (env->ExceptionCheck()) return false;
        }
        return true;
    });
}

}  // extern "C"
