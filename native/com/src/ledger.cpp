// The ledger: live blocks counted by kind, and the set of live task-memory blocks and BSTRs by
// address, so that a free can tell a pointer of its own allocator from any other pointer without
// reading the memory around it.
#include "internal.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace substrate {
std::atomic<long long> ledgerCounts[LEDGER_KINDS];
}

extern "C" long long LedgerLiveCount(int kind) {
    if (kind < 0 || kind >= LEDGER_KINDS) return -1;
    return substrate::ledgerCounts[kind].load(std::memory_order_relaxed);
}

namespace substrate {
namespace {

// An open-addressing set of keys (address | kind; addresses of blocks are 8-byte aligned) in
// shards of its own lock, so that threads that allocate at the same time rarely wait for each
// other. Removed keys leave a tombstone until the shard's table is rebuilt.
class BlockSet {
public:
    void add(uintptr_t key) {
        Shard& shard = shardOf(key);
        const std::lock_guard<std::mutex> lock(shard.mutex);
        if ((shard.used + 1) * 4 > shard.slots.size() * 3) rebuild(shard);
        const size_t mask = shard.slots.size() - 1;
        for (size_t i = slotOf(key) & mask;; i = (i + 1) & mask) {
            uintptr_t& slot = shard.slots[i];
            if (slot == kEmpty || slot == kRemoved) {
                if (slot == kEmpty) ++shard.used;
                slot = key;
                ++shard.live;
                return;
            }
        }
    }

    bool remove(uintptr_t key) {
        Shard& shard = shardOf(key);
        const std::lock_guard<std::mutex> lock(shard.mutex);
        uintptr_t* slot = find(shard, key);
        if (slot == nullptr) return false;
        *slot = kRemoved;
        --shard.live;
        return true;
    }

    bool contains(uintptr_t key) {
        Shard& shard = shardOf(key);
        const std::lock_guard<std::mutex> lock(shard.mutex);
        return find(shard, key) != nullptr;
    }

private:
    static constexpr uintptr_t kEmpty = 0;
    static constexpr uintptr_t kRemoved = 1;
    static constexpr size_t kShards = 64;

    struct Shard {
        std::mutex mutex;
        std::vector<uintptr_t> slots;
        size_t used = 0;  // live keys and tombstones
        size_t live = 0;
    };

    static uint64_t mix(uint64_t x) noexcept {
        x ^= x >> 33;
        x *= 0xff51afd7ed558ccdull;
        x ^= x >> 33;
        return x;
    }
    Shard& shardOf(uintptr_t key) noexcept { return shards_[mix(key) % kShards]; }
    static size_t slotOf(uintptr_t key) noexcept { return static_cast<size_t>(mix(key) / kShards); }

    static uintptr_t* find(Shard& shard, uintptr_t key) noexcept {
        if (shard.slots.empty()) return nullptr;
        const size_t mask = shard.slots.size() - 1;
        for (size_t i = slotOf(key) & mask;; i = (i + 1) & mask) {
            uintptr_t& slot = shard.slots[i];
            if (slot == key) return &slot;
            if (slot == kEmpty) return nullptr;
        }
    }

    // A table at most half full of live keys and free of tombstones.
    static void rebuild(Shard& shard) {
        size_t size = 16;
        while (size < (shard.live + 1) * 2) size *= 2;
        std::vector<uintptr_t> old(size, kEmpty);
        old.swap(shard.slots);
        shard.used = 0;
        const size_t mask = size - 1;
        for (const uintptr_t key : old) {
            if (key == kEmpty || key == kRemoved) continue;
            size_t i = slotOf(key) & mask;
            while (shard.slots[i] != kEmpty) i = (i + 1) & mask;
            shard.slots[i] = key;
            ++shard.used;
        }
    }

    Shard shards_[kShards];
};

BlockSet& liveBlocks() {
    static BlockSet* blocks = new BlockSet;  // never destroyed: frees may come during exit
    return *blocks;
}

// 0 for a pointer that cannot be a block of the runtime (null or not 8-byte aligned).
uintptr_t keyOf(const void* block, LedgerKind kind) noexcept {
    const auto address = reinterpret_cast<uintptr_t>(block);
    if (address == 0 || (address & 7) != 0) return 0;
    return address | static_cast<uintptr_t>(kind);
}

}  // namespace

void blockAdd(void* block, LedgerKind kind) {
    liveBlocks().add(keyOf(block, kind));
    ledgerAdd(kind);
}

bool blockRemove(const void* block, LedgerKind kind) {
    const uintptr_t key = keyOf(block, kind);
    if (key == 0 || !liveBlocks().remove(key)) return false;
    ledgerRemove(kind);
    return true;
}

bool blockIsLive(const void* block, LedgerKind kind) {
    const uintptr_t key = keyOf(block, kind);
    return key != 0 && liveBlocks().contains(key);
}

}  // namespace substrate
