#include "bus/capture/recording/recording_bus.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "base/time_units.h"

namespace lidcam::bus {
namespace {

constexpr std::uint8_t kControlIn = 0x80;
constexpr std::uint8_t kControlOut = 0x00;
constexpr std::uint32_t kTransferIsIn = 0x0200;
constexpr std::uint32_t kAsSoonAsPossible = 0x0002;

// Both are limits of usbmon, whose format the records have.
constexpr std::size_t kMostPackets = 128;
constexpr std::size_t kMostPacketBytes = kLargestRecord - 64 - kMostPackets * 16;

std::size_t PacketsPerRecord(std::size_t share) {
  return std::clamp<std::size_t>(kMostPacketBytes / std::max<std::size_t>(share, 1), 1,
                                 kMostPackets);
}

std::uint8_t ControlEndpoint(const SetupPacket& setup) {
  return setup.IsDeviceToHost() ? kControlIn : kControlOut;
}

}  // namespace

RecordingBus::RecordingBus(UsbBus& bus, const std::string& path, RecordingOptions options)
    : PassingBus(bus),
      options_(std::move(options)),
      writer_(std::make_unique<PcapWriter>(path, kLinkTypeUsbmon)) {}

RecordingBus::~RecordingBus() = default;

ControlResult RecordingBus::ControlTransfer(const SetupPacket& setup,
                                            std::span<std::uint8_t> data) {
  const std::uint64_t id = SubmitControl(setup, data);
  const ControlResult result = PassingBus::ControlTransfer(setup, data);
  CompleteControl(id, setup, result, data);
  return result;
}

UsbStatus RecordingBus::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  const SetupPacket setup{0x01, 0x0B, alternateSetting, interface, 0};
  const std::uint64_t id = SubmitControl(setup, {});
  const UsbStatus status = PassingBus::SelectSetting(interface, alternateSetting);
  CompleteControl(id, setup, {status, 0}, {});
  return status;
}

IsochronousResult RecordingBus::ReadIsochronous(std::uint8_t endpoint,
                                                std::span<std::uint8_t> buffer,
                                                std::span<IsochronousPacket> packets) {
  if (packets.empty()) return PassingBus::ReadIsochronous(endpoint, buffer, packets);
  const std::vector<Piece> pieces =
      SubmitIsochronous(endpoint, packets.size(), buffer.size() / packets.size());
  const IsochronousResult result = PassingBus::ReadIsochronous(endpoint, buffer, packets);
  CompleteIsochronous(endpoint, pieces, result, buffer, packets);
  return result;
}

void RecordingBus::Finish() {
  const std::lock_guard lock(mutex_);
  if (!writer_) return;
  const std::unique_ptr<PcapWriter> writer = std::move(writer_);
  try {
    if (!failure_.empty()) throw CaptureError(failure_);
    writer->Close();
  } catch (const CaptureError&) {
    writer->KeepWhole();
    throw;
  }
}

std::string RecordingBus::Failure() {
  const std::lock_guard lock(mutex_);
  return failure_;
}

std::int64_t RecordingBus::TimeAt(std::uint64_t microframe) const {
  if (options_.Clock) return options_.Clock();
  return options_.StartMicroseconds +
         static_cast<std::int64_t>(microframe) * base::kMicrosecondsPerMicroframe;
}

UsbRecord RecordingBus::NewRecord(RecordEvent event, TransferType type, std::uint8_t endpoint) {
  UsbRecord record;
  record.Event = event;
  record.Type = type;
  record.Address = options_.Address;
  record.Endpoint = endpoint;
  record.Status = event == RecordEvent::Submit ? -EINPROGRESS : 0;
  record.TransferFlags = record.IsIn() ? kTransferIsIn : 0;
  if (type == TransferType::Isochronous) {
    record.Interval = 1;
    record.TransferFlags |= kAsSoonAsPossible;
  }
  return record;
}

std::uint64_t RecordingBus::SubmitControl(const SetupPacket& setup,
                                          std::span<const std::uint8_t> data) {
  const std::int64_t time = TimeAt(std::uint64_t{FrameNumber()} * kMicroframesPerFrame);
  const std::lock_guard lock(mutex_);
  UsbRecord record = NewRecord(RecordEvent::Submit, TransferType::Control, ControlEndpoint(setup));
  record.Id = nextId_++;
  record.Setup = setup;
  record.TransferLength = setup.Length;
  if (!setup.IsDeviceToHost()) {
    record.Data = data.first(std::min<std::size_t>(setup.Length, data.size()));
  }
  Write(record, time);
  return record.Id;
}

