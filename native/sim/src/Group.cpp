#include "Group.h"

#include "Server.h"

#include <algorithm>

namespace sim {
namespace {

std::string idList(DWORD count, const OPCITEMDEF* defs) {
    constexpr DWORD kShown = 32;
    std::string out;
    for (DWORD i = 0; defs && i < count && i < kShown; ++i) {
        if (i) out += ',';
        out += narrow(defs[i].szItemID);
    }
    if (count > kShown) out += ",...";
    return out;
}

bool sameCells(const std::vector<Cell>& a, const std::vector<Cell>& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].num != b[i].num || a[i].text != b[i].text) return false;
    }
    return true;
}

}  // namespace

Group::Group(std::shared_ptr<ServerCore> core, GroupState state) : core_(std::move(core)), state_(std::move(state)) {}

Group::~Group() { callbacks_->clear(); }

void* Group::interfaceFor(REFIID iid) {
    if (IsEqualIID(iid, IID_IOPCItemMgt)) return static_cast<IOPCItemMgt*>(this);
    if (IsEqualIID(iid, IID_IOPCGroupStateMgt)) return static_cast<IOPCGroupStateMgt*>(this);
    if (IsEqualIID(iid, IID_IOPCSyncIO)) return static_cast<IOPCSyncIO*>(this);
    if (IsEqualIID(iid, IID_IOPCAsyncIO2)) return static_cast<IOPCAsyncIO2*>(this);
    if (IsEqualIID(iid, IID_IConnectionPointContainer)) return static_cast<IConnectionPointContainer*>(this);
    return nullptr;
}

WString Group::name() const {
    std::lock_guard<std::mutex> guard(stateLock_);
    return state_.name;
}

bool Group::groupActive() const {
    std::lock_guard<std::mutex> guard(stateLock_);
    return state_.active != FALSE;
}

// ---- IOPCItemMgt ---------------------------------------------------------------------------------

HRESULT Group::defineItems(const char* method, DWORD count, OPCITEMDEF* defs, bool add, OPCITEMRESULT** results,
                           HRESULT** errors) {
    std::string types, active;
    for (DWORD i = 0; defs && i < count && i < 32; ++i) {
        types += (i ? "," : "") + std::to_string(defs[i].vtRequestedDataType);
        active += (i ? "," : "") + std::to_string(defs[i].bActive);
    }
    if (results) *results = nullptr;
    if (errors) *errors = nullptr;
    if (HRESULT hr = enter(method, "count=" + std::to_string(count) + " ids=" + idList(count, defs) +
                                       " types=" + types + " active=" + active);
        FAILED(hr)) {
        return hr;
    }
    if (results == nullptr || errors == nullptr || defs == nullptr || count == 0) return E_INVALIDARG;

    auto* out = taskArray<OPCITEMRESULT>(count);
    auto* errs = taskArray<HRESULT>(count);
    if (out == nullptr || errs == nullptr) {
        CoTaskMemFree(out);
        CoTaskMemFree(errs);
        return E_OUTOFMEMORY;
    }
    AddressSpace& space = AddressSpace::instance();
    bool anyFailed = false;
    std::unique_lock<std::shared_mutex> guard(itemsLock_, std::defer_lock);
    if (add) guard.lock();
    for (DWORD i = 0; i < count; ++i) {
        const OPCITEMDEF& def = defs[i];
        const ItemDef* item = nullptr;
        HRESULT hr = S_OK;
        if (def.szAccessPath != nullptr && def.szAccessPath[0] != 0) {
            hr = OPC_E_UNKNOWNPATH;
        } else {
            hr = space.lookup(def.szItemID, &item);
        }
        if (SUCCEEDED(hr) && !AddressSpace::acceptsType(*item, def.vtRequestedDataType)) hr = OPC_E_BADTYPE;
        errs[i] = hr;
        if (FAILED(hr)) {
            anyFailed = true;
            continue;
        }
        out[i].vtCanonicalDataType = item->type;
        out[i].dwAccessRights = item->access;
        if (add) {
            Item entry;
            entry.def = item;
            entry.clientHandle = def.hClient;
            entry.requested = def.vtRequestedDataType;
            entry.active = def.bActive != FALSE;
            entry.live = true;
            items_.push_back(std::move(entry));
            out[i].hServer = OPCHANDLE(items_.size());
        }
    }
    if (nullResults(method)) {
        CoTaskMemFree(out);
        CoTaskMemFree(errs);
        return S_OK;
    }
    *results = out;
    *errors = errs;
    return anyFailed ? S_FALSE : S_OK;
}

