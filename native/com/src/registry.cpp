// The registry, kept in one text file shared by every process that uses this runtime.
//
// Each change runs under an exclusive lock on "<file>.lock": re-read the file, apply the change,
// write a new file and rename it over the old one. Readers never lock: they re-read the file when
// its identity (inode, size, modification time) differs from what they loaded. Key and value names
// are case-insensitive and keep their spelling. File lines, UTF-8, '%XX' escapes for '%', tab,
// CR and LF:
//     K <tab> HKEY_CLASSES_ROOT\CLSID\{...}
//     V <tab> name <tab> type <tab> s:text | x:hex bytes
// Value lines belong to the key line above them; an empty name is the key's default value.
#include "internal.h"

#include <substrate/registry.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>

namespace {

constexpr int kRoots = 4;
const char16_t* const kRootNames[kRoots] = {u"HKEY_CLASSES_ROOT", u"HKEY_CURRENT_USER", u"HKEY_LOCAL_MACHINE",
                                            u"HKEY_USERS"};
constexpr LSTATUS kUnsupportedType = 1630;

std::u16string fold(const std::u16string& s) {
    std::u16string out(s);
    for (char16_t& c : out)
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    return out;
}

struct Value {
    std::u16string name;
    DWORD type = REG_NONE;
    std::vector<BYTE> data;
};

struct Key {
    std::u16string name;
    std::map<std::u16string, Key> children;  // by folded name, so enumeration is alphabetical
    std::map<std::u16string, Value> values;
};

using Path = std::vector<std::u16string>;

struct Handle {
    int root;
    Path path;
};

// ---- escaping and encoding for the file ------------------------------------------------------

std::string escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '%' || c == '\t' || c == '\n' || c == '\r') {
            char buf[4];
            std::snprintf(buf, sizeof(buf), "%%%02X", static_cast<unsigned char>(c));
            out += buf;
        } else {
            out.push_back(c);
        }
    }
    return out;
}

std::string unescape(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size()) {
            out.push_back(static_cast<char>(std::strtol(s.substr(i + 1, 2).c_str(), nullptr, 16)));
            i += 2;
        } else {
            out.push_back(s[i]);
        }
    }
    return out;
}

// A string value with exactly one terminator and no other zero is written as text.
bool isPlainString(const Value& v, std::u16string* text) {
    if ((v.type != REG_SZ && v.type != REG_EXPAND_SZ) || v.data.size() < 2 || v.data.size() % 2 != 0) return false;
    text->assign(reinterpret_cast<const char16_t*>(v.data.data()), v.data.size() / 2);
    if (text->back() != 0) return false;
    text->pop_back();
    return text->find(char16_t(0)) == std::u16string::npos;
}

std::vector<BYTE> stringBytes(const std::u16string& text) {
    std::vector<BYTE> bytes((text.size() + 1) * 2, 0);
    std::memcpy(bytes.data(), text.data(), text.size() * 2);
    return bytes;
}

void writeKey(std::ostream& out, const Key& key, const std::string& path) {
    out << "K\t" << path << '\n';
    for (const auto& [folded, v] : key.values) {
        out << "V\t" << escape(substrate::toUtf8(v.name)) << '\t' << v.type << '\t';
        std::u16string text;
        if (isPlainString(v, &text)) {
            out << "s:" << escape(substrate::toUtf8(text));
        } else {
            out << "x:";
            for (BYTE b : v.data) {
                char buf[3];
                std::snprintf(buf, sizeof(buf), "%02x", b);
                out << buf;
            }
        }
        out << '\n';
    }
    for (const auto& [folded, child] : key.children)
        writeKey(out, child, path + "\\" + escape(substrate::toUtf8(child.name)));
}

std::vector<std::string> splitTabs(const std::string& line) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
        fields.push_back(line.substr(start, tab - start));
    fields.push_back(line.substr(start));
    return fields;
}

// ---- the store -------------------------------------------------------------------------------

