#include "Connections.h"

#include "ComObject.h"
#include "Control.h"

namespace sim {

HRESULT Connections::advise(IUnknown* sink, DWORD* cookie) {
    if (cookie == nullptr) return E_POINTER;
    *cookie = 0;
    if (sink == nullptr) return E_POINTER;
    ComPtr<IUnknown> typed;
    if (FAILED(sink->QueryInterface(sinkIid_, typed.putVoid())) || !typed) return CONNECT_E_CANNOTCONNECT;
    std::lock_guard<std::mutex> guard(lock_);
    *cookie = nextCookie_++;
    sinks_.emplace(*cookie, std::move(typed));
    countConnection(sinkIid_, +1);
    return S_OK;
}

HRESULT Connections::unadvise(DWORD cookie) {
    ComPtr<IUnknown> dropped;
    {
        std::lock_guard<std::mutex> guard(lock_);
        auto it = sinks_.find(cookie);
        if (it == sinks_.end()) return CONNECT_E_NOCONNECTION;
        dropped = std::move(it->second);
        sinks_.erase(it);
        countConnection(sinkIid_, -1);
    }
    return S_OK;  // the sink is released here, outside the lock
}

bool Connections::empty() {
    std::lock_guard<std::mutex> guard(lock_);
    return sinks_.empty();
}

void Connections::clear() {
    std::map<DWORD, ComPtr<IUnknown>> dropped;
    {
        std::lock_guard<std::mutex> guard(lock_);
        dropped.swap(sinks_);
        countConnection(sinkIid_, -int(dropped.size()));
    }
}

namespace {

class ConnectionPoint final : public opc::support::ComObject<ConnectionPoint, IConnectionPoint> {
public:
    ConnectionPoint(IConnectionPointContainer* container, std::shared_ptr<Connections> connections)
        : container_(ComPtr<IConnectionPointContainer>::borrow(container)), connections_(std::move(connections)) {}

    void* interfaceFor(REFIID iid) {
        return IsEqualIID(iid, IID_IConnectionPoint) ? static_cast<IConnectionPoint*>(this) : nullptr;
    }

    HRESULT STDMETHODCALLTYPE GetConnectionInterface(IID* iid) override {
        if (iid == nullptr) return E_POINTER;
        *iid = connections_->sinkIid();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE GetConnectionPointContainer(IConnectionPointContainer** out) override {
        if (out == nullptr) return E_POINTER;
        *out = container_.get();
        (*out)->AddRef();
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Advise(IUnknown* sink, DWORD* cookie) override {
        if (HRESULT hr = enter("IConnectionPoint::Advise", sink ? "sink=set" : "sink=null"); FAILED(hr)) {
            if (cookie) *cookie = 0;
            return hr;
        }
        return connections_->advise(sink, cookie);
    }
    HRESULT STDMETHODCALLTYPE Unadvise(DWORD cookie) override {
        if (HRESULT hr = enter("IConnectionPoint::Unadvise", "cookie=" + std::to_string(cookie)); FAILED(hr)) return hr;
        return connections_->unadvise(cookie);
    }
    HRESULT STDMETHODCALLTYPE EnumConnections(IEnumConnections** out) override {
        if (out) *out = nullptr;
        return E_NOTIMPL;
    }

private:
    Live<Kind::ConnectionPoint> live_;
    ComPtr<IConnectionPointContainer> container_;
    std::shared_ptr<Connections> connections_;
};

}  // namespace

HRESULT findConnectionPoint(IConnectionPointContainer* container, const std::shared_ptr<Connections>& connections,
                            REFIID iid, IConnectionPoint** point) {
    if (point == nullptr) return E_POINTER;
    *point = nullptr;
    if (!IsEqualIID(iid, connections->sinkIid())) return CONNECT_E_NOCONNECTION;
    *point = new ConnectionPoint(container, connections);
    return S_OK;
}

}  // namespace sim
