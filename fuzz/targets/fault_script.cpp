// Any bytes are parsed as a fault script or refused with one line; a parsed script is equal after
// formatting and parsing, and its faults leave a stream within its buffer.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "bus/faults/fault_script.h"
#include "bus/faults/frame_faults.h"
#include "bus/faults/timed_faults.h"
#include "fuzz/support/input.h"

namespace {

using lidcam::fuzz::Require;

using namespace lidcam::bus;

constexpr std::size_t kPackets = 16;
constexpr std::uint64_t kReads = 8;

void Suffer(const FaultScript& script) {
  TimedFaults faults{script};
  FrameFaults ofFrames{script};
  FaultCounts counts;
  std::vector<BusFault> begun;
  for (std::uint64_t read = 0; read < kReads; ++read) {
    // Shares of 1 to 8 bytes, packets of every length that fits.
    const std::size_t share = read + 1;
    std::vector<std::uint8_t> buffer(kPackets * share);
    std::vector<IsochronousPacket> packets(kPackets);
    for (std::size_t i = 0; i < kPackets; ++i) {
      packets[i] = {static_cast<std::uint32_t>(i * share),
                    static_cast<std::uint32_t>(i % (share + 1)), UsbStatus::Ok};
    }
    (void)faults.Disturb(read * kPackets, buffer, packets, counts, begun);
    for (std::size_t i = 0; i < kPackets; ++i) {
      const std::uint64_t at = FramePacket(read + 1, i + 1);
      if (ofFrames.TakeInterruption(at)) continue;
      ofFrames.Disturb(at, std::span(buffer).subspan(i * share, share), packets[i]);
    }
    for (const IsochronousPacket& packet : packets) Require(packet.Length <= share);
  }
  const std::vector<BusFault> begunInFrames = ofFrames.TakeBegun();
  begun.insert(begun.end(), begunInFrames.begin(), begunInFrames.end());
  Require(begun.size() <= script.Faults.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  FaultScript script;
  try {
    script = ParseFaultScript(text);
  } catch (const FaultScriptError& error) {
    const std::string_view what = error.what();
    Require(error.Line() > 0 && what.size() < 500);
    Require(std::all_of(what.begin(), what.end(), [](char c) { return c >= ' ' && c <= '~'; }));
    return 0;
  }
  Require(ParseFaultScript(ToText(script)) == script);
  Suffer(script);
  return 0;
}
