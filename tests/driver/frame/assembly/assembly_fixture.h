#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "driver/frame/assembly/frame_assembly.h"

namespace lidcam::test {

using Packet = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

inline constexpr std::uint32_t kFrame = 100;   ///< bytes of a frame
inline constexpr std::uint32_t kBuffer = 160;  ///< bytes of a raw buffer

/// A packet that begins a frame: the marker and then `fill`.
Packet Start(std::size_t length, std::uint8_t fill);

/// A packet without a marker.
Packet Body(std::size_t length, std::uint8_t fill);

/// The bytes of packets, end to end: a frame as it lies in a raw buffer.
Packet Joined(const std::vector<Packet>& packets);

/// A frame as the consumer received it.
struct PublishedCopy {
  Packet Bytes;
  std::uint32_t Size;
  friend bool operator==(const PublishedCopy&, const PublishedCopy&) = default;
};

/// How packets reach the assembly; both ways must give the same result.
enum class Entry { Packets, Transfers };

/// An assembly over two small raw buffers with a consumer that records everything.
///
/// `Log` holds debug messages and trace lines as they stand, and the consumer's calls as
/// "publish 100" and "wake", all in order. One lives at a time: the two outputs are global.
class AssemblyFixture {
 public:
  /// A stream in which one good frame start was seen and nothing of it stored yet: the settling is
  /// over and packets are stored.
  AssemblyFixture(std::uint32_t rawFrameSize, std::uint32_t rawBufferSize,
                  Entry entry = Entry::Transfers);
  AssemblyFixture(const AssemblyFixture&) = delete;
  AssemblyFixture& operator=(const AssemblyFixture&) = delete;
  ~AssemblyFixture();

  /// Begins a stream: discards, and requests a settling if `settleCount` is 0.
  void BeginStream(std::uint32_t settleCount);

  /// Feeds packets: one by one, or end to end in one transfer of exactly their size.
  void Feed(const std::vector<Packet>& packets);
  void Feed(const Packet& packet) { Feed(std::vector<Packet>{packet}); }

  /// Feeds the packets that lie at their places in `buffer`.
  void FeedFrom(const std::vector<std::uint8_t>& buffer,
                const std::vector<TransferPacket>& packets);

  /// Returns the log so far and empties it.
  Lines TakeLog();

  /// The bytes stored of the frame in progress.
  [[nodiscard]] Packet Stored() const;

  CameraContext Context{};
  FrameAssembly Assembly{};
  bool Busy = false;
  bool Running = true;
  Lines Log;
  std::vector<PublishedCopy> Published;
  std::vector<std::uint32_t> FillOffsetsAtWake;  ///< write position when the consumer is woken

 private:
  const Entry entry_;
  std::vector<std::uint8_t> rawBuffers_;
};

/// Runs a test with packets by either way.
class EachEntry : public ::testing::TestWithParam<Entry> {};

#define LIDCAM_BY_EACH_ENTRY(suite)                                                           \
  INSTANTIATE_TEST_SUITE_P(ByEachEntry, suite,                                                \
                           ::testing::Values(Entry::Packets, Entry::Transfers),               \
                           [](const ::testing::TestParamInfo<Entry>& tested) {                \
                             return tested.param == Entry::Packets ? "Packets" : "Transfers"; \
                           })

/// Lines of one decision, in order, to be joined into an expected log.
Lines GoodEnd(std::uint32_t bytes, std::uint32_t expected);
Lines BadEnd(std::uint32_t bytes, std::uint32_t expected);
Lines SettlingEnd(std::uint32_t bytes, std::uint32_t expected);
Lines FramePublished(std::uint32_t bytes);
Lines FrameBusy(std::uint32_t bytes);
Lines FrameDiscarded();

Lines operator+(Lines left, const Lines& right);

}  // namespace lidcam::test
