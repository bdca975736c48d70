// Value texts on their way to a server: a Java string becomes a VT_BSTR or a one-dimensional array
// VARIANT whose elements the text lists separated by commas.
#pragma once

#include <jni.h>

#include <string>
#include <string_view>
#include <vector>

#include "OpcEnv.h"

namespace opc {

// How an array value text fared.
enum class ArrayParse {
    Converted,     // out holds the array
    NoConversion,  // the type is not one of the nine array types
    CannotCreate,  // SafeArrayCreate failed
    BadToken,      // a token is not a number of the element type
};

// The array VARIANT of an 8-bit value text: one element per comma-separated token (empty tokens
// kept), lower bound 0. Fills out (which must hold nothing) only when the answer is Converted.
ArrayParse parseArray(std::string_view text, VARTYPE type, VARIANT& out);

namespace OpcEnv {

// Appends the pieces of text between delimiters to tokens and answers how many it appended; empty
// pieces count only when keepEmpty is set.
size_t split(const std::string& text, std::vector<std::string>& tokens, char delimiter, bool keepEmpty);

// parseArray of a Java string's text: the low byte of each UTF-16 unit before the first U+0000 (the
// string must not be null).
ArrayParse parseArray(JNIEnv* env, jstring value, VARTYPE type, VARIANT& out);

// VT_BSTR from the whole text, or one of the nine array types from its comma-separated list. Leaves
// out untouched when the type has no conversion or the text does not convert.
void toVariant(JNIEnv* env, VARIANT& out, VARTYPE type, jstring value);

}  // namespace OpcEnv
}  // namespace opc
