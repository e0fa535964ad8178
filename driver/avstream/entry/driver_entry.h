#pragma once

#include "platform/kernel.h"

/// What the platform calls when it has loaded the driver.
/// @return what the streaming class says to the driver's descriptor
/// @par Callable at passive level only
extern "C" NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath);
