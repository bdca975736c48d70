#include "ValueParsing.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
#include <string_view>
#include <type_traits>

#include "Owned.h"

namespace opc {

namespace {

// Reads one number per token the way a classic-locale stream reads it: leading blanks skipped,
// reading stops at the first character that cannot continue the number. A plain token (an optional
// minus, digits, for the floating types a fraction; nothing else) is read straight with the C
// library, which is what the stream itself ends in; any other token goes through the one stream of
// the array, made when the first such token comes.
class NumberReader {
public:
    template <typename T>
    bool read(std::string_view token, T& value) {
        if (readPlain(token, value)) return true;
        if (!in_) {
            in_.emplace();
            in_->imbue(std::locale::classic());
        }
        in_->clear();
        in_->str(std::string(token));
        *in_ >> value;
        return !in_->fail();
    }

private:
    // The token's digits, a sign and for floats a fraction, in a form whose value needs no range or
    // rounding rule beyond the C library's: at most 9 integer digits for integers, at most 30 integer
    // and 20 fraction digits for floats. False leaves the token to the stream.
    template <typename T>
    static bool readPlain(std::string_view token, T& value) {
        const char* c = token.data();
        const char* const end = c + token.size();
        const bool negative = c != end && *c == '-';
        if (negative) ++c;
        const char* digits = c;
        while (c != end && *c >= '0' && *c <= '9') ++c;
        const size_t whole = static_cast<size_t>(c - digits);
        if (whole == 0) return false;
        if constexpr (std::is_floating_point_v<T>) {
            if (whole > 30) return false;
            if (c != end && *c == '.') {
                const char* fraction = ++c;
                while (c != end && *c >= '0' && *c <= '9') ++c;
                if (c - fraction > 20) return false;
            }
            if (c != end) return false;
            // At most 52 characters: the C library reads them from a terminated copy on the stack.
            char copy[64];
            token.copy(copy, token.size());
            copy[token.size()] = 0;
            char* stop = nullptr;
            if constexpr (std::is_same_v<T, float>)
                value = std::strtof(copy, &stop);
            else
                value = static_cast<T>(std::strtod(copy, &stop));
            return stop == copy + token.size();
        } else {
            if (c != end || whole > 9 || (negative && std::is_unsigned_v<T>)) return false;
            long long number = 0;
            for (const char* d = digits; d < c; ++d) number = number * 10 + (*d - '0');
            if (negative) number = -number;
            if (number < static_cast<long long>(std::numeric_limits<T>::min()) ||
                number > static_cast<long long>(std::numeric_limits<T>::max()))
                return false;
            value = static_cast<T>(number);
            return true;
        }
    }

    std::optional<std::istringstream> in_;
};

// Calls each(token) for every token of the text between delimiters, in order, empty ones only when
// keepEmpty is set, until it answers false; answers whether every call answered true. With ',' and
// keepEmpty a text of k commas has k + 1 tokens.
template <typename Each>
bool forEachToken(std::string_view text, char delimiter, bool keepEmpty, Each&& each) {
    size_t start = 0;
    for (;;) {
        const size_t found = text.find(delimiter, start);
        const size_t stop = found == std::string_view::npos ? text.size() : found;
        if ((keepEmpty || stop > start) && !each(text.substr(start, stop - start))) return false;
        if (found == std::string_view::npos) return true;
        start = found + 1;
    }
}

// Element i of the array made from token i by make(token, element), in place; false as soon as make
// answers false.
template <typename Element, typename Make>
bool putEach(SAFEARRAY* array, std::string_view text, Make&& make) {
    const support::ArrayData data(array);
    Element* const elements = data.elements<Element>();
    if (elements == nullptr) return false;
    size_t i = 0;
    return forEachToken(text, ',', true, [&](std::string_view token) { return make(token, elements[i++]); });
}

// Element i from token i, read as Read and stored as Element; a value above limit fails.
template <typename Element, typename Read = Element>
bool putNumbers(SAFEARRAY* array, std::string_view text, Read limit = std::numeric_limits<Read>::max()) {
    NumberReader reader;
    return putEach<Element>(array, text, [&](std::string_view token, Element& element) {
        Read read{};
        if (!reader.read(token, read) || read > limit) return false;
        element = static_cast<Element>(read);
        return true;
    });
}

// A BSTR of the token's bytes read in the narrow (ANSI) code page, or null when none can be made.
support::Bstr widen(std::string_view token) {
    const int bytes = static_cast<int>(token.size());
    const int length = bytes == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, token.data(), bytes, nullptr, 0);
    if (bytes != 0 && length == 0) return support::Bstr{};
    support::Bstr text(SysAllocStringLen(nullptr, static_cast<UINT>(length)));
    if (text && length > 0) MultiByteToWideChar(CP_ACP, 0, token.data(), bytes, text.get(), length);
    return text;
}

bool putElements(SAFEARRAY* array, VARTYPE element, std::string_view text) {
    switch (element) {
        case VT_BSTR:  // each element the BSTR of its token (null when none can be made); the array owns them
            return putEach<BSTR>(array, text, [](std::string_view token, BSTR& element) {
                element = widen(token).release();
                return true;
            });
        case VT_BOOL:
            return putEach<VARIANT_BOOL>(array, text, [](std::string_view token, VARIANT_BOOL& element) {
                element = token == "true" ? VARIANT_TRUE : VARIANT_FALSE;
                return true;
            });
        case VT_I2: return putNumbers<SHORT, std::int16_t>(array, text);
        case VT_I4: return putNumbers<LONG, std::int32_t>(array, text);
        case VT_R4: return putNumbers<FLOAT, float>(array, text);
        case VT_R8: return putNumbers<DOUBLE, double>(array, text);
        case VT_UI1: return putNumbers<BYTE, std::uint32_t>(array, text, 255u);
        case VT_UI2: return putNumbers<USHORT, std::uint16_t>(array, text);
        case VT_UI4: return putNumbers<ULONG, std::uint32_t>(array, text);
        default: return false;
    }
}

// The nine array types, each with the text logged when its array cannot be created.
struct ArrayKind {
    VARTYPE type;
    const OLECHAR* cannotCreate;
};

constexpr ArrayKind kArrayKinds[] = {
    {VT_ARRAY | VT_BSTR, OLESTR("OpcEnv::Cannot create safearray of BSTR")},
    {VT_ARRAY | VT_I2, OLESTR("OpcEnv::Cannot create Integer safearray")},
    {VT_ARRAY | VT_I4, OLESTR("OpcEnv::Cannot create Long safearray")},
    {VT_ARRAY | VT_R4, OLESTR("OpcEnv::Cannot create real4 safearray")},
    {VT_ARRAY | VT_R8, OLESTR("OpcEnv::Cannot create real8 safearray")},
    {VT_ARRAY | VT_BOOL, OLESTR("OpcEnv::Cannot create boolean safearray")},
    {VT_ARRAY | VT_UI1, OLESTR("OpcEnv::Cannot create byte safearray")},
    {VT_ARRAY | VT_UI2, OLESTR("OpcEnv::Cannot create UShort safearray")},
    {VT_ARRAY | VT_UI4, OLESTR("OpcEnv::Cannot create ULong safearray")},
};

const ArrayKind* arrayKind(VARTYPE type) noexcept {
    for (const ArrayKind& kind : kArrayKinds)
        if (kind.type == type) return &kind;
    return nullptr;
}

}  // namespace

