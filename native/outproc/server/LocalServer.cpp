// The simulation server out of process: an executable that loads opc_sim.dll and serves its class
// to other processes (LocalServer32), so that every call and callback crosses a process boundary
// through the marshalling of opcproxy.dll and opccomn_ps.dll.
//
//   opc_sim_server.exe /RegServer                  register LocalServer32 next to the module's own keys
//   opc_sim_server.exe /RegServer --local-only     the same without InprocServer32: every activation of
//                                                  the class, in whatever context, crosses processes
//   opc_sim_server.exe /RegServer [--local-only] OPTIONS...
//                                                  the same, started with these options; with --shared
//                                                  the control class (SimulationControl.h) as well
//   opc_sim_server.exe /UnregServer                remove LocalServer32 (of both classes)
//   opc_sim_server.exe [-Embedding] [options]      serve (COM starts it with -Embedding)
//     --browse-portion N   answer IOPCBrowse::Browse with at most N elements and a continuation point
//     --async-delay MS     delay asynchronous requests, so that they can be cancelled or cut off
//     --change-every-tick PREFIX   the items whose id starts with PREFIX change at every update
//     --ready NAME         set the named event once the class object is registered
//     --lifetime S         give up after S seconds (default 300)
//     --shared             serve every client, and the control class, from this one process
//
// Each process serves one client: the next activation starts another process (with --shared, every
// activation reaches the same process, whose state the control class steers, as in process). The
// process ends by itself once every server object it served is gone and no control object is held
// (exit code 0); past its lifetime with exit code 3.
#include <windows.h>
#include <objbase.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

#include "ComObject.h"
#include "KeptRegistrations.h"
#include "opc/opccomn.h"
#include "opc/opcda.h"
#include "opc/opcsec.h"
#include "sim/SimControl.h"
#include "simcontrol.h"
#include "SimulationControl.h"

namespace {

using GetClassObject = HRESULT(STDAPICALLTYPE*)(REFCLSID, REFIID, void**);
using RegisterServer = HRESULT(STDAPICALLTYPE*)();

constexpr wchar_t kClassKey[] = L"CLSID\\{6A1F3C52-9B47-4E8D-A2C1-5D3E7F901B24}\\LocalServer32";
constexpr wchar_t kInprocKey[] = L"CLSID\\{6A1F3C52-9B47-4E8D-A2C1-5D3E7F901B24}\\InprocServer32";

HRESULT registerLocalServer(bool localOnly, const std::wstring& options) {
    // The module writes the class, its ProgIDs and categories; the executable adds how to start it.
    const HMODULE module = GetModuleHandleW(L"opc_sim.dll");
    auto registerModule = reinterpret_cast<RegisterServer>(reinterpret_cast<void*>(GetProcAddress(module, "DllRegisterServer")));
    if (registerModule == nullptr) return HRESULT_FROM_WIN32(GetLastError());
    if (HRESULT hr = registerModule(); FAILED(hr)) return hr;
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return HRESULT_FROM_WIN32(GetLastError());
    const std::wstring command = L"\"" + std::wstring(path, length) + L"\"" + options;
    LONG rc = RegSetValueW(HKEY_CLASSES_ROOT, kClassKey, REG_SZ, command.c_str(),
                           DWORD(command.size() * sizeof(wchar_t)));
    if (rc == ERROR_SUCCESS && localOnly) rc = RegDeleteTreeW(HKEY_CLASSES_ROOT, kInprocKey);
    if (rc == ERROR_SUCCESS && options.find(L" --shared") != std::wstring::npos) return registerSimulationControl(command);
    return HRESULT_FROM_WIN32(rc);
}

HRESULT unregisterLocalServer() {
    const LONG rc = RegDeleteTreeW(HKEY_CLASSES_ROOT, kClassKey);
    if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return HRESULT_FROM_WIN32(rc);
    return unregisterSimulationControl();
}

long servedObjects() {
    return SimLiveObjects("server") + SimLiveObjects("group") + SimLiveObjects("enum") +
           SimLiveObjects("connectionpoint") + SimConnections(nullptr);
}

// The module's class object, withdrawn from COM's class table on the first server it makes: this
// process serves one client. (Under Wine, the class object of a killed process stays in the table,
// and activations that find it fail with RPC_S_SERVER_UNAVAILABLE; with REGCLS_SINGLEUSE, an
// activation after a kill was seen to start a new process instead of reaching the one registered.)
class OneClientFactory final : public opc::support::ComObject<OneClientFactory, IClassFactory> {
public:
    OneClientFactory(IClassFactory* inner, bool shared) : inner_(inner), shared_(shared) { inner_->AddRef(); }
    void* interfaceFor(REFIID iid) { return IsEqualIID(iid, IID_IClassFactory) ? static_cast<IClassFactory*>(this) : nullptr; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        const DWORD cookie = shared_ ? 0 : cookie_.exchange(0);
        if (cookie != 0) CoRevokeClassObject(cookie);
        return inner_->CreateInstance(outer, iid, out);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL lock) override { return inner_->LockServer(lock); }
    void registered(DWORD cookie) { cookie_ = cookie; }
    DWORD cookie() const { return cookie_; }

private:
    ~OneClientFactory() override { inner_->Release(); }
    IClassFactory* inner_;
    const bool shared_;
    std::atomic<DWORD> cookie_{0};
};

int serveClasses(HANDLE ready, DWORD lifetimeMs, bool shared) {
    auto getClassObject = reinterpret_cast<GetClassObject>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"opc_sim.dll"), "DllGetClassObject")));
    IClassFactory* inner = nullptr;
    if (getClassObject == nullptr ||
        FAILED(getClassObject(CLSID_VelmoraSimulation, IID_IClassFactory, reinterpret_cast<void**>(&inner))))
        return 2;
    auto* factory = new OneClientFactory(inner, shared);
    inner->Release();
    DWORD cookie = 0;
    if (FAILED(CoRegisterClassObject(CLSID_VelmoraSimulation, static_cast<IClassFactory*>(factory),
                                     CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie))) {
        factory->Release();
        return 2;
    }
    factory->registered(cookie);
    IClassFactory* control = shared ? newSimulationControlFactory() : nullptr;
    DWORD controlCookie = 0;
    if (control && FAILED(CoRegisterClassObject(CLSID_SimulationControl, control, CLSCTX_LOCAL_SERVER,
                                                REGCLS_MULTIPLEUSE, &controlCookie))) {
        control->Release();
        control = nullptr;
    }
    if (ready) SetEvent(ready);

    // Served: the class object was asked for a server (a client may come and go between two looks);
    // done: nothing of it left at two looks in a row.
    int code = 3;
    int idleLooks = 0;
    for (DWORD waited = 0; waited < lifetimeMs; waited += 20) {
        Sleep(20);
        const bool idle = (SimCallCount("IClassFactory::CreateInstance") > 0 || simulationControlsMade() > 0) &&
                          servedObjects() == 0 && liveSimulationControls() == 0;
        idleLooks = idle ? idleLooks + 1 : 0;
        if (idleLooks == 2) {
            code = 0;
            break;
        }
    }
    if (const DWORD left = factory->cookie()) CoRevokeClassObject(left);
    factory->Release();
    if (control) {
        CoRevokeClassObject(controlCookie);
        control->Release();
    }
    return code;
}

