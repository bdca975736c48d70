// Item values on their way to Java: the per-item form (one update call per item, chosen by VARTYPE)
// and the batch form (a value kind and a String per item), with the shared array text.
#pragma once

#include <jni.h>

#include <string>

#include "OpcEnv.h"

namespace opc {

// The four methods of an update receiver.
struct UpdateMethods {
    jmethodID numeric = nullptr;
    jmethodID boolean = nullptr;
    jmethodID string = nullptr;
    jmethodID error = nullptr;

    // Looks the four up in the fixed order; true when all exist.
    bool lookUp(JNIEnv* env, jclass receiverClass);
};

// Which path delivers: it decides the null-array texts, their sink, and what a null BSTR gives.
enum class DeliveryPath { SyncRead, DataCallback };

// The value kinds of the batch form.
enum ValueKind : jint { kKindNumeric = 1, kKindBoolean = 2, kKindString = 3, kKindOther = 4 };

// Malformed: the SAFEARRAY is not what the VARTYPE declares (more than one dimension, elements of
// another size or kind, bounds that disagree with the element count); nothing is rendered from it.
enum class ArrayText { NotArray, NullArray, Rendered, Malformed };

// Pure part of the array rendering: the comma-joined text of one of the nine renderable array types,
// every element of dimension 1 from its lower to its upper bound.
ArrayText arrayText(const VARIANT& value, std::string& text);
// A double as a default-formatted stream writes it (6 significant digits).
std::string streamText(double value);
// Bytes that are each a code point U+0000..U+00FF, as modified UTF-8 (ASCII passes unchanged).
std::string latin1ToModifiedUtf8(const std::string& bytes);

namespace OpcEnv {

// The array text of a VARIANT; false when its type is not one of the nine array types. A null
// SAFEARRAY is logged with the path's text and rendered as the empty text; a malformed one is
// logged as an error and answered false, so that the item is delivered as one without a value.
bool renderArray(JNIEnv* env, const VARIANT& value, DeliveryPath path, std::string& text);

void deliverValue(JNIEnv* env, jobject receiver, const UpdateMethods& methods, jint handle, const VARIANT& value,
                  WORD quality, const FILETIME& timestamp, HRESULT error, DeliveryPath path);

// The batch form: the kind, and a new local String (never null unless the virtual machine is out of memory).
jint valueText(JNIEnv* env, const VARIANT& value, jstring& text);

}  // namespace OpcEnv
}  // namespace opc