ArrayParse parseArray(std::string_view text, VARTYPE type, VARIANT& out) {
    if (arrayKind(type) == nullptr) return ArrayParse::NoConversion;
    const size_t count = 1 + static_cast<size_t>(std::count(text.begin(), text.end(), ','));
    const VARTYPE element = static_cast<VARTYPE>(type & ~VT_ARRAY);
    SAFEARRAYBOUND bound{static_cast<ULONG>(count), 0};
    support::SafeArray array(SafeArrayCreate(element, 1, &bound));
    if (!array) return ArrayParse::CannotCreate;
    if (!putElements(array.get(), element, text)) return ArrayParse::BadToken;
    out.vt = type;
    out.parray = array.release();
    return ArrayParse::Converted;
}

namespace OpcEnv {

size_t split(const std::string& text, std::vector<std::string>& tokens, char delimiter, bool keepEmpty) {
    size_t count = 0;
    forEachToken(text, delimiter, keepEmpty, [&](std::string_view token) {
        tokens.emplace_back(token);
        ++count;
        return true;
    });
    return count;
}

namespace {

// The BSTR of a Java string's units up to its first U+0000, copied once; null for a null string or
// when none can be allocated.
BSTR newBstr(JNIEnv* env, jstring value) {
    if (value == nullptr) return nullptr;
    const jsize length = env->GetStringLength(value);
    BSTR text = SysAllocStringLen(nullptr, static_cast<UINT>(length));
    if (text == nullptr) return nullptr;
    env->GetStringRegion(value, 0, length, reinterpret_cast<jchar*>(text));
    jsize end = 0;
    while (end < length && text[end] != 0) ++end;
    if (end == length) return text;
    // The text ends at the U+0000, as the string's wide copy would.
    BSTR cut = SysAllocStringLen(text, static_cast<UINT>(end));
    SysFreeString(text);
    return cut;
}

}  // namespace

ArrayParse parseArray(JNIEnv* env, jstring value, VARTYPE type, VARIANT& out) {
    // The low byte of each UTF-16 unit up to the first U+0000, as the narrow copy of the text;
    // texts of up to kShort units are copied on the stack.
    constexpr jsize kShort = 256;
    const jsize length = env->GetStringLength(value);
    jchar shortUnits[kShort];
    char shortBytes[kShort];
    std::unique_ptr<jchar[]> longUnits;
    std::unique_ptr<char[]> longBytes;
    jchar* units = shortUnits;
    char* bytes = shortBytes;
    if (length > kShort) {
        longUnits.reset(new jchar[static_cast<size_t>(length)]);
        longBytes.reset(new char[static_cast<size_t>(length)]);
        units = longUnits.get();
        bytes = longBytes.get();
    }
    env->GetStringRegion(value, 0, length, units);
    jsize end = 0;
    for (; end < length && units[end] != 0; ++end) bytes[end] = static_cast<char>(units[end] & 0xFF);
    return opc::parseArray(std::string_view(bytes, static_cast<size_t>(end)), type, out);
}

void toVariant(JNIEnv* env, VARIANT& out, VARTYPE type, jstring value) {
    if (type == VT_BSTR) {
        out.vt = VT_BSTR;
        out.bstrVal = newBstr(env, value);  // a null text gives a null BSTR, read as ""
        return;
    }
    if (value != nullptr && parseArray(env, value, type, out) == ArrayParse::CannotCreate)
        logTrace(env, arrayKind(type)->cannotCreate);
}

}  // namespace OpcEnv
}  // namespace opc
