// One owner for every resource that COM or OLE Automation hands out: the value is freed exactly once,
// by the destructor or by reset(), unless it is released to a new owner first.
#pragma once

#include <objbase.h>
#include <oleauto.h>

#include <utility>

namespace opc::support {

template <typename T, auto Free>
class Owned {
public:
    Owned() noexcept = default;
    explicit Owned(T value) noexcept : value_(value) {}
    Owned(Owned&& other) noexcept : value_(std::exchange(other.value_, T{})) {}
    Owned& operator=(Owned&& other) noexcept {
        reset(std::exchange(other.value_, T{}));
        return *this;
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    ~Owned() { reset(); }

    T get() const noexcept { return value_; }
    // For [out] parameters: frees the old value first.
    T* put() noexcept {
        reset();
        return &value_;
    }
    [[nodiscard]] T release() noexcept { return std::exchange(value_, T{}); }
    void reset(T value = T{}) noexcept {
        if (value_) Free(value_);
        value_ = value;
    }
    explicit operator bool() const noexcept { return value_ != T{}; }

private:
    T value_{};
};

namespace detail {
inline void freeTaskMem(void* p) noexcept { CoTaskMemFree(p); }
inline void destroySafeArray(SAFEARRAY* p) noexcept { SafeArrayDestroy(p); }
}  // namespace detail

using Bstr = Owned<BSTR, &SysFreeString>;
using SafeArray = Owned<SAFEARRAY*, &detail::destroySafeArray>;
template <typename E>
using TaskMem = Owned<E*, &detail::freeTaskMem>;

// A VARIANT that clears itself; usable wherever a VARIANT* is expected.
class Variant : public VARIANT {
public:
    Variant() noexcept { VariantInit(this); }
    ~Variant() { VariantClear(this); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
};

// A task-memory array whose elements hold VARIANTs of their own (OPCITEMSTATE and the like):
// each element's variant is cleared before the block goes.
template <typename E, VARIANT E::*Value>
class VariantRecords {
public:
    VariantRecords() noexcept = default;
    VariantRecords(const VariantRecords&) = delete;
    VariantRecords& operator=(const VariantRecords&) = delete;
    ~VariantRecords() { reset(); }

    E** put(size_t count) noexcept {
        reset();
        count_ = count;
        return &records_;
    }
    E* get() const noexcept { return records_; }
    E& operator[](size_t i) const noexcept { return records_[i]; }
    void reset() noexcept {
        if (records_ != nullptr) {
            for (size_t i = 0; i < count_; ++i) VariantClear(&(records_[i].*Value));
            CoTaskMemFree(records_);
        }
        records_ = nullptr;
        count_ = 0;
    }

private:
    E* records_ = nullptr;
    size_t count_ = 0;
};

// The elements of a SAFEARRAY, reachable between SafeArrayAccessData and SafeArrayUnaccessData: null
// when the array cannot be accessed.
class ArrayData {
public:
    explicit ArrayData(SAFEARRAY* array) noexcept : array_(array) {
        if (FAILED(SafeArrayAccessData(array_, &data_))) data_ = nullptr;
    }
    ~ArrayData() {
        if (data_ != nullptr) SafeArrayUnaccessData(array_);
    }
    ArrayData(const ArrayData&) = delete;
    ArrayData& operator=(const ArrayData&) = delete;
    template <typename E>
    E* elements() const noexcept { return static_cast<E*>(data_); }

private:
    SAFEARRAY* array_;
    void* data_ = nullptr;
};

}  // namespace opc::support
