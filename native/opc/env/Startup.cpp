// Natives of com.velmora.opc.OpcEnv: COM start-up for the process and for each calling thread.
// They have no call frame: they catch nothing and report only through the error log.
#include "com_velmora_opc_OpcEnv.h"

#include "OpcEnv.h"

using namespace opc;

namespace {

// "<fixed part><hr in lowercase hex>" as wide text.
WideText composed(const OLECHAR* fixed, HRESULT hr) {
    WideText text(fixed);
    for (const char c : OpcEnv::hexText(hr)) text.push_back(static_cast<OLECHAR>(c));
    return text;
}

// Loads a proxy/stub library and runs its self-registration; the library stays loaded for good.
// On failure `previous` (the library loaded before, if any) is freed too.
HMODULE registerProxyStub(JNIEnv* env, const char* file, const OLECHAR* failText, HMODULE previous) {
    HMODULE module = LoadLibraryA(file);
    if (module == nullptr) {
        OpcEnv::logError(env, failText);
        if (previous != nullptr) FreeLibrary(previous);
        return nullptr;
    }
    using RegisterServer = HRESULT(STDAPICALLTYPE*)();
    auto registerServer = reinterpret_cast<RegisterServer>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    if (registerServer == nullptr) {
        OpcEnv::logError(env, failText);
        FreeLibrary(module);
        if (previous != nullptr) FreeLibrary(previous);
        return nullptr;
    }
    registerServer();  // its result is not looked at: registration may need rights the process lacks
    return module;
}

void initEnv(JNIEnv* env) {
    const HRESULT hr = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                            RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    if (hr != S_OK) OpcEnv::logError(env, composed(OLESTR("CoInitializeSecurity: "), hr).c_str());

    HMODULE proxy = registerProxyStub(env, "opcproxy.dll", OLESTR("Failed to load opcproxy.dll"), nullptr);
    if (proxy == nullptr) return;
    registerProxyStub(env, "opccomn_ps.dll", OLESTR("Failed to load opccomn_ps.dll"), proxy);
}

void initThread(JNIEnv* env) {
    const HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    if (FAILED(hr)) OpcEnv::logError(env, composed(OLESTR("CoInitializeEx: "), hr).c_str());
}

}  // namespace

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_OpcEnv_initEnv(JNIEnv* env, jclass) { initEnv(env); }

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_OpcEnv_initThread(JNIEnv* env, jclass) { initThread(env); }
