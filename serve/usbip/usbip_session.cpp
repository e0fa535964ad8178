#include "serve/usbip/usbip_session.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace lidcam::serve::usbip {
namespace {

// A client that hasn't imported the device after this time is disconnected.
constexpr std::chrono::seconds kImportLimit{5};

// Room for the longest request and more behind it.
constexpr std::size_t kInputLimit = std::size_t{192} * 1024;

constexpr std::uint8_t kDeviceToHost = 0x80;
constexpr std::uint32_t kHighestEndpoint = 15;
constexpr std::int32_t kUnlinked = -104;  // ECONNRESET

[[noreturn]] void Refuse(const char* field, std::uint64_t value) {
  throw ProtocolError("malformed: " + std::string(field) + " " + std::to_string(value));
}

bool HasPackets(const RequestHeader& header) {
  return header.NumberOfPackets != 0 && header.NumberOfPackets != 0xFFFFFFFF;
}

bool IsOut(const RequestHeader& header) {
  return header.Direction == 0;
}

void CheckSubmit(const RequestHeader& header) {
  if (HasPackets(header) && header.NumberOfPackets > kMostPackets) {
    Refuse("number of packets", header.NumberOfPackets);
  }
  if (header.Length > (IsOut(header) ? kMostOutBytes : kMostInBytes)) {
    Refuse("transfer length", header.Length);
  }
}

void CheckRequest(const RequestHeader& header) {
  const bool isSubmit = header.Command == static_cast<std::uint32_t>(Command::Submit);
  if (!isSubmit && header.Command != static_cast<std::uint32_t>(Command::Unlink)) {
    Refuse("command", header.Command);
  }
  if (header.DeviceId != kCameraName.Id()) Refuse("device", header.DeviceId);
  if (header.Direction > 1) Refuse("direction", header.Direction);
  if (header.Endpoint > kHighestEndpoint) Refuse("endpoint", header.Endpoint);
  if (isSubmit) CheckSubmit(header);
}

Request DecodeRequest(const RequestHeader& header, std::span<const std::uint8_t> rest) {
  Request request{.Header = header};
  if (IsOut(header)) {
    request.OutData.assign(rest.begin(), rest.begin() + header.Length);
    rest = rest.subspan(header.Length);
  }
  for (; !rest.empty(); rest = rest.subspan(kPacketDescriptorSize)) {
    PacketDescriptor packet = DecodePacketDescriptor(rest);
    if (packet.Offset > header.Length) Refuse("packet offset", packet.Offset);
    if (packet.Length > header.Length - packet.Offset) Refuse("packet length", packet.Length);
    packet.ActualLength = 0;
    packet.Status = 0;
    request.Packets.push_back(packet);
  }
  return request;
}

}  // namespace

UsbipSession::UsbipSession(CameraSupply& supply, Time start, Log log)
    : supply_(supply), start_(start), log_(std::move(log)) {}

void UsbipSession::Receive(std::span<const std::uint8_t> bytes) {
  input_.insert(input_.end(), bytes.begin(), bytes.end());
}

std::size_t UsbipSession::InputRoom() const {
  return kInputLimit - std::min(kInputLimit, input_.size());
}

std::span<const std::uint8_t> UsbipSession::Unread() const {
  return std::span(input_).subspan(read_);
}

void UsbipSession::Advance(Time now) {
  while (HasOutputRoom() && (pending_ ? TakeRequest(now) : TakeOperation())) {
    // Requests that are received together count like requests that are received one by one.
    if (pending_) (void)pending_->AnswerOne(now, Output());
  }
  input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(read_));
  read_ = 0;
  if (!pending_) {
    if (!IsOver() && now >= start_ + kImportLimit) Finish("it asked for nothing");
    return;
  }
  while (HasOutputRoom() && pending_->AnswerOne(now, Output())) {
  }
  if (pending_->IsUnplugged()) Finish("the camera was unplugged");
}

std::optional<Session::Time> UsbipSession::Deadline() const {
  return pending_ ? pending_->Deadline() : start_ + kImportLimit;
}

bool UsbipSession::TakeOperation() {
  if (Unread().size() < kOperationHeaderSize) return false;
  const OperationHeader header = DecodeOperationHeader(Unread());
  if (header.Version != kVersion) Refuse("version", header.Version);
  switch (static_cast<Operation>(header.Code)) {
    case Operation::RequestDeviceList:
      read_ += kOperationHeaderSize;
      AppendOperationHeader(Output(), Operation::ReplyDeviceList, OperationStatus::Ok);
      AppendDeviceList(Output(), kCameraName, supply_.Device());
      Finish("the list was sent");
      return true;
    case Operation::RequestImport:
      if (Unread().size() < kOperationHeaderSize + kBusIdSize) return false;
      Import(Unread().subspan(kOperationHeaderSize, kBusIdSize));
      read_ += kOperationHeaderSize + kBusIdSize;
      return true;
    default:
      Refuse("operation", header.Code);
  }
}

