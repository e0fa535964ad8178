#include "tests/driver/frame/assembly/assembly_fixture.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "driver/core/base/camera_trace.h"
#include "platform/host/nt/system/debug_print.h"

namespace lidcam::test {
namespace {

AssemblyFixture* g_fixture = nullptr;

[[gnu::format(printf, 2, 0)]] void OnTrace(const CameraContext*, const char* format,
                                           std::va_list arguments) {
  std::array<char, 160> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  g_fixture->Log.emplace_back(text.data());
}

AssemblyFixture& Of(void* context) {
  return *static_cast<AssemblyFixture*>(context);
}

std::uint8_t IsProcessing(void* context) {
  return Of(context).Busy ? 1 : 0;
}

std::uint8_t IsRunning(void* context) {
  return Of(context).Running ? 1 : 0;
}

void Wake(void* context) {
  AssemblyFixture& fixture = Of(context);
  fixture.Log.emplace_back("wake");
  fixture.FillOffsetsAtWake.push_back(fixture.Assembly.FillOffset);
}

// The bytes stored are those up to the fill position, which the handover resets afterwards.
void OnPublish(void* context, std::uint8_t* buffer, std::uint32_t size) {
  AssemblyFixture& fixture = Of(context);
  fixture.Log.push_back("publish " + std::to_string(size));
  fixture.Published.push_back({{buffer, buffer + fixture.Assembly.FillOffset}, size});
}

std::string EndLine(std::uint32_t bytes, std::uint32_t expected, const char* verdict) {
  return "frame end bytes=" + std::to_string(bytes) + " expected=" + std::to_string(expected) +
         " " + verdict;
}

}  // namespace

Packet Start(std::size_t length, std::uint8_t fill) {
  Packet packet(length, fill);
  packet.at(0) = 0xFF;
  packet.at(1) = 0xD8;
  return packet;
}

Packet Body(std::size_t length, std::uint8_t fill) {
  return Packet(length, fill);
}

Packet Joined(const std::vector<Packet>& packets) {
  Packet joined;
  for (const Packet& packet : packets) joined.insert(joined.end(), packet.begin(), packet.end());
  return joined;
}

AssemblyFixture::AssemblyFixture(std::uint32_t rawFrameSize, std::uint32_t rawBufferSize,
                                 Entry entry)
    : entry_(entry), rawBuffers_(std::size_t{2} * rawBufferSize, 0xEE) {
  Context.RawFrameSize = rawFrameSize;
  Context.FrameSettleCount = 5;
  Assembly.Sink = {this, IsProcessing, OnPublish, IsRunning, Wake};
  PlaceRawBuffers(Assembly, rawBuffers_.data(), rawBufferSize);
  g_fixture = this;
  SetCameraTraceSink(OnTrace);
  host::SetDebugPrintSink([this](const std::string& message) { Log.push_back(message); });
}

AssemblyFixture::~AssemblyFixture() {
  host::SetDebugPrintSink(nullptr);
  SetCameraTraceSink(nullptr);
  g_fixture = nullptr;
}

void AssemblyFixture::BeginStream(std::uint32_t settleCount) {
  BeginAssembly(Assembly);
  Context.FrameSettleCount = settleCount;
}

void AssemblyFixture::Feed(const std::vector<Packet>& packets) {
  if (entry_ == Entry::Packets) {
    for (Packet packet : packets) {
      const auto length = static_cast<std::uint32_t>(packet.size());
      packet.push_back(0);  // the byte behind that decides on a packet of one
      FeedFrom(packet, {{0, length}});
    }
    return;
  }
  std::vector<TransferPacket> places;
  std::uint32_t offset = 0;
  for (const Packet& packet : packets) {
    places.push_back({offset, static_cast<std::uint32_t>(packet.size())});
    offset += places.back().Length;
  }
  FeedFrom(Joined(packets), places);
}

void AssemblyFixture::FeedFrom(const std::vector<std::uint8_t>& buffer,
                               const std::vector<TransferPacket>& packets) {
  if (entry_ == Entry::Transfers) {
    AssembleTransfer(Assembly, Context, buffer.data(), static_cast<std::uint32_t>(buffer.size()),
                     packets.data(), static_cast<std::uint32_t>(packets.size()));
    return;
  }
  for (const TransferPacket& packet : packets) {
    const std::uint8_t* const data = packet.Length != 0 ? &buffer.at(packet.Offset) : nullptr;
    AssemblePacket(Assembly, Context, data, packet.Length);
  }
}

Lines AssemblyFixture::TakeLog() {
  return std::exchange(Log, {});
}

Packet AssemblyFixture::Stored() const {
  return {Assembly.FillBuffer, Assembly.FillBuffer + Assembly.FillOffset};
}

Lines GoodEnd(std::uint32_t bytes, std::uint32_t expected) {
  return {EndLine(bytes, expected, "good")};
}

Lines BadEnd(std::uint32_t bytes, std::uint32_t expected) {
  return {"ReceivedRawFrameBuffer = " + std::to_string(bytes),
          "Correct RawFrameBuffer = " + std::to_string(expected), EndLine(bytes, expected, "bad")};
}

Lines SettlingEnd(std::uint32_t bytes, std::uint32_t expected) {
  return {EndLine(bytes, expected, "settling")};
}

Lines FramePublished(std::uint32_t bytes) {
  return {"frame published bytes=" + std::to_string(bytes), "publish " + std::to_string(bytes),
          "wake"};
}

Lines FrameBusy(std::uint32_t bytes) {
  return {"frame busy bytes=" + std::to_string(bytes)};
}

Lines FrameDiscarded() {
  return {"frame discarded"};
}

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

}  // namespace lidcam::test