struct Stamp {
    bool exists = false;
    ino_t inode = 0;
    off_t size = 0;
    long long mtimeNs = 0;
    bool operator==(const Stamp& o) const {
        return exists == o.exists && inode == o.inode && size == o.size && mtimeNs == o.mtimeNs;
    }
};

class Store {
public:
    Store() {
        const char* env = std::getenv("OPC_COM_REGISTRY");
        path_ = env != nullptr && *env != 0 ? env : substrate::runtimeFolder() + "com-registry.txt";
        for (int i = 0; i < kRoots; ++i) roots_[i].name = kRootNames[i];
    }

    const std::string& path() const { return path_; }
    std::mutex& mutex() { return mutex_; }

    // Brings the tree up to date with the file. Caller holds mutex().
    void refresh() {
        const Stamp now = stampOf();
        if (loaded_ && now == stamp_) return;
        load();
        stamp_ = now;
        loaded_ = true;
    }

    // Runs a change under the file lock against the latest tree and writes the result. The
    // change returns a registry status; the file is written only when it reports success and
    // says it changed something. Caller holds mutex().
    template <typename Change>
    LSTATUS mutate(Change&& change) {
        const std::string lockPath = path_ + ".lock";
        const int lock = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (lock < 0) return ERROR_ACCESS_DENIED;
        flock(lock, LOCK_EX);
        loaded_ = false;
        refresh();
        bool changed = false;
        LSTATUS status = change(changed);
        if (status == ERROR_SUCCESS && changed && !save()) status = ERROR_ACCESS_DENIED;
        if (status != ERROR_SUCCESS || !changed) loaded_ = false;  // drop a partial change
        stamp_ = stampOf();
        flock(lock, LOCK_UN);
        close(lock);
        return status;
    }

    Key* find(int root, const Path& path) {
        Key* key = &roots_[root];
        for (const std::u16string& part : path) {
            auto it = key->children.find(fold(part));
            if (it == key->children.end()) return nullptr;
            key = &it->second;
        }
        return key;
    }

    Key* create(int root, const Path& path, bool* created) {
        Key* key = &roots_[root];
        *created = false;
        for (const std::u16string& part : path) {
            auto [it, inserted] = key->children.try_emplace(fold(part));
            if (inserted) {
                it->second.name = part;
                *created = true;
            }
            key = &it->second;
        }
        return key;
    }

private:
    Stamp stampOf() const {
        struct stat st {};
        Stamp s;
        if (stat(path_.c_str(), &st) != 0) return s;
        s.exists = true;
        s.inode = st.st_ino;
        s.size = st.st_size;
        s.mtimeNs = static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
        return s;
    }

    void load() {
        for (int i = 0; i < kRoots; ++i) {
            roots_[i].children.clear();
            roots_[i].values.clear();
        }
        std::ifstream in(path_, std::ios::binary);
        Key* current = nullptr;
        std::string line;
        while (std::getline(in, line)) {
            if (!line.empty() && line.back() == '\r') line.pop_back();
            const std::vector<std::string> f = splitTabs(line);
            if (f.size() == 2 && f[0] == "K") {
                current = keyFromText(f[1]);
            } else if (f.size() == 4 && f[0] == "V" && current != nullptr) {
                Value v;
                v.name = substrate::fromUtf8(unescape(f[1]));
                v.type = static_cast<DWORD>(std::strtoul(f[2].c_str(), nullptr, 10));
                if (f[3].compare(0, 2, "s:") == 0) {
                    v.data = stringBytes(substrate::fromUtf8(unescape(f[3].substr(2))));
                } else if (f[3].compare(0, 2, "x:") == 0) {
                    for (size_t i = 2; i + 1 < f[3].size(); i += 2)
                        v.data.push_back(static_cast<BYTE>(std::strtoul(f[3].substr(i, 2).c_str(), nullptr, 16)));
                }
                current->values[fold(v.name)] = std::move(v);
            }
        }
    }

