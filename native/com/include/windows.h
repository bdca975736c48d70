// The Win32 API subset this platform provides.
#pragma once

#include <minwindef.h>
#include <winerror.h>
#include <winbase.h>
#include <winnls.h>
#include <winreg.h>
#include <rpcdce.h>
#ifndef WIN32_LEAN_AND_MEAN
#include <ole2.h>
#endif
