#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace lidcam::fuzz {

/// Ends the process unless `holds`, which reports a finding to the engine.
inline void Require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: what must hold does not\n", file, line);
  std::abort();
}

/// Reads an input from its front; after its end all values are 0.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : at_(data), left_(size) {}

  [[nodiscard]] bool IsEmpty() const { return left_ == 0; }
  [[nodiscard]] std::size_t Left() const { return left_; }

  template <typename T>
  T Take() {
    T value{};
    TakeInto(&value, sizeof(value));
    return value;
  }

  /// 0 to `most`.
  std::uint32_t UpTo(std::uint32_t most) {
    const std::uint64_t number = most > 0xFFFF ? Take<std::uint32_t>() : Take<std::uint16_t>();
    return static_cast<std::uint32_t>(number % (std::uint64_t{most} + 1));
  }

  /// True for one number in `count`, and false after the input's end.
  bool OneIn(std::uint8_t count) { return Take<std::uint8_t>() % count == count - 1; }

  void TakeInto(void* to, std::size_t bytes) {
    const std::size_t some = bytes < left_ ? bytes : left_;
    if (some != 0) std::memcpy(to, at_, some);
    at_ += some;
    left_ -= some;
  }

  /// The next `bytes`, or the rest, as a separate input.
  Input Split(std::size_t bytes) {
    const std::size_t some = bytes < left_ ? bytes : left_;
    const Input part(at_, some);
    at_ += some;
    left_ -= some;
    return part;
  }

  /// Overwrites up to seven words of `bytes` bytes at `data`.
  void Change(void* data, std::size_t bytes) {
    const std::size_t changes = Take<std::uint8_t>() % 8;
    for (std::size_t i = 0; i < changes; ++i) {
      const std::size_t at = Take<std::uint16_t>();
      const auto word = Take<std::uint32_t>();
      if (bytes < sizeof(word)) continue;
      std::memcpy(static_cast<std::byte*>(data) + at % (bytes - 3), &word, sizeof(word));
    }
  }

 private:
  const std::uint8_t* at_;
  std::size_t left_;
};

}  // namespace lidcam::fuzz