HRESULT Group::AddItems(DWORD dwCount, OPCITEMDEF* pItemArray, OPCITEMRESULT** ppAddResults, HRESULT** ppErrors) {
    return defineItems("IOPCItemMgt::AddItems", dwCount, pItemArray, true, ppAddResults, ppErrors);
}

HRESULT Group::ValidateItems(DWORD dwCount, OPCITEMDEF* pItemArray, BOOL, OPCITEMRESULT** ppValidationResults,
                             HRESULT** ppErrors) {
    return defineItems("IOPCItemMgt::ValidateItems", dwCount, pItemArray, false, ppValidationResults, ppErrors);
}

template <typename PerItem>
HRESULT Group::forEachHandle(const char* method, const std::string& extra, DWORD count, OPCHANDLE* handles,
                             HRESULT** errors, PerItem&& perItem) {
    if (errors) *errors = nullptr;
    if (HRESULT hr = enter(method, "count=" + std::to_string(count) + " handles=" + joinNumbers(count, handles) + extra);
        FAILED(hr)) {
        return hr;
    }
    if (errors == nullptr || handles == nullptr || count == 0) return E_INVALIDARG;
    auto* errs = taskArray<HRESULT>(count);
    if (errs == nullptr) return E_OUTOFMEMORY;
    bool anyFailed = false;
    {
        std::unique_lock<std::shared_mutex> guard(itemsLock_);
        for (DWORD i = 0; i < count; ++i) {
            const OPCHANDLE h = handles[i];
            HRESULT hr = OPC_E_INVALIDHANDLE;
            if (h >= 1 && h <= items_.size() && items_[h - 1].live) hr = perItem(items_[h - 1], i);
            errs[i] = hr;
            anyFailed = anyFailed || FAILED(hr);
        }
    }
    if (nullResults(method)) {
        CoTaskMemFree(errs);
        return S_OK;
    }
    *errors = errs;
    return anyFailed ? S_FALSE : S_OK;
}

HRESULT Group::RemoveItems(DWORD dwCount, OPCHANDLE* phServer, HRESULT** ppErrors) {
    return forEachHandle("IOPCItemMgt::RemoveItems", "", dwCount, phServer, ppErrors, [](Item& item, DWORD) {
        item.live = false;
        return S_OK;
    });
}

HRESULT Group::SetActiveState(DWORD dwCount, OPCHANDLE* phServer, BOOL bActive, HRESULT** ppErrors) {
    return forEachHandle("IOPCItemMgt::SetActiveState", " active=" + std::to_string(bActive), dwCount, phServer,
                         ppErrors, [bActive](Item& item, DWORD) {
                             const bool activate = bActive != FALSE;
                             if (activate && !item.active) item.sent = false;  // sends its value again
                             item.active = activate;
                             return S_OK;
                         });
}

HRESULT Group::SetClientHandles(DWORD dwCount, OPCHANDLE* phServer, OPCHANDLE* phClient, HRESULT** ppErrors) {
    if (phClient == nullptr) {
        if (ppErrors) *ppErrors = nullptr;
        return E_INVALIDARG;
    }
    return forEachHandle("IOPCItemMgt::SetClientHandles", " clients=" + joinNumbers(dwCount, phClient), dwCount,
                         phServer, ppErrors, [phClient](Item& item, DWORD i) {
                             item.clientHandle = phClient[i];
                             return S_OK;
                         });
}

HRESULT Group::SetDatatypes(DWORD dwCount, OPCHANDLE* phServer, VARTYPE* pRequestedDatatypes, HRESULT** ppErrors) {
    if (pRequestedDatatypes == nullptr) {
        if (ppErrors) *ppErrors = nullptr;
        return E_INVALIDARG;
    }
    return forEachHandle("IOPCItemMgt::SetDatatypes", " types=" + joinNumbers(dwCount, pRequestedDatatypes), dwCount,
                         phServer, ppErrors, [pRequestedDatatypes](Item& item, DWORD i) {
                             if (!AddressSpace::acceptsType(*item.def, pRequestedDatatypes[i])) return OPC_E_BADTYPE;
                             item.requested = pRequestedDatatypes[i];
                             item.sent = false;
                             return S_OK;
                         });
}

