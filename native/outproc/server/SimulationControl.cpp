#include "SimulationControl.h"

#include <windows.h>

#include <atomic>
#include <cstring>

#include "ComObject.h"
#include "sim/SimControl.h"
#include "simcontrol.h"

// {C2F001D4-E227-4E3F-8EC3-326116DF4E5F}
const CLSID CLSID_SimulationControl = {0xc2f001d4, 0xe227, 0x4e3f, {0x8e, 0xc3, 0x32, 0x61, 0x16, 0xdf, 0x4e, 0x5f}};

namespace {

constexpr wchar_t kControlKey[] = L"CLSID\\{C2F001D4-E227-4E3F-8EC3-326116DF4E5F}";

std::atomic<long> liveControls{0};
std::atomic<long> madeControls{0};

class Control final : public opc::support::ComObject<Control, ISimulationControl> {
public:
    Control() {
        ++liveControls;
        ++madeControls;
    }
    void* interfaceFor(REFIID iid) {
        return IsEqualIID(iid, IID_ISimulationControl) ? static_cast<ISimulationControl*>(this) : nullptr;
    }
    HRESULT STDMETHODCALLTYPE FailNext(const char* method, HRESULT hr, int times) override {
        SimFailNext(method, hr, times);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetItemError(const char* itemId, HRESULT hr) override {
        SimSetItemError(itemId, hr);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetNullResults(const char* method, int on) override {
        SimSetNullResults(method, on);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CallCount(const char* method, int* count) override {
        *count = SimCallCount(method);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE LastCallArgs(const char* method, DWORD size, char* args) override {
        if (size == 0) return E_INVALIDARG;
        const char* text = SimLastCallArgs(method);
        const size_t length = std::strlen(text);
        if (length >= size) return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
        std::memcpy(args, text, length + 1);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE ClearCalls() override {
        SimClearCalls();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE LiveObjects(const char* kind, long* count) override {
        // Less the simulation module's class object, which this executable holds while it runs
        // (in process, COM releases it once the server is made).
        const bool factories = kind == nullptr || std::strcmp(kind, "factory") == 0;
        *count = SimLiveObjects(kind) - (factories ? 1 : 0);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Shutdown(const char* reason, int* called) override {
        *called = SimShutdown(reason);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetAsyncDelay(int milliseconds) override {
        SimSetAsyncDelay(milliseconds);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetBrowsePortion(int elements) override {
        SimSetBrowsePortion(elements);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetInlineCompletion(int on) override {
        SimSetInlineCompletion(on);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SendWriteComplete(DWORD transactionId, HRESULT masterError, const char* itemIds,
                                                HRESULT itemError, int* called) override {
        *called = SimSendWriteComplete(transactionId, masterError, itemIds, itemError);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Connections(const char* kind, long* count) override {
        *count = SimConnections(kind);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE CallbacksMade(const char* method, long* count) override {
        *count = SimCallbacksMade(method);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetDown(int on) override {
        SimSetDown(on);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetWithoutBrowse(int on) override {
        SimSetWithoutBrowse(on);
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        SimReset();
        return S_OK;
    }

private:
    ~Control() override { --liveControls; }
};

class ControlFactory final : public opc::support::ComObject<ControlFactory, IClassFactory> {
public:
    void* interfaceFor(REFIID iid) { return IsEqualIID(iid, IID_IClassFactory) ? static_cast<IClassFactory*>(this) : nullptr; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
        if (out == nullptr) return E_POINTER;
        *out = nullptr;
        if (outer != nullptr) return CLASS_E_NOAGGREGATION;
        auto* control = new Control;
        const HRESULT hr = control->QueryInterface(iid, out);
        control->Release();
        return hr;
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
};

}  // namespace

IClassFactory* newSimulationControlFactory() { return new ControlFactory; }

long liveSimulationControls() { return liveControls.load(); }

long simulationControlsMade() { return madeControls.load(); }

HRESULT registerSimulationControl(const std::wstring& command) {
    const std::wstring key = std::wstring(kControlKey) + L"\\LocalServer32";
    return HRESULT_FROM_WIN32(RegSetValueW(HKEY_CLASSES_ROOT, key.c_str(), REG_SZ, command.c_str(),
                                           DWORD(command.size() * sizeof(wchar_t))));
}

HRESULT unregisterSimulationControl() {
    const LONG rc = RegDeleteTreeW(HKEY_CLASSES_ROOT, kControlKey);
    return rc == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(rc);
}
