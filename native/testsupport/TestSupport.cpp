// Natives of com.velmora.opc.testsupport.TestSupport: what the Java tests need to count live
// allocations (the substrate's ledger; on Windows an IMallocSpy for task memory) and to drive
// ComObjectClient without a server.
#include <jni.h>

#include <objbase.h>
#ifndef _WIN32
#include <substrate/ledger.h>
#endif

#include "ComObject.h"
#ifdef _WIN32
#include "KeptRegistrations.h"
#include "opc/opccomn.h"
#include "opc/opcda.h"
#endif

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

namespace {

std::atomic<long> liveObjects{0};

// An object answering QueryInterface for IUnknown and for each IID it was made with. Only its
// IUnknown methods are ever called, so one vtable serves every interface it claims.
class ProbeObject : public opc::support::ComObject<ProbeObject, IUnknown> {
public:
    explicit ProbeObject(std::vector<IID> iids) : iids_(std::move(iids)) { ++liveObjects; }

    void* interfaceFor(REFIID iid) {
        for (const IID& own : iids_) {
            if (IsEqualIID(own, iid)) return static_cast<IUnknown*>(this);
        }
        return nullptr;
    }

protected:
    ~ProbeObject() override { --liveObjects; }

private:
    std::vector<IID> iids_;
};

static_assert(sizeof(OLECHAR) == sizeof(jchar), "OLECHAR holds UTF-16 units");

std::basic_string<OLECHAR> toText(JNIEnv* env, jstring string) {
    const jsize length = env->GetStringLength(string);
    std::basic_string<OLECHAR> text(static_cast<size_t>(length), OLECHAR{});
    env->GetStringRegion(string, 0, length, reinterpret_cast<jchar*>(text.data()));
    return text;
}

void throwIllegalArgument(JNIEnv* env, const std::string& message) {
    jclass cls = env->FindClass("java/lang/IllegalArgumentException");
    if (cls != nullptr) env->ThrowNew(cls, message.c_str());
}

IUnknown* fromHandle(jlong handle) { return reinterpret_cast<IUnknown*>(static_cast<intptr_t>(handle)); }

#ifdef _WIN32
// Counts the live blocks of COM's task allocator: registered with CoRegisterMallocSpy when the
// library loads, it sees every CoTaskMemAlloc/Realloc/Free of the process from then on (blocks
// allocated before it are passed to PreFree as not spied and not counted). BSTRs and SAFEARRAYs have
// no hook of their own: their memory is task memory and is counted here (with the BSTR cache off,
// OANOCACHE=1, as Wine and Windows honour it).
class TaskMemorySpy final : public IMallocSpy {
public:
    long long live() const { return live_.load(); }
    long long doubleFrees() const { return doubleFrees_.load(); }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (out == nullptr) return E_POINTER;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IMallocSpy)) {
            *out = static_cast<IMallocSpy*>(this);
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 2; }  // static lifetime
    ULONG STDMETHODCALLTYPE Release() override { return 1; }

    SIZE_T STDMETHODCALLTYPE PreAlloc(SIZE_T size) override { return size; }
    void* STDMETHODCALLTYPE PostAlloc(void* actual) override {
        if (actual != nullptr) {
            ++live_;
            reused(actual);
        }
        return actual;
    }
    // COM passes a block it no longer knows as not spied: one freed before and not handed out since
    // is freed twice.
    void* STDMETHODCALLTYPE PreFree(void* request, BOOL spied) override {
        if (request == nullptr) return request;
        std::lock_guard<std::mutex> guard(freedLock_);
        if (spied) {
            --live_;
            freed_.insert(request);
        } else if (freed_.count(request) != 0) {
            ++doubleFrees_;
        }
        return request;
    }
    void STDMETHODCALLTYPE PostFree(BOOL) override {}
    SIZE_T STDMETHODCALLTYPE PreRealloc(void* request, SIZE_T size, void** newRequest, BOOL spied) override {
        *newRequest = request;
        realloc_ = request == nullptr ? kGrows : size == 0 ? (spied ? kShrinks : kSame) : (spied ? kSame : kGrows);
        return size;
    }
    void* STDMETHODCALLTYPE PostRealloc(void* actual, BOOL) override {
        // realloc(null, n) allocates, realloc(p, 0) frees, else a failed move keeps the old block.
        if (realloc_ == kGrows && actual != nullptr) ++live_;
        if (realloc_ == kShrinks) --live_;
        if (actual != nullptr) reused(actual);
        return actual;
    }
    void* STDMETHODCALLTYPE PreGetSize(void* request, BOOL) override { return request; }
    SIZE_T STDMETHODCALLTYPE PostGetSize(SIZE_T actual, BOOL) override { return actual; }
    void* STDMETHODCALLTYPE PreDidAlloc(void* request, BOOL) override { return request; }
    int STDMETHODCALLTYPE PostDidAlloc(void*, BOOL, int actual) override { return actual; }
    void STDMETHODCALLTYPE PreHeapMinimize() override {}
    void STDMETHODCALLTYPE PostHeapMinimize() override {}

