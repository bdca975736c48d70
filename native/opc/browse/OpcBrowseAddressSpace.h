// The position-based browse routines behind the natives of OpcBrowseServerAddressSpace. The browse
// position belongs to the server-side object of the handle: goRoot and goDown move it, list reads
// what lies at it, get first moves it to a path and leaves it there. Found elements go to a Java
// object, one call of its add(String name, String itemId) per element.
#pragma once

#include <jni.h>

#include "opc/platform.h"

namespace opc::browse::OpcBrowseAddressSpace {

void goRoot(JNIEnv* env, jlong browser);
void goDown(JNIEnv* env, jlong browser, jstring branch);
void get(JNIEnv* env, jlong browser, jstring path, jobject elements, OPCBROWSETYPE browseType);
void list(JNIEnv* env, jlong browser, jobject elements, OPCBROWSETYPE browseType);

}  // namespace opc::browse::OpcBrowseAddressSpace
