// Shared set-up of the out-of-process tests: the proxy/stub modules and the local server registered
// in the prefix, a server process that the test starts, kills and waits for, activation through
// COM's local-server path; the client sink is the one of the in-process tests (tests/ClientSink.h).
#pragma once

#include "opc/platform.h"
#include "sim/SimControl.h"
#include "ComObject.h"
#include "ComPtr.h"
#include "Owned.h"
#include "../../tests/ClientSink.h"

#include <tlhelp32.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using opc::support::ComPtr;
using opc::support::TaskMem;
using namespace std::chrono_literals;

namespace outproc {

// The folder of the test executable: the modules and the server executable are built beside it.
inline std::wstring binPath(const wchar_t* file) {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring dir(path, length);
    return dir.substr(0, dir.find_last_of(L"\\/") + 1) + file;
}

// Runs a command line to its end; its exit code, or -1 when it could not start or took too long.
inline int run(std::wstring command) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return -1;
    DWORD code = DWORD(-1);
    if (WaitForSingleObject(process.hProcess, 60000) == WAIT_OBJECT_0) GetExitCodeProcess(process.hProcess, &code);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return int(code);
}

// regsvr32 the two proxy/stub modules (or /u them), as a Windows user installs them.
inline int regsvr32(const wchar_t* module, bool unregister = false) {
    return run(std::wstring(L"regsvr32.exe /s ") + (unregister ? L"/u " : L"") + L"\"" + binPath(module) + L"\"");
}

inline void registerEverything() {
    ASSERT_EQ(0, regsvr32(L"opcproxy.dll"));
    ASSERT_EQ(0, regsvr32(L"opccomn_ps.dll"));
    ASSERT_EQ(0, run(L"\"" + binPath(L"opc_sim_server.exe") + L"\" /RegServer"));
}

// The RPC failures that a call through a proxy whose server process is gone may return.
inline bool isDisconnection(HRESULT hr) {
    switch (static_cast<unsigned long>(hr)) {
        case 0x80010108:  // RPC_E_DISCONNECTED
        case 0x80010007:  // RPC_E_SERVER_DIED
        case 0x80010012:  // RPC_E_SERVER_DIED_DNE
        case 0x800706BA:  // RPC_S_SERVER_UNAVAILABLE
        case 0x800706BE:  // RPC_S_CALL_FAILED
        case 0x800706BF:  // RPC_S_CALL_FAILED_DNE
        case 0x800401FD:  // CO_E_OBJNOTCONNECTED
            return true;
        default:
            return false;
    }
}

// How many opc_sim_server.exe processes are running.
inline int serverProcesses() {
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL more = Process32FirstW(snapshot, &entry); more; more = Process32NextW(snapshot, &entry)) {
        if (_wcsicmp(entry.szExeFile, L"opc_sim_server.exe") == 0) ++count;
    }
    CloseHandle(snapshot);
    return count;
}

inline bool underWine() { return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr; }

// One opc_sim_server.exe started by the test, with its class object registered when start returns.
class ServerProcess {
public:
    ServerProcess() = default;
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;
    ~ServerProcess() {
        if (process_.hProcess) {
            if (WaitForSingleObject(process_.hProcess, 0) == WAIT_TIMEOUT) TerminateProcess(process_.hProcess, 9);
            CloseHandle(process_.hThread);
            CloseHandle(process_.hProcess);
        }
    }

    bool start(const std::wstring& options = L"") {
        static int serial = 0;
        const std::wstring event = L"opc_sim_server_ready_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
                                   std::to_wstring(++serial);
        HANDLE ready = CreateEventW(nullptr, TRUE, FALSE, event.c_str());
        std::wstring command = L"\"" + binPath(L"opc_sim_server.exe") + L"\" --lifetime 120 --ready " + event;
        if (!options.empty()) command += L" " + options;
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        bool ok = CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                                 &process_) != FALSE;
        if (ok) {
            HANDLE waits[] = {ready, process_.hProcess};
            ok = WaitForMultipleObjects(2, waits, FALSE, 20000) == WAIT_OBJECT_0;
        }
        CloseHandle(ready);
        return ok;
    }

    void kill() { TerminateProcess(process_.hProcess, 9); WaitForSingleObject(process_.hProcess, 10000); }

    // The server's exit code once it has ended by itself, or -1 if it is still running after the wait.
    int exitCode(DWORD waitMs = 10000) const {
        DWORD code = DWORD(-1);
        if (WaitForSingleObject(process_.hProcess, waitMs) == WAIT_OBJECT_0) GetExitCodeProcess(process_.hProcess, &code);
        return int(code);
    }