    Key* keyFromText(const std::string& text) {
        Path parts;
        size_t start = 0;
        for (size_t slash; (slash = text.find('\\', start)) != std::string::npos; start = slash + 1)
            parts.push_back(substrate::fromUtf8(unescape(text.substr(start, slash - start))));
        parts.push_back(substrate::fromUtf8(unescape(text.substr(start))));
        for (int i = 0; i < kRoots; ++i) {
            if (fold(parts[0]) == fold(kRootNames[i])) {
                bool created = false;
                return create(i, Path(parts.begin() + 1, parts.end()), &created);
            }
        }
        return nullptr;
    }

    bool save() {
        const std::string temp = path_ + ".tmp." + std::to_string(getpid());
        {
            std::ofstream out(temp, std::ios::binary | std::ios::trunc);
            if (!out) return false;
            out << "# COM class registry. Written by the COM runtime; edit with care.\n";
            for (int i = 0; i < kRoots; ++i) writeKey(out, roots_[i], substrate::toUtf8(kRootNames[i]));
            out.flush();
            if (!out) {
                std::remove(temp.c_str());
                return false;
            }
        }
        if (std::rename(temp.c_str(), path_.c_str()) != 0) {
            std::remove(temp.c_str());
            return false;
        }
        return true;
    }

    std::string path_;
    std::mutex mutex_;
    Key roots_[kRoots];
    Stamp stamp_;
    bool loaded_ = false;
};

Store& store() {
    static Store* instance = new Store();  // lives until the process ends, used from any thread
    return *instance;
}

std::set<Handle*>& openHandles() {
    static std::set<Handle*>* handles = new std::set<Handle*>();
    return *handles;
}

int predefinedRoot(HKEY key) {
    for (int i = 0; i < kRoots; ++i)
        if (key == reinterpret_cast<HKEY>(static_cast<ULONG_PTR>(static_cast<LONG>(0x80000000u + i)))) return i;
    return -1;
}

Path split(LPCWSTR subKey) {
    Path parts;
    if (subKey == nullptr) return parts;
    std::u16string part;
    for (const char16_t* p = subKey; *p != 0; ++p) {
        if (*p == u'\\') {
            if (!part.empty()) parts.push_back(part);
            part.clear();
        } else {
            part.push_back(*p);
        }
    }
    if (!part.empty()) parts.push_back(part);
    return parts;
}

// Resolves a key handle plus an optional sub-key into a root and a path. Caller holds the mutex.
bool resolve(HKEY key, LPCWSTR subKey, int* root, Path* path) {
    const int predefined = predefinedRoot(key);
    if (predefined >= 0) {
        *root = predefined;
        path->clear();
    } else {
        auto* handle = reinterpret_cast<Handle*>(key);
        if (openHandles().count(handle) == 0) return false;
        *root = handle->root;
        *path = handle->path;
    }
    for (std::u16string& part : split(subKey)) path->push_back(std::move(part));
    return true;
}

// The key a handle plus an optional sub-key leads to in the latest tree: ERROR_INVALID_HANDLE for an
// unknown handle, `missing` when there is no such key, else ERROR_SUCCESS with *found set (and the
// root and path in *root and *path when asked for). Caller holds the mutex.
LSTATUS findKey(Store& s, HKEY key, LPCWSTR subKey, LSTATUS missing, Key** found, int* root = nullptr,
                Path* path = nullptr) {
    int keyRoot = 0;
    Path keyPath;
    if (!resolve(key, subKey, &keyRoot, &keyPath)) return ERROR_INVALID_HANDLE;
    s.refresh();
    *found = s.find(keyRoot, keyPath);
    if (*found == nullptr) return missing;
    if (root != nullptr) *root = keyRoot;
    if (path != nullptr) *path = std::move(keyPath);
    return ERROR_SUCCESS;
}

HKEY newHandle(int root, Path path) {
    auto* handle = new Handle{root, std::move(path)};
    openHandles().insert(handle);
    return reinterpret_cast<HKEY>(handle);
}