private:
    enum Change { kSame, kGrows, kShrinks };
    void reused(void* block) {
        std::lock_guard<std::mutex> guard(freedLock_);
        freed_.erase(block);
    }
    std::atomic<long long> live_{0};
    std::atomic<long long> doubleFrees_{0};
    std::mutex freedLock_;
    std::unordered_set<void*> freed_;  // blocks freed and not handed out again
    thread_local static Change realloc_;
};

thread_local TaskMemorySpy::Change TaskMemorySpy::realloc_ = TaskMemorySpy::kSame;

TaskMemorySpy spy;

// Registers the spy on the first count (outside the loader lock), before any server is created.
long long LedgerLiveCount(int kind) {
    static const bool registered = SUCCEEDED(CoRegisterMallocSpy(&spy));
    if (!registered) return -1;
    return kind == 0 ? spy.live() : kind == 3 ? spy.doubleFrees() : -1;  // -1: not counted on this platform
}
#endif

}  // namespace

#ifdef _WIN32
// A server in another process calls back into this one through the library's sinks, which come and go
// with every advice: under Wine their interfaces stay registered for the life of the process (see
// KeptRegistrations.h). Needs an apartment that lives as long, on the calling thread or kept elsewhere.
void keepCallbackRegistrations() {
    [[maybe_unused]] static const auto* kept =
        new opc::support::KeptRegistrations{&IID_IOPCShutdown, &IID_IOPCDataCallback};
}
#endif

extern "C" {

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_TestSupport_keepCallbackRegistrations(JNIEnv*, jclass) {
#ifdef _WIN32
    keepCallbackRegistrations();
#endif
}

// Live blocks of the kind, or -1 where the platform cannot count that kind.
JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_TestSupport_ledgerLiveCount(JNIEnv*, jclass, jint kind) {
#ifndef _WIN32
    if (kind == 3) return -1;  // double frees of task memory: counted by the spy on Windows
#endif
    return static_cast<jlong>(LedgerLiveCount(kind));
}

// The Wine version when the process runs under Wine (ntdll exports wine_get_version), else null.
JNIEXPORT jstring JNICALL Java_com_velmora_opc_testsupport_TestSupport_wineVersion(JNIEnv* env, jclass) {
#ifdef _WIN32
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    FARPROC proc = ntdll != nullptr ? GetProcAddress(ntdll, "wine_get_version") : nullptr;
    if (proc != nullptr) return env->NewStringUTF(reinterpret_cast<const char* (*)()>(reinterpret_cast<void*>(proc))());
#else
    (void)env;
#endif
    return nullptr;
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_TestSupport_createObject(JNIEnv* env, jclass,
                                                                                jobjectArray iidTexts) {
    std::vector<IID> iids;
    const jsize count = iidTexts == nullptr ? 0 : env->GetArrayLength(iidTexts);
    for (jsize i = 0; i < count; ++i) {
        auto text = static_cast<jstring>(env->GetObjectArrayElement(iidTexts, i));
        if (text == nullptr) {
            throwIllegalArgument(env, "null IID text");
            return 0;
        }
        const std::basic_string<OLECHAR> wide = toText(env, text);
        env->DeleteLocalRef(text);
        IID iid;
        if (FAILED(IIDFromString(wide.c_str(), &iid))) {
            throwIllegalArgument(env, "not an IID: element " + std::to_string(i));
            return 0;
        }
        iids.push_back(iid);
    }
    IUnknown* object = new ProbeObject(std::move(iids));
    return static_cast<jlong>(reinterpret_cast<intptr_t>(object));
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_TestSupport_refCount(JNIEnv*, jclass, jlong handle) {
    if (handle == 0) return 0;
    IUnknown* object = fromHandle(handle);
    object->AddRef();
    return static_cast<jint>(object->Release());
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_TestSupport_releaseObject(JNIEnv*, jclass, jlong handle) {
    if (handle == 0) return 0;
    return static_cast<jint>(fromHandle(handle)->Release());
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_TestSupport_liveObjects(JNIEnv*, jclass) {
    return liveObjects.load();
}

}  // extern "C"