HRESULT Group::CreateEnumerator(REFIID, LPUNKNOWN* ppUnk) {
    if (ppUnk) *ppUnk = nullptr;
    if (HRESULT hr = enter("IOPCItemMgt::CreateEnumerator", ""); FAILED(hr)) return hr;
    return E_NOTIMPL;
}

// ---- IOPCGroupStateMgt ---------------------------------------------------------------------------

HRESULT Group::GetState(DWORD* pUpdateRate, BOOL* pActive, LPWSTR* ppName, LONG* pTimeBias, FLOAT* pPercentDeadband,
                        DWORD* pLCID, OPCHANDLE* phClientGroup, OPCHANDLE* phServerGroup) {
    if (ppName) *ppName = nullptr;
    if (HRESULT hr = enter("IOPCGroupStateMgt::GetState", ""); FAILED(hr)) return hr;
    if (!pUpdateRate || !pActive || !ppName || !pTimeBias || !pPercentDeadband || !pLCID || !phClientGroup ||
        !phServerGroup) {
        return E_INVALIDARG;
    }
    GroupState state;
    {
        std::lock_guard<std::mutex> guard(stateLock_);
        state = state_;
    }
    if (!nullResults("IOPCGroupStateMgt::GetState")) {
        *ppName = taskString(state.name);
        if (*ppName == nullptr) return E_OUTOFMEMORY;
    }
    *pUpdateRate = state.rate;
    *pActive = state.active;
    *pTimeBias = state.timeBias;
    *pPercentDeadband = state.deadband;
    *pLCID = state.lcid;
    *phClientGroup = state.clientHandle;
    *phServerGroup = state.serverHandle;
    return S_OK;
}

HRESULT Group::SetState(DWORD* pRequestedUpdateRate, DWORD* pRevisedUpdateRate, BOOL* pActive, LONG* pTimeBias,
                        FLOAT* pPercentDeadband, DWORD* pLCID, OPCHANDLE* phClientGroup) {
    auto opt = [](auto* p) { return p ? std::to_string(*p) : std::string("null"); };
    if (HRESULT hr = enter("IOPCGroupStateMgt::SetState",
                           "rate=" + opt(pRequestedUpdateRate) + " active=" + opt(pActive) + " timeBias=" +
                               opt(pTimeBias) + " deadband=" +
                               (pPercentDeadband ? std::to_string(int(*pPercentDeadband)) : "null") +
                               " lcid=" + opt(pLCID) + " clientHandle=" + opt(phClientGroup));
        FAILED(hr)) {
        return hr;
    }
    if (pRevisedUpdateRate == nullptr) return E_INVALIDARG;
    if (pPercentDeadband && (*pPercentDeadband < 0 || *pPercentDeadband > 100)) return E_INVALIDARG;
    HRESULT result = S_OK;
    bool activated = false;
    {
        std::lock_guard<std::mutex> guard(stateLock_);
        if (pRequestedUpdateRate) {
            state_.rate = reviseRate(*pRequestedUpdateRate);
            if (state_.rate != *pRequestedUpdateRate) result = OPC_S_UNSUPPORTEDRATE;
        }
        if (pActive) {
            activated = !state_.active && *pActive;
            state_.active = *pActive ? TRUE : FALSE;
        }
        if (pTimeBias) state_.timeBias = *pTimeBias;
        if (pPercentDeadband) state_.deadband = *pPercentDeadband;
        if (pLCID) state_.lcid = *pLCID;
        if (phClientGroup) state_.clientHandle = *phClientGroup;
        *pRevisedUpdateRate = state_.rate;
    }
    if (activated) {
        std::unique_lock<std::shared_mutex> guard(itemsLock_);
        for (Item& item : items_) item.sent = false;  // activation sends every value again
    }
    return result;
}

HRESULT Group::SetName(LPCWSTR szName) {
    if (HRESULT hr = enter("IOPCGroupStateMgt::SetName", "name=" + narrow(szName)); FAILED(hr)) return hr;
    if (szName == nullptr || szName[0] == 0) return E_INVALIDARG;
    std::lock_guard<std::mutex> coreGuard(core_->lock);
    if (core_->nameTaken(szName, this)) return OPC_E_DUPLICATENAME;
    std::lock_guard<std::mutex> guard(stateLock_);
    state_.name = szName;
    return S_OK;
}

