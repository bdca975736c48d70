// Natives of com.velmora.opc.jni.client.common.OpcShutdown: the server's shutdown notice.
#include "com_velmora_opc_jni_client_common_OpcShutdown.h"

#include <new>

#include "ComPtr.h"
#include "Frame.h"
#include "OpcEnv.h"
#include "ShutdownImpl.h"

using namespace opc;
using support::ComPtr;

namespace {

constexpr env::Frame kAdvise{env::kUnexpectedNative, "OpcShutdown::advise", nullptr, nullptr};
constexpr env::Frame kUnadvise{env::kUnexpectedNative, "OpcShutdown::unadvise", nullptr, nullptr};

bool findShutdownPoint(JNIEnv* env, jlong server, const OLECHAR* containerText, ComPtr<IConnectionPoint>& point) {
    ComPtr<IConnectionPointContainer> container;
    if (!OpcEnv::check(env,
                       OpcEnv::fromHandle<IUnknown>(server)->QueryInterface(IID_IConnectionPointContainer,
                                                                            container.putVoid()),
                       containerText))
        return false;
    return OpcEnv::check(env, container->FindConnectionPoint(IID_IOPCShutdown, point.put()),
                         OLESTR("IConnectionPointContainer::FindConnectionPoint"));
}

jlong advise(JNIEnv* env, jlong server, jobject listener) {
    if (listener == nullptr) {
        OpcEnv::logError(env, OLESTR("OpcShutdown::Advise method failed, callback object is null"));
        return 0;
    }
    if (server == 0) {
        OpcEnv::logError(env, OLESTR("OpcShutdown::Advise method failed, server is null"));
        return 0;
    }
    try {
        ComPtr<IConnectionPoint> point;
        if (!findShutdownPoint(env, server, OLESTR("IUnknown::QueryInterface#IConnectionPointContainer"), point))
            return 0;
        auto* impl = new (std::nothrow) server::ShutdownImpl(env, listener);
        if (impl == nullptr) return 0;
        ComPtr<IOPCShutdown> sink = ComPtr<IOPCShutdown>::borrow(impl);
        DWORD cookie = 0;
        if (!OpcEnv::check(env, point->Advise(sink.get(), &cookie), OLESTR("IConnectionPoint::Advise"))) return 0;
        impl->setAdvised();
        return static_cast<jlong>(cookie);
    } catch (...) {
        env::reportNativeException(env, kAdvise);
        return 0;
    }
}

void unadvise(JNIEnv* env, jlong server, jlong cookie) {
    if (server == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcShutdown::unadvise- argument is NULL"));
        return;
    }
    try {
        ComPtr<IConnectionPoint> point;
        if (!findShutdownPoint(env, server, OLESTR("IOPCServer::QueryInterface#IConnectionPointContainer"), point))
            return;
        if (!OpcEnv::check(env, point->Unadvise(static_cast<DWORD>(cookie)), OLESTR("IConnectionPoint::Unadvise")))
            OpcEnv::logTrace(env, OLESTR("OpcShutdown::unadvise- check returned false"));
    } catch (...) {
        env::reportNativeException(env, kUnadvise);
    }
}

}  // namespace

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_client_common_OpcShutdown_advise(JNIEnv* env, jclass,
                                                                                           jlong server,
                                                                                           jobject listener) {
    return env::framed<jlong>(env, kAdvise, 0, [&] { return advise(env, server, listener); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_common_OpcShutdown_unadvise(JNIEnv* env, jclass,
                                                                                            jlong server, jlong cookie) {
    env::framedVoid(env, kUnadvise, [&] { unadvise(env, server, cookie); });
}
