// Natives of com.velmora.opc.jni.client.da.OpcDaServer: creating the server object, its status, groups.
#include "com_velmora_opc_jni_client_da_OpcDaServer.h"

#include "ComPtr.h"
#include "Frame.h"
#include "JniRefs.h"
#include "OpcEnv.h"
#include "RemoteActivation.h"

using namespace opc;
using support::ComPtr;

namespace {

constexpr env::Frame kCreateLocalServer{env::kOpcException, "Unexpected Native Exception",
                                        OLESTR("Enter OpcDaServer.createLocalServer"),
                                        OLESTR("Exit OpcDaServer.createLocalServer")};
constexpr env::Frame kCreateRemoteServer{env::kUnexpectedNative, "OpcDaServer::createRemoteServer",
                                         OLESTR("Enter OpcDaServer.createRemoteServer"),
                                         OLESTR("Exit OpcDaServer.createRemoteServer")};
constexpr env::Frame kGetStatus{env::kUnexpectedNative, "OpcDaServer::getStatus", OLESTR("Enter OpcDaServer.getStatus"),
                                OLESTR("Exit OpcDaServer.getStatus")};
constexpr env::Frame kAddGroup{env::kUnexpectedNative, "OpcDaServer::addGroup", OLESTR("Enter OpcDaServer.addGroup"),
                               OLESTR("Exit OpcDaServer.addGroup")};
constexpr env::Frame kRemoveGroup{env::kUnexpectedNative, "OpcDaServer::removeGroup",
                                  OLESTR("Enter OpcDaServer.removeGroup"), OLESTR("Exit OpcDaServer.removeGroup")};

// Gives a server reached through a proxy the authentication the driver needs. An in-process
// server has no proxy and answers E_NOINTERFACE; the caller ignores the result either way.
HRESULT setProxyBlanket(IOPCServer* server) {
    if (server == nullptr) return S_OK;
    ComPtr<IClientSecurity> security;
    HRESULT hr = server->QueryInterface(IID_IClientSecurity, security.putVoid());
    if (FAILED(hr) || !security) return hr;

    DWORD authn = 0, authz = 0, level = 0, impersonation = 0, capabilities = 0;
    support::TaskMem<OLECHAR> principal;
    RPC_AUTH_IDENTITY_HANDLE identity = nullptr;
    hr = security->QueryBlanket(server, &authn, &authz, principal.put(), &level, &impersonation, &identity,
                                &capabilities);
    if (FAILED(hr)) return hr;
    hr = security->SetBlanket(server, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, principal.get(), RPC_C_AUTHN_LEVEL_CONNECT,
                              RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    return FAILED(hr) ? hr : S_OK;
}

// The class factory's instance, checked, with the blanket set; 0 on failure.
jlong createFromFactory(JNIEnv* env, ComPtr<IClassFactory> factory) {
    ComPtr<IOPCServer> server;
    const HRESULT hr = factory->CreateInstance(nullptr, IID_IOPCServer, server.putVoid());
    factory.reset();
    if (!OpcEnv::check(env, hr, OLESTR("IClassFactory::CreateInstance"))) return 0;
    setProxyBlanket(server.get());
    return OpcEnv::toHandle(server.detach());
}

jlong createLocalServer(JNIEnv* env, jstring clsidText) {
    if (clsidText == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::createLocalServer- server name is null"));
        return 0;
    }
    CLSID clsid;
    if (!OpcEnv::check(env, OpcEnv::toCLSID(env, clsidText, &clsid), OLESTR("OpcEnv::toCLSID"))) return 0;
    ComPtr<IClassFactory> factory;
    const HRESULT hr = CoGetClassObject(clsid, CLSCTX_INPROC_SERVER | CLSCTX_LOCAL_SERVER | CLSCTX_REMOTE_SERVER,
                                        nullptr, IID_IClassFactory, factory.putVoid());
    if (!OpcEnv::check(env, hr, OLESTR("CoGetClassObject"))) return 0;
    return createFromFactory(env, std::move(factory));
}

jlong createRemoteServer(JNIEnv* env, jstring clsidText, jstring host) {
    if (clsidText == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::createRemoteServer- server name is null"));
        return 0;
    }
    CLSID clsid;
    if (!OpcEnv::check(env, OpcEnv::toCLSID(env, clsidText, &clsid), OLESTR("OpcEnv::toCLSID"))) return 0;
    if (host == nullptr) return 0;

    ComPtr<IClassFactory> factory;
    const HRESULT hr = server::remoteClassFactory(env, clsid, host, factory);
    if (!OpcEnv::check(env, hr, OLESTR("CoGetClassObject"))) return 0;
    return createFromFactory(env, std::move(factory));
}

// The server's status record and the vendor text inside it, both freed with CoTaskMemFree.
struct ServerStatus {
    OPCSERVERSTATUS* record = nullptr;
    ~ServerStatus() {
        if (record == nullptr) return;
        CoTaskMemFree(record->szVendorInfo);
        CoTaskMemFree(record);
    }
};

void getStatus(JNIEnv* env, jlong server, jobject status) {
    if (server == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::getStatus- argument is null"));
        return;
    }
    ServerStatus result;
    if (!OpcEnv::check(env, OpcEnv::fromHandle<IOPCServer>(server)->GetStatus(&result.record),
                       OLESTR("IOPCServer::GetStatus")))
        return;
    if (status == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::getStatus- status object is null"));
        return;
    }
    env::LocalRef<jclass> cls(env, env->GetObjectClass(status));
    if (!cls) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::getStatus -status class is null"));
        return;
    }
    const jmethodID init = env->GetMethodID(cls.get(), "init", "(JJJIIIIIILjava/lang/String;)V");
    const OPCSERVERSTATUS* record = result.record;
    env::LocalRef<jstring> vendor;
    if (init != nullptr && record != nullptr && record->szVendorInfo != nullptr)
        vendor = env::LocalRef<jstring>(env, OpcEnv::newJavaString(env, record->szVendorInfo));
    if (init == nullptr || !vendor) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::getStatus- status class construcor or vendorinfo is null"));
        return;
    }
    env->CallVoidMethod(status, init, OpcEnv::toJavaTime(record->ftStartTime), OpcEnv::toJavaTime(record->ftCurrentTime),
                        OpcEnv::toJavaTime(record->ftLastUpdateTime), static_cast<jint>(record->dwServerState),
                        static_cast<jint>(record->dwGroupCount), static_cast<jint>(record->dwBandWidth),
                        static_cast<jint>(record->wMajorVersion), static_cast<jint>(record->wMinorVersion),
                        static_cast<jint>(record->wBuildNumber), vendor.get());
}

