#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "integrations/v4l2/loopback_device.h"

namespace lidcam::integrations::v4l2 {

/// A test double of v4l2loopback 0.12.7: a file in place of the device node, and what the module does with it.
class LoopbackStandIn : public DeviceCalls {
 public:
  LoopbackStandIn();
  ~LoopbackStandIn() override;

  [[nodiscard]] std::string Path() const { return path_; }

  int Open(const char* path) override;
  int Control(int descriptor, unsigned long request, void* argument) override;
  std::ptrdiff_t Write(int descriptor, std::span<const std::uint8_t> bytes) override;
  void Close(int descriptor) override;

  // How it is loaded, and who uses it.
  std::string Driver = "v4l2 loopback";
  bool HasExclusiveCaps = true;
  bool HasProducer = false;      ///< another program writes
  std::uint32_t FixedWidth = 0;  ///< of a format that a reader holds; 0: none
  std::uint32_t FixedHeight = 0;
  bool IsRemoved = false;

  // What was done with it. Under StandIn::The().Mutex.
  std::vector<std::string> Requests;
  std::vector<std::vector<std::uint8_t>> Pictures;  ///< the last eight
  int PictureCount = 0;
  int OpenCount = 0;

 private:
  std::filesystem::path folder_;
  std::filesystem::path path_;
};

/// Another process that has a file open, until it ends with this object.
class OtherProcess {
 public:
  explicit OtherProcess(const std::string& path);
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;
  ~OtherProcess();

  [[nodiscard]] int Number() const { return process_; }

 private:
  int process_ = 0;
};

}  // namespace lidcam::integrations::v4l2
