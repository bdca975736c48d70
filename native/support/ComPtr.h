// Owner of one COM reference.
#pragma once

#include <objbase.h>

#include <utility>

namespace opc::support {

template <typename I>
class ComPtr {
public:
    ComPtr() noexcept = default;
    // Takes over a reference the caller already owns.
    static ComPtr attach(I* p) noexcept {
        ComPtr r;
        r.p_ = p;
        return r;
    }
    // Adds a reference of its own.
    static ComPtr borrow(I* p) noexcept {
        if (p) p->AddRef();
        return attach(p);
    }
    ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    ComPtr& operator=(ComPtr&& other) noexcept {
        reset(std::exchange(other.p_, nullptr));
        return *this;
    }
    ComPtr(const ComPtr&) = delete;
    ComPtr& operator=(const ComPtr&) = delete;
    ~ComPtr() { reset(); }

    I* get() const noexcept { return p_; }
    I* operator->() const noexcept { return p_; }
    explicit operator bool() const noexcept { return p_ != nullptr; }

    I** put() noexcept {
        reset();
        return &p_;
    }
    void** putVoid() noexcept { return reinterpret_cast<void**>(put()); }
    [[nodiscard]] I* detach() noexcept { return std::exchange(p_, nullptr); }
    void reset(I* p = nullptr) noexcept {
        if (p_) p_->Release();
        p_ = p;
    }

    template <typename J>
    HRESULT queryInterface(REFIID iid, ComPtr<J>& out) const noexcept {
        return p_->QueryInterface(iid, out.putVoid());
    }

private:
    I* p_ = nullptr;
};

}  // namespace opc::support
