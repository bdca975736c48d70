#include "StringEnum.h"

#include "ComObject.h"
#include "Control.h"

#include <memory>

namespace sim {
namespace {

class StringEnum final : public opc::support::ComObject<StringEnum, IEnumString> {
public:
    StringEnum(std::shared_ptr<const std::vector<WString>> texts, size_t position)
        : texts_(std::move(texts)), position_(position) {}

    void* interfaceFor(REFIID iid) {
        return IsEqualIID(iid, IID_IEnumString) ? static_cast<IEnumString*>(this) : nullptr;
    }

    HRESULT STDMETHODCALLTYPE Next(ULONG celt, LPOLESTR* rgelt, ULONG* fetched) override {
        if (rgelt == nullptr || (fetched == nullptr && celt != 1)) return E_POINTER;
        ULONG n = 0;
        while (n < celt && position_ < texts_->size()) {
            rgelt[n] = taskString((*texts_)[position_]);
            if (rgelt[n] == nullptr) {
                for (ULONG i = 0; i < n; ++i) CoTaskMemFree(rgelt[i]);
                if (fetched) *fetched = 0;
                return E_OUTOFMEMORY;
            }
            ++n;
            ++position_;
        }
        if (fetched) *fetched = n;
        return n == celt ? S_OK : S_FALSE;
    }
    HRESULT STDMETHODCALLTYPE Skip(ULONG celt) override {
        const size_t left = texts_->size() - position_;
        if (celt > left) { position_ = texts_->size(); return S_FALSE; }
        position_ += celt;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Reset() override {
        position_ = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumString** out) override {
        if (out == nullptr) return E_POINTER;
        *out = new StringEnum(texts_, position_);
        return S_OK;
    }

private:
    Live<Kind::Enum> live_;
    std::shared_ptr<const std::vector<WString>> texts_;
    size_t position_;
};

}  // namespace

IEnumString* newStringEnum(std::vector<WString> texts) {
    return new StringEnum(std::make_shared<const std::vector<WString>>(std::move(texts)), 0);
}

}  // namespace sim
