// Natives of com.velmora.opc.jni.client.da.OpcAsyncIo2: subscriptions, refresh, asynchronous reads, cancels.
#include "com_velmora_opc_jni_client_da_OpcAsyncIo2.h"

#include <new>

#include "ArrayWrite.h"
#include "CallbackImpl.h"
#include "ComPtr.h"
#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "Owned.h"
#include "Receivers.h"

using namespace opc;
using support::ComPtr;

namespace {

constexpr env::Frame kAdvise{env::kUnexpectedNative, "OpcAsyncIo2::advise", OLESTR("Enter OpcAsyncIo2.advaise"),
                             OLESTR("Exit OpcAsyncIo2.advaise")};
constexpr env::Frame kUnadvise{env::kUnexpectedNative, "OpcAsyncIo2::unadvise", OLESTR("Enter OpcAsyncIo2.unadvise"),
                               OLESTR("Exit OpcAsyncIo2.unadvise")};
constexpr env::Frame kRefresh{env::kUnexpectedNative, "OpcAsyncIo2::refresh", OLESTR("Enter OpcAsyncIo2.refresh"),
                              OLESTR("Exit OpcAsyncIo2.refresh")};
constexpr env::Frame kReadAsync{env::kUnexpectedNative, "OpcAsyncIo2::readAsync", OLESTR("Enter OpcAsyncIo2.readAsync"),
                                OLESTR("Exit OpcAsyncIo2.readAsync")};
constexpr env::Frame kCancel2{env::kUnexpectedNative, "OpcAsyncIo2::cancel2", OLESTR("Enter OpcAsyncIo2.cancel2"),
                              OLESTR("Exit OpcAsyncIo2.cancel2")};
constexpr env::Frame kWriteAsync{env::kUnexpectedNative, "OpcAsyncIo2::writeAsync", OLESTR("Enter OpcAsyncIo2.WriteAsync"),
                                 OLESTR("Exit OpcAsyncIo2.writeAsync")};

// The group's IOPCDataCallback connection point, reached from its IOPCAsyncIO2 handle.
bool findDataCallbackPoint(JNIEnv* env, jlong asyncIo, const OLECHAR* containerText, ComPtr<IConnectionPoint>& point) {
    ComPtr<IUnknown> unknown;
    if (!OpcEnv::check(env, OpcEnv::fromHandle<IOPCAsyncIO2>(asyncIo)->QueryInterface(IID_IUnknown, unknown.putVoid()),
                       OLESTR("IOPCAsyncIO2::QueryInterface#IUknown")))
        return false;
    ComPtr<IConnectionPointContainer> container;
    if (!OpcEnv::check(env, unknown->QueryInterface(IID_IConnectionPointContainer, container.putVoid()), containerText))
        return false;
    return OpcEnv::check(env, container->FindConnectionPoint(IID_IOPCDataCallback, point.put()),
                         OLESTR("IConnectionPointContainer::FindConnectionPoint"));
}

jlong advise(JNIEnv* env, jlong asyncIo, jobject callback) {
    if (asyncIo == 0 || callback == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcAsyncIo2::advise- argument is NULL"));
        return 0;
    }
    try {
        ComPtr<IConnectionPoint> point;
        if (!findDataCallbackPoint(env, asyncIo, OLESTR("IUknown::QueryInterface#IConnectionPointContainer"), point))
            return 0;
        io::CallbackImpl* impl = new (std::nothrow) io::CallbackImpl(env, callback);
        if (impl == nullptr) {
            OpcEnv::logTrace(env, OLESTR("OpcAsyncIo2::Advise method failed, callbackimpl object is null"));
            return 0;
        }
        ComPtr<IOPCDataCallback> sink = ComPtr<IOPCDataCallback>::borrow(impl);
        DWORD cookie = 0;
        if (!OpcEnv::check(env, point->Advise(sink.get(), &cookie), OLESTR("OpcAsyncIo2:: IConnectionPoint::Advise"))) {
            OpcEnv::logError(env, OLESTR("OpcAsyncIo2:: IConnectionPoint::Advise failed"));
            return 0;  // the sink's last reference goes here: asyncCallbackDeleted before advise returns
        }
        OpcEnv::fromHandle<IOPCAsyncIO2>(asyncIo)->SetEnable(TRUE);
        return static_cast<jlong>(cookie);
    } catch (...) {
        env::reportNativeException(env, kAdvise);
        return 0;
    }
}

void unadvise(JNIEnv* env, jlong asyncIo, jlong cookie) {
    if (asyncIo == 0) {
        OpcEnv::logTrace(env, OLESTR("IConnectionPoint::Unadvise argument is null"));
        return;
    }
    try {
        ComPtr<IConnectionPoint> point;
        if (!findDataCallbackPoint(env, asyncIo, OLESTR("IOPCAsyncIO2::QueryInterface#IConnectionPointContainer"), point))
            return;
        if (!OpcEnv::check(env, point->Unadvise(static_cast<DWORD>(cookie)), OLESTR("IConnectionPoint::Unadvise")))
            OpcEnv::logError(env, OLESTR("IConnectionPoint::Unadvise failed"));
    } catch (...) {
        env::reportNativeException(env, kUnadvise);
    }
}

void refresh(JNIEnv* env, jlong asyncIo, jboolean fromCache) {
    if (asyncIo == 0) return;
    DWORD cancelId = 0;
    const HRESULT hr =
        OpcEnv::fromHandle<IOPCAsyncIO2>(asyncIo)->Refresh2(fromCache ? OPC_DS_CACHE : OPC_DS_DEVICE, 0, &cancelId);
    if (!OpcEnv::check(env, hr, OLESTR("IOPCAsyncIO2::Refresh2")))
        OpcEnv::logTrace(env, OLESTR("IOPCAsyncIO2::Refresh2- check returned false"));
}

void readAsync(JNIEnv* env, jlong asyncIo, jint count, jint transactionId, jintArray serverHandles, jobject listener) {
    try {
        if (serverHandles == nullptr || count < 1) {
            OpcEnv::logError(env, OLESTR("OpcAsyncIO2::readAsync -> serverHandles is null or count is zero"));
            return;
        }
        const env::IntArrayCopy all(env, serverHandles);
        if (env->ExceptionCheck() || count > all.size()) return;  // the caller guarantees count fits the array
        if (asyncIo == 0) {
            OpcEnv::logError(env, OLESTR("OpcAsyncIO2::readAsync->asio is null"));
            return;
        }
        DWORD cancelId = 0;
        support::TaskMem<HRESULT> errors;
        const HRESULT hr = OpcEnv::fromHandle<IOPCAsyncIO2>(asyncIo)->Read(
            static_cast<DWORD>(count), reinterpret_cast<OPCHANDLE*>(const_cast<jint*>(all.data())),
            static_cast<DWORD>(transactionId), &cancelId, errors.put());

        env::LocalRef<jintArray> itemErrors;
        if (hr == S_FALSE && errors) {
            itemErrors = env::LocalRef<jintArray>(env, env->NewIntArray(count));
            if (!itemErrors)
                OpcEnv::logError(env, OLESTR("Cannot allocate memory - OpcAsyncIO2::readAsync"));
            else
                env->SetIntArrayRegion(itemErrors.get(), 0, count, reinterpret_cast<const jint*>(errors.get()));
        }
        const jmethodID onReturnRead = env::receiverMethod(
            env, listener, "OnReturnRead", "(IIII[I[I)V", OpcEnv::logError,
            OLESTR("OpcAsyncIO2::readAsync - jclass object clazz is null"),
            OLESTR("OpcAsyncIO2::readAsync - jni method ids are null"));
        if (onReturnRead == nullptr) return;
        env->CallVoidMethod(listener, onReturnRead, static_cast<jint>(hr), count, transactionId,
                            static_cast<jint>(cancelId), serverHandles, itemErrors.get());
    } catch (...) {
        OpcEnv::logError(env, OLESTR("Unexpected exception in OpcAsyncIO2::readAsync."));
    }
}

void cancelEach(IOPCAsyncIO2* asyncIo, JNIEnv* env, jintArray ids) {
    if (ids == nullptr) return;
    const env::IntArrayCopy copy(env, ids);
    for (jsize i = 0; i < copy.size(); ++i) asyncIo->Cancel2(static_cast<DWORD>(copy[i]));
}

jint cancel2(JNIEnv* env, jlong asyncIo, jintArray first, jintArray second) {
    if (asyncIo == 0) {
        OpcEnv::logError(env, OLESTR("OpcAsyncIO2::cancel2->asio is null"));
        return 1;
    }
    try {
        cancelEach(OpcEnv::fromHandle<IOPCAsyncIO2>(asyncIo), env, first);
        cancelEach(OpcEnv::fromHandle<IOPCAsyncIO2>(asyncIo), env, second);
    } catch (...) {
        OpcEnv::logError(env, OLESTR("Unexpected exception in OpcAsyncIO2::cancel2."));
    }
    return 0;
}

jint writeAsync(JNIEnv* env, jlong asyncIo, jint count, jint transactionId, jintArray serverHandles,
                jintArray dataTypes, jobjectArray values, jobject writeListener) {
    return OpcEnv::write(env, OpcEnv::fromHandle<IOPCAsyncIO2>(asyncIo), false, count, transactionId, serverHandles,
                         dataTypes, values, writeListener);
}

}  // namespace

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_client_da_OpcAsyncIo2_advise(JNIEnv* env, jclass,
                                                                                       jlong asyncIo, jobject callback) {
    return env::framed<jlong>(env, kAdvise, 0, [&] { return advise(env, asyncIo, callback); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcAsyncIo2_unadvise(JNIEnv* env, jclass,
                                                                                        jlong asyncIo, jlong cookie) {
    env::framedVoid(env, kUnadvise, [&] { unadvise(env, asyncIo, cookie); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcAsyncIo2_refresh(JNIEnv* env, jclass,
                                                                                       jlong asyncIo,
                                                                                       jboolean fromCache) {
    env::framedVoid(env, kRefresh, [&] { refresh(env, asyncIo, fromCache); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcAsyncIo2_readAsync(
    JNIEnv* env, jclass, jlong asyncIo, jint count, jint transactionId, jintArray serverHandles, jobject listener) {
    env::framedVoid(env, kReadAsync, [&] { readAsync(env, asyncIo, count, transactionId, serverHandles, listener); });
}

extern "C" JNIEXPORT jint JNICALL Java_com_velmora_opc_jni_client_da_OpcAsyncIo2_cancel2(JNIEnv* env, jclass,
                                                                                       jlong asyncIo, jintArray first,
                                                                                       jintArray second) {
    return env::framed<jint>(env, kCancel2, -1, [&] { return cancel2(env, asyncIo, first, second); });
}

extern "C" JNIEXPORT jint JNICALL Java_com_velmora_opc_jni_client_da_OpcAsyncIo2_writeAsync(
    JNIEnv* env, jclass, jlong asyncIo, jint count, jint transactionId, jintArray serverHandles, jintArray dataTypes,
    jobjectArray values, jobject writeListener) {
    return env::framed<jint>(env, kWriteAsync, -1, [&] {
        return writeAsync(env, asyncIo, count, transactionId, serverHandles, dataTypes, values, writeListener);
    });
}
