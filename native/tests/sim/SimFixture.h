// Shared set-up of the simulation server tests: COM on the thread, a server activated by ProgID,
// and the checks that every test leaves no live objects and no unfreed COM memory behind.
#pragma once

#include "opc/platform.h"
#include "sim/SimControl.h"
#include "substrate/ledger.h"
#include "ComPtr.h"

#include <olectl.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using opc::support::ComPtr;

inline std::u16string wide(const std::string& s) { return std::u16string(s.begin(), s.end()); }

struct LedgerSnapshot {
    long long blocks[LEDGER_KINDS];
    LedgerSnapshot() {
        for (int k = 0; k < LEDGER_KINDS; ++k) blocks[k] = LedgerLiveCount(k);
    }
};

class SimTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
        SimReset();
        ComPtr<IClassFactory> factory;
        CLSID clsid{};
        ASSERT_EQ(S_OK, CLSIDFromString(OLESTR("Velmora.Simulation.1"), &clsid));
        ASSERT_EQ(S_OK, CoGetClassObject(clsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, factory.putVoid()));
        ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IOPCServer, server.putVoid()));
    }
    void TearDown() override {
        server.reset();
        EXPECT_EQ(0, SimLiveObjects(nullptr)) << "objects left alive";
        const LedgerSnapshot after;
        for (int k = 0; k < LEDGER_KINDS; ++k) EXPECT_EQ(start.blocks[k], after.blocks[k]) << "ledger kind " << k;
        SimReset();
    }

    // Adds an active group with the given rate; its IOPCItemMgt.
    ComPtr<IOPCItemMgt> addGroup(const char16_t* name, DWORD rate = 1000, OPCHANDLE* serverHandle = nullptr) {
        OPCHANDLE handle = 0;
        DWORD revised = 0;
        FLOAT deadband = 0;
        ComPtr<IOPCItemMgt> group;
        const HRESULT hr = server->AddGroup(name, TRUE, rate, 77, nullptr, &deadband, 1033, &handle, &revised,
                                            IID_IOPCItemMgt, reinterpret_cast<LPUNKNOWN*>(group.put()));
        EXPECT_TRUE(SUCCEEDED(hr));
        if (serverHandle) *serverHandle = handle;
        return group;
    }

    // Adds the items (canonical types); their server handles in order, 0 for a failed one.
    std::vector<OPCHANDLE> addItems(IOPCItemMgt* group, const std::vector<std::string>& ids,
                                    VARTYPE requested = VT_EMPTY) {
        std::vector<std::u16string> texts;
        for (const auto& id : ids) texts.push_back(wide(id));
        std::vector<OPCITEMDEF> defs(ids.size());
        for (size_t i = 0; i < ids.size(); ++i) {
            defs[i] = OPCITEMDEF{const_cast<LPWSTR>(u""), const_cast<LPWSTR>(texts[i].c_str()), TRUE,
                                 OPCHANDLE(100 + i), 0, nullptr, requested, 0};
        }
        OPCITEMRESULT* results = nullptr;
        HRESULT* errors = nullptr;
        EXPECT_TRUE(SUCCEEDED(group->AddItems(DWORD(defs.size()), defs.data(), &results, &errors)));
        std::vector<OPCHANDLE> handles;
        for (size_t i = 0; results && i < ids.size(); ++i) handles.push_back(SUCCEEDED(errors[i]) ? results[i].hServer : 0);
        CoTaskMemFree(results);
        CoTaskMemFree(errors);
        return handles;
    }

    LedgerSnapshot start;
    ComPtr<IOPCServer> server;
};
