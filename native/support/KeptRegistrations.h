// Keeps the RPC registration of interfaces whose exported objects come and go, for a process that
// serves them to other processes under Wine.
//
// Wine's COM registers one RPC interface per interface ID and process while any stub of that ID is
// exported, and unregisters it when the last such stub goes, waiting there for the calls on that ID
// to end. That wait can miss a call that ends at the same moment (the end of a call does not take the
// lock under which the unregistration looks, and the event it would signal may not exist yet); it then
// never returns, and it holds the lock that every later export and release of a stub needs. The
// release of the last proxy of such an object, made right after a call on it (an Unadvise, then the
// release of the connection point), was seen to wait forever that way.
//
// One stub of each such interface, exported for as long as this object lives, keeps every
// registration above zero: the unregistration never runs. The stubs belong to an inert object whose
// marshalled references never leave this process, so no call can reach it. Windows needs none of this,
// and there the object does nothing.
#pragma once

#include <objbase.h>

#include <initializer_list>
#include <vector>

#include "ComObject.h"
#include "ComPtr.h"

namespace opc::support {

class KeptRegistrations {
public:
    // Exports one stub of each interface, under Wine only; an interface whose stub cannot be made (no
    // proxy/stub module registered for it) is left out. Needs an initialised apartment that outlives
    // this object.
    explicit KeptRegistrations(std::initializer_list<const IID*> iids) {
        if (!underWine()) return;
        ComPtr<IUnknown> anchor = ComPtr<IUnknown>::attach(new Anchor(iids));
        for (const IID* iid : iids) {
            ComPtr<IStream> stream;
            if (FAILED(CreateStreamOnHGlobal(nullptr, TRUE, stream.put()))) continue;
            if (FAILED(CoMarshalInterface(stream.get(), *iid, anchor.get(), MSHCTX_LOCAL, nullptr,
                                          MSHLFLAGS_TABLESTRONG)))
                continue;
            streams_.push_back(std::move(stream));
        }
    }
    KeptRegistrations(const KeptRegistrations&) = delete;
    KeptRegistrations& operator=(const KeptRegistrations&) = delete;

    ~KeptRegistrations() {
        for (ComPtr<IStream>& stream : streams_) {
            const LARGE_INTEGER start{};
            if (SUCCEEDED(stream->Seek(start, STREAM_SEEK_SET, nullptr))) CoReleaseMarshalData(stream.get());
        }
    }

    static bool underWine() {
        const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
        return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
    }

private:
    // Answers every kept interface with its IUnknown: only stubs are built on it, and no call arrives.
    class Anchor final : public ComObject<Anchor, IUnknown> {
    public:
        explicit Anchor(std::initializer_list<const IID*> iids) : iids_(iids) {}
        void* interfaceFor(REFIID iid) {
            for (const IID* kept : iids_) {
                if (IsEqualIID(iid, *kept)) return static_cast<IUnknown*>(this);
            }
            return nullptr;
        }

    private:
        std::vector<const IID*> iids_;
    };

    std::vector<ComPtr<IStream>> streams_;
};

}  // namespace opc::support
