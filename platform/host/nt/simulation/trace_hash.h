#pragma once

#include <cstdint>

#include "base/fnv_hash.h"

namespace lidcam::host {

/// FNV-1a over the thread's number, a byte, and the call's name of each switch point.
class TraceHash {
 public:
  /// @param call  a literal: its effect on a hash is kept by its address, for the whole process
  void Add(std::uint32_t thread, const char* call);

  [[nodiscard]] std::uint64_t Value() const { return value_; }

 private:
  std::uint64_t value_ = base::kFnvOffset;
};

}  // namespace lidcam::host