void RecordingBus::CompleteControl(std::uint64_t id, const SetupPacket& setup,
                                   const ControlResult& result,
                                   std::span<const std::uint8_t> data) {
  const std::int64_t time = TimeAt(std::uint64_t{FrameNumber()} * kMicroframesPerFrame);
  const std::lock_guard lock(mutex_);
  UsbRecord record =
      NewRecord(RecordEvent::Complete, TransferType::Control, ControlEndpoint(setup));
  record.Id = id;
  record.Status = ErrnoFromStatus(result.Status);
  record.TransferLength = result.Transferred;
  if (setup.IsDeviceToHost()) {
    record.Data = data.first(std::min<std::size_t>(result.Transferred, data.size()));
  }
  Write(record, time);
}

std::vector<RecordingBus::Piece> RecordingBus::SubmitIsochronous(std::uint8_t endpoint,
                                                                 std::size_t packetCount,
                                                                 std::size_t share) {
  const std::int64_t time = TimeAt(std::uint64_t{FrameNumber()} * kMicroframesPerFrame);
  const std::lock_guard lock(mutex_);
  std::vector<Piece> pieces;
  const std::size_t perRecord = PacketsPerRecord(share);
  for (std::size_t first = 0; first < packetCount; first += perRecord) {
    pieces.push_back({nextId_++, first, std::min(perRecord, packetCount - first)});
    UsbRecord record = NewRecord(RecordEvent::Submit, TransferType::Isochronous, endpoint);
    record.Id = pieces.back().Id;
    for (std::size_t i = 0; i < pieces.back().PacketCount; ++i) {
      record.Packets.push_back(
          {-EXDEV, static_cast<std::uint32_t>(i * share), static_cast<std::uint32_t>(share), 0});
    }
    Write(record, time);
  }
  return pieces;
}

void RecordingBus::CompleteIsochronous(std::uint8_t endpoint, const std::vector<Piece>& pieces,
                                       const IsochronousResult& result,
                                       std::span<const std::uint8_t> buffer,
                                       std::span<const IsochronousPacket> packets) {
  const std::int64_t time = TimeAt(std::uint64_t{result.StartMicroframe} + packets.size());
  const std::lock_guard lock(mutex_);
  const std::size_t share = buffer.size() / packets.size();
  for (const Piece& piece : pieces) {
    UsbRecord record = NewRecord(RecordEvent::Complete, TransferType::Isochronous, endpoint);
    record.Id = piece.Id;
    record.Status = ErrnoFromStatus(result.Status);
    record.StartMicroframe = result.StartMicroframe + static_cast<std::uint32_t>(piece.FirstPacket);
    const std::span<const std::uint8_t> data =
        buffer.subspan(piece.FirstPacket * share, piece.PacketCount * share);
    std::size_t end = 0;
    for (std::size_t i = 0; i < piece.PacketCount; ++i) {
      const IsochronousPacket& packet = packets[piece.FirstPacket + i];
      const auto offset = static_cast<std::uint32_t>(i * share);
      const std::uint32_t length = std::min(packet.Length, static_cast<std::uint32_t>(share));
      record.Packets.push_back({ErrnoFromStatus(packet.Status), offset, length, 0});
      if (packet.Status != UsbStatus::Ok) ++record.ErrorCount;
      if (length != 0) end = offset + length;
    }
    record.Data = data.first(end);
    Write(record, time);
  }
}

void RecordingBus::Write(UsbRecord& record, std::int64_t time) {
  if (!writer_ || !failure_.empty()) return;
  // The traffic's two threads read the clock before they take the lock here.
  lastTime_ = std::max(lastTime_, time);
  record.TimeMicroseconds = lastTime_;
  try {
    EncodeUsbmonRecord(record, encoded_);
    writer_->Write(record.TimeMicroseconds, encoded_);
  } catch (const CaptureError& error) {
    failure_ = error.what();
  }
}

}  // namespace lidcam::bus