HRESULT Group::CloneGroup(LPCWSTR, REFIID, LPUNKNOWN* ppUnk) {
    if (ppUnk) *ppUnk = nullptr;
    if (HRESULT hr = enter("IOPCGroupStateMgt::CloneGroup", ""); FAILED(hr)) return hr;
    return E_NOTIMPL;
}

// ---- Reading and writing one item --------------------------------------------------------------

HRESULT Group::readItem(const Item& item, OPCDATASOURCE source, bool active, Sample* sample) {
    sample->clientHandle = item.clientHandle;
    sample->stamp = now();
    sample->quality = OPC_QUALITY_BAD;
    if (!(item.def->access & OPC_READABLE)) return OPC_E_BADRIGHTS;
    if (anyItemErrors()) {
        if (HRESULT hr = itemError(item.def->id); hr != S_OK) return hr;
    }
    const HRESULT hr =
        AddressSpace::instance().read(*item.def, item.requested, &sample->value, &sample->stamp, &sample->quality);
    if (FAILED(hr)) {
        sample->quality = OPC_QUALITY_BAD;
        return hr;
    }
    if (source == OPC_DS_CACHE && (!active || !item.active)) sample->quality = OPC_QUALITY_OUT_OF_SERVICE;
    return S_OK;
}

HRESULT Group::writeItem(const Item& item, const VARIANT& value) {
    if (!(item.def->access & OPC_WRITEABLE)) return OPC_E_BADRIGHTS;
    if (anyItemErrors()) {
        if (HRESULT hr = itemError(item.def->id); hr != S_OK) return hr;
    }
    return AddressSpace::instance().write(*item.def, value);
}

// ---- IOPCSyncIO ----------------------------------------------------------------------------------

HRESULT Group::Read(OPCDATASOURCE dwSource, DWORD dwCount, OPCHANDLE* phServer, OPCITEMSTATE** ppItemValues,
                    HRESULT** ppErrors) {
    if (ppItemValues) *ppItemValues = nullptr;
    if (ppErrors) *ppErrors = nullptr;
    if (HRESULT hr = enter("IOPCSyncIO::Read", "source=" + std::to_string(dwSource) + " count=" +
                                                   std::to_string(dwCount) + " handles=" + joinNumbers(dwCount, phServer));
        FAILED(hr)) {
        return hr;
    }
    if (!ppItemValues || !ppErrors || !phServer || dwCount == 0) return E_INVALIDARG;
    if (dwSource != OPC_DS_CACHE && dwSource != OPC_DS_DEVICE) return E_INVALIDARG;
    if (nullResults("IOPCSyncIO::Read")) return S_OK;

    auto* states = taskArray<OPCITEMSTATE>(dwCount);
    auto* errs = taskArray<HRESULT>(dwCount);
    if (states == nullptr || errs == nullptr) {
        CoTaskMemFree(states);
        CoTaskMemFree(errs);
        return E_OUTOFMEMORY;
    }
    const bool active = groupActive();
    bool anyFailed = false;
    {
        std::shared_lock<std::shared_mutex> guard(itemsLock_);
        for (DWORD i = 0; i < dwCount; ++i) {
            const OPCHANDLE h = phServer[i];
            OPCITEMSTATE& state = states[i];
            VariantInit(&state.vDataValue);
            HRESULT hr = OPC_E_INVALIDHANDLE;
            if (h >= 1 && h <= items_.size() && items_[h - 1].live) {
                Sample sample;
                VariantInit(&sample.value);
                hr = readItem(items_[h - 1], dwSource, active, &sample);
                state.hClient = sample.clientHandle;
                state.ftTimeStamp = sample.stamp;
                state.wQuality = sample.quality;
                state.vDataValue = sample.value;  // ownership moves to the result
            }
            errs[i] = hr;
            anyFailed = anyFailed || FAILED(hr);
        }
    }
    *ppItemValues = states;
    *ppErrors = errs;
    return anyFailed ? S_FALSE : S_OK;
}

