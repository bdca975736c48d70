// What the fuzz targets share: a reader over the input bytes, and the ledger check that every input
// must pass (what a target allocates it frees).
#pragma once

#include "opc/platform.h"

#include <substrate/ledger.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace opc::fuzz {

// Takes values from the front of the input; past its end every value is 0.
class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) noexcept : data_(data), size_(size) {}

    template <typename T>
    T take() noexcept {
        T value{};
        const size_t n = sizeof(T) < size_ ? sizeof(T) : size_;
        std::memcpy(&value, data_, n);
        data_ += n;
        size_ -= n;
        return value;
    }
    // At most `limit` bytes.
    std::string bytes(size_t limit) {
        const size_t n = limit < size_ ? limit : size_;
        std::string out(reinterpret_cast<const char*>(data_), n);
        data_ += n;
        size_ -= n;
        return out;
    }
    std::string rest() { return bytes(size_); }
    size_t left() const noexcept { return size_; }

private:
    const uint8_t* data_;
    size_t size_;
};

// Stops the process when a kind of block has more or fewer live blocks at scope end than at its start.
class LedgerUnchanged {
public:
    LedgerUnchanged() noexcept {
        for (int k = 0; k < LEDGER_KINDS; ++k) start_[k] = LedgerLiveCount(k);
    }
    ~LedgerUnchanged() {
        for (int k = 0; k < LEDGER_KINDS; ++k) {
            if (LedgerLiveCount(k) != start_[k]) {
                std::fprintf(stderr, "ledger kind %d: %lld live blocks, %lld before\n", k, LedgerLiveCount(k), start_[k]);
                std::abort();
            }
        }
    }
    LedgerUnchanged(const LedgerUnchanged&) = delete;
    LedgerUnchanged& operator=(const LedgerUnchanged&) = delete;

private:
    long long start_[LEDGER_KINDS];
};

[[noreturn]] inline void fail(const char* what) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

}  // namespace opc::fuzz