LSTATUS copyOut(const std::vector<BYTE>& data, LPBYTE out, LPDWORD size) {
    if (out == nullptr) {
        if (size != nullptr) *size = static_cast<DWORD>(data.size());
        return ERROR_SUCCESS;
    }
    if (size == nullptr) return ERROR_INVALID_PARAMETER;
    if (*size < data.size()) {
        *size = static_cast<DWORD>(data.size());
        return ERROR_MORE_DATA;
    }
    if (!data.empty()) std::memcpy(out, data.data(), data.size());
    *size = static_cast<DWORD>(data.size());
    return ERROR_SUCCESS;
}

LSTATUS copyName(const std::u16string& name, LPWSTR out, LPDWORD chars) {
    if (out == nullptr || chars == nullptr) return ERROR_INVALID_PARAMETER;
    if (*chars <= name.size()) return ERROR_MORE_DATA;
    std::memcpy(out, name.c_str(), (name.size() + 1) * sizeof(char16_t));
    *chars = static_cast<DWORD>(name.size());
    return ERROR_SUCCESS;
}

std::u16string valueName(LPCWSTR name) { return name == nullptr ? std::u16string() : std::u16string(name); }

// Runs a change on the values of the key behind a handle, under the file lock against the latest tree
// (see Store::mutate). ERROR_KEY_DELETED when the key is gone. Caller holds the mutex.
template <typename Change>
LSTATUS changeValues(Store& s, HKEY hKey, Change&& change) {
    int root = 0;
    Path path;
    if (!resolve(hKey, nullptr, &root, &path)) return ERROR_INVALID_HANDLE;
    return s.mutate([&](bool& changed) -> LSTATUS {
        Key* key = s.find(root, path);
        if (key == nullptr) return ERROR_KEY_DELETED;
        return change(key->values, changed);
    });
}

// Copies out the name of the index-th of a key's sub-keys or values and points *entry at it.
template <typename Entries>
LSTATUS nameAt(const Entries& entries, DWORD index, LPWSTR name, LPDWORD chars,
               typename Entries::const_iterator* entry) {
    if (index >= entries.size()) return ERROR_NO_MORE_ITEMS;
    *entry = std::next(entries.begin(), index);
    return copyName((*entry)->second.name, name, chars);
}

}  // namespace

namespace substrate {

bool classRootString(const std::u16string& path, std::u16string* value) {
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    s.refresh();
    Key* key = s.find(0, split(path.c_str()));
    if (key == nullptr) return false;
    auto it = key->values.find(u"");
    if (it == key->values.end() || (it->second.type != REG_SZ && it->second.type != REG_EXPAND_SZ)) return false;
    const std::vector<BYTE>& d = it->second.data;
    std::u16string text(reinterpret_cast<const char16_t*>(d.data()), d.size() / 2);
    const size_t end = text.find(char16_t(0));
    if (end != std::u16string::npos) text.resize(end);
    *value = text;
    return true;
}

}  // namespace substrate

const char* RegistryFilePath(void) { return store().path().c_str(); }

LSTATUS RegCreateKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, LPWSTR, DWORD, REGSAM, const LPSECURITY_ATTRIBUTES,
                        PHKEY phkResult, LPDWORD lpdwDisposition) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    int root = 0;
    Path path;
    if (!resolve(hKey, lpSubKey, &root, &path)) return ERROR_INVALID_HANDLE;
    bool created = false;
    const LSTATUS status = s.mutate([&](bool& changed) -> LSTATUS {
        if (predefinedRoot(hKey) < 0 && s.find(root, reinterpret_cast<Handle*>(hKey)->path) == nullptr)
            return ERROR_KEY_DELETED;
        s.create(root, path, &created);
        changed = created;
        return ERROR_SUCCESS;
    });
    if (status != ERROR_SUCCESS) return status;
    if (lpdwDisposition != nullptr) *lpdwDisposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
    *phkResult = newHandle(root, std::move(path));
    return ERROR_SUCCESS;
}

