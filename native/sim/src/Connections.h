// Connection points: the sinks that clients connect to a server (IOPCShutdown) or to a group
// (IOPCDataCallback). The container keeps the sink list; each connection point object that
// FindConnectionPoint hands out holds the container and the list.
#pragma once

#include "Common.h"
#include "ComPtr.h"

#include <olectl.h>

#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace sim {

using opc::support::ComPtr;

class Connections {
public:
    explicit Connections(const IID& sinkIid) : sinkIid_(sinkIid) {}
    ~Connections() { clear(); }
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

    const IID& sinkIid() const { return sinkIid_; }
    HRESULT advise(IUnknown* sink, DWORD* cookie);
    HRESULT unadvise(DWORD cookie);
    // The connected sinks (each the sink interface itself), with a reference each.
    template <typename Sink>
    std::vector<ComPtr<Sink>> sinks() {
        std::vector<ComPtr<Sink>> out;
        std::lock_guard<std::mutex> guard(lock_);
        for (auto& entry : sinks_) out.push_back(ComPtr<Sink>::borrow(static_cast<Sink*>(entry.second.get())));
        return out;
    }
    bool empty();
    // Drops every sink; the releases happen outside the lock.
    void clear();

private:
    const IID sinkIid_;
    std::mutex lock_;
    std::map<DWORD, ComPtr<IUnknown>> sinks_;
    DWORD nextCookie_ = 1;
};

// A new connection point for the container when `iid` is the one its list serves.
HRESULT findConnectionPoint(IConnectionPointContainer* container, const std::shared_ptr<Connections>& connections,
                            REFIID iid, IConnectionPoint** point);

}  // namespace sim
