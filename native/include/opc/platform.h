// The one platform header of the library, the simulation server and the native tests.
// On Windows these names are the SDK's; elsewhere the build puts the COM substrate's
// include folder first, whose headers bear the same names and define the same things.
#pragma once

#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <ocidl.h>

#include "opc/opcda.h"