private:
    PROCESS_INFORMATION process_{};
};

// The server object, activated out of process only.
inline ComPtr<IOPCServer> activate() {
    ComPtr<IOPCServer> server;
    EXPECT_EQ(S_OK, CoCreateInstance(CLSID_VelmoraSimulation, nullptr, CLSCTX_LOCAL_SERVER, IID_IOPCServer,
                                     server.putVoid()));
    return server;
}

// A group of the server with items added; the server and client handles in the order of the ids.
struct Group {
    ComPtr<IUnknown> unknown;
    OPCHANDLE serverHandle = 0;
    std::vector<OPCHANDLE> items;
    std::vector<HRESULT> errors;

    Group(IOPCServer* server, const wchar_t* name, DWORD rate, const std::vector<std::wstring>& ids) {
        DWORD revised = 0;
        EXPECT_EQ(S_OK, server->AddGroup(name, TRUE, rate, 77, nullptr, nullptr, 1033, &serverHandle, &revised,
                                         IID_IUnknown, unknown.put()));
        if (!unknown || ids.empty()) return;
        std::vector<OPCITEMDEF> defs(ids.size());
        for (size_t i = 0; i < ids.size(); ++i) {
            defs[i] = OPCITEMDEF{};
            defs[i].szAccessPath = const_cast<LPWSTR>(L"");
            defs[i].szItemID = const_cast<LPWSTR>(ids[i].c_str());
            defs[i].bActive = TRUE;
            defs[i].hClient = OPCHANDLE(100 + i);
        }
        TaskMem<OPCITEMRESULT> results;
        TaskMem<HRESULT> hrs;
        const HRESULT hr = as<IOPCItemMgt>(unknown.get(), IID_IOPCItemMgt)
                               ->AddItems(DWORD(defs.size()), defs.data(), results.put(), hrs.put());
        EXPECT_TRUE(SUCCEEDED(hr)) << std::hex << hr;
        for (size_t i = 0; results && i < ids.size(); ++i) {
            items.push_back(results.get()[i].hServer);
            errors.push_back(hrs.get()[i]);
            CoTaskMemFree(results.get()[i].pBlob);
        }
    }
};

// Connects a sink to an object's connection point for the interface; the cookie (0 on failure).
inline DWORD advise(IUnknown* object, REFIID iid, IUnknown* sink) {
    ComPtr<IConnectionPoint> point;
    if (FAILED(as<IConnectionPointContainer>(object, IID_IConnectionPointContainer)->FindConnectionPoint(iid, point.put())))
        return 0;
    DWORD cookie = 0;
    EXPECT_EQ(S_OK, point->Advise(sink, &cookie));
    return cookie;
}

inline HRESULT unadvise(IUnknown* object, REFIID iid, DWORD cookie) {
    ComPtr<IConnectionPointContainer> container;
    HRESULT hr = object->QueryInterface(IID_IConnectionPointContainer, container.putVoid());
    if (FAILED(hr)) return hr;
    ComPtr<IConnectionPoint> point;
    hr = container->FindConnectionPoint(iid, point.put());
    return FAILED(hr) ? hr : point->Unadvise(cookie);
}

// COM on the test's thread (the multithreaded apartment) and the modules registered once.
class OutOfProcessTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        static bool registered = false;
        if (!registered) {
            registerEverything();
            registered = true;
        }
    }
    void SetUp() override { ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))); }
    void TearDown() override { CoUninitialize(); }
};

}  // namespace outproc
