// Natives of com.velmora.opc.testsupport.SimControl: the simulation server's control surface. The
// module is opened by path, which yields the very instance that COM's activation loads, so tests see
// and steer the same server state.
#include <jni.h>

#include "LoadedModule.h"

#include <string>

namespace {

using HRESULT = int;

struct SimApi {
    void (*failNext)(const char*, HRESULT, int) = nullptr;
    void (*setItemError)(const char*, HRESULT) = nullptr;
    void (*setNullResults)(const char*, int) = nullptr;
    int (*callCount)(const char*) = nullptr;
    const char* (*lastCallArgs)(const char*) = nullptr;
    void (*clearCalls)() = nullptr;
    long (*liveObjects)(const char*) = nullptr;
    int (*shutdown)(const char*) = nullptr;
    void (*setAsyncDelay)(int) = nullptr;
    void (*reset)() = nullptr;
};

SimApi api;
void* simModule = nullptr;  // the module that open() bound; stays loaded

template <typename F>
bool bind(void* module, const char* name, F& slot) {
    slot = opc::support::moduleFunction<F>(module, name);
    return slot != nullptr;
}

// A UTF-8 copy of a Java string (method names and item ids are ASCII); null stays null.
class Utf {
public:
    Utf(JNIEnv* env, jstring s) : env_(env), s_(s), chars_(s ? env->GetStringUTFChars(s, nullptr) : nullptr) {}
    ~Utf() {
        if (chars_) env_->ReleaseStringUTFChars(s_, chars_);
    }
    Utf(const Utf&) = delete;
    Utf& operator=(const Utf&) = delete;
    const char* get() const { return chars_; }

private:
    JNIEnv* env_;
    jstring s_;
    const char* chars_;
};

bool ready(JNIEnv* env) {
    if (api.reset != nullptr) return true;
    jclass cls = env->FindClass("java/lang/IllegalStateException");
    if (cls != nullptr) env->ThrowNew(cls, "simulation control is not open");
    return false;
}

}  // namespace

