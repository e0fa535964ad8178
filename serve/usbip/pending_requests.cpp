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
  const bus::SetupPacket setup = bus::SetupPacket::FromBytes(request.Header.Setup);
  controls_.Add(request.Header, setup, std::move(request.OutData));
}

void PendingRequests::AddTransfer(Request request, Time now) {
  keptBytes_ += request.KeptBytes();
  const auto packets = static_cast<std::int64_t>(request.Packets.size());
  busTime_ = std::max(busTime_, now) + kMicroframe * packets;
  transfers_.push_back({std::move(request), busTime_});
}

bool PendingRequests::UnlinkTransfer(std::uint32_t sequenceNumber) {
  const auto found = std::ranges::find_if(transfers_, [sequenceNumber](const Transfer& transfer) {
    return transfer.Asked.Header.SequenceNumber == sequenceNumber;
  });
  if (found == transfers_.end()) return false;
  keptBytes_ -= found->Asked.KeptBytes();
  transfers_.erase(found);
  return true;
}

bool PendingRequests::Unlink(std::uint32_t sequenceNumber) {
  const auto isIt = [sequenceNumber](const RequestHeader& header) {
    return header.SequenceNumber == sequenceNumber;
  };
  return UnlinkTransfer(sequenceNumber) || controls_.Cancel(isIt) ||
         std::erase(unanswered_, sequenceNumber) != 0;
}

bool PendingRequests::AnswerOne(Time now, std::vector<std::uint8_t>& output) {
  if (!isUnplugged_ && AnswerControl(now, output)) return true;
  return !isUnplugged_ && AnswerTransfer(now, output);
}

std::optional<PendingRequests::Time> PendingRequests::Deadline() const {
  const std::optional<Time> deadline = controls_.Deadline();
  if (transfers_.empty()) return deadline;
  return std::min(deadline.value_or(Time::max()), transfers_.front().Due);
}

bool PendingRequests::AnswerControl(Time now, std::vector<std::uint8_t>& output) {
  const auto control = controls_.TakeDue(camera_, now);
  if (!control) return false;
  isUnplugged_ = control->Answer->Status == UsbStatus::Disconnected;
  if (isUnplugged_) return false;
  const RequestHeader& header = control->Asked;
  const std::uint32_t length = std::min(control->Answer->Transferred, header.Length);
  AppendSubmitReply(output, {.SequenceNumber = header.SequenceNumber,
                             .Status = ErrorNumber(control->Answer->Status),
                             .ActualLength = length,
                             .NumberOfPackets = header.NumberOfPackets});
  if (header.Direction != 0 && control->Setup.IsDeviceToHost()) {
    output.insert(output.end(), control->Data.begin(), control->Data.begin() + length);
  }
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
  if (status == UsbStatus::Silent) {
    AddUnanswered(asked.Header.SequenceNumber);
  } else {
    AppendSubmitReply(output, reply);
    output.insert(output.end(), data.begin(), data.end());
    for (const PacketDescriptor& each : asked.Packets) AppendPacketDescriptor(output, each);
  }
  keptBytes_ -= asked.KeptBytes();
  transfers_.pop_front();
  return true;
}

}  // namespace lidcam::serve::usbip
