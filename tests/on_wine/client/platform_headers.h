#pragma once

/// The platform's headers for a program in user mode, in the only order in which they compile.

#include <windows.h>
//
#include <winioctl.h>
//
#include <ks.h>
#include <ksmedia.h>
//
#include "tests/on_wine/bus_requests.h"
#include "tests/on_wine/private_requests.h"
