#include "serve/usbip/pending_requests.h"

#include <algorithm>
#include <utility>

namespace lidcam::serve::usbip {
namespace {

using bus::UsbStatus;

constexpr std::chrono::microseconds kMicroframe{125};
constexpr std::uint8_t kIn = 0x80;

// Linux's numbers, which the protocol has on every system.
constexpr std::int32_t kBroken = -32;     // EPIPE: the endpoint stalled
constexpr std::int32_t kNoRoom = -28;     // ENOSPC
constexpr std::int32_t kProtocol = -71;   // EPROTO
constexpr std::int32_t kOverflow = -75;   // EOVERFLOW: more bytes than there was room for
constexpr std::int32_t kReset = -104;     // ECONNRESET
constexpr std::int32_t kShutdown = -108;  // ESHUTDOWN
constexpr std::int32_t kTimedOut = -110;  // ETIMEDOUT

}  // namespace

std::int32_t ErrorNumber(UsbStatus status) {
  switch (status) {
    case UsbStatus::Ok:
      return 0;
    case UsbStatus::Stalled:
    case UsbStatus::NotRecorded:
      return kBroken;
    case UsbStatus::NoBandwidth:
      return kNoRoom;
    case UsbStatus::Disconnected:
    case UsbStatus::EndOfCapture:
      return kShutdown;
    case UsbStatus::TimedOut:
    case UsbStatus::Silent:
      return kTimedOut;
    case UsbStatus::Aborted:
      return kReset;
    case UsbStatus::Failed:
      break;
  }
  return kProtocol;
}

void PendingRequests::AddControl(Request request) {
  keptBytes_ += request.KeptBytes();
  controls_.push_back({std::move(request), {}, {}});
}

void PendingRequests::AddTransfer(Request request, Time now) {
  keptBytes_ += request.KeptBytes();
  const auto packets = static_cast<std::int64_t>(request.Packets.size());
  busTime_ = std::max(busTime_, now) + kMicroframe * packets;
  transfers_.push_back({std::move(request), busTime_});
}

template <typename Kept>
bool PendingRequests::UnlinkFrom(std::deque<Kept>& requests, std::uint32_t sequenceNumber) {
  const auto found = std::ranges::find_if(requests, [sequenceNumber](const Kept& kept) {
    return kept.Asked.Header.SequenceNumber == sequenceNumber;
  });
  if (found == requests.end()) return false;
  keptBytes_ -= found->Asked.KeptBytes();
  requests.erase(found);
  return true;
}

bool PendingRequests::Unlink(std::uint32_t sequenceNumber) {
  return UnlinkFrom(transfers_, sequenceNumber) || UnlinkFrom(controls_, sequenceNumber) ||
         std::erase(interrupts_, sequenceNumber) != 0;
}

bool PendingRequests::AnswerOne(Time now, std::vector<std::uint8_t>& output) {
  return !isUnplugged_ && (AnswerControl(now, output) || AnswerTransfer(now, output));
}

std::optional<PendingRequests::Time> PendingRequests::Deadline() const {
  std::optional<Time> deadline;
  if (!controls_.empty()) {
    const Control& first = controls_.front();
    const bool isSilent = first.Result && first.Result->Status == UsbStatus::Silent;
    if (!isSilent) deadline = first.Due;
  }
  if (!transfers_.empty()) {
    deadline = std::min(deadline.value_or(Time::max()), transfers_.front().Due);
  }
  return deadline;
}

void PendingRequests::Execute(Control& control, Time now) {
  const bus::SetupPacket setup = bus::SetupPacket::FromBytes(control.Asked.Header.Setup);
  if (setup.IsDeviceToHost()) control.Answer.resize(setup.Length);
  control.Result =
      camera_.Control(setup, setup.IsDeviceToHost() ? control.Answer : control.Asked.OutData);
  control.Due = now + control.Result->Delay;
  isUnplugged_ = control.Result->Status == UsbStatus::Disconnected;
}

bool PendingRequests::AnswerControl(Time now, std::vector<std::uint8_t>& output) {
  if (controls_.empty()) return false;
  Control& control = controls_.front();
  if (!control.Result) Execute(control, now);
  if (isUnplugged_ || control.Result->Status == UsbStatus::Silent || control.Due > now) {
    return false;
  }
  const RequestHeader& header = control.Asked.Header;
  const std::uint32_t length = std::min(control.Result->Transferred, header.Length);
  AppendSubmitReply(output, {.SequenceNumber = header.SequenceNumber,
                             .Status = ErrorNumber(control.Result->Status),
                             .ActualLength = length,
                             .NumberOfPackets = header.NumberOfPackets});
  if (header.Direction != 0 && !control.Answer.empty()) {
    output.insert(output.end(), control.Answer.begin(), control.Answer.begin() + length);
  }
  keptBytes_ -= control.Asked.KeptBytes();
  controls_.pop_front();
  return true;
}

bool PendingRequests::AnswerTransfer(Time now, std::vector<std::uint8_t>& output) {
  if (transfers_.empty() || transfers_.front().Due > now) return false;
  Request& asked = transfers_.front().Asked;
  SubmitReply reply{.SequenceNumber = asked.Header.SequenceNumber,
                    .StartFrame = camera_.FrameNumber(),
                    .NumberOfPackets = asked.Header.NumberOfPackets};
  std::vector<std::uint8_t> data;
  auto packet = asked.Packets.begin();
  const auto take = [&](const StreamPacket& read) {
    const std::size_t length = std::min<std::size_t>(read.Data.size(), packet->Length);
    packet->ActualLength = static_cast<std::uint32_t>(length);
    packet->Status = length < read.Data.size() ? kOverflow : ErrorNumber(read.Status);
    if (packet->Status != 0) ++reply.ErrorCount;
    reply.ActualLength += packet->ActualLength;
    data.insert(data.end(), read.Data.begin(),
                read.Data.begin() + static_cast<std::ptrdiff_t>(length));
    ++packet;
  };
  const auto endpoint = static_cast<std::uint8_t>(asked.Header.Endpoint | kIn);
  const UsbStatus status = camera_.ReadStream(endpoint, asked.Packets.size(), take);
  isUnplugged_ = status == UsbStatus::Disconnected;
  if (isUnplugged_) return false;
  AppendSubmitReply(output, reply);
  output.insert(output.end(), data.begin(), data.end());
  for (const PacketDescriptor& each : asked.Packets) AppendPacketDescriptor(output, each);
  keptBytes_ -= asked.KeptBytes();
  transfers_.pop_front();
  return true;
}

}  // namespace lidcam::serve::usbip
