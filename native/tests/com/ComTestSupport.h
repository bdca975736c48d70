// Helpers shared by the COM conformance tests. The tests use the COM API alone, so the same
// sources build against the Windows SDK headers and run on Windows (or Wine) as well.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>

#ifndef _WIN32
#include <substrate/ledger.h>
#endif

using Text = std::basic_string<OLECHAR>;

// A class that no test registers.
const CLSID kUnregistered = {0x0BADF00D, 0x1234, 0x5678, {0x9A, 0xBC, 0xDE, 0xF0, 0x12, 0x34, 0x56, 0x78}};

// Wine implements COM faithfully but departs from Windows in a few documented places.
inline bool runningUnderWine() {
    HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

#define SKIP_UNDER_WINE(why) \
    if (runningUnderWine()) GTEST_SKIP() << "Wine departs from Windows here: " << why

// Fails the test if the live task-memory blocks, BSTRs or SAFEARRAYs at the end of the scope
// differ from those at its start. Only the COM runtime of this project keeps such a ledger.
class LedgerScope {
public:
    LedgerScope() {
#ifndef _WIN32
        for (int k = 0; k < LEDGER_KINDS; ++k) start_[k] = LedgerLiveCount(k);
#endif
    }
    ~LedgerScope() {
#ifndef _WIN32
        static const char* const kNames[] = {"task memory", "BSTR", "SAFEARRAY"};
        for (int k = 0; k < LEDGER_KINDS; ++k)
            EXPECT_EQ(start_[k], LedgerLiveCount(k)) << "live " << kNames[k] << " blocks changed";
#endif
    }
    LedgerScope(const LedgerScope&) = delete;
    LedgerScope& operator=(const LedgerScope&) = delete;

private:
    long long start_[3] = {};
};

// An object on the stack whose reference count the tests watch; it is never deleted.
class CountingUnknown final : public IUnknown {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        *ppv = riid == IID_IUnknown ? this : nullptr;
        if (*ppv == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }
    std::atomic<ULONG> refs{1};
};

// Runs COM in the multithreaded apartment for the lifetime of the object.
class MtaScope {
public:
    MtaScope() : hr_(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~MtaScope() {
        if (SUCCEEDED(hr_)) CoUninitialize();
    }

private:
    HRESULT hr_;
};

// A class object for the context; on failure the out-pointer must come back null. Without a
// place for the factory, a factory obtained is released at once.
inline HRESULT classObject(const CLSID& clsid, DWORD context, COSERVERINFO* server = nullptr,
                           IClassFactory** factory = nullptr) {
    IClassFactory* got = reinterpret_cast<IClassFactory*>(1);
    const HRESULT hr = CoGetClassObject(clsid, context, server, IID_IClassFactory, reinterpret_cast<void**>(&got));
    if (FAILED(hr)) {
        EXPECT_EQ(nullptr, got) << "out-pointer not cleared for 0x" << std::hex << hr;
    }
    if (factory != nullptr)
        *factory = got;
    else if (SUCCEEDED(hr))
        got->Release();
    return hr;
}
