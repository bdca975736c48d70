#include "ServerList.h"

#include "ComObject.h"
#include "Control.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace sim {
namespace {

class Key {
public:
    explicit Key(const WString& path) {
        if (RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_READ, &key_) != ERROR_SUCCESS) key_ = nullptr;
    }
    ~Key() {
        if (key_) RegCloseKey(key_);
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    explicit operator bool() const { return key_ != nullptr; }
    std::vector<WString> subkeys() const {
        std::vector<WString> names;
        WCHAR name[512];
        for (DWORD i = 0; key_; ++i) {
            DWORD length = 512;
            if (RegEnumKeyExW(key_, i, name, &length, nullptr, nullptr, nullptr, nullptr) != ERROR_SUCCESS) break;
            names.emplace_back(name, length);
        }
        return names;
    }

private:
    HKEY key_ = nullptr;
};

bool parseGuid(const WString& text, GUID* guid) { return SUCCEEDED(IIDFromString(text.c_str(), guid)); }

bool hasCategory(const WString& clsidText, const CATID& category) {
    return bool(Key(widen("CLSID\\") + clsidText + widen("\\Implemented Categories\\") + guidText(category)));
}

// Classes of the host that implement one of `implemented` and all of `required`.
std::vector<GUID> classesOf(ULONG implementedCount, const CATID* implemented, ULONG requiredCount,
                            const CATID* required) {
    std::vector<GUID> out;
    auto add = [&out](const GUID& clsid) {
        if (std::none_of(out.begin(), out.end(), [&](const GUID& g) { return IsEqualGUID(g, clsid); })) {
            out.push_back(clsid);
        }
    };
    for (const WString& name : Key(widen("CLSID")).subkeys()) {
        GUID clsid;
        if (!parseGuid(name, &clsid)) continue;
        bool any = false, all = true;
        for (ULONG i = 0; i < implementedCount; ++i) any = any || hasCategory(name, implemented[i]);
        for (ULONG i = 0; i < requiredCount; ++i) all = all && hasCategory(name, required[i]);
        if (any && all) add(clsid);
    }
    // Servers of the first generation mark their ProgID with an OPC sub-key instead of a category.
    const bool wantsFirst = std::any_of(implemented, implemented + implementedCount,
                                        [](const CATID& c) { return IsEqualGUID(c, CATID_OPCDAServer10); });
    if (wantsFirst && requiredCount == 0) {
        for (const WString& name : Key(WString()).subkeys()) {
            WString text;
            GUID clsid;
            if (Key(name + widen("\\OPC")) && readRegistryText(name + widen("\\CLSID"), nullptr, &text) &&
                parseGuid(text, &clsid)) {
                add(clsid);
            }
        }
    }
    return out;
}

// Enumerator of class ids, for both enumerator interfaces of the class.
template <typename Enum>
class GuidEnum final : public opc::support::ComObject<GuidEnum<Enum>, Enum> {
public:
    GuidEnum(const IID& iid, std::shared_ptr<const std::vector<GUID>> ids, size_t position)
        : iid_(iid), ids_(std::move(ids)), position_(position) {}
    void* interfaceFor(REFIID iid) { return IsEqualIID(iid, iid_) ? static_cast<Enum*>(this) : nullptr; }

    HRESULT STDMETHODCALLTYPE Next(ULONG celt, GUID* rgelt, ULONG* fetched) override {
        if (rgelt == nullptr || (fetched == nullptr && celt != 1)) return E_POINTER;
        ULONG n = 0;
        while (n < celt && position_ < ids_->size()) rgelt[n++] = (*ids_)[position_++];
        if (fetched) *fetched = n;
        return n == celt ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG celt) override {
        const size_t left = ids_->size() - position_;
        position_ += std::min<size_t>(celt, left);
        return celt <= left ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        position_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(Enum** out) override {
        if (out == nullptr) return E_POINTER;
        *out = new GuidEnum(iid_, ids_, position_);
        return S_OK;
    }

private:
    Live<Kind::Enum> live_;
    const IID iid_;
    std::shared_ptr<const std::vector<GUID>> ids_;
    size_t position_;
};

class ServerList final : public opc::support::ComObject<ServerList, IOPCServerList2, IOPCServerList> {
public:
    void* interfaceFor(REFIID iid) {
        if (IsEqualIID(iid, IID_IOPCServerList2)) return static_cast<IOPCServerList2*>(this);
        if (IsEqualIID(iid, IID_IOPCServerList)) return static_cast<IOPCServerList*>(this);
        return nullptr;
    }

