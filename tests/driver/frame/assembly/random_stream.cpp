#include "tests/driver/frame/assembly/random_stream.h"

#include <algorithm>
#include <utility>

#include "base/split_mix.h"

namespace lidcam::test {
namespace {

using Packet = std::vector<std::uint8_t>;

class SeededNumbers {
 public:
  explicit SeededNumbers(std::uint64_t seed) : numbers_(seed) {}

  std::uint64_t Next() { return numbers_.Next(); }

  std::uint32_t Below(std::uint32_t bound) { return static_cast<std::uint32_t>(Next() % bound); }

  bool OneIn(std::uint32_t count) { return Below(count) == 0; }

 private:
  base::SplitMix numbers_;
};

void SetMarker(Packet& packet, std::size_t at) {
  packet[at] = 0xFF;
  if (at + 1 < packet.size()) packet[at + 1] = 0xD8;
}

Packet Payload(SeededNumbers& random, std::uint32_t length) {
  Packet packet(length);
  auto byte = static_cast<std::uint8_t>(random.Next());
  for (std::uint8_t& place : packet) place = byte = static_cast<std::uint8_t>(byte * 5 + 3);
  return packet;
}

// Most frames are of the expected size or around the tolerance, some of any size.
std::uint32_t FrameBytes(SeededNumbers& random, std::uint32_t expected) {
  if (!random.OneIn(3)) return expected;
  if (random.OneIn(3)) return 2 + random.Below(2 * expected + 20);
  return std::max(2U, expected + random.Below(27) - 13);
}

void Disturb(SeededNumbers& random, std::vector<Packet>& packets, Packet packet) {
  switch (random.Below(64)) {
    case 0:  // lost
      return;
    case 1:  // short
      packet.resize(random.Below(static_cast<std::uint32_t>(packet.size()) + 1));
      break;
    case 2:  // oversized
      packet.resize(packet.size() + 1 + random.Below(40), 0x11);
      break;
    case 3:  // a marker where none belongs
      if (!packet.empty()) SetMarker(packet, 0);
      break;
    case 4:  // a marker inside a packet, which the parser must ignore
      if (packet.size() > 3)
        SetMarker(packet, 1 + random.Below(static_cast<std::uint32_t>(packet.size()) - 2));
      break;
    case 5:
      packets.emplace_back();
      break;
    case 6:
      packets.push_back({0xFF});
      break;
    default:
      break;
  }
  packets.push_back(std::move(packet));
}

void AppendFrame(SeededNumbers& random, std::vector<Packet>& packets, std::uint32_t expected,
                 std::uint32_t longest) {
  std::uint32_t left = FrameBytes(random, expected);
  bool isFirst = true;
  while (left > 0) {
    const std::uint32_t length =
        std::min(left, random.OneIn(4) ? 1 + random.Below(longest) : longest);
    Packet packet = Payload(random, length);
    if (isFirst) SetMarker(packet, 0);
    isFirst = false;
    left -= length;
    Disturb(random, packets, std::move(packet));
  }
}

// Packets lie in slots, or back to back; what lies between them may complete a marker.
RecordedTransfer PackTransfer(SeededNumbers& random, const Packet* packets, std::size_t count) {
  RecordedTransfer transfer{{}, {}, random.OneIn(60), random.OneIn(50)};
  const std::uint32_t gap = random.OneIn(2) ? 0 : 1 + random.Below(5);
  const std::uint8_t filler = random.OneIn(2) ? 0xD8 : 0x00;
  for (std::size_t i = 0; i < count; ++i) {
    transfer.Packets.push_back({static_cast<std::uint32_t>(transfer.Buffer.size()),
                                static_cast<std::uint32_t>(packets[i].size())});
    transfer.Buffer.insert(transfer.Buffer.end(), packets[i].begin(), packets[i].end());
    transfer.Buffer.insert(transfer.Buffer.end(), gap, filler);
  }
  return transfer;
}

std::uint32_t ExpectedFrameSize(SeededNumbers& random) {
  if (random.OneIn(50)) return random.Below(12);  // around the size below which no frame is good
  return 100 + random.Below(random.OneIn(8) ? 1901 : 200);
}

}  // namespace

RecordedStream MakeRandomStream(std::uint64_t seed) {
  SeededNumbers random(seed);
  RecordedStream stream{};
  stream.RawFrameSize = ExpectedFrameSize(random);
  const std::uint32_t frameBytes = std::max(100U, stream.RawFrameSize);
  stream.RawBufferSize =
      random.OneIn(3) ? 1 + random.Below(frameBytes + 50) : frameBytes + random.Below(frameBytes);
  stream.Running = !random.OneIn(4);
  stream.ReceivedFrameBytes = random.OneIn(2) ? stream.RawFrameSize : random.Below(1000);
  stream.FrameSettleCount = random.OneIn(3) ? 0 : 4 + random.Below(2);
  for (int i = 0; i < 7; ++i) stream.Busy.push_back(random.OneIn(4));

  std::vector<Packet> packets;
  const std::uint32_t longest = 1 + frameBytes / 10 + random.Below(frameBytes / 2);
  if (random.OneIn(2)) packets.push_back(Payload(random, 1 + random.Below(longest)));
  const std::uint32_t frames = 3 + random.Below(7);
  for (std::uint32_t i = 0; i < frames; ++i) AppendFrame(random, packets, frameBytes, longest);

  for (std::size_t at = 0; at < packets.size();) {
    const std::size_t count = std::min<std::size_t>(packets.size() - at, 1 + random.Below(8));
    stream.Transfers.push_back(PackTransfer(random, &packets[at], count));
    at += count;
  }
  return stream;
}

}  // namespace lidcam::test
