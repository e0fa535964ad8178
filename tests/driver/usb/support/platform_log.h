#pragma once

#include <string>
#include <vector>

#include "platform/kernel.h"

namespace lidcam::test {

/// Lines of the driver's calls of the platform, while one lives: device mutex, object bag, threads
/// and their handles, timers, large memory and its release; the scripted stack adds a line for each
/// request. The linker redirects those calls here (--wrap).
class PlatformLog {
 public:
  PlatformLog();
  PlatformLog(const PlatformLog&) = delete;
  PlatformLog& operator=(const PlatformLog&) = delete;
  ~PlatformLog();

  /// Hundreds of successive register accesses are one line.
  static void Add(const std::string& line);

  /// Lets the object bag refuse the n-th item from now on; 0 turns it off.
  static void RefuseBagItem(unsigned countdown);
  static bool IsBagItemRefused();

  /// An IRP whose release is logged.
  static void WatchIrp(PIRP irp);

  void Clear() { lines_.clear(); }
  [[nodiscard]] const std::vector<std::string>& Lines() const { return lines_; }
  [[nodiscard]] std::string Text() const;

 private:
  std::vector<std::string> lines_;
};

}  // namespace lidcam::test
