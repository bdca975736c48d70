#include "ValueParsing.h"

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <locale>
#include <optional>
#include <sstream>
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
    bool read(const std::string& token, T& value) {
        if (readPlain(token, value)) return true;
        if (!in_) {
            in_.emplace();
            in_->imbue(std::locale::classic());
        }
        in_->clear();
        in_->str(token);
        *in_ >> value;
        return !in_->fail();
    }

private:
    // The token's digits, a sign and for floats a fraction, in a form whose value needs no range or
    // rounding rule beyond the C library's: at most 9 integer digits for integers, at most 30 integer
    // and 20 fraction digits for floats. False leaves the token to the stream.
    template <typename T>
    static bool readPlain(const std::string& token, T& value) {
        const char* c = token.c_str();
        const bool negative = *c == '-';
        if (negative) ++c;
        const char* digits = c;
        while (*c >= '0' && *c <= '9') ++c;
        const size_t whole = static_cast<size_t>(c - digits);
        if (whole == 0) return false;
        if constexpr (std::is_floating_point_v<T>) {
            if (whole > 30) return false;
            if (*c == '.') {
                const char* fraction = ++c;
                while (*c >= '0' && *c <= '9') ++c;
                if (c - fraction > 20) return false;
            }
            if (*c != 0) return false;
            char* end = nullptr;
            if constexpr (std::is_same_v<T, float>)
                value = std::strtof(token.c_str(), &end);
            else
                value = static_cast<T>(std::strtod(token.c_str(), &end));
            return end == c;
        } else {
            if (*c != 0 || whole > 9 || (negative && std::is_unsigned_v<T>)) return false;
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

// Element i from token i, read as Read and stored as Element; a value above limit fails.
template <typename Element, typename Read = Element>
bool putNumbers(SAFEARRAY* array, const std::vector<std::string>& tokens,
                Read limit = std::numeric_limits<Read>::max()) {
    NumberReader reader;
    for (LONG i = 0; i < static_cast<LONG>(tokens.size()); ++i) {
        Read read{};
        if (!reader.read(tokens[static_cast<size_t>(i)], read) || read > limit) return false;
        Element element = static_cast<Element>(read);
        SafeArrayPutElement(array, &i, &element);
    }
    return true;
}

void putBooleans(SAFEARRAY* array, const std::vector<std::string>& tokens) {
    for (LONG i = 0; i < static_cast<LONG>(tokens.size()); ++i) {
        VARIANT_BOOL element = tokens[static_cast<size_t>(i)] == "true" ? VARIANT_TRUE : VARIANT_FALSE;
        SafeArrayPutElement(array, &i, &element);
    }
}

// A BSTR of the token's bytes read in the narrow (ANSI) code page, or null when none can be made.
support::Bstr widen(const std::string& token) {
    const int bytes = static_cast<int>(token.size());
    const int length = bytes == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, token.data(), bytes, nullptr, 0);
    if (bytes != 0 && length == 0) return support::Bstr{};
    support::Bstr text(SysAllocStringLen(nullptr, static_cast<UINT>(length)));
    if (text && length > 0) MultiByteToWideChar(CP_ACP, 0, token.data(), bytes, text.get(), length);
    return text;
}

void putStrings(SAFEARRAY* array, const std::vector<std::string>& tokens) {
    for (LONG i = 0; i < static_cast<LONG>(tokens.size()); ++i) {
        const support::Bstr element = widen(tokens[static_cast<size_t>(i)]);
        if (element) SafeArrayPutElement(array, &i, element.get());  // the array keeps a copy
    }
}

bool putElements(SAFEARRAY* array, VARTYPE element, const std::vector<std::string>& tokens) {
    switch (element) {
        case VT_BSTR: putStrings(array, tokens); return true;
        case VT_BOOL: putBooleans(array, tokens); return true;
        case VT_I2: return putNumbers<SHORT, std::int16_t>(array, tokens);
        case VT_I4: return putNumbers<LONG, std::int32_t>(array, tokens);
        case VT_R4: return putNumbers<FLOAT, float>(array, tokens);
        case VT_R8: return putNumbers<DOUBLE, double>(array, tokens);
        case VT_UI1: return putNumbers<BYTE, std::uint32_t>(array, tokens, 255u);
        case VT_UI2: return putNumbers<USHORT, std::uint16_t>(array, tokens);
        case VT_UI4: return putNumbers<ULONG, std::uint32_t>(array, tokens);
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

ArrayParse parseArray(const std::string& text, VARTYPE type, VARIANT& out) {
    if (arrayKind(type) == nullptr) return ArrayParse::NoConversion;
    std::vector<std::string> tokens;
    const size_t count = OpcEnv::split(text, tokens, ',', true);
    const VARTYPE element = static_cast<VARTYPE>(type & ~VT_ARRAY);
    SAFEARRAYBOUND bound{static_cast<ULONG>(count), 0};
    support::SafeArray array(SafeArrayCreate(element, 1, &bound));
    if (!array) return ArrayParse::CannotCreate;
    if (!putElements(array.get(), element, tokens)) return ArrayParse::BadToken;
    out.vt = type;
    out.parray = array.release();
    return ArrayParse::Converted;
}

namespace OpcEnv {

size_t split(const std::string& text, std::vector<std::string>& tokens, char delimiter, bool keepEmpty) {
    size_t count = 0;
    size_t start = 0;
    for (size_t position = 0; position < text.size(); ++position) {
        if (text[position] != delimiter) continue;
        if (keepEmpty || position > start) {
            tokens.push_back(text.substr(start, position - start));
            ++count;
        }
        start = position + 1;
    }
    if (keepEmpty || text.size() > start) {
        tokens.push_back(text.substr(start));
        ++count;
    }
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

void toVariant(JNIEnv* env, VARIANT& out, VARTYPE type, jstring value) {
    if (type == VT_BSTR) {
        out.vt = VT_BSTR;
        out.bstrVal = newBstr(env, value);  // a null text gives a null BSTR, read as ""
        return;
    }
    const WideString wide = newWideString(env, value);
    if (!wide) return;
    if (parseArray(toNarrowString(WideText(wide.get())), type, out) == ArrayParse::CannotCreate)
        logTrace(env, arrayKind(type)->cannotCreate);
}

}  // namespace OpcEnv
}  // namespace opc
