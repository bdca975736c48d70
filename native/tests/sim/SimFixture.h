// Shared set-up of the simulation server tests: COM on the thread, a server activated by ProgID,
// and the checks that every test leaves no live objects and no unfreed COM memory behind.
#pragma once

#include "opc/platform.h"
#include "sim/SimControl.h"
#include "substrate/ledger.h"
#include "ComObject.h"
#include "ComPtr.h"
#include "Owned.h"
#include "../ClientSink.h"

#include <olectl.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

using opc::support::ComPtr;
using opc::support::TaskMem;
using namespace std::chrono_literals;

inline std::u16string wide(const std::string& s) { return std::u16string(s.begin(), s.end()); }

// Takes a task-memory string: its text, "<null>" for none.
inline std::u16string take(LPWSTR text) {
    std::u16string out = text ? std::u16string(text) : u"<null>";
    CoTaskMemFree(text);
    return out;
}

inline VARIANT i4(LONG value) {
    VARIANT v;
    VariantInit(&v);
    v.vt = VT_I4;
    v.lVal = value;
    return v;
}

// Owns what one IOPCSyncIO::Read returns.
struct ReadResult {
    DWORD count = 0;
    OPCITEMSTATE* states = nullptr;
    HRESULT* errors = nullptr;
    HRESULT hr = E_FAIL;
    ReadResult(IUnknown* group, const std::vector<OPCHANDLE>& handles, OPCDATASOURCE source = OPC_DS_DEVICE) {
        count = DWORD(handles.size());
        hr = as<IOPCSyncIO>(group, IID_IOPCSyncIO)->Read(source, count, const_cast<OPCHANDLE*>(handles.data()), &states,
                                                          &errors);
    }
    ~ReadResult() {
        for (DWORD i = 0; states && i < count; ++i) VariantClear(&states[i].vDataValue);
        CoTaskMemFree(states);
        CoTaskMemFree(errors);
    }
    const VARIANT& value(int i) const { return states[i].vDataValue; }
};

// Writes synchronously; the per-item errors.
inline std::vector<HRESULT> write(IUnknown* group, std::vector<OPCHANDLE> handles, std::vector<VARIANT> values) {
    TaskMem<HRESULT> errors;
    as<IOPCSyncIO>(group, IID_IOPCSyncIO)->Write(DWORD(handles.size()), handles.data(), values.data(), errors.put());
    return std::vector<HRESULT>(errors.get(), errors.get() + (errors ? handles.size() : 0));
}

class SimTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
        for (int k = 0; k < LEDGER_KINDS; ++k) blocks_[k] = LedgerLiveCount(k);
        SimReset();
        ComPtr<IClassFactory> factory;
        CLSID clsid{};
        ASSERT_EQ(S_OK, CLSIDFromString(OLESTR("Velmora.Simulation.1"), &clsid));
        ASSERT_EQ(S_OK, CoGetClassObject(clsid, CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, factory.putVoid()));
        ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, IID_IOPCServer, server.putVoid()));
    }
    void TearDown() override {
        server.reset();
        for (Sink* sink : sinks_) sink->Release();
        EXPECT_EQ(0, SimLiveObjects(nullptr)) << "objects left alive";
        for (int k = 0; k < LEDGER_KINDS; ++k) EXPECT_EQ(blocks_[k], LedgerLiveCount(k)) << "ledger kind " << k;
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

    // Adds the items (client handles 100, 101, ...); their server handles in order, 0 for a failed one.
    std::vector<OPCHANDLE> addItems(IOPCItemMgt* group, const std::vector<std::string>& ids,
                                    VARTYPE requested = VT_EMPTY) {
        std::vector<std::u16string> texts;
        for (const auto& id : ids) texts.push_back(wide(id));
        std::vector<OPCITEMDEF> defs(ids.size());
        for (size_t i = 0; i < ids.size(); ++i) {
            defs[i] = OPCITEMDEF{const_cast<LPWSTR>(u""), const_cast<LPWSTR>(texts[i].c_str()), TRUE,
                                 OPCHANDLE(100 + i), 0, nullptr, requested, 0};
        }
        TaskMem<OPCITEMRESULT> results;
        TaskMem<HRESULT> errors;
        EXPECT_TRUE(SUCCEEDED(group->AddItems(DWORD(defs.size()), defs.data(), results.put(), errors.put())));
        std::vector<OPCHANDLE> handles;
        for (size_t i = 0; results && i < ids.size(); ++i) {
            handles.push_back(SUCCEEDED(errors.get()[i]) ? results.get()[i].hServer : 0);
        }
        return handles;
    }

    // A new sink connected to the container's connection point for `iid` (released after the test).
    Sink* connect(IUnknown* container, const IID& iid, ComPtr<IConnectionPoint>* point, DWORD* cookie = nullptr,
                  std::function<void(const std::string& kind)> onCall = nullptr) {
        Sink* sink = new Sink();
        sink->onCall = std::move(onCall);
        sinks_.push_back(sink);
        EXPECT_EQ(S_OK, as<IConnectionPointContainer>(container, IID_IConnectionPointContainer)
                            ->FindConnectionPoint(iid, point->put()));
        DWORD made = 0;
        EXPECT_EQ(S_OK, (*point)->Advise(static_cast<IOPCDataCallback*>(sink), &made));
        if (cookie) *cookie = made;
        return sink;
    }

    ComPtr<IOPCServer> server;

private:
    long long blocks_[LEDGER_KINDS];
    std::vector<Sink*> sinks_;
};
