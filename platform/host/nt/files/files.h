#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {

/// Maps "\SystemRoot" to a folder of the user. Files that are open already are not affected.
///
/// Names below it are looked up as the platform does, without regard to the case of the letters A to
/// Z. Nothing above the folder can be named. Sharing is not enforced. A pipe, a device or a socket in
/// place of a file is not opened: STATUS_OBJECT_TYPE_MISMATCH.
///
/// @param folder  need not exist; empty unmaps, which is the initial state: every open then fails
///                with STATUS_OBJECT_PATH_NOT_FOUND
/// @par Any thread
void SetSystemRoot(const std::filesystem::path& folder);

/// The folder that "\SystemRoot" maps to; empty if none.
/// @par Any thread
[[nodiscard]] std::filesystem::path SystemRoot();

/// Receives each file that a driver tried to read and could not open.
///
/// @param path  as the driver named it, below the folder that "\SystemRoot" maps to
using FileTroubleSink = std::function<void(const std::filesystem::path& path, NTSTATUS status)>;

/// Sets the receiver of such failures, called on the thread that opens; null ignores them, which is
/// the initial state.
void SetFileTroubleSink(FileTroubleSink sink);

/// Makes the `countdown`-th ZwReadFile() from now on report `status`, once, after it has filled the
/// caller's buffer: 1 is the very next. 0 turns it off. All threads count together.
void FailFileRead(std::uint32_t countdown, NTSTATUS status);

}  // namespace lidcam::host
