// The server-list class: enumerates the classes registered on this host by component category
// and reads their details, as the host's server browser does.
#pragma once

#include "Common.h"

#include <vector>

namespace sim {

// A new server-list object, answering `iid` (IOPCServerList2, IOPCServerList, IUnknown).
HRESULT createServerList(REFIID iid, void** out);

// Registers the class with this module as its server, unless the host already has one.
HRESULT registerServerList(const WString& modulePath);
HRESULT unregisterServerList(const WString& modulePath);

// Sets the default value (name null) or a named text value of HKEY_CLASSES_ROOT\<key>, creating the key.
HRESULT writeRegistryText(const WString& key, const WCHAR* name, const WString& value);
struct RegistryText {
    WString key;
    const WCHAR* name;  // null: the key's default value
    WString value;
};
// Writes the entries in order; the first failure ends it.
HRESULT writeRegistryTexts(const std::vector<RegistryText>& entries);

// The default value of HKEY_CLASSES_ROOT\<key> (name null) or a named value; empty if absent.
bool readRegistryText(const WString& key, const WCHAR* name, WString* text);

}  // namespace sim
