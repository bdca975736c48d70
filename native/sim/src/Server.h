// The server object: IOPCServer, IOPCCommon and the IOPCShutdown connection point.
#pragma once

#include "Common.h"
#include "ComObject.h"
#include "Connections.h"
#include "Control.h"
#include "Engine.h"

#include <map>
#include <vector>
#include <memory>
#include <mutex>

namespace sim {

class Group;

// What the server shares with its groups; it outlives the server object while groups live.
struct ServerCore {
    std::mutex lock;
    std::map<OPCHANDLE, Group*> groups;  // one reference each, the server's own
    OPCHANDLE nextGroupHandle = 1;
    unsigned nextGeneratedName = 1;
    FILETIME lastUpdate{};
    Engine* engine = nullptr;  // the server's engine; null once the server object is gone

    // Under `lock`: whether a group of the table other than `except` has the name.
    bool nameTaken(const WString& name, const Group* except) const;
};

// Rates are granted in steps of 10 ms, at least 10 ms.
DWORD reviseRate(DWORD requested);

// The text for an HRESULT in a supported locale; E_INVALIDARG for an unknown code or locale.
HRESULT errorText(HRESULT code, LCID locale, LPWSTR* text);

class Server final : public opc::support::ComObject<Server, IOPCServer, IOPCCommon, IConnectionPointContainer,
                                                    IOPCBrowseServerAddressSpace, IOPCItemProperties, IOPCBrowse,
                                                    IOPCSecurityNT, IOPCSecurityPrivate> {
public:
    Server();
    ~Server() override;
    void* interfaceFor(REFIID iid);

    // IOPCServer
    HRESULT STDMETHODCALLTYPE AddGroup(LPCWSTR szName, BOOL bActive, DWORD dwRequestedUpdateRate,
                                       OPCHANDLE hClientGroup, LONG* pTimeBias, FLOAT* pPercentDeadband, DWORD dwLCID,
                                       OPCHANDLE* phServerGroup, DWORD* pRevisedUpdateRate, REFIID riid,
                                       LPUNKNOWN* ppUnk) override;
    HRESULT STDMETHODCALLTYPE GetErrorString(HRESULT dwError, LCID dwLocale, LPWSTR* ppString) override;
    HRESULT STDMETHODCALLTYPE GetGroupByName(LPCWSTR szName, REFIID riid, LPUNKNOWN* ppUnk) override;
    HRESULT STDMETHODCALLTYPE GetStatus(OPCSERVERSTATUS** ppServerStatus) override;
    HRESULT STDMETHODCALLTYPE RemoveGroup(OPCHANDLE hServerGroup, BOOL bForce) override;
    HRESULT STDMETHODCALLTYPE CreateGroupEnumerator(OPCENUMSCOPE dwScope, REFIID riid, LPUNKNOWN* ppUnk) override;

    // IOPCCommon
    HRESULT STDMETHODCALLTYPE SetLocaleID(LCID dwLcid) override;
    HRESULT STDMETHODCALLTYPE GetLocaleID(LCID* pdwLcid) override;
    HRESULT STDMETHODCALLTYPE QueryAvailableLocaleIDs(DWORD* pdwCount, LCID** pdwLcid) override;
    HRESULT STDMETHODCALLTYPE GetErrorString(HRESULT dwError, LPWSTR* ppString) override;
    HRESULT STDMETHODCALLTYPE SetClientName(LPCWSTR szName) override;

    // IConnectionPointContainer
    HRESULT STDMETHODCALLTYPE EnumConnectionPoints(IEnumConnectionPoints** ppEnum) override;
    HRESULT STDMETHODCALLTYPE FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) override;

