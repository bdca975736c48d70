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
    // Drops every data callback connected to the group (its sinks are released here).
    void dropCallbacks() { callbacks_->clear(); }
    // Calls OnWriteComplete on every data callback when the group holds any of the items (their
    // client handles in the order of `itemIds`, each with `itemError`); the number of sinks called.
    int sendWriteComplete(DWORD transaction, HRESULT masterError, const std::vector<WString>& itemIds,
                          HRESULT itemError);

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
        // Whether the value changes at every update, as of the prefix generation `everyTickGeneration`.
        bool everyTick = false;
        unsigned everyTickGeneration = 0;
    };
    // One item's value as a read delivers it.
    struct Sample {
        OPCHANDLE clientHandle = 0;
        VARIANT value;
        WORD quality = OPC_QUALITY_BAD;
        FILETIME stamp{};
        HRESULT error = S_OK;
    };
    // The arrays of one OnDataChange or OnReadComplete call. Kept between subscription updates so
    // that an update allocates nothing but the values themselves.
    struct Batch {
        std::vector<OPCHANDLE> handles;
        std::vector<VARIANT> values;
        std::vector<WORD> qualities;
        std::vector<FILETIME> stamps;
        std::vector<HRESULT> errors;

        Batch() = default;
        Batch(const Batch&) = delete;
        Batch& operator=(const Batch&) = delete;
        ~Batch() { clear(); }
        // Takes over the sample's value.
        void add(const Sample& sample);
        // Clears the values and empties the arrays, keeping their storage.
        void clear();
        DWORD size() const { return DWORD(handles.size()); }
    };

    HRESULT defineItems(const char* method, DWORD count, OPCITEMDEF* defs, bool add, OPCITEMRESULT** results,
                        HRESULT** errors);
    template <typename PerItem>
    HRESULT forEachHandle(const char* method, const std::string& extra, DWORD count, OPCHANDLE* handles,
                          HRESULT** errors, PerItem&& perItem);
    // Reads one item into `sample` (value initialised); the per-item HRESULT.
    HRESULT readItem(const Item& item, OPCDATASOURCE source, bool groupActive, Sample* sample);
    HRESULT writeItem(const Item& item, const VARIANT& value);
    // Calls OnDataChange (or OnReadComplete) with the batch on every connected sink; the time spent
    // inside the sinks.
    std::chrono::steady_clock::duration deliverData(DWORD transaction, const Batch& batch, bool readComplete);
    // Adds the subscription's samples of this update to the batch; under the items lock.
    void collectChanges(Batch& batch);
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
    // Engine thread only: the subscription's next update, its batch and a scratch value.
    std::chrono::steady_clock::time_point nextUpdate_{};
    Batch tickBatch_;
    std::vector<Cell> scratch_;
};

}  // namespace sim
