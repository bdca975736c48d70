// The security blankets that the security natives set on a server's COM proxy before they pass
// credentials, the authentication identities those blankets carry, and the status numbers that the
// natives give Java instead of exceptions.
#pragma once

#include <jni.h>

#include "opc/platform.h"

#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "ComPtr.h"
#include "OpcEnv.h"
#include "Owned.h"

namespace opc::security {

// Text in the calling thread's ANSI code page; "" when it does not convert.
inline std::string toThreadAnsi(const OLECHAR* text) {
    size_t length = 0;
    while (text[length] != 0) ++length;
    std::string bytes((length + 1) * 2, '\0');
    const int written = WideCharToMultiByte(CP_THREAD_ACP, 0, text, -1, bytes.data(), static_cast<int>(bytes.size()),
                                            nullptr, nullptr);
    if (written <= 0) return {};
    bytes.resize(std::strlen(bytes.c_str()));
    return bytes;
}

// Back to UTF-16 one byte per unit, each byte sign-extended (bytes 0x80 to 0xFF become 0xFF80 to 0xFFFF).
inline WideText widenBytes(const std::string& bytes) {
    WideText wide;
    wide.reserve(bytes.size());
    for (const char byte : bytes)
        wide.push_back(static_cast<OLECHAR>(static_cast<uint16_t>(static_cast<int16_t>(static_cast<signed char>(byte)))));
    return wide;
}

struct Account {
    WideText domain;
    WideText user;
};

// "domain\user": the text splits at backslashes (a run counts as one, leading ones are skipped); the
// first part is the domain, the second the user, the rest is dropped. Without a backslash the domain
// is "" and the whole text is the user.
inline Account splitAccount(const WideText& name) {
    const OLECHAR separator = OLECHAR('\\');
    if (name.find(separator) == WideText::npos) return {WideText(), name};
    WideText parts[2];
    size_t found = 0;
    size_t at = 0;
    while (found < 2) {
        const size_t begin = name.find_first_not_of(separator, at);
        if (begin == WideText::npos) break;
        const size_t end = name.find(separator, begin);
        parts[found++] = name.substr(begin, end == WideText::npos ? WideText::npos : end - begin);
        if (end == WideText::npos) break;
        at = end;
    }
    return {parts[0], parts[1]};
}

// One authentication identity: the record a blanket points at, and the strings it points at.
class Identity {
public:
    Identity(WideText domain, WideText user, WideText password)
        : domain_(std::move(domain)), user_(std::move(user)), password_(std::move(password)) {
        record_.User = units(user_);
        record_.UserLength = static_cast<ULONG>(user_.size());
        record_.Domain = units(domain_);
        record_.DomainLength = static_cast<ULONG>(domain_.size());
        record_.Password = units(password_);
        record_.PasswordLength = static_cast<ULONG>(password_.size());
        record_.Flags = SEC_WINNT_AUTH_IDENTITY_UNICODE;
    }
    Identity(const Identity&) = delete;
    Identity& operator=(const Identity&) = delete;

    COAUTHIDENTITY* record() noexcept { return &record_; }

private:
    static USHORT* units(WideText& text) noexcept { return reinterpret_cast<USHORT*>(text.data()); }

