// Steers the simulation server during a benchmark: its items changing at every subscription update,
// the server's own time and its callbacks' time for its last update, its bench branch and browse
// portions; and reads the COM runtime's allocation ledger. The module is opened by path, which yields the very
// instance that the substrate loaded when the server was created.
#include "LoadedModule.h"

#include <string>

#include "Calls.h"

using namespace opc::bench;

namespace {

struct Simulation {
    void (*setChangeEveryTick)(const char*, int) = nullptr;
    double (*lastTickMicros)() = nullptr;
    double (*lastCallbackMicros)() = nullptr;
    void (*setBenchBranch)(int) = nullptr;
    void (*setBrowsePortion)(int) = nullptr;
};

Simulation simulation;

class Utf {
public:
    Utf(JNIEnv* env, jstring s) : env_(env), s_(s), chars_(s ? env->GetStringUTFChars(s, nullptr) : nullptr) {}
    ~Utf() {
        if (chars_ != nullptr) env_->ReleaseStringUTFChars(s_, chars_);
    }
    Utf(const Utf&) = delete;
    Utf& operator=(const Utf&) = delete;
    const char* get() const noexcept { return chars_; }

private:
    JNIEnv* env_;
    jstring s_;
    const char* chars_;
};

bool bound(JNIEnv* env) {
    if (simulation.lastTickMicros != nullptr) return true;
    jclass cls = env->FindClass("java/lang/IllegalStateException");
    if (cls != nullptr) env->ThrowNew(cls, "the simulation module is not open");
    return false;
}

}  // namespace

extern "C" {

// Binds the controls of the module at the path; null when done, else why not.
JNIEXPORT jstring JNICALL Java_com_velmora_opc_bench_BenchNatives_openSimulation(JNIEnv* env, jclass,
                                                                               jstring modulePath) {
    const Utf path(env, modulePath);
    if (path.get() == nullptr) return env->NewStringUTF("no module path");
    std::string why;
    void* module = opc::support::openModule(path.get(), why);  // kept open for the life of the process
    if (module == nullptr) return env->NewStringUTF(why.c_str());
    Simulation found;
    found.setChangeEveryTick = opc::support::moduleFunction<void (*)(const char*, int)>(module, "SimSetChangeEveryTick");
    found.lastTickMicros = opc::support::moduleFunction<double (*)()>(module, "SimLastTickMicros");
    found.lastCallbackMicros = opc::support::moduleFunction<double (*)()>(module, "SimLastCallbackMicros");
    found.setBenchBranch = opc::support::moduleFunction<void (*)(int)>(module, "SimSetBenchBranch");
    found.setBrowsePortion = opc::support::moduleFunction<void (*)(int)>(module, "SimSetBrowsePortion");
    if (found.setChangeEveryTick == nullptr || found.lastTickMicros == nullptr || found.lastCallbackMicros == nullptr ||
        found.setBenchBranch == nullptr || found.setBrowsePortion == nullptr) {
        return env->NewStringUTF((std::string(path.get()) + " lacks one of SimSetChangeEveryTick, SimLastTickMicros,"
                                                            " SimLastCallbackMicros, SimSetBenchBranch, SimSetBrowsePortion")
                                     .c_str());
    }
    simulation = found;
    return nullptr;
}

// While on, every item whose id starts with the prefix changes at every update of every group.
JNIEXPORT void JNICALL Java_com_velmora_opc_bench_BenchNatives_changeEveryTick(JNIEnv* env, jclass, jstring prefix,
                                                                             jboolean on) {
    if (!bound(env)) return;
    const Utf text(env, prefix);
    if (text.get() == nullptr) {
        throwIllegalArgument(env, "no prefix");
        return;
    }
    simulation.setChangeEveryTick(text.get(), on ? 1 : 0);
}

// Microseconds the server spent on its last subscription update, without the time inside the callbacks.
JNIEXPORT jdouble JNICALL Java_com_velmora_opc_bench_BenchNatives_lastTickMicros(JNIEnv* env, jclass) {
    return bound(env) ? simulation.lastTickMicros() : 0.0;
}

// Microseconds that the data callbacks of the last subscription update took, as the server's thread saw them.
JNIEXPORT jdouble JNICALL Java_com_velmora_opc_bench_BenchNatives_lastCallbackMicros(JNIEnv* env, jclass) {
    return bound(env) ? simulation.lastCallbackMicros() : 0.0;
}

// The branch "Bench.Many" with that many leaves (0 removes it).
JNIEXPORT void JNICALL Java_com_velmora_opc_bench_BenchNatives_benchBranch(JNIEnv* env, jclass, jint leaves) {
    if (bound(env)) simulation.setBenchBranch(leaves);
}

// At most that many elements per IOPCBrowse::Browse answer (0: all at once).
JNIEXPORT void JNICALL Java_com_velmora_opc_bench_BenchNatives_browsePortion(JNIEnv* env, jclass, jint elements) {
    if (bound(env)) simulation.setBrowsePortion(elements);
}

// Live blocks of the COM runtime's allocation ledger (0 task memory, 1 BSTR, 2 SAFEARRAY); -1 where the
// runtime keeps no ledger (the system's own COM).
JNIEXPORT jlong JNICALL Java_com_velmora_opc_bench_BenchNatives_ledgerLive(JNIEnv*, jclass, jint kind) {
#ifdef _WIN32
    (void)kind;
    return -1;
#else
    using Count = long long (*)(int);
    static const auto count = reinterpret_cast<Count>(dlsym(RTLD_DEFAULT, "LedgerLiveCount"));
    return count != nullptr ? static_cast<jlong>(count(kind)) : -1;
#endif
}

}  // extern "C"
