// Credentials, blankets and status numbers of the security natives, against a stand-in proxy that
// records what reaches its IClientSecurity.
#include <gtest/gtest.h>

#include <string>

#include "ClientSecurity.h"
#include "ComObject.h"

using namespace opc;
using namespace opc::security;

namespace {

WideText wide(const char* ascii) {
    WideText out;
    while (*ascii != 0) out.push_back(static_cast<OLECHAR>(*ascii++));
    return out;
}

WideText fromRecord(const USHORT* units, ULONG length) {
    return WideText(reinterpret_cast<const OLECHAR*>(units), length);
}

// What the stand-in's IClientSecurity was given and answers.
struct Blanket {
    DWORD authn = 9, authz = 1, level = 2, impersonation = 3, capabilities = 0x20;
    const char* principal = "host/server";
    HRESULT queryResult = S_OK;
    HRESULT setResult = S_OK;
    int sets = 0;
    bool impersonationAsked = false;
    IUnknown* setOn = nullptr;
    DWORD setAuthn = 0, setAuthz = 0, setLevel = 0, setImpersonation = 0, setCapabilities = 0;
    WideText setPrincipal;
    void* setInfo = nullptr;
    long securityRefs = 0;  // references the code under test still holds on IClientSecurity
};

class FakeSecurity : public support::ComObject<FakeSecurity, IClientSecurity> {
public:
    explicit FakeSecurity(Blanket& blanket) : blanket_(blanket) {}
    void* interfaceFor(REFIID iid) { return IsEqualIID(iid, IID_IClientSecurity) ? this : nullptr; }
    ULONG STDMETHODCALLTYPE AddRef() override { ++blanket_.securityRefs; return ComObject::AddRef(); }
    ULONG STDMETHODCALLTYPE Release() override { --blanket_.securityRefs; return ComObject::Release(); }

    HRESULT STDMETHODCALLTYPE QueryBlanket(IUnknown*, DWORD* authn, DWORD* authz, OLECHAR** principal, DWORD* level,
                                           DWORD* impersonation, void** info, DWORD* capabilities) override {
        if (FAILED(blanket_.queryResult)) return blanket_.queryResult;
        *authn = blanket_.authn;
        *authz = blanket_.authz;
        const WideText name = wide(blanket_.principal);
        *principal = static_cast<OLECHAR*>(CoTaskMemAlloc((name.size() + 1) * sizeof(OLECHAR)));
        std::copy(name.c_str(), name.c_str() + name.size() + 1, *principal);
        *level = blanket_.level;
        blanket_.impersonationAsked = impersonation != nullptr;
        if (impersonation) *impersonation = blanket_.impersonation;
        *info = nullptr;
        *capabilities = blanket_.capabilities;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown* proxy, DWORD authn, DWORD authz, OLECHAR* principal, DWORD level,
                                         DWORD impersonation, void* info, DWORD capabilities) override {
        ++blanket_.sets;
        blanket_.setOn = proxy;
        blanket_.setAuthn = authn;
        blanket_.setAuthz = authz;
        blanket_.setPrincipal = principal ? WideText(principal) : WideText();
        blanket_.setLevel = level;
        blanket_.setImpersonation = impersonation;
        blanket_.setInfo = info;
        blanket_.setCapabilities = capabilities;
        return blanket_.setResult;
    }
    HRESULT STDMETHODCALLTYPE CopyProxy(IUnknown*, IUnknown**) override { return E_NOTIMPL; }

private:
    Blanket& blanket_;
};

// A proxy that offers IClientSecurity, or (as an in-process object) does not.
class FakeProxy : public support::ComObject<FakeProxy, IUnknown> {
public:
    FakeProxy(Blanket& blanket, bool offersSecurity) : blanket_(blanket), offersSecurity_(offersSecurity) {}
    void* interfaceFor(REFIID iid) {
        if (!offersSecurity_ || !IsEqualIID(iid, IID_IClientSecurity)) return nullptr;
        ++blanket_.securityRefs;
        return new FakeSecurity(blanket_);
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        // the security object carries its own first reference
        if (IsEqualIID(iid, IID_IClientSecurity)) {
            *out = interfaceFor(iid);
            return *out ? S_OK : E_NOINTERFACE;
        }
        return ComObject::QueryInterface(iid, out);
    }

private:
    Blanket& blanket_;
    bool offersSecurity_;
};

struct Proxy {
    Blanket blanket;
    FakeProxy* object;
    explicit Proxy(bool offersSecurity = true) : object(new FakeProxy(blanket, offersSecurity)) {}
    ~Proxy() { object->Release(); }
};

}  // namespace

