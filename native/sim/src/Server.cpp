#include "Server.h"

#include "Group.h"
#include "StringEnum.h"

#include <algorithm>
#include <cstdio>
#include <future>
#include <vector>

namespace sim {
namespace {

constexpr LCID kEnglish = 0x0409;
constexpr LCID kGerman = 0x0407;
constexpr DWORD kMinRate = 10;

struct ErrorText {
    HRESULT code;
    const char* english;
    const char* german;
};

const ErrorText kErrorTexts[] = {
    {S_OK, "The operation completed successfully.", "Der Vorgang wurde erfolgreich beendet."},
    {S_FALSE, "The operation completed with errors for some items.", "Der Vorgang meldet Fehler einzelner Items."},
    {E_FAIL, "Unspecified error.", "Unbekannter Fehler."},
    {E_INVALIDARG, "The parameter is incorrect.", "Falscher Parameter."},
    {E_OUTOFMEMORY, "Not enough memory.", "Nicht genug Speicher."},
    {E_NOTIMPL, "Not implemented.", "Nicht implementiert."},
    {E_NOINTERFACE, "No such interface supported.", "Schnittstelle nicht unterstuetzt."},
    {OPC_E_INVALIDHANDLE, "The value of the handle is invalid.", "Der Wert des Handles ist ungueltig."},
    {OPC_E_BADTYPE, "The server cannot convert the data between the requested data type and the canonical data type.",
     "Der Server kann den angeforderten Datentyp nicht umwandeln."},
    {OPC_E_PUBLIC, "The requested operation cannot be done on a public group.",
     "Der Vorgang ist fuer eine oeffentliche Gruppe nicht erlaubt."},
    {OPC_E_BADRIGHTS, "The item's access rights do not allow the operation.",
     "Die Zugriffsrechte des Items erlauben den Vorgang nicht."},
    {OPC_E_UNKNOWNITEMID, "The item is no longer available in the server address space.",
     "Das Item ist im Adressraum des Servers nicht vorhanden."},
    {OPC_E_INVALIDITEMID, "The item definition does not conform to the server's syntax.",
     "Die Item-Kennung entspricht nicht der Syntax des Servers."},
    {OPC_E_INVALIDFILTER, "The filter string was not valid.", "Der Filter ist ungueltig."},
    {OPC_E_UNKNOWNPATH, "The item's access path is not known to the server.", "Der Zugriffspfad ist unbekannt."},
    {OPC_E_RANGE, "The value was out of range.", "Der Wert liegt ausserhalb des Bereichs."},
    {OPC_E_DUPLICATENAME, "Duplicate name not allowed.", "Der Name ist bereits vergeben."},
    {OPC_S_UNSUPPORTEDRATE, "The server does not support the requested data rate but will use the closest available rate.",
     "Die Rate wird nicht unterstuetzt; die naechstliegende wird verwendet."},
    {OPC_S_CLAMP, "A value passed to write was accepted but the output was clamped.",
     "Der geschriebene Wert wurde begrenzt."},
    {OPC_S_INUSE, "The operation cannot be performed because the object is being referenced.",
     "Das Objekt wird noch referenziert."},
    {OPC_E_INVALID_PID, "The specified property ID is not valid for the item.",
     "Die Eigenschaftskennung ist fuer das Item ungueltig."},
};

bool supportedLocale(LCID lcid) {
    return lcid == kEnglish || lcid == kGerman || lcid == LOCALE_SYSTEM_DEFAULT || lcid == LOCALE_USER_DEFAULT ||
           lcid == LOCALE_NEUTRAL;
}

struct ShutdownPoint {
    std::weak_ptr<Connections> sinks;
    std::weak_ptr<ServerCore> core;
};

struct ShutdownRegistry {
    std::mutex lock;
    std::vector<ShutdownPoint> points;
};

ShutdownRegistry& shutdownRegistry() {
    static ShutdownRegistry* registry = new ShutdownRegistry();
    return *registry;
}

std::string floatText(double value) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%g", value);
    return buffer;
}

}  // namespace

bool ServerCore::nameTaken(const WString& name, const Group* except) const {
    for (const auto& entry : groups) {
        if (entry.second != except && entry.second->name() == name) return true;
    }
    return false;
}

DWORD reviseRate(DWORD requested) {
    if (requested <= kMinRate) return kMinRate;
    const DWORD steps = requested / kMinRate + (requested % kMinRate ? 1 : 0);
    return steps > 0xFFFFFFFFu / kMinRate ? requested - requested % kMinRate : steps * kMinRate;
}

