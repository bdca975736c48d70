// The COM side shared by the library's two callback objects: one callback interface besides
// IUnknown, and an atomic reference count that starts at 0 (the creator adds the first reference).
// The thread whose Release reaches 0 destroys the object.
#pragma once

#include <atomic>

#include "opc/platform.h"

namespace opc::env {

template <typename Derived, typename Interface, const IID& kIid>
class CallbackObject : public Interface {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (out == nullptr) return E_INVALIDARG;
        if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, kIid)) {
            *out = static_cast<Interface*>(this);
            AddRef();
            return S_OK;
        }
        *out = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return references_.fetch_add(1, std::memory_order_relaxed) + 1; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) delete static_cast<Derived*>(this);
        return left;
    }

protected:
    CallbackObject() noexcept = default;
    ~CallbackObject() = default;

private:
    std::atomic<ULONG> references_{0};
};

}  // namespace opc::env