TEST(Credentials, AccountSplitsAtBackslashRuns) {
    const auto check = [](const char* name, const char* domain, const char* user) {
        const Account account = splitAccount(wide(name));
        EXPECT_EQ(account.domain, wide(domain)) << name;
        EXPECT_EQ(account.user, wide(user)) << name;
    };
    check("plant\\operator", "plant", "operator");
    check("operator", "", "operator");
    check("plant\\\\operator\\more\\text", "plant", "operator");
    check("\\plant", "plant", "");
    check("\\\\", "", "");
    check("", "", "");
}

TEST(Credentials, ThreadCodePageBytesComeBackSignExtended) {
    const OLECHAR text[] = {OLECHAR('a'), OLECHAR(0x00E9), OLECHAR('\\'), OLECHAR(0x007F), 0};
    const std::string bytes = toThreadAnsi(text);
    ASSERT_EQ(bytes.size(), 4u);
    EXPECT_EQ(static_cast<unsigned char>(bytes[1]), 0xE9u);
    const WideText back = widenBytes(bytes);
    EXPECT_EQ(back, (WideText{OLECHAR('a'), OLECHAR(0xFFE9), OLECHAR('\\'), OLECHAR(0x007F)}));
    EXPECT_EQ(toThreadAnsi(OLESTR("")), "");
}

TEST(StatusNumbers, ChangeUserLogonAndImpersonationTables) {
    struct Row { HRESULT hr; jlong changeUser; jlong logon; };
    const Row rows[] = {
        {S_OK, 0, 0},
        {E_FAIL, -2, -2},
        {OPC_E_PRIVATE_ACTIVE, -3, -1},
        {OPC_E_LOW_IMPERS_LEVEL, -4, -5},
        {OPC_S_LOW_AUTHN_LEVEL, -1, -4},
        {E_ACCESSDENIED, -5, -3},
        {S_FALSE, -1, -1},
        {E_NOINTERFACE, -1, -1},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(changeUserStatus(row.hr), row.changeUser) << std::hex << row.hr;
        EXPECT_EQ(logonStatus(row.hr), row.logon) << std::hex << row.hr;
    }
    EXPECT_EQ(impersonationResult(S_OK, 0xFFFFFFFFu), 0xFFFFFFFFLL);  // zero-extended
    EXPECT_EQ(impersonationResult(E_INVALIDARG, 3), -1);
    EXPECT_EQ(impersonationResult(S_FALSE, 3), 0);
    EXPECT_EQ(impersonationResult(E_FAIL, 3), 0);
}

TEST(IdentityBlanket, CarriesTheAccountAndKeepsTheRestOfTheBlanket) {
    Proxy proxy;
    IdentityTable identities;
    ASSERT_EQ(setIdentityBlanket(proxy.object, "plant\\operator", "s\xE9" "cret", 0xFFFFFFFFu, identities), S_OK);
    const Blanket& b = proxy.blanket;
    EXPECT_FALSE(b.impersonationAsked);
    EXPECT_EQ(b.sets, 1);
    EXPECT_EQ(b.setOn, proxy.object);
    EXPECT_EQ(b.setAuthn, 9u);
    EXPECT_EQ(b.setAuthz, 1u);
    EXPECT_EQ(b.setPrincipal, wide("host/server"));
    EXPECT_EQ(b.setLevel, 2u);
    EXPECT_EQ(b.setImpersonation, 0xFFFFFFFFu);  // the level handed in, not the queried one
    EXPECT_EQ(b.setCapabilities, 0x20u);
    EXPECT_EQ(b.securityRefs, 0);

    auto* record = static_cast<COAUTHIDENTITY*>(b.setInfo);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record, identities.find(proxy.object));
    EXPECT_EQ(fromRecord(record->Domain, record->DomainLength), wide("plant"));
    EXPECT_EQ(fromRecord(record->User, record->UserLength), wide("operator"));
    EXPECT_EQ(fromRecord(record->Password, record->PasswordLength),
              (WideText{OLECHAR('s'), OLECHAR(0xFFE9), OLECHAR('c'), OLECHAR('r'), OLECHAR('e'), OLECHAR('t')}));
    EXPECT_EQ(record->User[record->UserLength], 0);  // terminated as well
    EXPECT_EQ(record->Flags, static_cast<ULONG>(SEC_WINNT_AUTH_IDENTITY_UNICODE));
}