HRESULT Group::Write(DWORD dwCount, OPCHANDLE* phServer, VARIANT* pItemValues, HRESULT** ppErrors) {
    std::string types;
    for (DWORD i = 0; pItemValues && i < dwCount && i < 32; ++i) types += (i ? "," : "") + std::to_string(pItemValues[i].vt);
    if (pItemValues == nullptr) {
        if (ppErrors) *ppErrors = nullptr;
        enter("IOPCSyncIO::Write", "count=" + std::to_string(dwCount) + " values=null");
        return E_INVALIDARG;
    }
    return forEachHandle("IOPCSyncIO::Write", " types=" + types, dwCount, phServer, ppErrors,
                         [this, pItemValues](Item& item, DWORD i) { return writeItem(item, pItemValues[i]); });
}

// ---- Callbacks ------------------------------------------------------------------------------------

void Group::Batch::add(const Sample& sample) {
    handles.push_back(sample.clientHandle);
    values.push_back(sample.value);
    qualities.push_back(sample.quality);
    stamps.push_back(sample.stamp);
    errors.push_back(sample.error);
}

void Group::Batch::clear() {
    for (VARIANT& value : values) VariantClear(&value);
    handles.clear();
    values.clear();
    qualities.clear();
    stamps.clear();
    errors.clear();
}

std::chrono::steady_clock::duration Group::deliverData(DWORD transaction, const Batch& batch, bool readComplete) {
    const DWORD n = batch.size();
    HRESULT masterQuality = S_OK, masterError = S_OK;
    for (DWORD i = 0; i < n; ++i) {
        if ((batch.qualities[i] & OPC_QUALITY_MASK) != OPC_QUALITY_GOOD) masterQuality = S_FALSE;
        if (batch.errors[i] != S_OK) masterError = S_FALSE;
    }
    // The sinks receive the arrays as [in] parameters: they neither keep nor change them.
    auto* handles = const_cast<OPCHANDLE*>(batch.handles.data());
    auto* values = const_cast<VARIANT*>(batch.values.data());
    auto* qualities = const_cast<WORD*>(batch.qualities.data());
    auto* stamps = const_cast<FILETIME*>(batch.stamps.data());
    auto* errors = const_cast<HRESULT*>(batch.errors.data());
    const OPCHANDLE group = clientGroup();
    const auto sinks = callbacks_->sinks<IOPCDataCallback>();
    const auto started = std::chrono::steady_clock::now();
    for (auto& sink : sinks) {
        if (readComplete) {
            countCallback(Callback::ReadComplete);
            sink->OnReadComplete(transaction, group, masterQuality, masterError, n, handles, values, qualities,
                                 stamps, errors);
        } else {
            countCallback(Callback::DataChange);
            sink->OnDataChange(transaction, group, masterQuality, masterError, n, handles, values, qualities, stamps,
                               errors);
        }
    }
    const auto inSinks = std::chrono::steady_clock::now() - started;
    std::lock_guard<std::mutex> guard(core_->lock);
    core_->lastUpdate = now();
    return inSinks;
}

void Group::collectChanges(Batch& batch) {
    AddressSpace& space = AddressSpace::instance();
    const bool itemErrors = anyItemErrors();
    const unsigned generation = everyTickGeneration();
    std::vector<WString> prefixes;
    bool prefixesFetched = false;
    bool anyEveryTick = false;

    // Which items change at every update, refreshed whenever the prefixes changed. Those items go
    // first, all under one lock of the address space, and are never compared with what was sent.
    for (Item& item : items_) {
        if (item.everyTickGeneration != generation) {
            if (!prefixesFetched) {
                prefixes = everyTickPrefixes();
                prefixesFetched = true;
            }
            item.everyTick = !prefixes.empty() && matchesAnyPrefix(item.def->id, prefixes);
            item.everyTickGeneration = generation;
        }
        anyEveryTick = anyEveryTick || item.everyTick;
    }
    auto readable = [](const Item& item) { return item.live && item.active && (item.def->access & OPC_READABLE); };

    if (anyEveryTick) {
        const FILETIME stamp = now();
        auto changing = space.exclusive();
        for (Item& item : items_) {
            if (!item.everyTick || !readable(item)) continue;
            Sample sample;
            VariantInit(&sample.value);
            sample.clientHandle = item.clientHandle;
            sample.stamp = stamp;
            sample.error = itemErrors ? itemError(item.def->id) : S_OK;
            if (sample.error == S_OK) {
                sample.error = space.advance(*item.def, item.requested, stamp, &sample.value, &sample.quality);
            }
            if (FAILED(sample.error)) sample.quality = OPC_QUALITY_BAD;
            item.sent = true;
            batch.add(sample);
        }
    }

    for (Item& item : items_) {
        if (item.everyTick || !readable(item)) continue;
        Sample sample;
        VariantInit(&sample.value);
        sample.clientHandle = item.clientHandle;
        space.snapshot(*item.def, &scratch_, &sample.stamp, &sample.quality);
        if (item.sent && item.lastQuality == sample.quality && sameCells(item.lastCells, scratch_)) continue;
        sample.error = itemErrors ? itemError(item.def->id) : S_OK;
        if (sample.error == S_OK) sample.error = AddressSpace::toVariant(*item.def, scratch_, item.requested, &sample.value);
        if (FAILED(sample.error)) sample.quality = OPC_QUALITY_BAD;
        item.sent = true;
        item.lastCells.swap(scratch_);  // the old storage becomes the next scratch
        item.lastQuality = sample.quality;
        batch.add(sample);
    }
}

