// Credentials, blankets and status numbers of the security natives, against a stand-in proxy that
// records what reaches its IClientSecurity.
#include <gtest/gtest.h>

#include "ClientSecurity.h"

using namespace opc;
using namespace opc::security;

namespace {

WideText wide(const char* ascii) { return WideText(ascii, ascii + std::char_traits<char>::length(ascii)); }
WideText text(const USHORT* units, ULONG length) { return WideText(reinterpret_cast<const OLECHAR*>(units), length); }

// A proxy with IClientSecurity (or, in process, without): QueryBlanket answers fixed values, SetBlanket records.
class FakeProxy : public IClientSecurity {
public:
    bool offersSecurity = true;
    HRESULT queryResult = S_OK, setResult = S_OK;
    int sets = 0;
    long refs = 0;  // references taken through QueryInterface and not yet released
    bool impersonationAsked = false;
    DWORD authn = 0, authz = 0, level = 0, impersonation = 0, capabilities = 0;
    WideText principal;
    void* info = nullptr;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        *out = offersSecurity && IsEqualIID(iid, IID_IClientSecurity) ? this : nullptr;
        if (*out == nullptr) return E_NOINTERFACE;
        ++refs;
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }
    HRESULT STDMETHODCALLTYPE QueryBlanket(IUnknown*, DWORD* n, DWORD* z, OLECHAR** name, DWORD* l, DWORD* imp,
                                           void** current, DWORD* caps) override {
        if (FAILED(queryResult)) return queryResult;
        *n = 9, *z = 1, *l = 2, *caps = 0x20, *current = nullptr;
        impersonationAsked = imp != nullptr;
        if (imp) *imp = 3;
        const WideText host = wide("host/server");
        *name = static_cast<OLECHAR*>(CoTaskMemAlloc((host.size() + 1) * sizeof(OLECHAR)));
        std::copy(host.c_str(), host.c_str() + host.size() + 1, *name);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetBlanket(IUnknown*, DWORD n, DWORD z, OLECHAR* name, DWORD l, DWORD imp, void* id,
                                         DWORD caps) override {
        ++sets, authn = n, authz = z, principal = name, level = l, impersonation = imp, info = id, capabilities = caps;
        return setResult;
    }
    HRESULT STDMETHODCALLTYPE CopyProxy(IUnknown*, IUnknown**) override { return E_NOTIMPL; }
};

}  // namespace

TEST(Credentials, AccountSplitsAtBackslashRuns) {
    const char* const cases[][3] = {{"plant\\operator", "plant", "operator"}, {"operator", "", "operator"},
                                    {"plant\\\\operator\\more", "plant", "operator"}, {"\\plant", "plant", ""},
                                    {"\\\\", "", ""}};
    for (const auto& c : cases) {
        const Account account = splitAccount(wide(c[0]));
        EXPECT_EQ(account.domain, wide(c[1])) << c[0];
        EXPECT_EQ(account.user, wide(c[2])) << c[0];
    }
}

TEST(StatusNumbers, ChangeUserAndLogonTablesDiffer) {
    const HRESULT codes[] = {S_OK, E_FAIL, OPC_E_PRIVATE_ACTIVE, OPC_E_LOW_IMPERS_LEVEL, OPC_S_LOW_AUTHN_LEVEL,
                             E_ACCESSDENIED, S_FALSE};
    const jlong changeUser[] = {0, -2, -3, -4, -1, -5, -1};
    const jlong logon[] = {0, -2, -1, -5, -4, -3, -1};
    for (size_t i = 0; i < std::size(codes); ++i) {
        EXPECT_EQ(changeUserStatus(codes[i]), changeUser[i]) << i;
        EXPECT_EQ(logonStatus(codes[i]), logon[i]) << i;
    }
    EXPECT_EQ(impersonationResult(S_OK, 0xFFFFFFFFu), 0xFFFFFFFFLL);
    EXPECT_EQ(impersonationResult(E_INVALIDARG, 3), -1);
    EXPECT_EQ(impersonationResult(S_FALSE, 3), 0);
}

