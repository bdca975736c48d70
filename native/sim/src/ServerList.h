// The server-list class: enumerates the classes registered on this host by component category
// and reads their details, as the host's server browser does.
#pragma once

#include "Common.h"

namespace sim {

// A new server-list object, answering `iid` (IOPCServerList2, IOPCServerList, IUnknown).
HRESULT createServerList(REFIID iid, void** out);

// Registers the class with this module as its server, unless the host already has one.
HRESULT registerServerList(const WString& modulePath);
HRESULT unregisterServerList(const WString& modulePath);

// The default value of HKEY_CLASSES_ROOT\<key> (name null) or a named value; empty if absent.
bool readRegistryText(const WString& key, const WCHAR* name, WString* text);

}  // namespace sim