void Group::tick() {
    if (!enabled_ || !groupActive() || callbacks_->empty()) return;
    const auto started = std::chrono::steady_clock::now();
    if (started < nextUpdate_) return;
    DWORD rate;
    {
        std::lock_guard<std::mutex> guard(stateLock_);
        rate = state_.rate;
    }
    nextUpdate_ = started + std::chrono::milliseconds(rate);

    {
        std::unique_lock<std::shared_mutex> guard(itemsLock_);
        collectChanges(tickBatch_);
    }
    if (tickBatch_.size() == 0) return;
    const auto inSinks = deliverData(0, tickBatch_, false);
    tickBatch_.clear();
    const auto spent = std::chrono::steady_clock::now() - started - inSinks;
    recordTickMicros(std::chrono::duration<double, std::micro>(spent).count(),
                     std::chrono::duration<double, std::micro>(inSinks).count());
}

int Group::sendWriteComplete(DWORD transaction, HRESULT masterError, const std::vector<WString>& itemIds,
                             HRESULT itemError) {
    std::vector<OPCHANDLE> clients;
    {
        std::shared_lock<std::shared_mutex> guard(itemsLock_);
        for (const WString& id : itemIds) {
            for (const Item& item : items_) {
                if (item.live && item.def->id == id) clients.push_back(item.clientHandle);
            }
        }
    }
    if (clients.empty()) return 0;
    std::vector<HRESULT> errors(clients.size(), itemError);
    const OPCHANDLE group = clientGroup();
    int called = 0;
    for (auto& sink : callbacks_->sinks<IOPCDataCallback>()) {
        countCallback(Callback::WriteComplete);
        sink->OnWriteComplete(transaction, group, masterError, DWORD(clients.size()), clients.data(), errors.data());
        ++called;
    }
    return called;
}

// ---- IOPCAsyncIO2 ---------------------------------------------------------------------------------

OPCHANDLE Group::clientGroup() const {
    std::lock_guard<std::mutex> guard(stateLock_);
    return state_.clientHandle;
}

DWORD Group::postRequest(DWORD transaction, std::function<void(Group*)> run) {
    DWORD id = 0;
    {
        std::lock_guard<std::mutex> guard(core_->lock);
        if (core_->engine == nullptr) return 0;
        if (!g_inlineCompletion) {
            auto keep = std::make_shared<ComPtr<Group>>(ComPtr<Group>::borrow(this));
            return core_->engine->post([keep, run] { run(keep->get()); },
                                       [keep, transaction] {
                                           const OPCHANDLE group = (*keep)->clientGroup();
                                           for (auto& sink : (*keep)->callbacks_->sinks<IOPCDataCallback>()) {
                                               countCallback(Callback::CancelComplete);
                                               sink->OnCancelComplete(transaction, group);
                                           }
                                       });
        }
        id = core_->engine->reserveId();
    }
    run(this);  // completes on the caller's thread, before the caller's method returns
    return id;
}

