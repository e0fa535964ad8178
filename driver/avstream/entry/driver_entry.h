#pragma once

#include "platform/kernel.h"

/// The entry point that the platform calls after it has loaded the driver.
/// @return the status of the streaming class's initialization
/// @par Callable at passive level only
extern "C" NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath);
