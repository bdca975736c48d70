// The class factory of a class on a named host, as server creation and server discovery reach it.
#pragma once

#include "ComPtr.h"
#include "OpcEnv.h"

namespace opc::server {

// CoGetClassObject with CLSCTX_REMOTE_SERVER and a COSERVERINFO naming the host (a wide copy of the
// Java string, freed before the result is checked).
inline HRESULT remoteClassFactory(JNIEnv* env, REFCLSID clsid, jstring host, support::ComPtr<IClassFactory>& factory) {
    const WideString hostName = OpcEnv::newWideString(env, host);
    COSERVERINFO info{};
    info.dwReserved1 = 0;
    info.pwszName = const_cast<LPWSTR>(hostName.get());
    info.pAuthInfo = nullptr;
    info.dwReserved2 = 0;
    return CoGetClassObject(clsid, CLSCTX_REMOTE_SERVER, &info, IID_IClassFactory, factory.putVoid());
}

}  // namespace opc::server