TEST(IdentityBlanket, EachProxyKeepsTheIdentityItsBlanketHolds) {
    Proxy first;
    Proxy second;
    IdentityTable identities;
    ASSERT_EQ(setIdentityBlanket(first.object, "a", "1", 2, identities), S_OK);
    ASSERT_EQ(setIdentityBlanket(second.object, "b", "2", 2, identities), S_OK);
    COAUTHIDENTITY* firstRecord = identities.find(first.object);
    ASSERT_NE(firstRecord, nullptr);
    EXPECT_EQ(fromRecord(firstRecord->User, firstRecord->UserLength), wide("a"));  // untouched by the second

    // A refused blanket leaves the proxy with its previous identity, which therefore stays alive.
    first.blanket.setResult = E_ACCESSDENIED;
    EXPECT_EQ(setIdentityBlanket(first.object, "c", "3", 2, identities), E_ACCESSDENIED);
    EXPECT_EQ(identities.find(first.object), firstRecord);
    EXPECT_EQ(fromRecord(firstRecord->User, firstRecord->UserLength), wide("a"));

    first.blanket.setResult = S_OK;
    ASSERT_EQ(setIdentityBlanket(first.object, "d", "4", 2, identities), S_OK);
    COAUTHIDENTITY* replaced = identities.find(first.object);
    EXPECT_EQ(fromRecord(replaced->User, replaced->UserLength), wide("d"));
    EXPECT_EQ(first.blanket.securityRefs, 0);
}

TEST(Blankets, FailuresComeBackUnchangedAndNothingIsSet) {
    Proxy inProcess(false);
    IdentityTable identities;
    EXPECT_EQ(setIdentityBlanket(inProcess.object, "u", "p", 2, identities), E_NOINTERFACE);
    EXPECT_EQ(setPrivacyBlanket(inProcess.object), E_NOINTERFACE);

    Proxy refusing;
    refusing.blanket.queryResult = E_UNEXPECTED;
    EXPECT_EQ(setIdentityBlanket(refusing.object, "u", "p", 2, identities), E_UNEXPECTED);
    EXPECT_EQ(setPrivacyBlanket(refusing.object), E_UNEXPECTED);
    EXPECT_EQ(refusing.blanket.sets, 0);
    EXPECT_EQ(refusing.blanket.securityRefs, 0);
    EXPECT_EQ(identities.find(refusing.object), nullptr);
}

TEST(Blankets, PrivacyRaisesServiceAndLevelOnly) {
    Proxy proxy;
    proxy.blanket.setResult = E_ACCESSDENIED;
    EXPECT_EQ(setPrivacyBlanket(proxy.object), E_ACCESSDENIED);
    const Blanket& b = proxy.blanket;
    EXPECT_TRUE(b.impersonationAsked);
    EXPECT_EQ(b.setAuthn, static_cast<DWORD>(RPC_C_AUTHN_WINNT));
    EXPECT_EQ(b.setAuthz, 1u);
    EXPECT_EQ(b.setPrincipal, wide("host/server"));
    EXPECT_EQ(b.setLevel, static_cast<DWORD>(RPC_C_AUTHN_LEVEL_PKT_PRIVACY));
    EXPECT_EQ(b.setImpersonation, 3u);
    EXPECT_EQ(b.setInfo, nullptr);
    EXPECT_EQ(b.setCapabilities, 0x20u);
    EXPECT_EQ(b.securityRefs, 0);
}
