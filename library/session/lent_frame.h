#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <vector>

#include "library/base/units.h"
#include "library/frames/frame_row.h"
#include "library/frames/stream_progress.h"
#include "platform/host/client/stream.h"

namespace lidcam::app {

class LentFrame;

/// The frames of a stream that an application holds, and those that it has given back and that the camera's
/// thread has yet to return to the driver.
class FrameLedger {
 public:
  /// @param given  called without a lock, on the thread that gives a frame back
  explicit FrameLedger(std::function<void()> given) : given_(std::move(given)) {}
  FrameLedger(const FrameLedger&) = delete;
  FrameLedger& operator=(const FrameLedger&) = delete;
  ~FrameLedger() = default;

  /// Returns the buffers of frames that were given back. On the camera's thread.
  void ReturnBuffers();

  /// Lets all frames that are held keep their bytes, ahead of their stream's end. On the camera's thread.
  void DetachAll();

 private:
  friend class LentFrame;

  const std::function<void()> given_;
  std::mutex mutex_;  ///< never held over a kernel call of the stream's
  std::set<LentFrame*> held_;
  std::vector<client::Frame> givenBack_;
};

/// What is known of a frame beside its bytes.
struct FrameFacts {
  PictureSize Size{};
  FramePosition Position{};
  std::int64_t LostCount = 0;             ///< as StreamFrame has it
  std::int64_t MonotonicNanoseconds = 0;  ///< 0 in virtual time
  std::int64_t Duration = 0;              ///< 100 ns
  /// Made of as many bytes as the sensor's frames have; only known where each delivery is watched.
  bool IsGood = false;
  bool IsAutoExposure = false;
  FrameRow Loop{};
};

/// A picture in a buffer of the driver's, lent to an application. Any thread may destroy it; its buffer then goes
/// back to the driver. It may outlive its stream.
class LentFrame {
 public:
  LentFrame(std::shared_ptr<FrameLedger> ledger, client::Frame&& buffer, const FrameFacts& facts);
  LentFrame(const LentFrame&) = delete;
  LentFrame& operator=(const LentFrame&) = delete;
  ~LentFrame();

  [[nodiscard]] std::span<const std::byte> Bytes() const { return bytes_; }
  [[nodiscard]] const FrameFacts& Facts() const { return facts_; }

 private:
  friend class FrameLedger;

  const std::shared_ptr<FrameLedger> ledger_;
  const FrameFacts facts_;
  std::optional<client::Frame> buffer_;  ///< until its stream ends
  std::vector<std::byte> memory_;        ///< from then on
  const std::span<const std::byte> bytes_;
};

}  // namespace lidcam::app