HRESULT errorText(HRESULT code, LCID locale, LPWSTR* text) {
    if (text == nullptr) return E_INVALIDARG;
    *text = nullptr;
    if (!supportedLocale(locale)) return E_INVALIDARG;
    for (const ErrorText& entry : kErrorTexts) {
        if (entry.code != code) continue;
        *text = taskString(widen(locale == kGerman ? entry.german : entry.english));
        return *text ? S_OK : E_OUTOFMEMORY;
    }
    return E_INVALIDARG;
}

Server::Server() : start_(now()) {
    std::weak_ptr<ServerCore> weakCore = core_;
    engine_ = std::make_unique<Engine>([weakCore] {
        auto core = weakCore.lock();
        if (!core || g_down.load(std::memory_order_relaxed)) return;
        std::vector<ComPtr<Group>> groups;
        {
            std::lock_guard<std::mutex> guard(core->lock);
            for (auto& entry : core->groups) groups.push_back(ComPtr<Group>::borrow(entry.second));
        }
        for (auto& group : groups) group->tick();
    });
    core_->engine = engine_.get();
    ShutdownRegistry& registry = shutdownRegistry();
    std::lock_guard<std::mutex> guard(registry.lock);
    registry.points.push_back(ShutdownPoint{shutdown_, core_});
}

Server::~Server() {
    {
        ShutdownRegistry& registry = shutdownRegistry();
        std::lock_guard<std::mutex> guard(registry.lock);
        auto& points = registry.points;
        points.erase(std::remove_if(points.begin(), points.end(),
                                    [this](const ShutdownPoint& p) {
                                        auto locked = p.sinks.lock();
                                        return !locked || locked == shutdown_;
                                    }),
                     points.end());
    }
    std::map<OPCHANDLE, Group*> groups;
    {
        std::lock_guard<std::mutex> guard(core_->lock);
        groups.swap(core_->groups);
        core_->engine = nullptr;
    }
    engine_.reset();  // stops the thread; pending requests are dropped
    for (auto& entry : groups) entry.second->Release();
    shutdown_->clear();
}

void* Server::interfaceFor(REFIID iid) {
    if (IsEqualIID(iid, IID_IOPCServer)) return static_cast<IOPCServer*>(this);
    if (IsEqualIID(iid, IID_IOPCCommon)) return static_cast<IOPCCommon*>(this);
    if (IsEqualIID(iid, IID_IConnectionPointContainer)) return static_cast<IConnectionPointContainer*>(this);
    if (IsEqualIID(iid, IID_IOPCBrowseServerAddressSpace)) return static_cast<IOPCBrowseServerAddressSpace*>(this);
    if (IsEqualIID(iid, IID_IOPCItemProperties)) return static_cast<IOPCItemProperties*>(this);
    if (IsEqualIID(iid, IID_IOPCBrowse)) return g_withoutBrowse ? nullptr : static_cast<IOPCBrowse*>(this);
    if (IsEqualIID(iid, IID_IOPCSecurityNT)) return static_cast<IOPCSecurityNT*>(this);
    if (IsEqualIID(iid, IID_IOPCSecurityPrivate)) return static_cast<IOPCSecurityPrivate*>(this);
    return nullptr;
}