    HRESULT STDMETHODCALLTYPE EnumClassesOfCategories(ULONG cImplemented, CATID rgcatidImpl[], ULONG cRequired,
                                                      CATID rgcatidReq[], IOPCEnumGUID** ppenumClsid) override {
        if (ppenumClsid) *ppenumClsid = nullptr;
        if (HRESULT hr = enter("IOPCServerList2::EnumClassesOfCategories",
                               "implemented=" + std::to_string(cImplemented) + " required=" + std::to_string(cRequired));
            FAILED(hr)) {
            return hr;
        }
        if (ppenumClsid == nullptr || (cImplemented && !rgcatidImpl) || (cRequired && !rgcatidReq)) return E_INVALIDARG;
        auto ids = std::make_shared<const std::vector<GUID>>(classesOf(cImplemented, rgcatidImpl, cRequired, rgcatidReq));
        *ppenumClsid = new GuidEnum<IOPCEnumGUID>(IID_IOPCEnumGUID, ids, 0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE EnumClassesOfCategories(ULONG cImplemented, CATID rgcatidImpl[], ULONG cRequired,
                                                      CATID rgcatidReq[], IEnumGUID** ppenumClsid) override {
        if (ppenumClsid) *ppenumClsid = nullptr;
        if (HRESULT hr = enter("IOPCServerList::EnumClassesOfCategories", ""); FAILED(hr)) return hr;
        if (ppenumClsid == nullptr || (cImplemented && !rgcatidImpl) || (cRequired && !rgcatidReq)) return E_INVALIDARG;
        auto ids = std::make_shared<const std::vector<GUID>>(classesOf(cImplemented, rgcatidImpl, cRequired, rgcatidReq));
        *ppenumClsid = new GuidEnum<IEnumGUID>(IID_IEnumGUID, ids, 0);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetClassDetails(REFCLSID clsid, LPOLESTR* ppszProgID, LPOLESTR* ppszUserType,
                                              LPOLESTR* ppszVerIndProgID) override {
        for (LPOLESTR* out : {ppszProgID, ppszUserType, ppszVerIndProgID}) {
            if (out) *out = nullptr;
        }
        if (HRESULT hr = enter("IOPCServerList2::GetClassDetails", "clsid=" + narrow(guidText(clsid).c_str()));
            FAILED(hr)) {
            return hr;
        }
        if (!ppszProgID || !ppszUserType || !ppszVerIndProgID) return E_INVALIDARG;
        return details(clsid, ppszProgID, ppszUserType, ppszVerIndProgID);
    }
    HRESULT STDMETHODCALLTYPE GetClassDetails(REFCLSID clsid, LPOLESTR* ppszProgID, LPOLESTR* ppszUserType) override {
        if (ppszProgID) *ppszProgID = nullptr;
        if (ppszUserType) *ppszUserType = nullptr;
        if (HRESULT hr = enter("IOPCServerList::GetClassDetails", ""); FAILED(hr)) return hr;
        if (!ppszProgID || !ppszUserType) return E_INVALIDARG;
        return details(clsid, ppszProgID, ppszUserType, nullptr);
    }

    HRESULT STDMETHODCALLTYPE CLSIDFromProgID(LPCOLESTR szProgId, LPCLSID clsid) override {
        if (HRESULT hr = enter("IOPCServerList2::CLSIDFromProgID", "progId=" + narrow(szProgId)); FAILED(hr)) return hr;
        if (szProgId == nullptr || clsid == nullptr) return E_INVALIDARG;
        return ::CLSIDFromProgID(szProgId, clsid);
    }

private:
    static HRESULT details(REFCLSID clsid, LPOLESTR* progId, LPOLESTR* userType, LPOLESTR* independent) {
        const WString key = widen("CLSID\\") + guidText(clsid);
        if (!Key(key)) return REGDB_E_CLASSNOTREG;
        WString text;
        LPOLESTR* outs[] = {progId, userType, independent};
        const WString keys[] = {key + widen("\\ProgID"), key, key + widen("\\VersionIndependentProgID")};
        for (int i = 0; i < 3; ++i) {
            if (outs[i] == nullptr || !readRegistryText(keys[i], nullptr, &text)) continue;
            *outs[i] = taskString(text);
            if (*outs[i] == nullptr) {
                for (LPOLESTR* out : outs) {
                    if (out) { CoTaskMemFree(*out); *out = nullptr; }
                }
                return E_OUTOFMEMORY;
            }
        }
        return S_OK;
    }

    Live<Kind::ServerList> live_;
};

WString listKey() { return widen("CLSID\\") + guidText(CLSID_OpcServerList); }

}  // namespace

HRESULT writeRegistryText(const WString& keyPath, const WCHAR* name, const WString& value) {
    HKEY key = nullptr;
    LONG rc = RegCreateKeyExW(HKEY_CLASSES_ROOT, keyPath.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr);
    if (rc != ERROR_SUCCESS) return HRESULT_FROM_WIN32(rc);
    rc = RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                        DWORD((value.size() + 1) * sizeof(WCHAR)));
    RegCloseKey(key);
    return rc == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(rc);
}

HRESULT writeRegistryTexts(const std::vector<RegistryText>& entries) {
    for (const RegistryText& entry : entries) {
        if (HRESULT hr = writeRegistryText(entry.key, entry.name, entry.value); FAILED(hr)) return hr;
    }
    return S_OK;
}

bool readRegistryText(const WString& key, const WCHAR* name, WString* text) {
    HKEY handle = nullptr;
    if (RegOpenKeyExW(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_READ, &handle) != ERROR_SUCCESS) return false;
    WCHAR buffer[1024];
    DWORD type = 0, bytes = sizeof buffer;
    const LONG rc = RegQueryValueExW(handle, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer), &bytes);
    RegCloseKey(handle);
    if (rc != ERROR_SUCCESS || type != REG_SZ) return false;
    size_t length = bytes / sizeof(WCHAR);
    while (length > 0 && buffer[length - 1] == 0) --length;
    text->assign(buffer, length);
    return true;
}

HRESULT createServerList(REFIID iid, void** out) {
    auto* list = new ServerList();
    const HRESULT hr = list->QueryInterface(iid, out);
    list->Release();
    return hr;
}

HRESULT registerServerList(const WString& modulePath) {
    WString existing;
    const bool local = readRegistryText(listKey() + widen("\\LocalServer32"), nullptr, &existing);
    const bool inproc = readRegistryText(listKey() + widen("\\InprocServer32"), nullptr, &existing);
    if (local || (inproc && existing != modulePath)) return S_OK;  // the host has its own
    const WString clsid = guidText(CLSID_OpcServerList);
    return writeRegistryTexts({
        {listKey(), nullptr, widen("OPC Server List")},
        {listKey() + widen("\\InprocServer32"), nullptr, modulePath},
        {listKey() + widen("\\ProgID"), nullptr, widen("OPC.ServerList.1")},
        {listKey() + widen("\\VersionIndependentProgID"), nullptr, widen("OPC.ServerList")},
        {widen("OPC.ServerList.1\\CLSID"), nullptr, clsid},
        {widen("OPC.ServerList\\CLSID"), nullptr, clsid},
        {widen("OPC.ServerList\\CurVer"), nullptr, widen("OPC.ServerList.1")},
    });
}

HRESULT unregisterServerList(const WString& modulePath) {
    WString existing;
    if (!readRegistryText(listKey() + widen("\\InprocServer32"), nullptr, &existing) || existing != modulePath) {
        return S_OK;
    }
    for (const WString& key : {listKey(), widen("OPC.ServerList.1"), widen("OPC.ServerList")}) {
        const LONG rc = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
        if (rc != ERROR_SUCCESS && rc != ERROR_FILE_NOT_FOUND) return HRESULT_FROM_WIN32(rc);
    }
    return S_OK;
}

}  // namespace sim