jlongArray addGroup(JNIEnv* env, jlong server, jstring name, jboolean active, jint rate, jint clientHandle, jint bias,
                    jfloat deadband, jint locale) {
    if (server == 0) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::addGroup- argument is null"));
        return nullptr;
    }
    if (name == nullptr) {
        OpcEnv::logTrace(env, OLESTR("OpcDaServer::addGroup- group name/server is null"));
        return nullptr;
    }
    LONG timeBias = bias;
    FLOAT percentDeadband = deadband;
    OPCHANDLE serverGroup = 0;
    DWORD revisedRate = 0;
    ComPtr<IUnknown> group;
    HRESULT hr;
    {
        const WideString groupName = OpcEnv::newWideString(env, name);
        // A bias of 0 is passed as no bias: the server then applies its own default.
        hr = OpcEnv::fromHandle<IOPCServer>(server)->AddGroup(
            groupName.get(), active ? TRUE : FALSE, static_cast<DWORD>(rate), static_cast<OPCHANDLE>(clientHandle),
            bias != 0 ? &timeBias : nullptr, &percentDeadband, static_cast<DWORD>(locale), &serverGroup, &revisedRate,
            IID_IUnknown, group.put());
    }
    if (!OpcEnv::check(env, hr, OLESTR("IOPCServer::AddGroup"))) return nullptr;

    jlongArray out = env->NewLongArray(3);
    if (out == nullptr) return nullptr;  // OutOfMemoryError pending; the group reference is released
    const jlong values[] = {OpcEnv::toHandle(group.get()), static_cast<jlong>(serverGroup),
                            static_cast<jlong>(revisedRate)};
    env->SetLongArrayRegion(out, 0, 3, values);
    (void)group.detach();  // the reference now lives in Java's handle
    return out;
}

void removeGroup(JNIEnv* env, jlong server, jint serverGroup, jboolean force) {
    try {
        if (server == 0) {
            OpcEnv::logError(env, OLESTR("OpcDaServer::RemoveGroup- incoming IOPCserver interface object is null"));
            return;
        }
        const HRESULT hr =
            OpcEnv::fromHandle<IOPCServer>(server)->RemoveGroup(static_cast<OPCHANDLE>(serverGroup), force ? TRUE : FALSE);
        if (!OpcEnv::check(env, hr, OLESTR("OpcDaServer::RemoveGroup")))
            OpcEnv::logTrace(env, OLESTR("OpcDaServer::RemoveGroup- check returned false"));
    } catch (...) {
        if (!env->ExceptionCheck())
            OpcEnv::throwJavaException(env, env::kUnexpectedNative, "OpcDaServer::RemoveGroup");
    }
}

}  // namespace

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_client_da_OpcDaServer_createLocalServer(JNIEnv* env, jclass,
                                                                                                  jstring clsid) {
    return env::framed<jlong>(env, kCreateLocalServer, 0, [&] { return createLocalServer(env, clsid); });
}

extern "C" JNIEXPORT jlong JNICALL Java_com_velmora_opc_jni_client_da_OpcDaServer_createRemoteServer(JNIEnv* env, jclass,
                                                                                                   jstring clsid,
                                                                                                   jstring host) {
    return env::framed<jlong>(env, kCreateRemoteServer, 0, [&] { return createRemoteServer(env, clsid, host); });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcDaServer_getStatus(JNIEnv* env, jclass,
                                                                                         jlong server, jobject status) {
    env::framedVoid(env, kGetStatus, [&] { getStatus(env, server, status); });
}

extern "C" JNIEXPORT jlongArray JNICALL Java_com_velmora_opc_jni_client_da_OpcDaServer_addGroup(
    JNIEnv* env, jclass, jlong server, jstring name, jboolean active, jint rate, jint clientHandle, jint bias,
    jfloat deadband, jint locale) {
    return env::framed<jlongArray>(env, kAddGroup, nullptr, [&] {
        return addGroup(env, server, name, active, rate, clientHandle, bias, deadband, locale);
    });
}

extern "C" JNIEXPORT void JNICALL Java_com_velmora_opc_jni_client_da_OpcDaServer_removeGroup(JNIEnv* env, jclass,
                                                                                           jlong server, jint group,
                                                                                           jboolean force) {
    env::framedVoid(env, kRemoveGroup, [&] { removeGroup(env, server, group, force); });
}
