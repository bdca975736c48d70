// The simulated device: every item of the address space with its canonical type, access rights,
// quality and current value, and the conversions between stored values and VARIANTs.
#pragma once

#include "Common.h"

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

namespace sim {

enum class Behavior { Stored, Random, Ramp, Sine };

// One scalar or array element: numbers (and booleans as 0/1) in `num`, strings in `text`.
struct Cell {
    double num = 0;
    WString text;
};

struct ItemDef {
    WString id;
    VARTYPE type = VT_EMPTY;  // canonical; VT_ARRAY | element type for arrays
    DWORD access = OPC_READABLE | OPC_WRITEABLE;
    Behavior behavior = Behavior::Stored;
    WORD quality = OPC_QUALITY_GOOD;
    std::vector<Cell> initial;
    // Guarded by the address space's lock.
    std::vector<Cell> current;
    FILETIME stamp{};
    unsigned long changes = 0;  // how often the value was advanced since the last reset
};

class AddressSpace {
public:
    static AddressSpace& instance();

    // S_OK and the item, OPC_E_INVALIDITEMID or OPC_E_UNKNOWNITEMID.
    HRESULT lookup(const WCHAR* itemId, const ItemDef** item) const;
    static bool acceptsType(const ItemDef& item, VARTYPE requested);

    // The item's value converted to `type` (VT_EMPTY = canonical) into `out` (initialised by the caller).
    HRESULT read(const ItemDef& item, VARTYPE type, VARIANT* out, FILETIME* stamp, WORD* quality);
    // The item's current value in its canonical type, with timestamp and quality.
    void snapshot(const ItemDef& item, std::vector<Cell>* cells, FILETIME* stamp, WORD* quality);
    static HRESULT toVariant(const ItemDef& item, const std::vector<Cell>& cells, VARTYPE type, VARIANT* out);
    // Stores a value given in any convertible type: OPC_E_BADTYPE or OPC_E_RANGE when it does not fit.
    HRESULT write(const ItemDef& item, const VARIANT& value);

    // For items that change at every update: hold `exclusive()` while calling advance(), which
    // gives the item its next value (integers count up and wrap within their type, reals count up
    // by one, booleans toggle, texts end in a change count; computed items just compute) and
    // converts it to `type` into `out`.
    std::unique_lock<std::shared_mutex> exclusive() { return std::unique_lock<std::shared_mutex>(lock_); }
    HRESULT advance(const ItemDef& item, VARTYPE type, const FILETIME& stamp, VARIANT* out, WORD* quality);

    // Items in id order, for browsing.
    const std::vector<const ItemDef*>& ordered() const { return ordered_; }

    void reset();

private:
    AddressSpace();
    void add(const char* id, VARTYPE type, std::vector<Cell> initial, DWORD access = OPC_READABLE | OPC_WRITEABLE,
             Behavior behavior = Behavior::Stored, WORD quality = OPC_QUALITY_GOOD);

    std::vector<std::unique_ptr<ItemDef>> items_;
    std::unordered_map<WString, ItemDef*> byId_;
    std::vector<const ItemDef*> ordered_;
    mutable std::shared_mutex lock_;
};

bool isScalarConvertible(VARTYPE vt);

}  // namespace sim
