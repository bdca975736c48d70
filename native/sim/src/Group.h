// A group: its items, state, synchronous and asynchronous I/O and the IOPCDataCallback point.
#pragma once

#include "AddressSpace.h"
#include "Common.h"
#include "ComObject.h"
#include "Connections.h"
#include "Control.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <vector>

namespace sim {

struct ServerCore;

struct GroupState {
    WString name;
    BOOL active = TRUE;
    DWORD rate = 1000;
    OPCHANDLE clientHandle = 0;
    OPCHANDLE serverHandle = 0;
    LONG timeBias = 0;
    FLOAT deadband = 0;
    LCID lcid = 1033;
};

class Group final : public opc::support::ComObject<Group, IOPCItemMgt, IOPCGroupStateMgt, IOPCSyncIO, IOPCAsyncIO2,
                                                   IConnectionPointContainer> {
public:
    Group(std::shared_ptr<ServerCore> core, GroupState state);
    ~Group() override;
    void* interfaceFor(REFIID iid);

    WString name() const;
    // The periodic subscription check, on the engine thread.
    void tick();

    // IOPCItemMgt
    HRESULT STDMETHODCALLTYPE AddItems(DWORD dwCount, OPCITEMDEF* pItemArray, OPCITEMRESULT** ppAddResults,
                                       HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE ValidateItems(DWORD dwCount, OPCITEMDEF* pItemArray, BOOL bBlobUpdate,
                                            OPCITEMRESULT** ppValidationResults, HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE RemoveItems(DWORD dwCount, OPCHANDLE* phServer, HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE SetActiveState(DWORD dwCount, OPCHANDLE* phServer, BOOL bActive,
                                             HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE SetClientHandles(DWORD dwCount, OPCHANDLE* phServer, OPCHANDLE* phClient,
                                               HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE SetDatatypes(DWORD dwCount, OPCHANDLE* phServer, VARTYPE* pRequestedDatatypes,
                                           HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE CreateEnumerator(REFIID riid, LPUNKNOWN* ppUnk) override;

    // IOPCGroupStateMgt
    HRESULT STDMETHODCALLTYPE GetState(DWORD* pUpdateRate, BOOL* pActive, LPWSTR* ppName, LONG* pTimeBias,
                                       FLOAT* pPercentDeadband, DWORD* pLCID, OPCHANDLE* phClientGroup,
                                       OPCHANDLE* phServerGroup) override;
    HRESULT STDMETHODCALLTYPE SetState(DWORD* pRequestedUpdateRate, DWORD* pRevisedUpdateRate, BOOL* pActive,
                                       LONG* pTimeBias, FLOAT* pPercentDeadband, DWORD* pLCID,
                                       OPCHANDLE* phClientGroup) override;
    HRESULT STDMETHODCALLTYPE SetName(LPCWSTR szName) override;
    HRESULT STDMETHODCALLTYPE CloneGroup(LPCWSTR szName, REFIID riid, LPUNKNOWN* ppUnk) override;

    // IOPCSyncIO
    HRESULT STDMETHODCALLTYPE Read(OPCDATASOURCE dwSource, DWORD dwCount, OPCHANDLE* phServer,
                                   OPCITEMSTATE** ppItemValues, HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE Write(DWORD dwCount, OPCHANDLE* phServer, VARIANT* pItemValues,
                                    HRESULT** ppErrors) override;

    // IOPCAsyncIO2
    HRESULT STDMETHODCALLTYPE Read(DWORD dwCount, OPCHANDLE* phServer, DWORD dwTransactionID, DWORD* pdwCancelID,
                                   HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE Write(DWORD dwCount, OPCHANDLE* phServer, VARIANT* pItemValues, DWORD dwTransactionID,
                                    DWORD* pdwCancelID, HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE Refresh2(OPCDATASOURCE dwSource, DWORD dwTransactionID, DWORD* pdwCancelID) override;
    HRESULT STDMETHODCALLTYPE Cancel2(DWORD dwCancelID) override;
    HRESULT STDMETHODCALLTYPE SetEnable(BOOL bEnable) override;
    HRESULT STDMETHODCALLTYPE GetEnable(BOOL* pbEnable) override;

    // IConnectionPointContainer
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** ppEnum) override;
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) override;

private:
    struct Item {
        const ItemDef* def = nullptr;
        OPCHANDLE clientHandle = 0;
        VARTYPE requested = VT_EMPTY;
        bool active = true;
        bool live = false;  // false once removed
        // Last values sent by the subscription (engine thread only).
        bool sent = false;
        std::vector<Cell> lastCells;
        WORD lastQuality = 0;
    };
    // One item's value as a read delivers it.
    struct Sample {
        OPCHANDLE clientHandle = 0;
        VARIANT value;
        WORD quality = OPC_QUALITY_BAD;
        FILETIME stamp{};
        HRESULT error = S_OK;
    };

    HRESULT defineItems(const char* method, DWORD count, OPCITEMDEF* defs, bool add, OPCITEMRESULT** results,
                        HRESULT** errors);
    template <typename PerItem>
    HRESULT forEachHandle(const char* method, const std::string& extra, DWORD count, OPCHANDLE* handles,
                          HRESULT** errors, PerItem&& perItem);
    // Reads one item into `sample` (value initialised); the per-item HRESULT.
    HRESULT readItem(const Item& item, OPCDATASOURCE source, bool groupActive, Sample* sample);
    HRESULT writeItem(const Item& item, const VARIANT& value);
    void deliverData(DWORD transaction, std::vector<Sample>& samples, bool readComplete);
    OPCHANDLE clientGroup() const;
    // Queues an asynchronous request on the server's thread (a cancel completes it with
    // OnCancelComplete); its cancel id, or 0 when the server is gone.
    DWORD postRequest(DWORD transaction, std::function<void(Group*)> run);
    bool groupActive() const;

    Live<Kind::Group> live_;
    std::shared_ptr<ServerCore> core_;
    mutable std::mutex stateLock_;
    GroupState state_;
    std::atomic<bool> enabled_{true};
    mutable std::shared_mutex itemsLock_;
    std::vector<Item> items_;  // server handle = index + 1
    std::shared_ptr<Connections> callbacks_ = std::make_shared<Connections>(IID_IOPCDataCallback);
    std::chrono::steady_clock::time_point nextUpdate_{};
};

}  // namespace sim
