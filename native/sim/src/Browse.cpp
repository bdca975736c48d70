// The server's address-space browsing and item properties.
#include "Server.h"

#include "AddressSpace.h"
#include "StringEnum.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <set>

namespace sim {
namespace {

const WCHAR kSeparator = '.';

bool wildcardMatch(const WCHAR* pattern, const WCHAR* text) {
    if (*pattern == 0) return *text == 0;
    if (*pattern == '*') return wildcardMatch(pattern + 1, text) || (*text && wildcardMatch(pattern, text + 1));
    if (*text == 0) return false;
    return (*pattern == '?' || *pattern == *text) && wildcardMatch(pattern + 1, text + 1);
}

bool matches(LPCWSTR filter, const WString& name) {
    return filter == nullptr || filter[0] == 0 || wildcardMatch(filter, name.c_str());
}

WString prefixOf(const WString& branch) { return branch.empty() ? branch : branch + kSeparator; }

// The bench branch (SimSetBenchBranch): leaves "0".."n-1" made up on demand, each standing for Bench.R8.0.
const WString& benchBranch() {
    static const WString branch = widen("Bench.Many");
    return branch;
}

size_t benchLeaves() { return size_t(std::max(0, g_benchLeaves.load())); }

bool isBenchBranch(const WString& branch) { return benchLeaves() > 0 && branch == benchBranch(); }

// True when the id names a leaf of the bench branch: its prefix, then a number below the leaf count
// written without leading zeros.
bool isBenchLeaf(const WString& id) {
    const size_t leaves = benchLeaves();
    const WString& branch = benchBranch();
    if (leaves == 0 || id.size() <= branch.size() + 1 || id.compare(0, branch.size(), branch) != 0 ||
        id[branch.size()] != kSeparator)
        return false;
    size_t value = 0;
    const size_t digits = id.size() - branch.size() - 1;
    if (digits > 9 || (digits > 1 && id[branch.size() + 1] == '0')) return false;
    for (size_t i = branch.size() + 1; i < id.size(); ++i) {
        if (id[i] < '0' || id[i] > '9') return false;
        value = value * 10 + size_t(id[i] - '0');
    }
    return value < leaves;
}

const ItemDef* benchLeafItem() {
    const ItemDef* item = nullptr;
    AddressSpace::instance().lookup(widen("Bench.R8.0").c_str(), &item);
    return item;
}

bool isBranch(const WString& branch) {
    if (branch.empty() || isBenchBranch(branch)) return true;
    const WString prefix = prefixOf(branch);
    const auto& items = AddressSpace::instance().ordered();
    auto it = std::lower_bound(items.begin(), items.end(), prefix,
                               [](const ItemDef* item, const WString& p) { return item->id < p; });
    return it != items.end() && (*it)->id.compare(0, prefix.size(), prefix) == 0;
}

struct Property {
    DWORD id;
    VARTYPE type;
    const char* description;
};

const Property kProperties[] = {
    {OPC_PROPERTY_DATATYPE, VT_I2, "Item Canonical DataType"},
    {OPC_PROPERTY_VALUE, VT_VARIANT, "Item Value"},
    {OPC_PROPERTY_QUALITY, VT_I2, "Item Quality"},
    {OPC_PROPERTY_TIMESTAMP, VT_DATE, "Item Timestamp"},
    {OPC_PROPERTY_ACCESS_RIGHTS, VT_I4, "Item Access Rights"},
    {OPC_PROPERTY_SCAN_RATE, VT_R4, "Server Scan Rate"},
    {OPC_PROPERTY_EU_UNITS, VT_BSTR, "EU Units"},
    {OPC_PROPERTY_DESCRIPTION, VT_BSTR, "Item Description"},
    {OPC_PROPERTY_HIGH_EU, VT_R8, "High EU"},
    {OPC_PROPERTY_LOW_EU, VT_R8, "Low EU"},
};

bool isAnalog(const ItemDef& item) { return isScalarConvertible(item.type) && item.type != VT_BSTR && item.type != VT_BOOL; }

// The properties an item has: the engineering range belongs to numeric items only.
std::vector<const Property*> propertiesOf(const ItemDef& item) {
    std::vector<const Property*> out;
    for (const Property& p : kProperties) {
        const bool range = p.id == OPC_PROPERTY_HIGH_EU || p.id == OPC_PROPERTY_LOW_EU;
        if (!range || isAnalog(item)) out.push_back(&p);
    }
    return out;
}

const Property* findProperty(DWORD id) {
    for (const Property& p : kProperties) {
        if (p.id == id) return &p;
    }
    return nullptr;
}

DATE toDate(const FILETIME& ft) {
    const unsigned long long ticks = (static_cast<unsigned long long>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    constexpr double kTicksPerDay = 864000000000.0;
    constexpr double kDaysFrom1601To1899 = 109205.0;
    return static_cast<double>(ticks) / kTicksPerDay - kDaysFrom1601To1899;
}

HRESULT propertyValue(const ItemDef& item, DWORD id, VARIANT* out) {
    switch (id) {
        case OPC_PROPERTY_DATATYPE: out->vt = VT_I2; out->iVal = static_cast<SHORT>(item.type); return S_OK;
        case OPC_PROPERTY_VALUE:
        case OPC_PROPERTY_QUALITY:
        case OPC_PROPERTY_TIMESTAMP: {
            if (!(item.access & OPC_READABLE)) return OPC_E_BADRIGHTS;
            VARIANT value;
            VariantInit(&value);
            FILETIME stamp{};
            WORD quality = 0;
            const HRESULT hr = AddressSpace::instance().read(item, VT_EMPTY, &value, &stamp, &quality);
            if (FAILED(hr)) return hr;
            if (id == OPC_PROPERTY_VALUE) { *out = value; return S_OK; }
            VariantClear(&value);
            if (id == OPC_PROPERTY_QUALITY) { out->vt = VT_I2; out->iVal = static_cast<SHORT>(quality); }
            else { out->vt = VT_DATE; out->date = toDate(stamp); }
            return S_OK;
        }
        case OPC_PROPERTY_ACCESS_RIGHTS: out->vt = VT_I4; out->lVal = static_cast<LONG>(item.access); return S_OK;
        case OPC_PROPERTY_SCAN_RATE: out->vt = VT_R4; out->fltVal = 10.0f; return S_OK;
        case OPC_PROPERTY_HIGH_EU:
        case OPC_PROPERTY_LOW_EU:
            if (!isAnalog(item)) return OPC_E_INVALID_PID;
            out->vt = VT_R8;
            out->dblVal = id == OPC_PROPERTY_HIGH_EU ? 100.0 : (item.behavior == Behavior::Sine ? -100.0 : 0.0);
            return S_OK;
        case OPC_PROPERTY_EU_UNITS: {
            out->vt = VT_BSTR;
            out->bstrVal = SysAllocString(OLESTR(""));
            return out->bstrVal ? S_OK : E_OUTOFMEMORY;
        }
        case OPC_PROPERTY_DESCRIPTION: {
            const WString text = widen("Simulated item ") + item.id;
            out->vt = VT_BSTR;
            out->bstrVal = SysAllocStringLen(text.data(), UINT(text.size()));
            return out->bstrVal ? S_OK : E_OUTOFMEMORY;
        }
        default:
            return OPC_E_INVALID_PID;
    }
}

// Fills one property record; values only when asked for.
HRESULT fillProperty(const ItemDef& item, const Property& property, bool withValue, OPCITEMPROPERTY* out) {
    out->vtDataType = property.type;
    out->dwPropertyID = property.id;
    out->szDescription = taskString(widen(property.description));
    if (out->szDescription == nullptr) return E_OUTOFMEMORY;
    VariantInit(&out->vValue);
    out->hrErrorID = withValue ? propertyValue(item, property.id, &out->vValue) : S_OK;
    return S_OK;
}

void freeProperties(OPCITEMPROPERTIES& properties) {
    for (DWORD i = 0; properties.pItemProperties && i < properties.dwNumProperties; ++i) {
        OPCITEMPROPERTY& p = properties.pItemProperties[i];
        CoTaskMemFree(p.szItemID);
        CoTaskMemFree(p.szDescription);
        VariantClear(&p.vValue);
    }
    CoTaskMemFree(properties.pItemProperties);
    properties = OPCITEMPROPERTIES{};
}

// The properties of an item: all of them, or those asked for in order (unknown ids fail singly).
HRESULT itemProperties(const ItemDef& item, bool all, bool withValues, DWORD count, const DWORD* ids,
                       OPCITEMPROPERTIES* out) {
    const std::vector<const Property*> available = propertiesOf(item);
    const DWORD n = all ? DWORD(available.size()) : count;
    out->hrErrorID = S_OK;
    if (n == 0) return S_OK;
    out->pItemProperties = taskArray<OPCITEMPROPERTY>(n);
    if (out->pItemProperties == nullptr) return E_OUTOFMEMORY;
    out->dwNumProperties = n;
    for (DWORD i = 0; i < n; ++i) {
        const Property* property = all ? available[i] : findProperty(ids[i]);
        OPCITEMPROPERTY& record = out->pItemProperties[i];
        if (property == nullptr) {
            record.dwPropertyID = ids[i];
            record.hrErrorID = OPC_E_INVALID_PID;
            out->hrErrorID = S_FALSE;
            continue;
        }
        if (FAILED(fillProperty(item, *property, withValues, &record))) return E_OUTOFMEMORY;
        if (FAILED(record.hrErrorID)) out->hrErrorID = S_FALSE;
    }
    return S_OK;
}

}  // namespace

std::atomic<int> g_browsePortion{0};
std::atomic<int> g_benchLeaves{0};

HRESULT Server::GetProperties(DWORD dwItemCount, LPWSTR* pszItemIDs, BOOL bReturnPropertyValues,
                              DWORD dwPropertyCount, DWORD* pdwPropertyIDs, OPCITEMPROPERTIES** ppItemProperties) {
    if (ppItemProperties) *ppItemProperties = nullptr;
    if (HRESULT hr = enter("IOPCBrowse::GetProperties", "count=" + std::to_string(dwItemCount) + " values=" +
                                                            std::to_string(bReturnPropertyValues) +
                                                            " ids=" + joinNumbers(dwPropertyCount, pdwPropertyIDs));
        FAILED(hr)) {
        return hr;
    }
    if (!ppItemProperties || !pszItemIDs || dwItemCount == 0 || (dwPropertyCount && !pdwPropertyIDs)) {
        return E_INVALIDARG;
    }
    auto* out = taskArray<OPCITEMPROPERTIES>(dwItemCount);
    if (out == nullptr) return E_OUTOFMEMORY;
    bool anyFailed = false;
    for (DWORD i = 0; i < dwItemCount; ++i) {
        const ItemDef* item = nullptr;
        HRESULT hr = AddressSpace::instance().lookup(pszItemIDs[i], &item);
        if (SUCCEEDED(hr)) {
            hr = itemProperties(*item, dwPropertyCount == 0, bReturnPropertyValues != FALSE, dwPropertyCount,
                                pdwPropertyIDs, &out[i]);
            if (hr == E_OUTOFMEMORY) {
                for (DWORD j = 0; j <= i; ++j) freeProperties(out[j]);
                CoTaskMemFree(out);
                return hr;
            }
            hr = out[i].hrErrorID;
        }
        out[i].hrErrorID = hr;
        anyFailed = anyFailed || hr != S_OK;
    }
    *ppItemProperties = out;
    return anyFailed ? S_FALSE : S_OK;
}

HRESULT Server::Browse(LPWSTR szItemID, LPWSTR* pszContinuationPoint, DWORD dwMaxElementsReturned,
                       OPCBROWSEFILTER dwBrowseFilter, LPWSTR szElementNameFilter, LPWSTR, BOOL bReturnAllProperties,
                       BOOL bReturnPropertyValues, DWORD dwPropertyCount, DWORD* pdwPropertyIDs, BOOL* pbMoreElements,
                       DWORD* pdwCount, OPCBROWSEELEMENT** ppBrowseElements) {
    const std::string continuation =
        pszContinuationPoint == nullptr ? std::string("null") : narrow(*pszContinuationPoint);
    if (ppBrowseElements) *ppBrowseElements = nullptr;
    if (pdwCount) *pdwCount = 0;
    if (pbMoreElements) *pbMoreElements = FALSE;
    if (HRESULT hr = enter("IOPCBrowse::Browse", "id=" + narrow(szItemID) + " continuation=" + continuation +
                                                     " max=" + std::to_string(dwMaxElementsReturned) +
                                                     " filter=" + std::to_string(dwBrowseFilter) +
                                                     " all=" + std::to_string(bReturnAllProperties) +
                                                     " values=" + std::to_string(bReturnPropertyValues) +
                                                     " ids=" + joinNumbers(dwPropertyCount, pdwPropertyIDs));
        FAILED(hr)) {
        return hr;
    }
    if (!pszContinuationPoint || !pbMoreElements || !pdwCount || !ppBrowseElements ||
        (dwPropertyCount && !pdwPropertyIDs)) {
        return E_INVALIDARG;
    }
    // The incoming continuation point stays the caller's; a new one (or null) replaces it.
    LPWSTR incoming = *pszContinuationPoint;
    *pszContinuationPoint = nullptr;
    const WString branch = szItemID ? WString(szItemID) : WString();
    if (!isBranch(branch)) {
        const ItemDef* item = nullptr;
        return SUCCEEDED(AddressSpace::instance().lookup(branch.c_str(), &item)) ? S_FALSE : OPC_E_UNKNOWNITEMID;
    }

    struct Element {
        WString name;
        const ItemDef* item;  // null for a branch
    };
    std::vector<Element> children;
    const WString prefix = prefixOf(branch);
    std::set<WString> branches;
    // The bench branch's leaves are made only for the portion answered; filters other than the
    // branches-only one do not apply to them.
    const bool bench = isBenchBranch(branch);
    const size_t benchCount = bench && dwBrowseFilter != OPC_BROWSE_FILTER_BRANCHES ? benchLeaves() : 0;
    const ItemDef* benchItem = bench ? benchLeafItem() : nullptr;
    for (const ItemDef* item : AddressSpace::instance().ordered()) {
        if (bench) break;
        if (item->id.compare(0, prefix.size(), prefix) != 0) continue;
        const WString rest = item->id.substr(prefix.size());
        const auto dot = rest.find(kSeparator);
        const bool isItem = dot == WString::npos;
        const WString name = isItem ? rest : rest.substr(0, dot);
        if (!isItem && !branches.insert(name).second) continue;
        if (dwBrowseFilter == OPC_BROWSE_FILTER_BRANCHES && isItem) continue;
        if (dwBrowseFilter == OPC_BROWSE_FILTER_ITEMS && !isItem) continue;
        if (!matches(szElementNameFilter, name)) continue;
        children.push_back(Element{name, isItem ? item : nullptr});
    }

    const size_t total = bench ? benchCount : children.size();
    size_t first = 0;
    if (incoming != nullptr && incoming[0] != 0) {
        const std::string text = narrow(incoming);
        char* end = nullptr;
        const unsigned long value = std::strtoul(text.c_str(), &end, 10);
        if (end == text.c_str() || *end != 0 || value > total) return OPC_E_INVALIDCONTINUATIONPOINT;
        first = value;
    }
    size_t limit = total - first;
    if (dwMaxElementsReturned) limit = std::min<size_t>(limit, dwMaxElementsReturned);
    if (const int portion = g_browsePortion.load(); portion > 0) limit = std::min<size_t>(limit, size_t(portion));
    const size_t next = first + limit;

    auto* elements = taskArray<OPCBROWSEELEMENT>(DWORD(limit));
    if (elements == nullptr) return E_OUTOFMEMORY;
    bool ok = true;
    for (size_t i = 0; ok && i < limit; ++i) {
        const Element child = bench ? Element{widen(std::to_string(first + i).c_str()), benchItem} : children[first + i];
        OPCBROWSEELEMENT& out = elements[i];
        out.szName = taskString(child.name);
        out.szItemID = taskString(prefix + child.name);
        out.dwFlagValue = child.item ? OPC_BROWSE_ISITEM : OPC_BROWSE_HASCHILDREN;
        ok = out.szName && out.szItemID;
        if (ok && child.item) {
            ok = SUCCEEDED(itemProperties(*child.item, bReturnAllProperties != FALSE, bReturnPropertyValues != FALSE,
                                          dwPropertyCount, pdwPropertyIDs, &out.ItemProperties));
        }
    }
    if (ok && next < total) {
        *pszContinuationPoint = taskString(widen(std::to_string(next).c_str()));
        ok = *pszContinuationPoint != nullptr;
    }
    if (!ok) {
        for (size_t i = 0; i < limit; ++i) {
            CoTaskMemFree(elements[i].szName);
            CoTaskMemFree(elements[i].szItemID);
            freeProperties(elements[i].ItemProperties);
        }
        CoTaskMemFree(elements);
        return E_OUTOFMEMORY;
    }
    *pbMoreElements = next < total ? TRUE : FALSE;
    *pdwCount = DWORD(limit);
    *ppBrowseElements = elements;
    return limit == 0 ? S_FALSE : S_OK;
}

HRESULT Server::QueryOrganization(OPCNAMESPACETYPE* pNameSpaceType) {
    if (HRESULT hr = enter("IOPCBrowseServerAddressSpace::QueryOrganization", ""); FAILED(hr)) return hr;
    if (pNameSpaceType == nullptr) return E_INVALIDARG;
    *pNameSpaceType = OPC_NS_HIERARCHIAL;
    return S_OK;
}

HRESULT Server::ChangeBrowsePosition(OPCBROWSEDIRECTION dwBrowseDirection, LPCWSTR szString) {
    if (HRESULT hr = enter("IOPCBrowseServerAddressSpace::ChangeBrowsePosition",
                           "direction=" + std::to_string(dwBrowseDirection) + " name=" + narrow(szString));
        FAILED(hr)) {
        return hr;
    }
    std::lock_guard<std::mutex> guard(browseLock_);
    switch (dwBrowseDirection) {
        case OPC_BROWSE_UP: {
            if (browsePosition_.empty()) return E_FAIL;
            const auto dot = browsePosition_.rfind(kSeparator);
            browsePosition_ = dot == WString::npos ? WString() : browsePosition_.substr(0, dot);
            return S_OK;
        }
        case OPC_BROWSE_DOWN: {
            if (szString == nullptr || szString[0] == 0) return E_INVALIDARG;
            const WString target = prefixOf(browsePosition_) + szString;
            if (!isBranch(target)) return E_INVALIDARG;
            browsePosition_ = target;
            return S_OK;
        }
        case OPC_BROWSE_TO: {
            const WString target = szString ? WString(szString) : WString();
            if (!isBranch(target)) return E_INVALIDARG;
            browsePosition_ = target;
            return S_OK;
        }
        default:
            return E_INVALIDARG;
    }
}

HRESULT Server::BrowseOPCItemIDs(OPCBROWSETYPE dwBrowseFilterType, LPCWSTR szFilterCriteria,
                                 VARTYPE vtDataTypeFilter, DWORD dwAccessRightsFilter, LPENUMSTRING* ppIEnumString) {
    if (ppIEnumString) *ppIEnumString = nullptr;
    if (HRESULT hr = enter("IOPCBrowseServerAddressSpace::BrowseOPCItemIDs",
                           "type=" + std::to_string(dwBrowseFilterType) + " filter=" + narrow(szFilterCriteria) +
                               " vt=" + std::to_string(vtDataTypeFilter) + " rights=" +
                               std::to_string(dwAccessRightsFilter));
        FAILED(hr)) {
        return hr;
    }
    if (ppIEnumString == nullptr) return E_INVALIDARG;
    if (dwBrowseFilterType < OPC_BRANCH || dwBrowseFilterType > OPC_FLAT) return E_INVALIDARG;
    WString prefix;
    {
        std::lock_guard<std::mutex> guard(browseLock_);
        prefix = prefixOf(browsePosition_);
    }
    std::vector<WString> names;
    std::set<WString> branches;
    if (const ItemDef* item = benchLeafItem(); prefix == prefixOf(benchBranch()) && benchLeaves() > 0 && item &&
                                                dwBrowseFilterType != OPC_BRANCH &&
                                                (vtDataTypeFilter == VT_EMPTY || vtDataTypeFilter == item->type) &&
                                                (item->access & dwAccessRightsFilter) == dwAccessRightsFilter) {
        for (size_t n = 0; n < benchLeaves(); ++n) {
            const WString name = widen(std::to_string(n).c_str());
            if (matches(szFilterCriteria, name)) names.push_back(dwBrowseFilterType == OPC_FLAT ? prefix + name : name);
        }
    }
    for (const ItemDef* item : AddressSpace::instance().ordered()) {
        if (item->id.compare(0, prefix.size(), prefix) != 0) continue;
        const WString rest = item->id.substr(prefix.size());
        const auto dot = rest.find(kSeparator);
        if (dwBrowseFilterType == OPC_BRANCH) {
            if (dot == WString::npos) continue;
            const WString branch = rest.substr(0, dot);
            if (matches(szFilterCriteria, branch) && branches.insert(branch).second) names.push_back(branch);
            continue;
        }
        if (dwBrowseFilterType == OPC_LEAF && dot != WString::npos) continue;
        if (vtDataTypeFilter != VT_EMPTY && vtDataTypeFilter != item->type) continue;
        if ((item->access & dwAccessRightsFilter) != dwAccessRightsFilter) continue;
        const WString& name = dwBrowseFilterType == OPC_FLAT ? item->id : rest;
        if (matches(szFilterCriteria, name)) names.push_back(name);
    }
    const bool none = names.empty();
    *ppIEnumString = newStringEnum(std::move(names));
    return none ? S_FALSE : S_OK;
}

HRESULT Server::GetItemID(LPWSTR szItemDataID, LPWSTR* szItemID) {
    if (szItemID) *szItemID = nullptr;
    if (HRESULT hr = enter("IOPCBrowseServerAddressSpace::GetItemID", "name=" + narrow(szItemDataID)); FAILED(hr)) {
        return hr;
    }
    if (szItemDataID == nullptr || szItemID == nullptr) return E_INVALIDARG;
    WString id;
    {
        std::lock_guard<std::mutex> guard(browseLock_);
        id = szItemDataID[0] == 0 ? browsePosition_ : prefixOf(browsePosition_) + szItemDataID;
    }
    const ItemDef* item = nullptr;
    if (FAILED(AddressSpace::instance().lookup(id.c_str(), &item)) && !isBranch(id) && !isBenchLeaf(id))
        return E_INVALIDARG;
    *szItemID = taskString(id);
    return *szItemID ? S_OK : E_OUTOFMEMORY;
}

HRESULT Server::BrowseAccessPaths(LPCWSTR szItemID, LPENUMSTRING* ppIEnumString) {
    if (ppIEnumString) *ppIEnumString = nullptr;
    if (HRESULT hr = enter("IOPCBrowseServerAddressSpace::BrowseAccessPaths", "id=" + narrow(szItemID)); FAILED(hr)) {
        return hr;
    }
    return E_NOTIMPL;
}

HRESULT Server::QueryAvailableProperties(LPWSTR szItemID, DWORD* pdwCount, DWORD** ppPropertyIDs,
                                         LPWSTR** ppDescriptions, VARTYPE** ppvtDataTypes) {
    if (pdwCount) *pdwCount = 0;
    if (ppPropertyIDs) *ppPropertyIDs = nullptr;
    if (ppDescriptions) *ppDescriptions = nullptr;
    if (ppvtDataTypes) *ppvtDataTypes = nullptr;
    if (HRESULT hr = enter("IOPCItemProperties::QueryAvailableProperties", "id=" + narrow(szItemID)); FAILED(hr)) {
        return hr;
    }
    if (!pdwCount || !ppPropertyIDs || !ppDescriptions || !ppvtDataTypes) return E_INVALIDARG;
    const ItemDef* item = nullptr;
    if (HRESULT hr = AddressSpace::instance().lookup(szItemID, &item); FAILED(hr)) return hr;
    const std::vector<const Property*> available = propertiesOf(*item);
    const DWORD n = DWORD(available.size());
    auto* ids = taskArray<DWORD>(n);
    auto* texts = taskArray<LPWSTR>(n);
    auto* types = taskArray<VARTYPE>(n);
    bool ok = ids && texts && types;
    for (DWORD i = 0; ok && i < n; ++i) {
        ids[i] = available[i]->id;
        types[i] = available[i]->type;
        texts[i] = taskString(widen(available[i]->description));
        ok = texts[i] != nullptr;
    }
    if (!ok) {
        for (DWORD i = 0; texts && i < n; ++i) CoTaskMemFree(texts[i]);
        CoTaskMemFree(ids);
        CoTaskMemFree(texts);
        CoTaskMemFree(types);
        return E_OUTOFMEMORY;
    }
    *pdwCount = n;
    *ppPropertyIDs = ids;
    *ppDescriptions = texts;
    *ppvtDataTypes = types;
    return S_OK;
}

HRESULT Server::GetItemProperties(LPWSTR szItemID, DWORD dwCount, DWORD* pdwPropertyIDs, VARIANT** ppvData,
                                  HRESULT** ppErrors) {
    if (ppvData) *ppvData = nullptr;
    if (ppErrors) *ppErrors = nullptr;
    if (HRESULT hr = enter("IOPCItemProperties::GetItemProperties",
                           "id=" + narrow(szItemID) + " count=" + std::to_string(dwCount) +
                               " ids=" + joinNumbers(dwCount, pdwPropertyIDs));
        FAILED(hr)) {
        return hr;
    }
    if (!ppvData || !ppErrors || !pdwPropertyIDs || dwCount == 0) return E_INVALIDARG;
    const ItemDef* item = nullptr;
    if (HRESULT hr = AddressSpace::instance().lookup(szItemID, &item); FAILED(hr)) return hr;
    auto* values = taskArray<VARIANT>(dwCount);
    auto* errs = taskArray<HRESULT>(dwCount);
    if (!values || !errs) {
        CoTaskMemFree(values);
        CoTaskMemFree(errs);
        return E_OUTOFMEMORY;
    }
    bool anyFailed = false;
    for (DWORD i = 0; i < dwCount; ++i) {
        VariantInit(&values[i]);
        errs[i] = propertyValue(*item, pdwPropertyIDs[i], &values[i]);
        anyFailed = anyFailed || FAILED(errs[i]);
    }
    *ppvData = values;
    *ppErrors = errs;
    return anyFailed ? S_FALSE : S_OK;
}

HRESULT Server::LookupItemIDs(LPWSTR szItemID, DWORD dwCount, DWORD* pdwPropertyIDs, LPWSTR** ppszNewItemIDs,
                              HRESULT** ppErrors) {
    if (ppszNewItemIDs) *ppszNewItemIDs = nullptr;
    if (ppErrors) *ppErrors = nullptr;
    if (HRESULT hr = enter("IOPCItemProperties::LookupItemIDs",
                           "id=" + narrow(szItemID) + " count=" + std::to_string(dwCount) +
                               " ids=" + joinNumbers(dwCount, pdwPropertyIDs));
        FAILED(hr)) {
        return hr;
    }
    if (!ppszNewItemIDs || !ppErrors || !pdwPropertyIDs || dwCount == 0) return E_INVALIDARG;
    const ItemDef* item = nullptr;
    if (HRESULT hr = AddressSpace::instance().lookup(szItemID, &item); FAILED(hr)) return hr;
    auto* ids = taskArray<LPWSTR>(dwCount);
    auto* errs = taskArray<HRESULT>(dwCount);
    if (!ids || !errs) {
        CoTaskMemFree(ids);
        CoTaskMemFree(errs);
        return E_OUTOFMEMORY;
    }
    // No property of this address space is an item of its own.
    for (DWORD i = 0; i < dwCount; ++i) {
        const DWORD pid = pdwPropertyIDs[i];
        errs[i] = findProperty(pid) == nullptr || pid <= OPC_PROPERTY_SCAN_RATE ? OPC_E_INVALID_PID : E_FAIL;
    }
    *ppszNewItemIDs = ids;
    *ppErrors = errs;
    return S_FALSE;
}

}  // namespace sim