HRESULT Server::AddGroup(LPCWSTR szName, BOOL bActive, DWORD dwRequestedUpdateRate, OPCHANDLE hClientGroup,
                         LONG* pTimeBias, FLOAT* pPercentDeadband, DWORD dwLCID, OPCHANDLE* phServerGroup,
                         DWORD* pRevisedUpdateRate, REFIID riid, LPUNKNOWN* ppUnk) {
    const std::string args = "name=" + narrow(szName) + " active=" + std::to_string(bActive) +
                             " rate=" + std::to_string(dwRequestedUpdateRate) +
                             " clientHandle=" + std::to_string(hClientGroup) +
                             " timeBias=" + (pTimeBias ? std::to_string(*pTimeBias) : "null") +
                             " deadband=" + (pPercentDeadband ? floatText(*pPercentDeadband) : "null") +
                             " lcid=" + std::to_string(dwLCID);
    if (ppUnk) *ppUnk = nullptr;
    if (HRESULT hr = enter("IOPCServer::AddGroup", args); FAILED(hr)) return hr;
    if (ppUnk == nullptr || phServerGroup == nullptr || pRevisedUpdateRate == nullptr) return E_INVALIDARG;
    if (pPercentDeadband && (*pPercentDeadband < 0 || *pPercentDeadband > 100)) return E_INVALIDARG;

    GroupState state;
    state.active = bActive ? TRUE : FALSE;
    state.rate = reviseRate(dwRequestedUpdateRate);
    state.clientHandle = hClientGroup;
    state.timeBias = pTimeBias ? *pTimeBias : 0;
    state.deadband = pPercentDeadband ? *pPercentDeadband : 0.0f;
    state.lcid = dwLCID;

    Group* group = nullptr;
    {
        std::lock_guard<std::mutex> guard(core_->lock);
        WString name = szName ? WString(szName) : WString();
        if (name.empty()) {
            do {
                name = widen(("Group" + std::to_string(core_->nextGeneratedName++)).c_str());
            } while (core_->nameTaken(name, nullptr));
        } else if (core_->nameTaken(name, nullptr)) {
            return OPC_E_DUPLICATENAME;
        }
        state.name = name;
        state.serverHandle = core_->nextGroupHandle++;
        group = new Group(core_, state);  // the server's reference
        core_->groups.emplace(state.serverHandle, group);
    }
    const HRESULT qi = group->QueryInterface(riid, reinterpret_cast<void**>(ppUnk));
    if (FAILED(qi)) {
        {
            std::lock_guard<std::mutex> guard(core_->lock);
            core_->groups.erase(state.serverHandle);
        }
        group->Release();
        *ppUnk = nullptr;
        return qi;
    }
    *phServerGroup = state.serverHandle;
    *pRevisedUpdateRate = state.rate;
    return state.rate == dwRequestedUpdateRate ? S_OK : OPC_S_UNSUPPORTEDRATE;
}

HRESULT Server::GetErrorString(HRESULT dwError, LCID dwLocale, LPWSTR* ppString) {
    if (ppString) *ppString = nullptr;
    if (HRESULT hr = enter("IOPCServer::GetErrorString",
                           "error=" + std::to_string(dwError) + " lcid=" + std::to_string(dwLocale));
        FAILED(hr)) {
        return hr;
    }
    if (nullResults("IOPCServer::GetErrorString")) return ppString ? S_OK : E_INVALIDARG;
    return errorText(dwError, dwLocale, ppString);
}

HRESULT Server::GetGroupByName(LPCWSTR szName, REFIID riid, LPUNKNOWN* ppUnk) {
    if (ppUnk) *ppUnk = nullptr;
    if (HRESULT hr = enter("IOPCServer::GetGroupByName", "name=" + narrow(szName)); FAILED(hr)) return hr;
    if (szName == nullptr || ppUnk == nullptr) return E_INVALIDARG;
    ComPtr<Group> found;
    {
        std::lock_guard<std::mutex> guard(core_->lock);
        for (auto& entry : core_->groups) {
            if (entry.second->name() == szName) found = ComPtr<Group>::borrow(entry.second);
        }
    }
    if (!found) return E_INVALIDARG;
    return found->QueryInterface(riid, reinterpret_cast<void**>(ppUnk));
}

HRESULT Server::GetStatus(OPCSERVERSTATUS** ppServerStatus) {
    if (ppServerStatus) *ppServerStatus = nullptr;
    if (HRESULT hr = enter("IOPCServer::GetStatus", ""); FAILED(hr)) return hr;
    if (ppServerStatus == nullptr) return E_INVALIDARG;
    auto* status = taskArray<OPCSERVERSTATUS>(1);
    if (status == nullptr) return E_OUTOFMEMORY;
    status->ftStartTime = start_;
    status->ftCurrentTime = now();
    {
        std::lock_guard<std::mutex> guard(core_->lock);
        status->ftLastUpdateTime = core_->lastUpdate;
        status->dwGroupCount = DWORD(core_->groups.size());
    }
    status->dwServerState = OPC_STATUS_RUNNING;
    status->dwBandWidth = 0xFFFFFFFF;
    status->wMajorVersion = 1;
    status->wMinorVersion = 2;
    status->wBuildNumber = 30;
    if (!nullResults("IOPCServer::GetStatus")) {
        status->szVendorInfo = taskString(widen("Velmora Simulation Server"));
        if (status->szVendorInfo == nullptr) {
            CoTaskMemFree(status);
            return E_OUTOFMEMORY;
        }
    }
    *ppServerStatus = status;
    return S_OK;
}