HRESULT Group::Read(DWORD dwCount, OPCHANDLE* phServer, DWORD dwTransactionID, DWORD* pdwCancelID,
                    HRESULT** ppErrors) {
    if (ppErrors) *ppErrors = nullptr;
    if (pdwCancelID) *pdwCancelID = 0;
    if (HRESULT hr = enter("IOPCAsyncIO2::Read", "count=" + std::to_string(dwCount) + " handles=" +
                                                     joinNumbers(dwCount, phServer) +
                                                     " transaction=" + std::to_string(dwTransactionID));
        FAILED(hr)) {
        return hr;
    }
    if (!phServer || !pdwCancelID || !ppErrors || dwCount == 0) return E_INVALIDARG;
    if (callbacks_->empty()) return CONNECT_E_NOCONNECTION;
    auto* errs = taskArray<HRESULT>(dwCount);
    if (errs == nullptr) return E_OUTOFMEMORY;
    std::vector<OPCHANDLE> accepted;
    {
        std::shared_lock<std::shared_mutex> guard(itemsLock_);
        for (DWORD i = 0; i < dwCount; ++i) {
            const OPCHANDLE h = phServer[i];
            errs[i] = OPC_E_INVALIDHANDLE;
            if (h < 1 || h > items_.size() || !items_[h - 1].live) continue;
            errs[i] = (items_[h - 1].def->access & OPC_READABLE) ? S_OK : OPC_E_BADRIGHTS;
            if (errs[i] == S_OK) accepted.push_back(h);
        }
    }
    const HRESULT result = accepted.size() == dwCount ? S_OK : S_FALSE;
    if (!accepted.empty()) {
        *pdwCancelID = postRequest(dwTransactionID, [accepted, dwTransactionID](Group* group) {
            Batch batch;
            const bool active = group->groupActive();
            std::shared_lock<std::shared_mutex> items(group->itemsLock_);
            for (OPCHANDLE h : accepted) {
                Sample sample;
                VariantInit(&sample.value);
                const Item& item = group->items_[h - 1];
                sample.error = item.live ? group->readItem(item, OPC_DS_DEVICE, active, &sample) : OPC_E_INVALIDHANDLE;
                batch.add(sample);
            }
            items.unlock();
            group->deliverData(dwTransactionID, batch, true);
        });
        if (*pdwCancelID == 0) {
            CoTaskMemFree(errs);
            return E_FAIL;
        }
    }
    *ppErrors = errs;
    return result;
}

HRESULT Group::Write(DWORD dwCount, OPCHANDLE* phServer, VARIANT* pItemValues, DWORD dwTransactionID,
                     DWORD* pdwCancelID, HRESULT** ppErrors) {
    if (ppErrors) *ppErrors = nullptr;
    if (pdwCancelID) *pdwCancelID = 0;
    if (HRESULT hr = enter("IOPCAsyncIO2::Write", "count=" + std::to_string(dwCount) + " handles=" +
                                                      joinNumbers(dwCount, phServer) +
                                                      " transaction=" + std::to_string(dwTransactionID));
        FAILED(hr)) {
        return hr;
    }
    if (!phServer || !pItemValues || !pdwCancelID || !ppErrors || dwCount == 0) return E_INVALIDARG;
    if (callbacks_->empty()) return CONNECT_E_NOCONNECTION;
    auto* errs = taskArray<HRESULT>(dwCount);
    if (errs == nullptr) return E_OUTOFMEMORY;
    struct Request {
        std::vector<OPCHANDLE> handles;
        std::vector<VARIANT> values;
        ~Request() {
            for (VARIANT& v : values) VariantClear(&v);
        }
    };
    auto request = std::make_shared<Request>();
    {
        std::shared_lock<std::shared_mutex> guard(itemsLock_);
        for (DWORD i = 0; i < dwCount; ++i) {
            const OPCHANDLE h = phServer[i];
            errs[i] = OPC_E_INVALIDHANDLE;
            if (h < 1 || h > items_.size() || !items_[h - 1].live) continue;
            errs[i] = (items_[h - 1].def->access & OPC_WRITEABLE) ? S_OK : OPC_E_BADRIGHTS;
            if (errs[i] != S_OK) continue;
            VARIANT copy;
            VariantInit(&copy);
            errs[i] = VariantCopy(&copy, &pItemValues[i]);
            if (errs[i] != S_OK) continue;
            request->handles.push_back(h);
            request->values.push_back(copy);
        }
    }
    const HRESULT result = request->handles.size() == dwCount ? S_OK : S_FALSE;
    if (!request->handles.empty()) {
        *pdwCancelID = postRequest(dwTransactionID, [request, dwTransactionID](Group* group) {
            const DWORD n = DWORD(request->handles.size());
            std::vector<OPCHANDLE> clients(n);
            std::vector<HRESULT> errors(n);
            HRESULT master = S_OK;
            {
                std::shared_lock<std::shared_mutex> items(group->itemsLock_);
                for (DWORD i = 0; i < n; ++i) {
                    const Item& item = group->items_[request->handles[i] - 1];
                    clients[i] = item.clientHandle;
                    errors[i] = item.live ? group->writeItem(item, request->values[i]) : OPC_E_INVALIDHANDLE;
                    if (errors[i] != S_OK) master = S_FALSE;
                }
            }
            const OPCHANDLE clientGroup = group->clientGroup();
            for (auto& sink : group->callbacks_->sinks<IOPCDataCallback>()) {
                countCallback(Callback::WriteComplete);
                sink->OnWriteComplete(dwTransactionID, clientGroup, master, n, clients.data(), errors.data());
            }
        });
        if (*pdwCancelID == 0) {
            CoTaskMemFree(errs);
            return E_FAIL;
        }
    }
    *ppErrors = errs;
    return result;
}

