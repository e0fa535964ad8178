#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/image/file/image_file.h"

namespace lidcam::image {

class BlockBreakpoints;

/// The code of a loaded driver while this exists: its privileged instructions are answered from the state of the
/// kernel thread that runs, and its faults are reported as violations that name the place.
class TrappedCode {
 public:
  /// @param image   begin of the image, from which reported places are counted
  /// @param file    of the image; outlives this
  /// @param blocks  breakpoints of the image that are taken once; may be null; outlives this
  /// @throws std::runtime_error if too many drivers are loaded at once
  TrappedCode(const std::uint8_t* image, const ImageFile& file, const BlockBreakpoints* blocks);
  TrappedCode(const TrappedCode&) = delete;
  TrappedCode& operator=(const TrappedCode&) = delete;
  ~TrappedCode();

  /// From now on nothing of the driver may run: an instruction that does is reported so.
  void NoteUnloaded();

 private:
  std::size_t slot_;
};

/// A turn of a spin loop, in place of the two bytes by which a processor waits in one: a breakpoint, then one of the
/// marks.
inline constexpr std::uint8_t kBreakpoint = 0xCC;
inline constexpr std::uint8_t kSpinMark = 0x90;
inline constexpr std::uint8_t kEndlessSpinMark = 0x91;  ///< nothing ends the loop

/// Gives the calling machine thread a stack for signals: a driver's own has no room for them.
void PrepareTraps();

}  // namespace lidcam::image
