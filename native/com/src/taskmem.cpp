// Task memory: the allocator COM callers and callees share for out-parameters.
//
// Each block carries a small header with a tag, so that freeing a pointer that did not come from
// this allocator (or freeing a block twice) stops the process at once instead of corrupting the
// heap silently.
#include "internal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint64_t kLiveTag = 0x6b6f6c426b736154ull;  // "TaskBlok"
constexpr uint64_t kDeadTag = 0x646165446b736154ull;

struct alignas(16) Header {
    uint64_t tag;
    uint64_t size;
};

Header* headerOf(void* pv) { return static_cast<Header*>(pv) - 1; }

Header* checkedHeader(void* pv, const char* what) {
    Header* h = headerOf(pv);
    if (h->tag != kLiveTag) {
        std::fprintf(stderr, "%s: %p is not a live task-memory block\n", what, pv);
        std::abort();
    }
    return h;
}

}  // namespace

LPVOID CoTaskMemAlloc(SIZE_T cb) {
    if (cb > SIZE_MAX - sizeof(Header)) return nullptr;
    auto* h = static_cast<Header*>(std::malloc(sizeof(Header) + cb));
    if (h == nullptr) return nullptr;
    h->tag = kLiveTag;
    h->size = cb;
    substrate::ledgerAdd(LEDGER_TASKMEM);
    return h + 1;
}

void CoTaskMemFree(LPVOID pv) {
    if (pv == nullptr) return;
    Header* h = checkedHeader(pv, "CoTaskMemFree");
    h->tag = kDeadTag;
    std::free(h);
    substrate::ledgerRemove(LEDGER_TASKMEM);
}

LPVOID CoTaskMemRealloc(LPVOID pv, SIZE_T cb) {
    if (pv == nullptr) return CoTaskMemAlloc(cb);
    if (cb == 0) {
        CoTaskMemFree(pv);
        return nullptr;
    }
    checkedHeader(pv, "CoTaskMemRealloc");
    if (cb > SIZE_MAX - sizeof(Header)) return nullptr;
    auto* h = static_cast<Header*>(std::realloc(headerOf(pv), sizeof(Header) + cb));
    if (h == nullptr) return nullptr;  // the old block stays valid
    h->size = cb;
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
        return pv == nullptr ? static_cast<SIZE_T>(-1) : checkedHeader(pv, "IMalloc::GetSize")->size;
    }
    int STDMETHODCALLTYPE DidAlloc(void* pv) override {
        return pv == nullptr ? -1 : headerOf(pv)->tag == kLiveTag ? 1 : 0;
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
