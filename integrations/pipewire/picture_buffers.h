#pragma once

#include <pipewire/stream.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "integrations/camera/shared_camera.h"
#include "integrations/pipewire/picture_memory.h"

namespace lidcam::integrations::pipewire {

/// The buffers of a node, which the camera fills where they are: nothing is copied on a picture's way from the driver
/// to those who look.
///
/// A buffer is in one of three places: with the camera, lent by the camera and with PipeWire, or free for a notice.
/// Used with PipeWire's loop locked.
class PictureBuffers {
 public:
  /// As many as a node may have.
  static constexpr std::size_t kMost = 16;

  /// @throws ShareError if the machine has no memory to share
  explicit PictureBuffers(std::size_t pictureBytes);

  [[nodiscard]] std::size_t PictureBytes() const { return pictureBytes_; }

  /// Gives PipeWire's buffer its memory.
  void Add(pw_buffer& buffer);
  /// PipeWire has no such buffer any more.
  void Remove(const pw_buffer& buffer);

  /// The memory of all buffers, for the camera.
  [[nodiscard]] CameraMemory Memory() const;

  /// Takes those that all lookers have done with: the camera may fill them again.
  void Reclaim(pw_stream* stream);

  /// Shows a picture. One in a buffer's memory is lent until Reclaim(); another one, such as a notice, is copied. If
  /// all buffers are with lookers that are behind, they miss it.
  void Show(pw_stream* stream, Picture& picture);

 private:
  struct Slot {
    pw_buffer* Buffer = nullptr;
    bool IsOurs = false;  ///< not PipeWire's
    LentPicture Lent;     ///< the camera's, while PipeWire has it
  };

  Slot* SlotFor(const Picture& picture);

  const std::size_t pictureBytes_;
  std::shared_ptr<PictureMemory> memory_;
  std::vector<Slot> slots_;  ///< one for each part of the memory
};

}  // namespace lidcam::integrations::pipewire