HRESULT Group::Refresh2(OPCDATASOURCE dwSource, DWORD dwTransactionID, DWORD* pdwCancelID) {
    if (pdwCancelID) *pdwCancelID = 0;
    if (HRESULT hr = enter("IOPCAsyncIO2::Refresh2",
                           "source=" + std::to_string(dwSource) + " transaction=" + std::to_string(dwTransactionID));
        FAILED(hr)) {
        return hr;
    }
    if (pdwCancelID == nullptr || (dwSource != OPC_DS_CACHE && dwSource != OPC_DS_DEVICE)) return E_INVALIDARG;
    if (callbacks_->empty()) return CONNECT_E_NOCONNECTION;
    if (!groupActive()) return E_FAIL;
    {
        std::shared_lock<std::shared_mutex> guard(itemsLock_);
        if (std::none_of(items_.begin(), items_.end(), [](const Item& i) { return i.live && i.active; })) return E_FAIL;
    }
    *pdwCancelID = postRequest(dwTransactionID, [dwSource, dwTransactionID](Group* group) {
        Batch batch;
        const bool active = group->groupActive();
        {
            std::shared_lock<std::shared_mutex> items(group->itemsLock_);
            for (const Item& item : group->items_) {
                if (!item.live || !item.active) continue;
                Sample sample;
                VariantInit(&sample.value);
                sample.error = group->readItem(item, dwSource, active, &sample);
                batch.add(sample);
            }
        }
        if (batch.size() != 0) group->deliverData(dwTransactionID, batch, false);
    });
    if (*pdwCancelID == 0) return E_FAIL;
    return S_OK;
}

HRESULT Group::Cancel2(DWORD dwCancelID) {
    if (HRESULT hr = enter("IOPCAsyncIO2::Cancel2", "cancel=" + std::to_string(dwCancelID)); FAILED(hr)) return hr;
    std::lock_guard<std::mutex> guard(core_->lock);
    if (core_->engine == nullptr) return E_FAIL;
    return core_->engine->cancel(dwCancelID) ? S_OK : E_FAIL;
}

HRESULT Group::SetEnable(BOOL bEnable) {
    if (HRESULT hr = enter("IOPCAsyncIO2::SetEnable", "enable=" + std::to_string(bEnable)); FAILED(hr)) return hr;
    if (callbacks_->empty()) return CONNECT_E_NOCONNECTION;
    enabled_ = bEnable != FALSE;
    return S_OK;
}

HRESULT Group::GetEnable(BOOL* pbEnable) {
    if (HRESULT hr = enter("IOPCAsyncIO2::GetEnable", ""); FAILED(hr)) return hr;
    if (pbEnable == nullptr) return E_INVALIDARG;
    if (callbacks_->empty()) return CONNECT_E_NOCONNECTION;
    *pbEnable = enabled_ ? TRUE : FALSE;
    return S_OK;
}

// ---- IConnectionPointContainer --------------------------------------------------------------------

HRESULT Group::EnumConnectionPoints(IEnumConnectionPoints** ppEnum) {
    if (ppEnum) *ppEnum = nullptr;
    return E_NOTIMPL;
}

HRESULT Group::FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) {
    if (ppCP) *ppCP = nullptr;
    if (HRESULT hr = enter("IConnectionPointContainer::FindConnectionPoint", ""); FAILED(hr)) return hr;
    return findConnectionPoint(static_cast<IConnectionPointContainer*>(this), callbacks_, riid, ppCP);
}

}  // namespace sim