HRESULT Server::RemoveGroup(OPCHANDLE hServerGroup, BOOL bForce) {
    if (HRESULT hr = enter("IOPCServer::RemoveGroup",
                           "handle=" + std::to_string(hServerGroup) + " force=" + std::to_string(bForce));
        FAILED(hr)) {
        return hr;
    }
    Group* group = nullptr;
    {
        std::lock_guard<std::mutex> guard(core_->lock);
        auto it = core_->groups.find(hServerGroup);
        if (it == core_->groups.end()) return E_INVALIDARG;
        group = it->second;
        core_->groups.erase(it);
    }
    // The group object lives on while clients hold it; it has left the server either way.
    const ULONG left = group->Release();
    return left > 0 && !bForce ? OPC_S_INUSE : S_OK;
}

HRESULT Server::CreateGroupEnumerator(OPCENUMSCOPE dwScope, REFIID riid, LPUNKNOWN* ppUnk) {
    if (ppUnk) *ppUnk = nullptr;
    if (HRESULT hr = enter("IOPCServer::CreateGroupEnumerator", "scope=" + std::to_string(dwScope)); FAILED(hr)) {
        return hr;
    }
    if (ppUnk == nullptr || dwScope < OPC_ENUM_PRIVATE_CONNECTIONS || dwScope > OPC_ENUM_ALL) return E_INVALIDARG;
    if (!IsEqualIID(riid, IID_IEnumString)) return E_NOINTERFACE;
    std::vector<WString> names;
    if (dwScope != OPC_ENUM_PUBLIC_CONNECTIONS && dwScope != OPC_ENUM_PUBLIC) {
        std::lock_guard<std::mutex> guard(core_->lock);
        for (auto& entry : core_->groups) names.push_back(entry.second->name());
    }
    const bool none = names.empty();
    *ppUnk = newStringEnum(std::move(names));
    return none ? S_FALSE : S_OK;
}

HRESULT Server::SetLocaleID(LCID dwLcid) {
    if (HRESULT hr = enter("IOPCCommon::SetLocaleID", "lcid=" + std::to_string(dwLcid)); FAILED(hr)) return hr;
    if (!supportedLocale(dwLcid)) return E_INVALIDARG;
    lcid_ = dwLcid;
    return S_OK;
}

HRESULT Server::GetLocaleID(LCID* pdwLcid) {
    if (HRESULT hr = enter("IOPCCommon::GetLocaleID", ""); FAILED(hr)) return hr;
    if (pdwLcid == nullptr) return E_INVALIDARG;
    *pdwLcid = lcid_;
    return S_OK;
}

HRESULT Server::QueryAvailableLocaleIDs(DWORD* pdwCount, LCID** pdwLcid) {
    if (pdwLcid) *pdwLcid = nullptr;
    if (pdwCount) *pdwCount = 0;
    if (HRESULT hr = enter("IOPCCommon::QueryAvailableLocaleIDs", ""); FAILED(hr)) return hr;
    if (pdwCount == nullptr || pdwLcid == nullptr) return E_INVALIDARG;
    if (nullResults("IOPCCommon::QueryAvailableLocaleIDs")) return S_OK;
    LCID* ids = taskArray<LCID>(2);
    if (ids == nullptr) return E_OUTOFMEMORY;
    ids[0] = kEnglish;
    ids[1] = kGerman;
    *pdwLcid = ids;
    *pdwCount = 2;
    return S_OK;
}

HRESULT Server::GetErrorString(HRESULT dwError, LPWSTR* ppString) {
    if (ppString) *ppString = nullptr;
    if (HRESULT hr = enter("IOPCCommon::GetErrorString", "error=" + std::to_string(dwError)); FAILED(hr)) return hr;
    if (nullResults("IOPCCommon::GetErrorString")) return ppString ? S_OK : E_INVALIDARG;
    return errorText(dwError, lcid_, ppString);
}

HRESULT Server::SetClientName(LPCWSTR szName) {
    if (HRESULT hr = enter("IOPCCommon::SetClientName", "name=" + narrow(szName)); FAILED(hr)) return hr;
    return szName ? S_OK : E_INVALIDARG;
}

HRESULT Server::EnumConnectionPoints(IEnumConnectionPoints** ppEnum) {
    if (ppEnum) *ppEnum = nullptr;
    return E_NOTIMPL;
}

HRESULT Server::FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) {
    if (ppCP) *ppCP = nullptr;
    if (HRESULT hr = enter("IConnectionPointContainer::FindConnectionPoint", ""); FAILED(hr)) return hr;
    return findConnectionPoint(this, shutdown_, riid, ppCP);
}

// ---- Security: NT identities are accepted as they come; one private account exists ----------------

HRESULT Server::IsAvailableNT(BOOL* pbAvailable) {
    if (HRESULT hr = enter("IOPCSecurityNT::IsAvailableNT", ""); FAILED(hr)) return hr;
    if (pbAvailable == nullptr) return E_INVALIDARG;
    *pbAvailable = TRUE;
    return S_OK;
}

