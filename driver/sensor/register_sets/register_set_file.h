#pragma once

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

// A register set file, all numbers little-endian: the length of the body (4 bytes), then the body's
// sections. A section is its length with these 8 bytes (4), its type (4) and entries as
// RegisterSetEntry has them. Type 1 fills `SetupRegisters`, 2 `LowLightRegisters`, 3
// `NormalRegisters`.

/// Reads one register set file into the record's three tables.
///
/// The walk over the sections ends where their lengths add up to the body's exactly, and continues
/// otherwise; a section of unknown type prints " This is error type\n" and ends the file, and one that
/// reaches beyond the bytes read ends it without a message. Of a section the first 600 entries are stored.
///
/// @param path  as the platform names files, "\\SystemRoot\\..."
/// @return a platform status: of the open, or of the last read, or 0 once a section of the normal
///         list was taken; STATUS_INSUFFICIENT_RESOURCES without memory for the body. Tables filled
///         before an error stay filled.
_IRQL_requires_max_(PASSIVE_LEVEL)
Status LoadRegisterFile(CameraContext& context, const WCHAR* path);

/// Loads the files that belong to `SensorType`; types without a file load nothing. A section
/// replaces one of its type from the file before. Errors are passed over: the camera then runs on
/// the values that it powers up with.
_IRQL_requires_max_(PASSIVE_LEVEL)
void LoadRegisterSets(CameraContext& context);

}  // namespace lidcam