    // IOPCBrowseServerAddressSpace (Browse.cpp)
    HRESULT STDMETHODCALLTYPE QueryOrganization(OPCNAMESPACETYPE* pNameSpaceType) override;
    HRESULT STDMETHODCALLTYPE ChangeBrowsePosition(OPCBROWSEDIRECTION dwBrowseDirection, LPCWSTR szString) override;
    HRESULT STDMETHODCALLTYPE BrowseOPCItemIDs(OPCBROWSETYPE dwBrowseFilterType, LPCWSTR szFilterCriteria,
                                               VARTYPE vtDataTypeFilter, DWORD dwAccessRightsFilter,
                                               LPENUMSTRING* ppIEnumString) override;
    HRESULT STDMETHODCALLTYPE GetItemID(LPWSTR szItemDataID, LPWSTR* szItemID) override;
    HRESULT STDMETHODCALLTYPE BrowseAccessPaths(LPCWSTR szItemID, LPENUMSTRING* ppIEnumString) override;

    // IOPCItemProperties (Browse.cpp)
    HRESULT STDMETHODCALLTYPE QueryAvailableProperties(LPWSTR szItemID, DWORD* pdwCount, DWORD** ppPropertyIDs,
                                                       LPWSTR** ppDescriptions, VARTYPE** ppvtDataTypes) override;
    HRESULT STDMETHODCALLTYPE GetItemProperties(LPWSTR szItemID, DWORD dwCount, DWORD* pdwPropertyIDs,
                                                VARIANT** ppvData, HRESULT** ppErrors) override;
    HRESULT STDMETHODCALLTYPE LookupItemIDs(LPWSTR szItemID, DWORD dwCount, DWORD* pdwPropertyIDs,
                                            LPWSTR** ppszNewItemIDs, HRESULT** ppErrors) override;

    // IOPCBrowse (Browse.cpp)
    HRESULT STDMETHODCALLTYPE GetProperties(DWORD dwItemCount, LPWSTR* pszItemIDs, BOOL bReturnPropertyValues,
                                            DWORD dwPropertyCount, DWORD* pdwPropertyIDs,
                                            OPCITEMPROPERTIES** ppItemProperties) override;
    HRESULT STDMETHODCALLTYPE Browse(LPWSTR szItemID, LPWSTR* pszContinuationPoint, DWORD dwMaxElementsReturned,
                                     OPCBROWSEFILTER dwBrowseFilter, LPWSTR szElementNameFilter,
                                     LPWSTR szVendorFilter, BOOL bReturnAllProperties, BOOL bReturnPropertyValues,
                                     DWORD dwPropertyCount, DWORD* pdwPropertyIDs, BOOL* pbMoreElements,
                                     DWORD* pdwCount, OPCBROWSEELEMENT** ppBrowseElements) override;

    // IOPCSecurityNT, IOPCSecurityPrivate
    HRESULT STDMETHODCALLTYPE IsAvailableNT(BOOL* pbAvailable) override;
    HRESULT STDMETHODCALLTYPE QueryMinImpersonationLevel(DWORD* pdwMinImpLevel) override;
    HRESULT STDMETHODCALLTYPE ChangeUser() override;
    HRESULT STDMETHODCALLTYPE IsAvailablePriv(BOOL* pbAvailable) override;
    HRESULT STDMETHODCALLTYPE Logon(LPCWSTR szUserID, LPCWSTR szPassword) override;
    HRESULT STDMETHODCALLTYPE Logoff() override;

private:
    Live<Kind::Server> live_;
    std::shared_ptr<ServerCore> core_ = std::make_shared<ServerCore>();
    std::shared_ptr<Connections> shutdown_ = std::make_shared<Connections>(IID_IOPCShutdown);
    FILETIME start_;
    std::atomic<LCID> lcid_{1033};
    std::unique_ptr<Engine> engine_;
    std::mutex browseLock_;
    WString browsePosition_;  // the current branch, "" = root
    std::atomic<bool> loggedOn_{false};
};

// Calls ShutdownRequest on every sink connected to a live server; the number of sinks called.
int shutdownAll(const WCHAR* reason);

// Calls OnWriteComplete on every data callback of every group of a live server that holds any of the
// items: the client handles of those items, each with `itemError`. The number of sinks called.
// Drops every sink connected to a live server or to one of its groups, on each server's thread.
void dropAllConnections();

int writeCompleteAll(DWORD transaction, HRESULT masterError, const std::vector<WString>& itemIds, HRESULT itemError);

}  // namespace sim