void UsbipSession::Import(std::span<const std::uint8_t> busId) {
  const auto refuse = [this](OperationStatus status, const char* reason) {
    AppendOperationHeader(Output(), Operation::ReplyImport, status);
    Finish(reason);
  };
  const std::string_view text(reinterpret_cast<const char*>(busId.data()), busId.size());
  if (text.substr(0, text.find('\0')) != kCameraName.BusId) {
    refuse(OperationStatus::NoDevice, "it asked for a device that is not there");
    return;
  }
  camera_ = supply_.Take();
  if (camera_ == nullptr) {
    refuse(OperationStatus::Busy, "all cameras are taken");
    return;
  }
  pending_.emplace(camera_->Camera());
  AppendOperationHeader(Output(), Operation::ReplyImport, OperationStatus::Ok);
  AppendDevice(Output(), kCameraName, supply_.Device());
  log_("attached");
}

std::size_t UsbipSession::SizeOf(const RequestHeader& header) const {
  const std::size_t packets = HasPackets(header) ? header.NumberOfPackets : 0;
  return kHeaderSize + (IsOut(header) ? header.Length : 0) + packets * kPacketDescriptorSize;
}

bool UsbipSession::TakeRequest(Time now) {
  if (Unread().size() < kHeaderSize) return false;
  const RequestHeader header = DecodeRequestHeader(Unread());
  CheckRequest(header);
  if (header.Command == static_cast<std::uint32_t>(Command::Unlink)) {
    read_ += kHeaderSize;
    Unlink(header);
    return true;
  }
  const std::size_t size = SizeOf(header);
  if (Unread().size() < size) return false;
  Submit(DecodeRequest(header, Unread().subspan(kHeaderSize, size - kHeaderSize)), now);
  read_ += size;
  return true;
}

void UsbipSession::Submit(Request request, Time now) {
  const auto direction = IsOut(request.Header) ? std::uint8_t{0} : kDeviceToHost;
  const auto address = static_cast<std::uint8_t>(request.Header.Endpoint | direction);
  const EndpointKind kind = camera_->Camera().KindOf(address);
  const bool isStream = kind == EndpointKind::Isochronous && !request.Packets.empty();
  if (kind == EndpointKind::Control && request.Packets.empty()) {
    SubmitControl(std::move(request));
  } else if (isStream && direction == kDeviceToHost) {
    pending_->AddTransfer(std::move(request), now);
  } else if (kind == EndpointKind::Interrupt && request.Packets.empty()) {
    pending_->AddUnanswered(request.Header.SequenceNumber);
  } else {
    AnswerStalled(request);
  }
  if (pending_->Count() > kMostPendingRequests) {
    throw ProtocolError("more than " + std::to_string(kMostPendingRequests) + " requests pend");
  }
  if (pending_->KeptBytes() > kMostKeptBytes) {
    throw ProtocolError("requests of more than " + std::to_string(kMostKeptBytes) + " bytes pend");
  }
}

void UsbipSession::SubmitControl(Request request) {
  const bus::SetupPacket setup = bus::SetupPacket::FromBytes(request.Header.Setup);
  const bool isIn = setup.IsDeviceToHost() && setup.Length != 0;
  if (isIn && IsOut(request.Header)) Refuse("direction of a control request", 0);
  if (!setup.IsDeviceToHost() && request.OutData.size() < setup.Length) {
    Refuse("data stage", request.OutData.size());
  }
  pending_->AddControl(std::move(request));
}

void UsbipSession::Unlink(const RequestHeader& header) {
  const bool wasPending = pending_->Unlink(header.UnlinkedSequenceNumber);
  AppendUnlinkReply(Output(), header.SequenceNumber, wasPending ? kUnlinked : 0);
}

void UsbipSession::AnswerStalled(const Request& request) {
  const std::int32_t stalled = ErrorNumber(bus::UsbStatus::Stalled);
  AppendSubmitReply(Output(), {.SequenceNumber = request.Header.SequenceNumber,
                               .Status = stalled,
                               .NumberOfPackets = request.Header.NumberOfPackets,
                               .ErrorCount = static_cast<std::uint32_t>(request.Packets.size())});
  for (PacketDescriptor packet : request.Packets) {
    packet.Status = stalled;
    AppendPacketDescriptor(Output(), packet);
  }
}

}  // namespace lidcam::serve::usbip
