// Natives of com.velmora.opc.testsupport.SimControl: the simulation server's control surface. The
// module is opened by path, which yields the very instance that COM's activation loads, so tests see
// and steer the same server state. On Windows the surface can instead be the control object of a
// server process (opc_sim_server.exe --shared, which every activation then reaches): each function
// below is then a call through ISimulationControl.
#include <jni.h>

#include "LoadedModule.h"

#include <cstdio>
#include <string>

#ifdef _WIN32
#include <objbase.h>

#include "simcontrol.h"  // generated from native/outproc/proxy/simcontrol.idl
#endif

#ifdef _WIN32
void keepCallbackRegistrations();  // TestSupport.cpp
#endif

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

// The HRESULT of the last call of this thread through the control object that failed; S_OK in process.
thread_local HRESULT remoteFailure = 0;

// Throws IllegalStateException when the call just made through the control object failed.
void checked(JNIEnv* env) {
    if (remoteFailure == 0) return;
    char text[80];
    std::snprintf(text, sizeof text, "simulation control call failed: 0x%08X", static_cast<unsigned>(remoteFailure));
    remoteFailure = 0;
    jclass cls = env->FindClass("java/lang/IllegalStateException");
    if (cls != nullptr) env->ThrowNew(cls, text);
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
    checked(env);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setItemError(JNIEnv* env, jclass, jstring itemId,
                                                                              jint hr) {
    if (!ready(env)) return;
    Utf id(env, itemId);
    api.setItemError(id.get(), hr);
    checked(env);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setNullResults(JNIEnv* env, jclass,
                                                                                jstring method, jboolean on) {
    if (!ready(env)) return;
    Utf m(env, method);
    api.setNullResults(m.get(), on ? 1 : 0);
    checked(env);
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_SimControl_callCount(JNIEnv* env, jclass, jstring method) {
    if (!ready(env)) return 0;
    Utf m(env, method);
    const jint count = api.callCount(m.get());
    checked(env);
    return count;
}

JNIEXPORT jstring JNICALL Java_com_velmora_opc_testsupport_SimControl_lastCallArgs(JNIEnv* env, jclass,
                                                                                 jstring method) {
    if (!ready(env)) return nullptr;
    Utf m(env, method);
    const std::string args = api.lastCallArgs(m.get());
    checked(env);
    return env->ExceptionCheck() ? nullptr : env->NewStringUTF(args.c_str());
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_clearCalls(JNIEnv* env, jclass) {
    if (ready(env)) api.clearCalls();
    checked(env);
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_SimControl_liveObjects(JNIEnv* env, jclass, jstring kind) {
    if (!ready(env)) return 0;
    Utf k(env, kind);
    const jlong count = api.liveObjects(k.get());
    checked(env);
    return count;
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_SimControl_shutdown(JNIEnv* env, jclass, jstring reason) {
    if (!ready(env)) return 0;
    Utf r(env, reason);
    const jint called = api.shutdown(r.get());
    checked(env);
    return called;
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setAsyncDelay(JNIEnv* env, jclass,
                                                                               jint milliseconds) {
    if (ready(env)) api.setAsyncDelay(milliseconds);
    checked(env);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_reset(JNIEnv* env, jclass) {
    if (ready(env)) api.reset();
    checked(env);
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

const CallbackApi* remoteCallbackApi();

const CallbackApi* bindCallbackApi() {
    if (simModule == nullptr) return remoteCallbackApi();
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
    checked(env);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setDown(JNIEnv* env, jclass, jboolean on) {
    if (const CallbackApi* f = callbackApi(env)) f->setDown(on ? 1 : 0);
    checked(env);
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_SimControl_setInlineCompletion(JNIEnv* env, jclass,
                                                                                     jboolean on) {
    if (const CallbackApi* f = callbackApi(env)) f->setInlineCompletion(on ? 1 : 0);
    checked(env);
}

JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_SimControl_sendWriteComplete(JNIEnv* env, jclass,
                                                                                   jint transactionId,
                                                                                   jint masterError,
                                                                                   jstring itemIds,
                                                                                   jint itemError) {
    const CallbackApi* f = callbackApi(env);
    if (f == nullptr) return 0;
    Utf ids(env, itemIds);
    const jint called = f->sendWriteComplete(static_cast<unsigned>(transactionId), masterError, ids.get(), itemError);
    checked(env);
    return called;
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_SimControl_connections(JNIEnv* env, jclass, jstring kind) {
    const CallbackApi* f = callbackApi(env);
    if (f == nullptr) return 0;
    Utf k(env, kind);
    const jlong count = f->connections(k.get());
    checked(env);
    return count;
}

JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_SimControl_callbacksMade(JNIEnv* env, jclass,
                                                                               jstring method) {
    const CallbackApi* f = callbackApi(env);
    if (f == nullptr) return 0;
    Utf m(env, method);
    const jlong count = f->callbacksMade(m.get());
    checked(env);
    return count;
}

}  // extern "C"

// The size of IOPCBrowse::Browse answers, bound on first use from the module that open() bound.
namespace {

using SetBrowsePortion = void (*)(int);

SetBrowsePortion remoteBrowsePortion();

SetBrowsePortion bindBrowsePortion() {
    if (simModule == nullptr) return remoteBrowsePortion();
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
        checked(env);
        return;
    }
    jclass cls = env->FindClass("java/lang/IllegalStateException");
    if (cls != nullptr) env->ThrowNew(cls, "the simulation module lacks the browse portion control");
}

// The control object of a server process: every function a call through ISimulationControl on the
// calling thread (joining the multithreaded apartment for the call, as the library's threads are in
// it), a failure left in remoteFailure for checked().
namespace {

#ifdef _WIN32
ISimulationControl* control = nullptr;  // held for the life of the process

template <typename Call>
void remote(Call call) {
    const HRESULT init = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const HRESULT hr = call(control);
    if (FAILED(hr)) remoteFailure = hr;
    if (SUCCEEDED(init)) CoUninitialize();
}

thread_local std::string lastArgs;

const SimApi remoteApi = {
    [](const char* m, HRESULT hr, int times) { remote([&](ISimulationControl* c) { return c->FailNext(m, hr, times); }); },
    [](const char* id, HRESULT hr) { remote([&](ISimulationControl* c) { return c->SetItemError(id, hr); }); },
    [](const char* m, int on) { remote([&](ISimulationControl* c) { return c->SetNullResults(m, on); }); },
    [](const char* m) {
        int count = 0;
        remote([&](ISimulationControl* c) { return c->CallCount(m, &count); });
        return count;
    },
    [](const char* m) -> const char* {
        char args[4096] = "";
        remote([&](ISimulationControl* c) { return c->LastCallArgs(m, sizeof args, args); });
        lastArgs = args;
        return lastArgs.c_str();
    },
    [] { remote([](ISimulationControl* c) { return c->ClearCalls(); }); },
    [](const char* kind) {
        long count = 0;
        remote([&](ISimulationControl* c) { return c->LiveObjects(kind, &count); });
        return count;
    },
    [](const char* reason) {
        int called = 0;
        remote([&](ISimulationControl* c) { return c->Shutdown(reason, &called); });
        return called;
    },
    [](int ms) { remote([&](ISimulationControl* c) { return c->SetAsyncDelay(ms); }); },
    [] { remote([](ISimulationControl* c) { return c->Reset(); }); },
};

const CallbackApi remoteCallbacks = {
    [](int on) { remote([&](ISimulationControl* c) { return c->SetInlineCompletion(on); }); },
    [](unsigned transaction, HRESULT master, const char* ids, HRESULT itemError) {
        int called = 0;
        remote([&](ISimulationControl* c) { return c->SendWriteComplete(transaction, master, ids, itemError, &called); });
        return called;
    },
    [](const char* kind) {
        long count = 0;
        remote([&](ISimulationControl* c) { return c->Connections(kind, &count); });
        return count;
    },
    [](const char* method) {
        long count = 0;
        remote([&](ISimulationControl* c) { return c->CallbacksMade(method, &count); });
        return count;
    },
    [](int on) { remote([&](ISimulationControl* c) { return c->SetDown(on); }); },
    [](int on) { remote([&](ISimulationControl* c) { return c->SetWithoutBrowse(on); }); },
};

// {C2F001D4-E227-4E3F-8EC3-326116DF4E5F}, {28AC4AAC-D76A-42C5-BEE8-2B1E8AB8D51F}
const CLSID kControlClsid = {0xc2f001d4, 0xe227, 0x4e3f, {0x8e, 0xc3, 0x32, 0x61, 0x16, 0xdf, 0x4e, 0x5f}};
const IID kControlIid = {0x28ac4aac, 0xd76a, 0x42c5, {0xbe, 0xe8, 0x2b, 0x1e, 0x8a, 0xb8, 0xd5, 0x1f}};

// Keeps the multithreaded apartment, and with it the control proxy, for the life of the process;
// signals `entered` once it is in.
DWORD WINAPI keepApartment(void* entered) {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    SetEvent(static_cast<HANDLE>(entered));
    Sleep(INFINITE);
    return 0;
}

const CallbackApi* remoteCallbackApi() { return control ? &remoteCallbacks : nullptr; }

SetBrowsePortion remoteBrowsePortion() {
    if (control == nullptr) return nullptr;
    return [](int elements) { remote([&](ISimulationControl* c) { return c->SetBrowsePortion(elements); }); };
}
// Binds the control object; "" on success, else the reason.
std::string bindRemote() {
    if (HANDLE entered = CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        if (HANDLE keeper = CreateThread(nullptr, 0, keepApartment, entered, 0, nullptr)) {
            WaitForSingleObject(entered, INFINITE);
            CloseHandle(keeper);
        }
        CloseHandle(entered);
    }
    const HRESULT init = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const HRESULT hr = CoCreateInstance(kControlClsid, nullptr, CLSCTX_LOCAL_SERVER, kControlIid,
                                        reinterpret_cast<void**>(&control));
    keepCallbackRegistrations();
    // Under Wine, the proxies of one server process share one proxy of its IRemUnknown, made by the
    // first of them that needs it and destroyed with the last that holds it; one made on a thread while
    // another destroys it was seen to use freed memory. A remote QueryInterface of the control proxy,
    // held for the life of the process, makes it hold that proxy as long.
    if (SUCCEEDED(hr)) {
        IUnknown* none = nullptr;
        if (SUCCEEDED(control->QueryInterface(IID_IPersist, reinterpret_cast<void**>(&none)))) none->Release();
    }
    if (SUCCEEDED(init)) CoUninitialize();
    if (FAILED(hr)) {
        char text[96];
        std::snprintf(text, sizeof text, "no control object of a server process: 0x%08X", static_cast<unsigned>(hr));
        return text;
    }
    api = remoteApi;
    return "";
}
#else
std::string bindRemote() { return "the COM runtime of this project has no out-of-process servers"; }
const CallbackApi* remoteCallbackApi() { return nullptr; }
SetBrowsePortion remoteBrowsePortion() { return nullptr; }
#endif

}  // namespace

// Binds the control object of the server process (activating the control class starts one); null on
// success, else the reason.
extern "C" JNIEXPORT jstring JNICALL Java_com_velmora_opc_testsupport_SimControl_openOutOfProcess(JNIEnv* env, jclass) {
    const std::string why = bindRemote();
    return why.empty() ? nullptr : env->NewStringUTF(why.c_str());
}