extern "C" {

// Opens the module and binds its control functions; null on success, else the reason.
JNIEXPORT jstring JNICALL Java_com_velmora_opc_testsupport_SimControl_open(JNIEnv* env, jclass, jstring path) {
    Utf file(env, path);
    if (file.get() == nullptr) return env->NewStringUTF("no path");
    std::string why;
    void* module = opc::support::openModule(file.get(), why);
    if (module == nullptr) return env->NewStringUTF(why.c_str());
    SimApi bound;
    if (!(bind(module, "SimFailNext", bound.failNext) && bind(module, "SimSetItemError", bound.setItemError) &&
          bind(module, "SimSetNullResults", bound.setNullResults) && bind(module, "SimCallCount", bound.callCount) &&
          bind(module, "SimLastCallArgs", bound.lastCallArgs) && bind(module, "SimClearCalls", bound.clearCalls) &&
          bind(module, "SimLiveObjects", bound.liveObjects) && bind(module, "SimShutdown", bound.shutdown) &&
          bind(module, "SimSetAsyncDelay", bound.setAsyncDelay) && bind(module, "SimReset", bound.reset))) {
        return env->NewStringUTF("the module lacks the control functions");
    }
    api = bound;  // the module stays loaded for the life of the process
    simModule = module;
    return nullptr;
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_failNext(JNIEnv* env, jclass, jstring method,
                                                                          jint hr, jint times) {
    if (!ready(env)) return;
    Utf m(env, method);
    api.failNext(m.get(), hr, times);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setItemError(JNIEnv* env, jclass, jstring itemId,
                                                                              jint hr) {
    if (!ready(env)) return;
    Utf id(env, itemId);
    api.setItemError(id.get(), hr);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setNullResults(JNIEnv* env, jclass,
                                                                                jstring method, jboolean on) {
    if (!ready(env)) return;
    Utf m(env, method);
    api.setNullResults(m.get(), on ? 1 : 0);
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_SimControl_callCount(JNIEnv* env, jclass, jstring method) {
    if (!ready(env)) return 0;
    Utf m(env, method);
    return api.callCount(m.get());
}

JNIEXPORT jstring JNICALL Java_com_velmora_opc_testsupport_SimControl_lastCallArgs(JNIEnv* env, jclass,
                                                                                 jstring method) {
    if (!ready(env)) return nullptr;
    Utf m(env, method);
    const std::string args = api.lastCallArgs(m.get());
    return env->NewStringUTF(args.c_str());
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_clearCalls(JNIEnv* env, jclass) {
    if (ready(env)) api.clearCalls();
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_SimControl_liveObjects(JNIEnv* env, jclass, jstring kind) {
    if (!ready(env)) return 0;
    Utf k(env, kind);
    return api.liveObjects(k.get());
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_SimControl_shutdown(JNIEnv* env, jclass, jstring reason) {
    if (!ready(env)) return 0;
    Utf r(env, reason);
    return api.shutdown(r.get());
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setAsyncDelay(JNIEnv* env, jclass,
                                                                               jint milliseconds) {
    if (ready(env)) api.setAsyncDelay(milliseconds);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_reset(JNIEnv* env, jclass) {
    if (ready(env)) api.reset();
}

}  // extern "C"

// The controls of callbacks and subscriptions, bound on first use from the module that open() bound.
namespace {

struct CallbackApi {
    void (*setInlineCompletion)(int) = nullptr;
    int (*sendWriteComplete)(unsigned, HRESULT, const char*, HRESULT) = nullptr;
    long (*connections)(const char*) = nullptr;
    long (*callbacksMade)(const char*) = nullptr;
    void (*setDown)(int) = nullptr;
    void (*setWithoutBrowse)(int) = nullptr;
};

const CallbackApi* bindCallbackApi() {
    void* module = simModule;
    static CallbackApi bound;
    const bool all = bind(module, "SimSetInlineCompletion", bound.setInlineCompletion) &&
                     bind(module, "SimSendWriteComplete", bound.sendWriteComplete) &&
                     bind(module, "SimConnections", bound.connections) &&
                     bind(module, "SimCallbacksMade", bound.callbacksMade) &&
                     bind(module, "SimSetDown", bound.setDown) &&
                     bind(module, "SimSetWithoutBrowse", bound.setWithoutBrowse);
    return all ? &bound : nullptr;
}

// The bound functions, or null with IllegalStateException pending.
const CallbackApi* callbackApi(JNIEnv* env) {
    if (!ready(env)) return nullptr;
    static const CallbackApi* const bound = bindCallbackApi();
    if (bound == nullptr) {
        jclass cls = env->FindClass("java/lang/IllegalStateException");
        if (cls != nullptr) env->ThrowNew(cls, "the simulation module lacks the callback controls");
    }
    return bound;
}

}  // namespace

extern "C" {

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setWithoutBrowse(JNIEnv* env, jclass,
                                                                                  jboolean on) {
    if (const CallbackApi* f = callbackApi(env)) f->setWithoutBrowse(on ? 1 : 0);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setDown(JNIEnv* env, jclass, jboolean on) {
    if (const CallbackApi* f = callbackApi(env)) f->setDown(on ? 1 : 0);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setInlineCompletion(JNIEnv* env, jclass,
                                                                                     jboolean on) {
    if (const CallbackApi* f = callbackApi(env)) f->setInlineCompletion(on ? 1 : 0);
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_SimControl_sendWriteComplete(JNIEnv* env, jclass,
                                                                                   jint transactionId,
                                                                                   jint masterError,
                                                                                   jstring itemIds,
                                                                                   jint itemError) {
    const CallbackApi* f = callbackApi(env);
    if (f == nullptr) return 0;
    Utf ids(env, itemIds);
    return f->sendWriteComplete(static_cast<unsigned>(transactionId), masterError, ids.get(), itemError);
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_SimControl_connections(JNIEnv* env, jclass, jstring kind) {
    const CallbackApi* f = callbackApi(env);
    if (f == nullptr) return 0;
    Utf k(env, kind);
    return f->connections(k.get());
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_SimControl_callbacksMade(JNIEnv* env, jclass,
                                                                               jstring method) {
    const CallbackApi* f = callbackApi(env);
    if (f == nullptr) return 0;
    Utf m(env, method);
    return f->callbacksMade(m.get());
}

}  // extern "C"

// The size of IOPCBrowse::Browse answers, bound on first use from the module that open() bound.
namespace {

using SetBrowsePortion = void (*)(int);

SetBrowsePortion bindBrowsePortion() {
    void* module = simModule;
    SetBrowsePortion bound = nullptr;
    return bind(module, "SimSetBrowsePortion", bound) ? bound : nullptr;
}

}  // namespace

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setBrowsePortion(JNIEnv* env, jclass,
                                                                                              jint elements) {
    if (!ready(env)) return;
    static const SetBrowsePortion bound = bindBrowsePortion();
    if (bound != nullptr) {
        bound(elements);
        return;
    }
    jclass cls = env->FindClass("java/lang/IllegalStateException");
    if (cls != nullptr) env->ThrowNew(cls, "the simulation module lacks the browse portion control");
}