    WideText domain_;
    WideText user_;
    WideText password_;
    COAUTHIDENTITY record_{};
};

// The identities in use, one per proxy: a proxy refers to the identity of its blanket, so each lives
// until its proxy is given the next one (or to the end of the process).
class IdentityTable {
public:
    void keep(IUnknown* proxy, std::unique_ptr<Identity> identity) {
        std::unique_ptr<Identity> previous;  // freed outside the lock
        std::lock_guard<std::mutex> guard(lock_);
        std::unique_ptr<Identity>& slot = byProxy_[proxy];
        previous = std::move(slot);
        slot = std::move(identity);
    }
    COAUTHIDENTITY* find(IUnknown* proxy) {
        std::lock_guard<std::mutex> guard(lock_);
        const auto it = byProxy_.find(proxy);
        return it == byProxy_.end() ? nullptr : it->second->record();
    }

private:
    std::mutex lock_;
    std::map<IUnknown*, std::unique_ptr<Identity>> byProxy_;
};

// The identities of every proxy that changeUser has set one on.
inline IdentityTable& processIdentities() {
    static IdentityTable* const table = new IdentityTable;  // never destroyed: proxies may outlive exit
    return *table;
}

// Sets the account (user name "domain\user" or "user", and password, both as bytes in the thread's
// ANSI code page) on the proxy's blanket at the given impersonation level, keeping the rest of the
// blanket. The proxy's IClientSecurity, QueryBlanket or SetBlanket failure is the result.
inline HRESULT setIdentityBlanket(IUnknown* proxy, const std::string& user, const std::string& password,
                                  DWORD impersonation, IdentityTable& identities) {
    support::ComPtr<IClientSecurity> security;
    HRESULT hr = proxy->QueryInterface(IID_IClientSecurity, security.putVoid());
    if (FAILED(hr)) return hr;
    if (!security) return E_NOINTERFACE;
    DWORD authn = 0, authz = 0, level = 0, capabilities = 0;
    support::TaskMem<OLECHAR> principal;
    void* currentIdentity = nullptr;
    hr = security->QueryBlanket(proxy, &authn, &authz, principal.put(), &level, nullptr, &currentIdentity,
                                &capabilities);
    if (FAILED(hr)) return hr;
    std::unique_ptr<Identity> identity;
    try {
        Account account = splitAccount(widenBytes(user));
        identity = std::make_unique<Identity>(std::move(account.domain), std::move(account.user), widenBytes(password));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    hr = security->SetBlanket(proxy, authn, authz, principal.get(), level, impersonation, identity->record(),
                              capabilities);
    if (SUCCEEDED(hr)) identities.keep(proxy, std::move(identity));
    return hr;
}

// Raises the proxy's blanket to NT LAN Manager authentication with packet privacy and no explicit
// identity, keeping the rest of it.
inline HRESULT setPrivacyBlanket(IUnknown* proxy) {
    support::ComPtr<IClientSecurity> security;
    HRESULT hr = proxy->QueryInterface(IID_IClientSecurity, security.putVoid());
    if (FAILED(hr)) return hr;
    if (!security) return E_NOINTERFACE;
    DWORD authn = 0, authz = 0, level = 0, impersonation = 0, capabilities = 0;
    support::TaskMem<OLECHAR> principal;
    void* currentIdentity = nullptr;
    hr = security->QueryBlanket(proxy, &authn, &authz, principal.put(), &level, &impersonation, &currentIdentity,
                                &capabilities);
    if (FAILED(hr)) return hr;
    return security->SetBlanket(proxy, RPC_C_AUTHN_WINNT, authz, principal.get(), RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                                impersonation, nullptr, capabilities);
}

// Status of changeUser: 0 done, -2 E_FAIL, -3 private logon active, -4 impersonation level too
// low, -5 access denied, -1 anything else.
inline jlong changeUserStatus(HRESULT hr) noexcept {
    switch (hr) {
        case S_OK: return 0;
        case E_FAIL: return -2;
        case OPC_E_PRIVATE_ACTIVE: return -3;
        case OPC_E_LOW_IMPERS_LEVEL: return -4;
        case E_ACCESSDENIED: return -5;
        default: return -1;
    }
}

// Status of logon: 0 done, -2 E_FAIL, -3 access denied, -4 authentication level too low,
// -5 impersonation level too low, -1 anything else.
inline jlong logonStatus(HRESULT hr) noexcept {
    switch (hr) {
        case S_OK: return 0;
        case E_FAIL: return -2;
        case E_ACCESSDENIED: return -3;
        case OPC_S_LOW_AUTHN_LEVEL: return -4;
        case OPC_E_LOW_IMPERS_LEVEL: return -5;
        default: return -1;
    }
}

// The level the server reported when it answered S_OK; -1 for E_INVALIDARG; 0 otherwise.
inline jlong impersonationResult(HRESULT hr, DWORD level) noexcept {
    if (hr == S_OK) return static_cast<jlong>(level);
    return hr == E_INVALIDARG ? -1 : 0;
}

}  // namespace opc::security
