#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/client/stream.h"
#include "platform/host/nt/debug_print.h"
#include "platform/host/nt/pool.h"
#include "platform/host/nt/simulated_scheduler.h"
#include "simulation/stamped_camera.h"
#include "world/installed_camera.h"

namespace lidcam::fuzz {

inline void Require(bool holds) {
  if (!holds) std::abort();
}

/// Reads an input from its front; behind its end everything is 0.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  [[nodiscard]] bool IsEmpty() const { return left_ == 0; }

  template <typename T>
  T Take() {
    T value{};
    TakeInto(&value, sizeof(value));
    return value;
  }

  client::Block TakeBlock(std::size_t bytes) {
    client::Block block(bytes);
    if (bytes != 0) TakeInto(block.Data(), bytes);
    return block;
  }

  /// Overwrites words of `bytes` bytes at `data`.
  void Change(std::byte* data, std::size_t bytes) {
    const std::size_t changes = Take<std::uint8_t>() % 8;
    for (std::size_t i = 0; i < changes; ++i) {
      const std::size_t at = Take<std::uint16_t>();
      const auto word = Take<std::uint32_t>();
      if (bytes >= sizeof(word)) std::memcpy(data + at % (bytes - 3), &word, sizeof(word));
    }
  }

 private:
  void TakeInto(void* to, std::size_t bytes) {
    const std::size_t some = bytes < left_ ? bytes : left_;
    if (some != 0) std::memcpy(to, at_, some);
    at_ += some;
    left_ -= some;
  }

  const std::uint8_t* at_;
  std::size_t left_;
};

/// An installed camera in virtual time that one application has open. Inputs share one, which is taken
/// down and looked through for what is left behind every so many inputs.
class InstalledWorld {
 public:
  InstalledWorld() {
    camera_ = std::make_unique<world::InstalledCamera>(bus_, world::InstalledCameraOptions{});
    Require(camera_->Start() == STATUS_SUCCESS);
    client_.emplace(client::Camera::Open(camera_->TopDevice()));
  }

  [[nodiscard]] const client::Camera& Camera() const { return *client_; }

  static void Sleep(LONGLONG milliseconds) {
    LARGE_INTEGER time{};
    time.QuadPart = -milliseconds * 10'000;
    KeDelayExecutionThread(KernelMode, FALSE, &time);
  }

  /// Everything is closed, and nothing is left.
  void End() {
    client_.reset();
    camera_->Close();
    camera_.reset();
    world_.Finish();
  }

  /// The world for the next input.
  static InstalledWorld& Next() {
    constexpr std::uint64_t kInputs = 200;
    static InstalledWorld* world = nullptr;
    static std::uint64_t inputs = 0;
    if (world != nullptr && ++inputs % kInputs == 0) {
      world->End();
      delete world;
      world = nullptr;
    }
    if (world == nullptr) {
      host::SetDebugPrintSink(nullptr);
      world = new InstalledWorld;
    }
    return *world;
  }

 private:
  // Threads change seldom under this seed: what is looked for here is no race.
  host::SimulatedScheduler world_{{.Seed = 7}};
  simulation::StampedCamera bus_{{}};
  std::unique_ptr<world::InstalledCamera> camera_;
  std::optional<client::Camera> client_;
};

}  // namespace lidcam::fuzz