HRESULT Server::QueryMinImpersonationLevel(DWORD* pdwMinImpLevel) {
    if (HRESULT hr = enter("IOPCSecurityNT::QueryMinImpersonationLevel", ""); FAILED(hr)) return hr;
    if (pdwMinImpLevel == nullptr) return E_INVALIDARG;
    *pdwMinImpLevel = RPC_C_IMP_LEVEL_IDENTIFY;
    return S_OK;
}

HRESULT Server::ChangeUser() { return enter("IOPCSecurityNT::ChangeUser", ""); }

HRESULT Server::IsAvailablePriv(BOOL* pbAvailable) {
    if (HRESULT hr = enter("IOPCSecurityPrivate::IsAvailablePriv", ""); FAILED(hr)) return hr;
    if (pbAvailable == nullptr) return E_INVALIDARG;
    *pbAvailable = TRUE;
    return S_OK;
}

HRESULT Server::Logon(LPCWSTR szUserID, LPCWSTR szPassword) {
    // The password is not recorded.
    if (HRESULT hr = enter("IOPCSecurityPrivate::Logon", "user=" + narrow(szUserID)); FAILED(hr)) return hr;
    if (szUserID == nullptr || szPassword == nullptr) return E_INVALIDARG;
    if (WString(szUserID) != widen("operator") || WString(szPassword) != widen("secret")) return E_ACCESSDENIED;
    loggedOn_ = true;
    return S_OK;
}

HRESULT Server::Logoff() {
    if (HRESULT hr = enter("IOPCSecurityPrivate::Logoff", ""); FAILED(hr)) return hr;
    loggedOn_ = false;
    return S_OK;
}

namespace {

// Runs `work` once for every live server, on that server's own thread, and waits for each; the sum
// of what the runs return.
int onEveryServerThread(const std::function<int(ServerCore& core, Connections& shutdownSinks)>& work) {
    std::vector<ShutdownPoint> points;
    {
        ShutdownRegistry& registry = shutdownRegistry();
        std::lock_guard<std::mutex> guard(registry.lock);
        points = registry.points;
    }
    int total = 0;
    for (const ShutdownPoint& point : points) {
        auto sinks = point.sinks.lock();
        auto core = point.core.lock();
        if (!sinks || !core) continue;
        auto done = std::make_shared<std::promise<int>>();
        std::future<int> result = done->get_future();
        bool here = false;
        {
            std::lock_guard<std::mutex> guard(core->lock);
            if (core->engine == nullptr) continue;
            here = core->engine->onThread();  // called from one of this server's own callbacks
            if (!here) {
                core->engine->post([sinks, core, done, &work] { done->set_value(work(*core, *sinks)); },
                                   [done] { done->set_value(0); });
            }
        }
        if (here) {
            total += work(*core, *sinks);
            continue;
        }
        try {
            total += result.get();
        } catch (const std::future_error&) {
            // the server went away before its thread ran the request
        }
    }
    return total;
}

}  // namespace

int shutdownAll(const WCHAR* reason) {
    const WString text = reason ? WString(reason) : WString();
    return onEveryServerThread([&](ServerCore&, Connections& shutdownSinks) {
        int called = 0;
        for (auto& sink : shutdownSinks.sinks<IOPCShutdown>()) {
            countCallback(Callback::ShutdownRequest);
            sink->ShutdownRequest(reason ? text.c_str() : nullptr);
            ++called;
        }
        return called;
    });
}

void dropAllConnections() {
    onEveryServerThread([](ServerCore& core, Connections& shutdownSinks) {
        shutdownSinks.clear();
        std::vector<ComPtr<Group>> groups;
        {
            std::lock_guard<std::mutex> guard(core.lock);
            for (auto& entry : core.groups) groups.push_back(ComPtr<Group>::borrow(entry.second));
        }
        for (auto& group : groups) group->dropCallbacks();
        return 0;
    });
}

int writeCompleteAll(DWORD transaction, HRESULT masterError, const std::vector<WString>& itemIds, HRESULT itemError) {
    return onEveryServerThread([&](ServerCore& core, Connections&) {
        std::vector<ComPtr<Group>> groups;
        {
            std::lock_guard<std::mutex> guard(core.lock);
            for (auto& entry : core.groups) groups.push_back(ComPtr<Group>::borrow(entry.second));
        }
        int called = 0;
        for (auto& group : groups) called += group->sendWriteComplete(transaction, masterError, itemIds, itemError);
        return called;
    });
}

}  // namespace sim
