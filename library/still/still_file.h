#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "library/base/units.h"
#include "library/settings/trace_observer.h"
#include "platform/host/nt/system/debug_print.h"

namespace lidcam::app {

/// A still as the driver wrote it, and the fields of the mark in its last four bytes.
struct StillPicture {
  std::vector<std::uint8_t> Yuy2;  ///< the whole file, marks included
  PictureSize Size;
  std::uint16_t SizeIndex = 0;
  std::uint16_t Value = 0;  ///< low 16 bits of the request's value
};

/// The exclusive lock for taking a still: the driver has one file
/// for all.
class StillLock {
 public:
  /// Throws CommandError if another run has the lock.
  ///
  /// @param home  the folder that the runs share
  explicit StillLock(const std::filesystem::path& home);
  StillLock(const StillLock&) = delete;
  StillLock& operator=(const StillLock&) = delete;
  ~StillLock();

 private:
  int descriptor_;
};

/// Gets from the driver's trace the result of the still that is taken while this exists.
class StillReport {
 public:
  StillReport();

  /// The platform's status for the file, 0 for success; nothing before a still was taken.
  /// Any thread.
  [[nodiscard]] std::optional<std::uint32_t> Status() const;

  /// Throws CommandError with the platform's reason if the file was not written.
  void RequireWritten() const;

 private:
  void See(std::string_view line);
  void SeeMessage(std::string_view message);

  mutable std::mutex mutex_;  ///< guards the status; never held over a kernel call
  std::optional<std::uint32_t> status_;
  bool isWritten_ = false;
  TraceObserver observer_;
  std::optional<host::DebugPrintObserver> messages_;  ///< of a driver without a trace
};

/// Where the driver writes stills on the system disk in use.
[[nodiscard]] std::filesystem::path StillFilePath();

/// Makes the file's folder and removes the still of before, so that a file found afterwards is a
/// new one. Throws CommandError.
void ClearStillFile();

/// Reads the still that the driver has just written. Throws CommandError with the reason if there
/// is none, or not all of it.
///
/// @param value  the request's; the file's mark has to agree
[[nodiscard]] StillPicture ReadStillFile(std::uint32_t value);

/// Decodes a still file's bytes by their marks. Throws CommandError if they are invalid: an unknown
/// size, another length than the size has, or another value.
[[nodiscard]] StillPicture DecodeStill(std::vector<std::uint8_t> bytes, std::uint32_t value);

}  // namespace lidcam::app