int serve(HANDLE ready, DWORD lifetimeMs, bool shared) {
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return 2;
    // The callers are this machine's own processes: no authentication, no impersonation.
    CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_NONE, RPC_C_IMP_LEVEL_IDENTIFY, nullptr,
                         EOAC_NONE, nullptr);
    int code;
    {
        // Every interface of the objects that come and go here: the class objects (each activation
        // exports one anew), servers, groups, their connection points and enumerators (under Wine;
        // see KeptRegistrations.h).
        const opc::support::KeptRegistrations kept{
            &IID_IUnknown, &IID_IClassFactory, &IID_IOPCServer, &IID_IOPCCommon, &IID_IConnectionPointContainer,
            &IID_IConnectionPoint, &IID_IOPCItemProperties, &IID_IOPCBrowse, &IID_IOPCBrowseServerAddressSpace,
            &IID_IOPCSecurityNT, &IID_IOPCSecurityPrivate, &IID_IOPCItemMgt, &IID_IOPCGroupStateMgt,
            &IID_IOPCSyncIO, &IID_IOPCAsyncIO2, &IID_IEnumString, &IID_ISimulationControl};
        code = serveClasses(ready, lifetimeMs, shared);
    }
    CoUninitialize();
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    HANDLE ready = nullptr;
    DWORD lifetimeMs = 300 * 1000;
    bool shared = false;
    for (int i = 1; i < argc; ++i) {
        const char* arg = argv[i];
        const char* value = i + 1 < argc ? argv[i + 1] : nullptr;
        if (_stricmp(arg, "/RegServer") == 0 || _stricmp(arg, "-RegServer") == 0) {
            const bool localOnly = value != nullptr && std::strcmp(value, "--local-only") == 0;
            std::wstring options;
            for (int o = localOnly ? i + 2 : i + 1; o < argc; ++o) {
                options += L' ';
                for (const char* c = argv[o]; *c; ++c) options += wchar_t(*c);  // ASCII options
            }
            return FAILED(registerLocalServer(localOnly, options));
        }
        if (_stricmp(arg, "/UnregServer") == 0 || _stricmp(arg, "-UnregServer") == 0) return FAILED(unregisterLocalServer());
        if (_stricmp(arg, "-Embedding") == 0 || _stricmp(arg, "/Embedding") == 0) continue;
        if (std::strcmp(arg, "--shared") == 0) {
            shared = true;
            continue;
        }
        if (value == nullptr) return 1;
        if (std::strcmp(arg, "--browse-portion") == 0) SimSetBrowsePortion(std::atoi(value));
        else if (std::strcmp(arg, "--async-delay") == 0) SimSetAsyncDelay(std::atoi(value));
        else if (std::strcmp(arg, "--change-every-tick") == 0) SimSetChangeEveryTick(value, 1);
        else if (std::strcmp(arg, "--ready") == 0) ready = OpenEventA(EVENT_MODIFY_STATE, FALSE, value);
        else if (std::strcmp(arg, "--lifetime") == 0) lifetimeMs = DWORD(std::atoi(value)) * 1000;
        else return 1;
        ++i;
    }
    const int code = serve(ready, lifetimeMs, shared);
    if (ready) CloseHandle(ready);
    return code;
}