TEST(IdentityBlanket, CarriesTheAccountAndLivesAsLongAsItsProxyUsesIt) {
    FakeProxy proxy;
    IdentityTable identities;
    ASSERT_EQ(setIdentityBlanket(&proxy, "plant\\operator", "s\xE9", 0xFFFFFFFFu, identities), S_OK);
    EXPECT_FALSE(proxy.impersonationAsked);
    EXPECT_EQ(proxy.authn, 9u);
    EXPECT_EQ(proxy.authz, 1u);
    EXPECT_EQ(proxy.principal, wide("host/server"));
    EXPECT_EQ(proxy.level, 2u);
    EXPECT_EQ(proxy.impersonation, 0xFFFFFFFFu);  // the level handed in, not the proxy's
    EXPECT_EQ(proxy.capabilities, 0x20u);
    EXPECT_EQ(proxy.refs, 0);
    auto* record = static_cast<COAUTHIDENTITY*>(proxy.info);
    ASSERT_EQ(record, identities.find(&proxy));
    EXPECT_EQ(text(record->Domain, record->DomainLength), wide("plant"));
    EXPECT_EQ(text(record->User, record->UserLength), wide("operator"));
    EXPECT_EQ(text(record->Password, record->PasswordLength), (WideText{OLECHAR('s'), OLECHAR(0xFFE9)}));
    EXPECT_EQ(record->Flags, static_cast<ULONG>(SEC_WINNT_AUTH_IDENTITY_UNICODE));

    FakeProxy other;  // another proxy's identity leaves this one's alone
    ASSERT_EQ(setIdentityBlanket(&other, "b", "2", 2, identities), S_OK);
    proxy.setResult = E_ACCESSDENIED;  // a refused blanket: the proxy keeps using the previous identity
    EXPECT_EQ(setIdentityBlanket(&proxy, "c", "3", 2, identities), E_ACCESSDENIED);
    ASSERT_EQ(identities.find(&proxy), record);
    EXPECT_EQ(text(record->User, record->UserLength), wide("operator"));
    proxy.setResult = S_OK;
    ASSERT_EQ(setIdentityBlanket(&proxy, "d", "4", 2, identities), S_OK);
    EXPECT_EQ(identities.find(&proxy), proxy.info);
    EXPECT_NE(identities.find(&other), nullptr);
}

TEST(PrivacyBlanket, RaisesServiceAndLevelAndPassesFailuresBack) {
    FakeProxy proxy;
    EXPECT_EQ(setPrivacyBlanket(&proxy), S_OK);
    EXPECT_TRUE(proxy.impersonationAsked);
    EXPECT_EQ(proxy.authn, static_cast<DWORD>(RPC_C_AUTHN_WINNT));
    EXPECT_EQ(proxy.level, static_cast<DWORD>(RPC_C_AUTHN_LEVEL_PKT_PRIVACY));
    EXPECT_EQ(proxy.authz, 1u);
    EXPECT_EQ(proxy.principal, wide("host/server"));
    EXPECT_EQ(proxy.impersonation, 3u);
    EXPECT_EQ(proxy.info, nullptr);
    EXPECT_EQ(proxy.capabilities, 0x20u);

    FakeProxy inProcess, refusing;
    inProcess.offersSecurity = false;
    refusing.queryResult = E_UNEXPECTED;
    IdentityTable identities;
    EXPECT_EQ(setPrivacyBlanket(&inProcess), E_NOINTERFACE);
    EXPECT_EQ(setIdentityBlanket(&inProcess, "u", "p", 2, identities), E_NOINTERFACE);
    EXPECT_EQ(setPrivacyBlanket(&refusing), E_UNEXPECTED);
    EXPECT_EQ(setIdentityBlanket(&refusing, "u", "p", 2, identities), E_UNEXPECTED);
    EXPECT_EQ(refusing.sets, 0);
    EXPECT_EQ(refusing.refs, 0);
    EXPECT_EQ(identities.find(&refusing), nullptr);
}
