// Task memory: the allocator COM callers and callees share for out-parameters.
//
// Each block carries a small header with its size. The ledger knows every live block by address, so
// that freeing a pointer that did not come from this allocator (or freeing a block twice) stops the
// process at once, before anything is read through the pointer, instead of corrupting the heap.
#include "internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct alignas(16) Header {
    uint64_t size;
    uint64_t reserved;
};

Header* headerOf(void* pv) { return static_cast<Header*>(pv) - 1; }

[[noreturn]] void notLive(void* pv, const char* what) {
    std::fprintf(stderr, "%s: %p is not a live task-memory block\n", what, pv);
    std::abort();
}

// The header of a live block, which the caller takes out of the ledger (free, realloc) or not.
Header* checkedHeader(void* pv, const char* what, bool remove) {
    const bool live = remove ? substrate::blockRemove(pv, LEDGER_TASKMEM) : substrate::blockIsLive(pv, LEDGER_TASKMEM);
    if (!live) notLive(pv, what);
    return headerOf(pv);
}

}  // namespace

LPVOID CoTaskMemAlloc(SIZE_T cb) {
    if (cb > SIZE_MAX - sizeof(Header)) return nullptr;
    auto* h = static_cast<Header*>(std::malloc(sizeof(Header) + cb));
    if (h == nullptr) return nullptr;
    h->size = cb;
    substrate::blockAdd(h + 1, LEDGER_TASKMEM);
    return h + 1;
}

void CoTaskMemFree(LPVOID pv) {
    if (pv == nullptr) return;
    std::free(checkedHeader(pv, "CoTaskMemFree", true));
}

LPVOID CoTaskMemRealloc(LPVOID pv, SIZE_T cb) {
    if (pv == nullptr) return CoTaskMemAlloc(cb);
    if (cb == 0) {
        CoTaskMemFree(pv);
        return nullptr;
    }
    checkedHeader(pv, "CoTaskMemRealloc", false);
    if (cb > SIZE_MAX - sizeof(Header)) return nullptr;
    // Out of the ledger before realloc gives the address up; back in if the old block stays.
    substrate::blockRemove(pv, LEDGER_TASKMEM);
    auto* h = static_cast<Header*>(std::realloc(headerOf(pv), sizeof(Header) + cb));
    if (h == nullptr) {
        substrate::blockAdd(pv, LEDGER_TASKMEM);
        return nullptr;
    }
    h->size = cb;
    substrate::blockAdd(h + 1, LEDGER_TASKMEM);
    return h + 1;
}

namespace {

// The process task allocator as an IMalloc; it lives as long as the process.
class TaskAllocator final : public IMalloc {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IMalloc) {
            *ppv = static_cast<IMalloc*>(this);
            return S_OK;
        }
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    void* STDMETHODCALLTYPE Alloc(SIZE_T cb) override { return CoTaskMemAlloc(cb); }
    void* STDMETHODCALLTYPE Realloc(void* pv, SIZE_T cb) override { return CoTaskMemRealloc(pv, cb); }
    void STDMETHODCALLTYPE Free(void* pv) override { CoTaskMemFree(pv); }
    SIZE_T STDMETHODCALLTYPE GetSize(void* pv) override {
        return pv == nullptr ? static_cast<SIZE_T>(-1) : checkedHeader(pv, "IMalloc::GetSize", false)->size;
    }
    int STDMETHODCALLTYPE DidAlloc(void* pv) override {
        return pv == nullptr ? -1 : substrate::blockIsLive(pv, LEDGER_TASKMEM) ? 1 : 0;
    }
    void STDMETHODCALLTYPE HeapMinimize() override {}
};

TaskAllocator taskAllocator;

}  // namespace

HRESULT CoGetMalloc(DWORD dwMemContext, LPMALLOC* ppMalloc) {
    if (ppMalloc == nullptr) return E_INVALIDARG;
    *ppMalloc = nullptr;
    if (dwMemContext != 1) return E_INVALIDARG;  // MEMCTX_TASK
    *ppMalloc = &taskAllocator;
    return S_OK;
}
