// Natives of com.velmora.opc.testsupport.Throwing: COM objects whose methods throw a C++ exception,
// so the Java tests can see what the library's call frames make of a native exception.
#include <jni.h>

#include <stdexcept>

#include "ComObject.h"
#include "opc/platform.h"

namespace {

[[noreturn]] void fail() { throw std::runtime_error("test object failure"); }

// IOPCServer and IOPCSyncIO whose every method throws; QueryInterface for IID_IUnknown throws too.
class ThrowingServer : public opc::support::ComObject<ThrowingServer, IOPCServer, IOPCSyncIO> {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (IsEqualIID(iid, IID_IUnknown)) fail();
        return ComObject::QueryInterface(iid, out);
    }
    void* interfaceFor(REFIID iid) {
        if (IsEqualIID(iid, IID_IOPCServer)) return static_cast<IOPCServer*>(this);
        if (IsEqualIID(iid, IID_IOPCSyncIO)) return static_cast<IOPCSyncIO*>(this);
        return nullptr;
    }

    HRESULT STDMETHODCALLTYPE AddGroup(LPCWSTR, BOOL, DWORD, OPCHANDLE, LONG*, FLOAT*, DWORD, OPCHANDLE*, DWORD*,
                                       REFIID, LPUNKNOWN*) override { fail(); }
    HRESULT STDMETHODCALLTYPE GetErrorString(HRESULT, LCID, LPWSTR*) override { fail(); }
    HRESULT STDMETHODCALLTYPE GetGroupByName(LPCWSTR, REFIID, LPUNKNOWN*) override { fail(); }
    HRESULT STDMETHODCALLTYPE GetStatus(OPCSERVERSTATUS**) override { fail(); }
    HRESULT STDMETHODCALLTYPE RemoveGroup(OPCHANDLE, BOOL) override { fail(); }
    HRESULT STDMETHODCALLTYPE CreateGroupEnumerator(OPCENUMSCOPE, REFIID, LPUNKNOWN*) override { fail(); }
    HRESULT STDMETHODCALLTYPE Read(OPCDATASOURCE, DWORD, OPCHANDLE*, OPCITEMSTATE**, HRESULT**) override { fail(); }
    HRESULT STDMETHODCALLTYPE Write(DWORD, OPCHANDLE*, VARIANT*, HRESULT**) override { fail(); }
};

// A class factory whose CreateInstance throws, registered for a class id of the test's choosing.
class ThrowingFactory : public opc::support::ComObject<ThrowingFactory, IClassFactory> {
public:
    void* interfaceFor(REFIID iid) {
        return IsEqualIID(iid, IID_IClassFactory) ? static_cast<IClassFactory*>(this) : nullptr;
    }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID, void**) override { fail(); }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

}  // namespace

extern "C" {

// An IOPCServer handle (one reference) of a throwing object.
JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_Throwing_createServer(JNIEnv*, jclass) {
    IOPCServer* server = new ThrowingServer();
    return static_cast<jlong>(reinterpret_cast<intptr_t>(server));
}

// An IOPCSyncIO handle (one more reference) of the same object.
JNIEXPORT jlong JNICALL Java_com_velmora_opc_testsupport_Throwing_syncIo(JNIEnv*, jclass, jlong server) {
    auto* object = reinterpret_cast<IOPCServer*>(static_cast<intptr_t>(server));
    IOPCSyncIO* syncIo = nullptr;
    if (FAILED(object->QueryInterface(IID_IOPCSyncIO, reinterpret_cast<void**>(&syncIo)))) return 0;
    return static_cast<jlong>(reinterpret_cast<intptr_t>(syncIo));
}

// Registers a throwing class factory for the class id text; answers the registration cookie.
JNIEXPORT jint JNICALL Java_com_velmora_opc_testsupport_Throwing_registerFactory(JNIEnv* env, jclass, jstring clsid) {
    const jsize length = env->GetStringLength(clsid);
    OLECHAR text[64] = {};
    if (length >= 64) return 0;
    env->GetStringRegion(clsid, 0, length, reinterpret_cast<jchar*>(text));
    CLSID id;
    if (FAILED(CLSIDFromString(text, &id))) return 0;
    IClassFactory* factory = new ThrowingFactory();
    DWORD cookie = 0;
    const HRESULT hr = CoRegisterClassObject(id, factory, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie);
    factory->Release();
    return SUCCEEDED(hr) ? static_cast<jint>(cookie) : 0;
}

JNIEXPORT void JNICALL Java_com_velmora_opc_testsupport_Throwing_revokeFactory(JNIEnv*, jclass, jint cookie) {
    CoRevokeClassObject(static_cast<DWORD>(cookie));
}

}  // extern "C"