LSTATUS RegOpenKeyExW(HKEY hKey, LPCWSTR lpSubKey, DWORD, REGSAM, PHKEY phkResult) {
    if (phkResult == nullptr) return ERROR_INVALID_PARAMETER;
    *phkResult = nullptr;
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    Key* key = nullptr;
    int root = 0;
    Path path;
    const LSTATUS status = findKey(s, hKey, lpSubKey, ERROR_FILE_NOT_FOUND, &key, &root, &path);
    if (status != ERROR_SUCCESS) return status;
    *phkResult = newHandle(root, std::move(path));
    return ERROR_SUCCESS;
}

LSTATUS RegCloseKey(HKEY hKey) {
    if (predefinedRoot(hKey) >= 0) return ERROR_SUCCESS;
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    auto* handle = reinterpret_cast<Handle*>(hKey);
    if (openHandles().erase(handle) == 0) return ERROR_INVALID_HANDLE;
    delete handle;
    return ERROR_SUCCESS;
}

LSTATUS RegSetValueExW(HKEY hKey, LPCWSTR lpValueName, DWORD, DWORD dwType, const BYTE* lpData, DWORD cbData) {
    if (lpData == nullptr && cbData != 0) return ERROR_INVALID_PARAMETER;
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    return changeValues(s, hKey, [&](auto& values, bool& changed) -> LSTATUS {
        Value v;
        v.name = valueName(lpValueName);
        v.type = dwType;
        v.data.assign(lpData, lpData + cbData);
        values[fold(v.name)] = std::move(v);
        changed = true;
        return ERROR_SUCCESS;
    });
}

LSTATUS RegQueryValueExW(HKEY hKey, LPCWSTR lpValueName, LPDWORD, LPDWORD lpType, LPBYTE lpData,
                         LPDWORD lpcbData) {
    if (lpData != nullptr && lpcbData == nullptr) return ERROR_INVALID_PARAMETER;
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    Key* key = nullptr;
    if (const LSTATUS status = findKey(s, hKey, nullptr, ERROR_KEY_DELETED, &key); status != ERROR_SUCCESS)
        return status;
    auto it = key->values.find(fold(valueName(lpValueName)));
    if (it == key->values.end()) return ERROR_FILE_NOT_FOUND;
    if (lpType != nullptr) *lpType = it->second.type;
    return copyOut(it->second.data, lpData, lpcbData);
}

LSTATUS RegGetValueW(HKEY hkey, LPCWSTR lpSubKey, LPCWSTR lpValue, DWORD dwFlags, LPDWORD pdwType, PVOID pvData,
                     LPDWORD pcbData) {
    if ((dwFlags & RRF_RT_ANY) == 0 || (pvData != nullptr && pcbData == nullptr)) return ERROR_INVALID_PARAMETER;
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    Key* key = nullptr;
    if (const LSTATUS status = findKey(s, hkey, lpSubKey, ERROR_FILE_NOT_FOUND, &key); status != ERROR_SUCCESS)
        return status;
    auto it = key->values.find(fold(valueName(lpValue)));
    if (it == key->values.end()) return ERROR_FILE_NOT_FOUND;
    const Value& v = it->second;
    DWORD typeBit = 0;
    switch (v.type) {
        case REG_NONE: typeBit = RRF_RT_REG_NONE; break;
        case REG_SZ: typeBit = RRF_RT_REG_SZ; break;
        case REG_EXPAND_SZ: typeBit = RRF_RT_REG_EXPAND_SZ; break;
        case REG_BINARY: typeBit = RRF_RT_REG_BINARY; break;
        case REG_DWORD: typeBit = RRF_RT_REG_DWORD; break;
        case REG_MULTI_SZ: typeBit = RRF_RT_REG_MULTI_SZ; break;
        case REG_QWORD: typeBit = RRF_RT_REG_QWORD; break;
        default: break;
    }
    if ((dwFlags & typeBit) == 0) return kUnsupportedType;
    std::vector<BYTE> data = v.data;
    if (v.type == REG_SZ || v.type == REG_EXPAND_SZ) {  // always hand out a terminated string
        if (data.size() % 2 != 0) data.push_back(0);
        if (data.size() < 2 || data[data.size() - 1] != 0 || data[data.size() - 2] != 0) {
            data.push_back(0);
            data.push_back(0);
        }
    }
    if (pdwType != nullptr) *pdwType = v.type;
    return copyOut(data, static_cast<LPBYTE>(pvData), pcbData);
}

