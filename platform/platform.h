// The platform's operations under the platform's own names: the only platform header that the library
// includes.
#ifndef RASTREL_PLATFORM_PLATFORM_H
#define RASTREL_PLATFORM_PLATFORM_H

#ifdef _WIN32
#include <windows.h>

#include <commctrl.h>
#else
#include <rastrel_host.h>

#include "platform/host/system.h"
#endif

#endif
