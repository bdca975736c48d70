#include "AddressSpace.h"

#include "Control.h"

#include <algorithm>
#include <cfloat>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>

namespace sim {
namespace {

constexpr int kBenchItems = 10000;

bool isInteger(VARTYPE vt) {
    switch (vt) {
        case VT_I1: case VT_I2: case VT_I4: case VT_INT: case VT_UI1: case VT_UI2: case VT_UI4: case VT_UINT:
        case VT_I8:
            return true;
        default:
            return false;
    }
}

bool isUnsigned(VARTYPE vt) { return vt == VT_UI1 || vt == VT_UI2 || vt == VT_UI4 || vt == VT_UINT; }

bool isKnownElement(VARTYPE vt) {
    return isScalarConvertible(vt) || vt == VT_DATE || vt == VT_I8 || vt == VT_CY;
}

void limits(VARTYPE vt, double* lo, double* hi) {
    switch (vt) {
        case VT_I1: *lo = -128; *hi = 127; break;
        case VT_I2: *lo = -32768; *hi = 32767; break;
        case VT_I4: case VT_INT: *lo = -2147483648.0; *hi = 2147483647.0; break;
        case VT_UI1: *lo = 0; *hi = 255; break;
        case VT_UI2: *lo = 0; *hi = 65535; break;
        case VT_UI4: case VT_UINT: *lo = 0; *hi = 4294967295.0; break;
        case VT_I8: *lo = -9223372036854775808.0; *hi = 9223372036854775807.0; break;
        case VT_R4: *lo = -FLT_MAX; *hi = FLT_MAX; break;
        default: *lo = -DBL_MAX; *hi = DBL_MAX; break;
    }
}

WString formatNumber(double value, VARTYPE from) {
    char buffer[64];
    if (from == VT_BOOL) return widen(value != 0 ? "True" : "False");
    if (isInteger(from)) {
        std::snprintf(buffer, sizeof buffer, "%.0f", value);
    } else {
        std::snprintf(buffer, sizeof buffer, from == VT_R4 ? "%.7g" : "%.15g", value);
    }
    return widen(buffer);
}

HRESULT parseText(const WString& text, VARTYPE to, double* out) {
    std::string s = narrow(text.c_str());
    std::string lower(s);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    if (lower == "true") { *out = to == VT_BOOL || isUnsigned(to) ? 1 : -1; return S_OK; }
    if (lower == "false") { *out = 0; return S_OK; }
    if (s.empty()) return DISP_E_TYPEMISMATCH;
    char* end = nullptr;
    const double value = std::strtod(s.c_str(), &end);
    while (end && *end == ' ') ++end;
    if (end == nullptr || *end != '\0') return DISP_E_TYPEMISMATCH;
    *out = value;
    return S_OK;
}

// Converts one element between element types; DISP_E_OVERFLOW or DISP_E_TYPEMISMATCH on failure.
HRESULT convertCell(const Cell& in, VARTYPE from, VARTYPE to, Cell* out) {
    if (from == to) { *out = in; return S_OK; }
    if (to == VT_BSTR) {
        out->text = from == VT_BSTR ? in.text : formatNumber(in.num, from);
        return S_OK;
    }
    double value = in.num;
    if (from == VT_BSTR) {
        const HRESULT hr = parseText(in.text, to, &value);
        if (FAILED(hr)) return hr;
    } else if (from == VT_BOOL && value != 0) {
        value = isUnsigned(to) ? 1 : -1;
    }
    if (to == VT_BOOL) { out->num = value != 0 ? 1 : 0; return S_OK; }
    if (std::isnan(value) && isInteger(to)) return DISP_E_OVERFLOW;
    if (isInteger(to)) value = std::nearbyint(value);
    double lo = 0, hi = 0;
    limits(to, &lo, &hi);
    if (std::isfinite(value) && (value < lo || value > hi)) return DISP_E_OVERFLOW;
    out->num = to == VT_R4 ? double(float(value)) : value;
    return S_OK;
}

// Writes one element of type vt into the storage that SafeArrayPutElement or a VARIANT expects.
union Slot {
    signed char i1;
    short i2;
    LONG i4;
    INT i;
    BYTE ui1;
    USHORT ui2;
    ULONG ui4;
    UINT ui;
    FLOAT r4;
    DOUBLE r8;
    VARIANT_BOOL b;
    DATE date;
    LONGLONG i8;
    CY cy;
    BSTR bstr;
};

void toSlot(const Cell& cell, VARTYPE vt, Slot* slot) {
    switch (vt) {
        case VT_I1: slot->i1 = static_cast<signed char>(cell.num); break;
        case VT_I2: slot->i2 = static_cast<short>(cell.num); break;
        case VT_I4: slot->i4 = static_cast<LONG>(cell.num); break;
        case VT_INT: slot->i = static_cast<INT>(cell.num); break;
        case VT_UI1: slot->ui1 = static_cast<BYTE>(cell.num); break;
        case VT_UI2: slot->ui2 = static_cast<USHORT>(cell.num); break;
        case VT_UI4: slot->ui4 = static_cast<ULONG>(cell.num); break;
        case VT_UINT: slot->ui = static_cast<UINT>(cell.num); break;
        case VT_R4: slot->r4 = static_cast<FLOAT>(cell.num); break;
        case VT_R8: slot->r8 = cell.num; break;
        case VT_BOOL: slot->b = cell.num != 0 ? VARIANT_TRUE : VARIANT_FALSE; break;
        case VT_DATE: slot->date = cell.num; break;
        case VT_I8: slot->i8 = static_cast<LONGLONG>(cell.num); break;
        case VT_CY: slot->cy.int64 = static_cast<LONGLONG>(std::llround(cell.num * 10000)); break;
        default: break;
    }
}

double fromSlot(const Slot& slot, VARTYPE vt) {
    switch (vt) {
        case VT_I1: return slot.i1;
        case VT_I2: return slot.i2;
        case VT_I4: return slot.i4;
        case VT_INT: return slot.i;
        case VT_UI1: return slot.ui1;
        case VT_UI2: return slot.ui2;
        case VT_UI4: return slot.ui4;
        case VT_UINT: return slot.ui;
        case VT_R4: return slot.r4;
        case VT_R8: return slot.r8;
        case VT_BOOL: return slot.b != 0 ? 1 : 0;
        case VT_DATE: return slot.date;
        case VT_I8: return static_cast<double>(slot.i8);
        case VT_CY: return static_cast<double>(slot.cy.int64) / 10000;
        default: return 0;
    }
}

void scalarToVariant(const Cell& cell, VARTYPE vt, VARIANT* out) {
    Slot slot{};
    out->vt = vt;
    if (vt == VT_BSTR) {
        out->bstrVal = nullResults("values") ? nullptr : SysAllocStringLen(cell.text.data(), UINT(cell.text.size()));
        return;
    }
    toSlot(cell, vt, &slot);
    switch (vt) {
        case VT_I1: out->cVal = static_cast<CHAR>(slot.i1); break;
        case VT_I2: out->iVal = slot.i2; break;
        case VT_I4: out->lVal = slot.i4; break;
        case VT_INT: out->intVal = slot.i; break;
        case VT_UI1: out->bVal = slot.ui1; break;
        case VT_UI2: out->uiVal = slot.ui2; break;
        case VT_UI4: out->ulVal = slot.ui4; break;
        case VT_UINT: out->uintVal = slot.ui; break;
        case VT_R4: out->fltVal = slot.r4; break;
        case VT_R8: out->dblVal = slot.r8; break;
        case VT_BOOL: out->boolVal = slot.b; break;
        case VT_DATE: out->date = slot.date; break;
        case VT_I8: out->llVal = slot.i8; break;
        case VT_CY: out->cyVal = slot.cy; break;
        default: break;
    }
}

HRESULT scalarFromVariant(const VARIANT& in, VARTYPE vt, Cell* out) {
    Slot slot{};
    switch (vt) {
        case VT_I1: slot.i1 = static_cast<signed char>(in.cVal); break;
        case VT_I2: slot.i2 = in.iVal; break;
        case VT_I4: slot.i4 = in.lVal; break;
        case VT_INT: slot.i = in.intVal; break;
        case VT_UI1: slot.ui1 = in.bVal; break;
        case VT_UI2: slot.ui2 = in.uiVal; break;
        case VT_UI4: slot.ui4 = in.ulVal; break;
        case VT_UINT: slot.ui = in.uintVal; break;
        case VT_R4: slot.r4 = in.fltVal; break;
        case VT_R8: slot.r8 = in.dblVal; break;
        case VT_BOOL: slot.b = in.boolVal; break;
        case VT_DATE: slot.date = in.date; break;
        case VT_I8: slot.i8 = in.llVal; break;
        case VT_CY: slot.cy = in.cyVal; break;
        case VT_BSTR:
            out->text = in.bstrVal ? WString(in.bstrVal, SysStringLen(in.bstrVal)) : WString();
            return S_OK;
        default:
            return DISP_E_BADVARTYPE;
    }
    out->num = fromSlot(slot, vt);
    return S_OK;
}

HRESULT arrayToVariant(const std::vector<Cell>& cells, VARTYPE element, VARIANT* out) {
    out->vt = VARTYPE(VT_ARRAY | element);
    out->parray = nullptr;
    if (nullResults("values")) return S_OK;
    SAFEARRAYBOUND bound{ULONG(cells.size()), 0};
    SAFEARRAY* array = SafeArrayCreate(element, 1, &bound);
    if (array == nullptr) { out->vt = VT_EMPTY; return E_OUTOFMEMORY; }
    for (LONG i = 0; i < LONG(cells.size()); ++i) {
        HRESULT hr = S_OK;
        if (element == VT_BSTR) {
            BSTR text = SysAllocStringLen(cells[i].text.data(), UINT(cells[i].text.size()));
            hr = SafeArrayPutElement(array, &i, text);
            SysFreeString(text);
        } else {
            Slot slot{};
            toSlot(cells[i], element, &slot);
            hr = SafeArrayPutElement(array, &i, &slot);
        }
        if (FAILED(hr)) { SafeArrayDestroy(array); out->vt = VT_EMPTY; return hr; }
    }
    out->parray = array;
    return S_OK;
}

HRESULT arrayFromVariant(const VARIANT& in, VARTYPE element, std::vector<Cell>* cells) {
    SAFEARRAY* array = in.parray;
    if (array == nullptr) return DISP_E_TYPEMISMATCH;
    LONG lo = 0, hi = -1;
    if (FAILED(SafeArrayGetLBound(array, 1, &lo)) || FAILED(SafeArrayGetUBound(array, 1, &hi))) return DISP_E_TYPEMISMATCH;
    for (LONG i = lo; i <= hi; ++i) {
        Cell cell;
        if (element == VT_BSTR) {
            BSTR text = nullptr;
            if (FAILED(SafeArrayGetElement(array, &i, &text))) return DISP_E_TYPEMISMATCH;
            if (text) cell.text.assign(text, SysStringLen(text));
            SysFreeString(text);
        } else {
            Slot slot{};
            if (FAILED(SafeArrayGetElement(array, &i, &slot))) return DISP_E_TYPEMISMATCH;
            cell.num = fromSlot(slot, element);
        }
        cells->push_back(std::move(cell));
    }
    return S_OK;
}

Cell num(double v) { return Cell{v, {}}; }
Cell str(const char* s) { return Cell{0, widen(s)}; }

double millisNow() {
    using namespace std::chrono;
    return double(duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count());
}

Cell dynamicValue(const ItemDef& item) {
    const double ms = millisNow();
    switch (item.behavior) {
        case Behavior::Random: {
            thread_local std::mt19937 engine{std::random_device{}()};
            std::uniform_real_distribution<double> dist(0, item.type == VT_I4 ? 1000 : 100);
            const double v = dist(engine);
            return num(item.type == VT_I4 ? std::floor(v) : v);
        }
        case Behavior::Ramp:
            return num(std::fmod(std::floor(ms / 100), 100));
        case Behavior::Sine:
            return num(100 * std::sin(2 * 3.14159265358979323846 * std::fmod(ms, 10000) / 10000));
        default:
            return {};
    }
}

bool validSyntax(const WCHAR* id) {
    if (id == nullptr || *id == 0) return false;
    WCHAR previous = '.';
    for (const WCHAR* p = id; *p; ++p) {
        if (*p <= ' ' || *p == 0x7F) return false;
        if (*p == '.' && previous == '.') return false;
        previous = *p;
    }
    return previous != '.';
}

}  // namespace

bool isScalarConvertible(VARTYPE vt) {
    switch (vt) {
        case VT_I1: case VT_I2: case VT_I4: case VT_INT: case VT_UI1: case VT_UI2: case VT_UI4: case VT_UINT:
        case VT_R4: case VT_R8: case VT_BOOL: case VT_BSTR:
            return true;
        default:
            return false;
    }
}

AddressSpace& AddressSpace::instance() {
    static AddressSpace* space = new AddressSpace();  // lives as long as the process
    return *space;
}

void AddressSpace::add(const char* id, VARTYPE type, std::vector<Cell> initial, DWORD access, Behavior behavior,
                       WORD quality) {
    auto item = std::make_unique<ItemDef>();
    item->id = widen(id);
    item->type = type;
    item->access = access;
    item->behavior = behavior;
    item->quality = quality;
    item->initial = std::move(initial);
    item->current = item->initial;
    item->stamp = now();
    byId_.emplace(item->id, item.get());
    items_.push_back(std::move(item));
}

AddressSpace::AddressSpace() {
    const DWORD ro = OPC_READABLE;
    add("Simulation.Static.I1", VT_I1, {num(-12)});
    add("Simulation.Static.I2", VT_I2, {num(-1234)});
    add("Simulation.Static.I4", VT_I4, {num(-123456)});
    add("Simulation.Static.INT", VT_INT, {num(-42)});
    add("Simulation.Static.UI1", VT_UI1, {num(200)});
    add("Simulation.Static.UI2", VT_UI2, {num(60000)});
    add("Simulation.Static.UI4", VT_UI4, {num(4000000000.0)});
    add("Simulation.Static.UINT", VT_UINT, {num(42)});
    add("Simulation.Static.R4", VT_R4, {num(3.25)});
    add("Simulation.Static.R8", VT_R8, {num(2.718281828)});
    add("Simulation.Static.BOOL", VT_BOOL, {num(1)});
    add("Simulation.Static.BSTR", VT_BSTR, {str("hello")});

    add("Simulation.Array.I1", VT_ARRAY | VT_I1, {num(-128), num(0), num(127)});
    add("Simulation.Array.I2", VT_ARRAY | VT_I2, {num(-5), num(0), num(7)});
    add("Simulation.Array.I4", VT_ARRAY | VT_I4, {num(-100000), num(0), num(100000)});
    add("Simulation.Array.UI1", VT_ARRAY | VT_UI1, {num(0), num(255)});
    add("Simulation.Array.UI2", VT_ARRAY | VT_UI2, {num(0), num(65535)});
    add("Simulation.Array.UI4", VT_ARRAY | VT_UI4, {num(4294967295.0), num(0), num(7)});
    add("Simulation.Array.R4", VT_ARRAY | VT_R4, {num(0.5), num(-1.25)});
    add("Simulation.Array.R8", VT_ARRAY | VT_R8, {num(1.26), num(2.0), num(-3.14159)});
    add("Simulation.Array.BOOL", VT_ARRAY | VT_BOOL, {num(1), num(0)});
    add("Simulation.Array.BSTR", VT_ARRAY | VT_BSTR, {str("ab"), str("c")});

    add("Simulation.Random.I4", VT_I4, {num(0)}, ro, Behavior::Random);
    add("Simulation.Random.R8", VT_R8, {num(0)}, ro, Behavior::Random);
    add("Simulation.Ramp.I4", VT_I4, {num(0)}, ro, Behavior::Ramp);
    add("Simulation.Ramp.R8", VT_R8, {num(0)}, ro, Behavior::Ramp);
    add("Simulation.Sine.R8", VT_R8, {num(0)}, ro, Behavior::Sine);

    add("Simulation.Unsupported.DATE", VT_DATE, {num(45000.5)});
    add("Simulation.Unsupported.I8", VT_I8, {num(1234567890123.0)});
    add("Simulation.Unsupported.CY", VT_CY, {num(12.3456)});

    add("Simulation.Access.ReadOnly", VT_R8, {num(1.5)}, ro);
    add("Simulation.Access.WriteOnly", VT_R8, {num(2.5)}, OPC_WRITEABLE);
    add("Simulation.Quality.Bad", VT_R8, {num(-1)}, ro, Behavior::Stored, OPC_QUALITY_COMM_FAILURE);
    add("Simulation.Quality.Uncertain", VT_R8, {num(0.25)}, ro, Behavior::Stored, OPC_QUALITY_UNCERTAIN);

    char id[32];
    for (int n = 0; n < kBenchItems; ++n) {
        std::snprintf(id, sizeof id, "Bench.R8.%d", n);
        add(id, VT_R8, {num(n + 0.5)});
    }
    for (int n = 0; n < kBenchItems; ++n) {
        std::snprintf(id, sizeof id, "Bench.Str.%d", n);
        char text[32];
        std::snprintf(text, sizeof text, "value%d", n);
        add(id, VT_BSTR, {str(text)});
    }

    for (const auto& item : items_) ordered_.push_back(item.get());
    std::sort(ordered_.begin(), ordered_.end(), [](const ItemDef* a, const ItemDef* b) { return a->id < b->id; });
}

HRESULT AddressSpace::lookup(const WCHAR* itemId, const ItemDef** item) const {
    *item = nullptr;
    if (!validSyntax(itemId)) return OPC_E_INVALIDITEMID;
    auto it = byId_.find(WString(itemId));
    if (it == byId_.end()) return OPC_E_UNKNOWNITEMID;
    *item = it->second;
    return S_OK;
}

bool AddressSpace::acceptsType(const ItemDef& item, VARTYPE requested) {
    if (requested == VT_EMPTY || requested == item.type) return true;
    return isScalarConvertible(item.type) && isScalarConvertible(requested);
}

void AddressSpace::snapshot(const ItemDef& item, std::vector<Cell>* cells, FILETIME* stamp, WORD* quality) {
    if (item.behavior == Behavior::Stored) {
        std::shared_lock<std::shared_mutex> guard(lock_);
        *cells = item.current;
        *stamp = item.stamp;
    } else {
        cells->assign(1, dynamicValue(item));
        *stamp = now();
    }
    *quality = item.quality;
}

HRESULT AddressSpace::toVariant(const ItemDef& item, const std::vector<Cell>& cells, VARTYPE type, VARIANT* out) {
    const VARTYPE target = type == VT_EMPTY ? item.type : type;
    if (target & VT_ARRAY) return arrayToVariant(cells, VARTYPE(target & ~VT_ARRAY), out);
    if (cells.empty()) return E_FAIL;
    Cell converted;
    const HRESULT hr = convertCell(cells.front(), item.type, target, &converted);
    if (FAILED(hr)) return hr;
    scalarToVariant(converted, target, out);
    return S_OK;
}

HRESULT AddressSpace::read(const ItemDef& item, VARTYPE type, VARIANT* out, FILETIME* stamp, WORD* quality) {
    std::vector<Cell> cells;
    snapshot(item, &cells, stamp, quality);
    return toVariant(item, cells, type, out);
}

HRESULT AddressSpace::write(const ItemDef& item, const VARIANT& value) {
    const VARTYPE canonicalElement = VARTYPE(item.type & ~VT_ARRAY);
    const VARTYPE sourceElement = VARTYPE(value.vt & ~VT_ARRAY);
    if ((value.vt & VT_BYREF) || !isKnownElement(sourceElement)) return OPC_E_BADTYPE;
    if (bool(value.vt & VT_ARRAY) != bool(item.type & VT_ARRAY)) return OPC_E_BADTYPE;

    std::vector<Cell> source;
    if (value.vt & VT_ARRAY) {
        if (FAILED(arrayFromVariant(value, sourceElement, &source))) return OPC_E_BADTYPE;
    } else {
        Cell cell;
        if (FAILED(scalarFromVariant(value, sourceElement, &cell))) return OPC_E_BADTYPE;
        source.push_back(std::move(cell));
    }
    std::vector<Cell> converted(source.size());
    for (size_t i = 0; i < source.size(); ++i) {
        const HRESULT hr = convertCell(source[i], sourceElement, canonicalElement, &converted[i]);
        if (hr == DISP_E_OVERFLOW) return OPC_E_RANGE;
        if (FAILED(hr)) return OPC_E_BADTYPE;
    }
    std::unique_lock<std::shared_mutex> guard(lock_);
    ItemDef& target = const_cast<ItemDef&>(item);
    target.current = std::move(converted);
    target.stamp = now();
    return S_OK;
}

HRESULT AddressSpace::advance(const ItemDef& item, VARTYPE type, const FILETIME& stamp, VARIANT* out,
                              WORD* quality) {
    *quality = item.quality;
    if (item.behavior != Behavior::Stored) {
        const Cell value[] = {dynamicValue(item)};
        return toVariant(item, std::vector<Cell>(value, value + 1), type, out);
    }
    ItemDef& target = const_cast<ItemDef&>(item);
    const VARTYPE element = VARTYPE(item.type & ~VT_ARRAY);
    ++target.changes;
    for (size_t i = 0; i < target.current.size(); ++i) {
        Cell& cell = target.current[i];
        if (element == VT_BSTR) {
            const std::string count = "#" + std::to_string(target.changes);
            cell.text = i < item.initial.size() ? item.initial[i].text : WString();
            cell.text.append(count.begin(), count.end());
        } else if (element == VT_BOOL) {
            cell.num = cell.num != 0 ? 0 : 1;
        } else {
            double lo = 0, hi = 0;
            limits(element, &lo, &hi);
            cell.num = isInteger(element) && cell.num + 1 > hi ? lo : cell.num + 1;
        }
    }
    target.stamp = stamp;
    return toVariant(item, item.current, type, out);
}

void AddressSpace::reset() {
    std::unique_lock<std::shared_mutex> guard(lock_);
    const FILETIME stamp = now();
    for (auto& item : items_) {
        item->current = item->initial;
        item->stamp = stamp;
        item->changes = 0;
    }
}

}  // namespace sim
