// GUID texts: IIDFromString, CLSIDFromString (a braced GUID or a ProgID) and StringFromIID. A text
// that parses is a braced 38-character GUID that StringFromIID gives back in upper case, and what
// parses as an IID parses as the same CLSID.
#include <cwctype>
#include <string>

#include "FuzzInput.h"
#include "OpcEnv.h"

using namespace opc;
using opc::fuzz::FuzzInput;

namespace {

OLECHAR upper(OLECHAR c) { return c >= u'a' && c <= u'f' ? static_cast<OLECHAR>(c - u'a' + u'A') : c; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const opc::fuzz::LedgerUnchanged ledger;
    FuzzInput in(data, size);
    // Odd first byte: the rest are UTF-16 units; even: bytes widened one to one.
    const bool units = (in.take<uint8_t>() & 1) != 0;
    WideText text;
    while (in.left() > 0 && text.size() < 64) text.push_back(units ? in.take<OLECHAR>() : in.take<uint8_t>());
    const size_t end = text.find(OLECHAR(0));
    if (end != WideText::npos) text.resize(end);

    IID iid{};
    const HRESULT hr = IIDFromString(text.c_str(), &iid);
    if (SUCCEEDED(hr)) {
        if (text.size() != 38) opc::fuzz::fail("an IID parsed from a text that is not 38 characters");
        const support::TaskMem<OLECHAR> back = OpcEnv::fromIID(iid);
        if (!back) opc::fuzz::fail("StringFromIID failed");
        WideText expected;
        for (const OLECHAR c : text) expected.push_back(upper(c));
        if (WideText(back.get()) != expected) opc::fuzz::fail("StringFromIID does not give the text back");
        CLSID clsid{};
        if (FAILED(CLSIDFromString(text.c_str(), &clsid)) || !IsEqualGUID(clsid, iid))
            opc::fuzz::fail("an IID text is not the same CLSID");
    } else {
        CLSID clsid{};
        (void)CLSIDFromString(text.c_str(), &clsid);
    }
    return 0;
}
