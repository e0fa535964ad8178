#pragma once

#include "platform/kernel.h"

/// The entry point that the platform calls after it has loaded the driver.
/// @return the status of the streaming class's initialization
_IRQL_requires_max_(PASSIVE_LEVEL)
extern "C" NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING registryPath);