LSTATUS RegEnumKeyExW(HKEY hKey, DWORD dwIndex, LPWSTR lpName, LPDWORD lpcchName, LPDWORD, LPWSTR lpClass,
                      LPDWORD lpcchClass, PFILETIME lpftLastWriteTime) {
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    Key* key = nullptr;
    if (const LSTATUS status = findKey(s, hKey, nullptr, ERROR_KEY_DELETED, &key); status != ERROR_SUCCESS)
        return status;
    auto it = key->children.cend();
    const LSTATUS status = nameAt(key->children, dwIndex, lpName, lpcchName, &it);
    if (status != ERROR_SUCCESS) return status;
    if (lpClass != nullptr && lpcchClass != nullptr && *lpcchClass > 0) lpClass[0] = 0;
    if (lpcchClass != nullptr) *lpcchClass = 0;
    if (lpftLastWriteTime != nullptr) *lpftLastWriteTime = FILETIME{0, 0};
    return ERROR_SUCCESS;
}

LSTATUS RegEnumValueW(HKEY hKey, DWORD dwIndex, LPWSTR lpValueName, LPDWORD lpcchValueName, LPDWORD, LPDWORD lpType,
                      LPBYTE lpData, LPDWORD lpcbData) {
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    Key* key = nullptr;
    if (const LSTATUS status = findKey(s, hKey, nullptr, ERROR_KEY_DELETED, &key); status != ERROR_SUCCESS)
        return status;
    auto it = key->values.cend();
    const LSTATUS status = nameAt(key->values, dwIndex, lpValueName, lpcchValueName, &it);
    if (status != ERROR_SUCCESS) return status;
    if (lpType != nullptr) *lpType = it->second.type;
    return copyOut(it->second.data, lpData, lpcbData);
}

LSTATUS RegDeleteKeyW(HKEY hKey, LPCWSTR lpSubKey) {
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    int root = 0;
    Path path;
    if (!resolve(hKey, lpSubKey, &root, &path)) return ERROR_INVALID_HANDLE;
    if (path.empty()) return ERROR_ACCESS_DENIED;  // a root stays
    return s.mutate([&](bool& changed) -> LSTATUS {
        Key* parent = s.find(root, Path(path.begin(), path.end() - 1));
        if (parent == nullptr) return ERROR_FILE_NOT_FOUND;
        auto it = parent->children.find(fold(path.back()));
        if (it == parent->children.end()) return ERROR_FILE_NOT_FOUND;
        if (!it->second.children.empty()) return ERROR_ACCESS_DENIED;
        parent->children.erase(it);
        changed = true;
        return ERROR_SUCCESS;
    });
}

LSTATUS RegDeleteTreeW(HKEY hKey, LPCWSTR lpSubKey) {
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    int root = 0;
    Path path;
    if (!resolve(hKey, lpSubKey, &root, &path)) return ERROR_INVALID_HANDLE;
    const bool wholeKey = !split(lpSubKey).empty();
    return s.mutate([&](bool& changed) -> LSTATUS {
        Key* key = s.find(root, path);
        if (key == nullptr) return ERROR_FILE_NOT_FOUND;
        if (wholeKey) {
            s.find(root, Path(path.begin(), path.end() - 1))->children.erase(fold(path.back()));
        } else {  // without a sub-key the key stays, emptied of sub-keys and values
            key->children.clear();
            key->values.clear();
        }
        changed = true;
        return ERROR_SUCCESS;
    });
}

LSTATUS RegDeleteValueW(HKEY hKey, LPCWSTR lpValueName) {
    Store& s = store();
    std::lock_guard<std::mutex> guard(s.mutex());
    return changeValues(s, hKey, [&](auto& values, bool& changed) -> LSTATUS {
        if (values.erase(fold(valueName(lpValueName))) == 0) return ERROR_FILE_NOT_FOUND;
        changed = true;
        return ERROR_SUCCESS;
    });
}
