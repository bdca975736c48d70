// A minimal base for COM objects implemented here: an atomic reference count and QueryInterface.
// The derived class answers `void* interfaceFor(REFIID)` for its own interfaces (IUnknown is answered
// here) and deletes itself on its last Release, through its virtual destructor.
#pragma once

#include <objbase.h>

#include <atomic>

namespace opc::support {

template <typename Derived, typename Primary, typename... More>
class ComObject : public Primary, public More... {
public:
    ComObject() noexcept = default;
    ComObject(const ComObject&) = delete;
    ComObject& operator=(const ComObject&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (out == nullptr) return E_POINTER;
        *out = IsEqualIID(iid, IID_IUnknown) ? static_cast<IUnknown*>(static_cast<Primary*>(this))
                                             : static_cast<Derived*>(this)->interfaceFor(iid);
        if (*out == nullptr) return E_NOINTERFACE;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return refs_.fetch_add(1, std::memory_order_relaxed) + 1; }
    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0) delete this;
        return left;
    }

protected:
    virtual ~ComObject() = default;

private:
    std::atomic<ULONG> refs_{1};
};

}  // namespace opc::support
