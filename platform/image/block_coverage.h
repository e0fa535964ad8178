#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace lidcam::image {

/// Which basic blocks of an image have run, in a file with one byte for each byte of the image in memory: 1 where a
/// block begins that has not run yet, 2 where one begins that has. Processes may share the file, and what one of
/// them has noted outlives its crash.
class BlockCoverage {
 public:
  /// @throws ImageError if the file can't be mapped, or has another size than the image
  BlockCoverage(const std::string& path, std::size_t imageSize);
  BlockCoverage(const BlockCoverage&) = delete;
  BlockCoverage& operator=(const BlockCoverage&) = delete;
  ~BlockCoverage();

  [[nodiscard]] bool IsBlock(std::size_t offset) const { return blocks_[offset] != 0; }
  [[nodiscard]] bool HasRun(std::size_t offset) const { return blocks_[offset] == kHasRun; }
  void NoteRun(std::size_t offset) { blocks_[offset] = kHasRun; }

  /// The coverage of LIDCAM_DRIVER_COVERAGE=FILE; null without. The first image of the process decides.
  ///
  /// @throws ImageError
  [[nodiscard]] static BlockCoverage* OfEnvironment(std::size_t imageSize);

 private:
  static constexpr std::uint8_t kHasRun = 2;

  std::span<std::uint8_t> blocks_;
};

/// One-shot breakpoints at the blocks of a loaded image that have not run yet.
class BlockBreakpoints {
 public:
  /// @param image  writable memory, as it is to run
  BlockBreakpoints(BlockCoverage& coverage, std::span<std::uint8_t> image);

  /// For the signal handler: notes that the block has run, and restores its first instruction.
  ///
  /// @return false if the breakpoint at `offset` is the image's own
  bool Take(std::size_t offset) const noexcept;

 private:
  BlockCoverage& coverage_;
  std::uint8_t* const image_;
  const std::vector<std::uint8_t> code_;  // without breakpoints
};

}  // namespace lidcam::image
