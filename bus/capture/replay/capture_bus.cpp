#include "bus/capture/replay/capture_bus.h"

#include <algorithm>

#include "bus/capture/replay/capture_reader.h"

namespace lidcam::bus {
namespace {

/// Whether the captured part of an exchange is enough for an answer.
bool IsUsable(const ControlExchange& exchange) {
  return exchange.Completed || !exchange.Setup.IsDeviceToHost();
}

bool IsRegisterRead(const SetupPacket& setup) {
  return IsRegisterRequest(setup) && setup.IsDeviceToHost();
}

std::vector<std::uint8_t> OutData(const SetupPacket& setup, std::span<const std::uint8_t> data) {
  if (setup.IsDeviceToHost()) return {};
  const auto sent = data.first(std::min<std::size_t>(setup.Length, data.size()));
  return {sent.begin(), sent.end()};
}

ControlResult Answer(const ControlExchange& exchange, const SetupPacket& setup,
                     std::span<std::uint8_t> data) {
  const UsbStatus status = StatusFromErrno(exchange.Status);
  if (!setup.IsDeviceToHost()) {
    return {status, status == UsbStatus::Ok ? std::uint32_t{setup.Length} : 0};
  }
  const std::size_t length =
      std::min({exchange.Data.size(), std::size_t{setup.Length}, data.size()});
  std::copy_n(exchange.Data.begin(), length, data.begin());
  return {status, static_cast<std::uint32_t>(length)};
}

}  // namespace

CaptureBus::CaptureBus(const CaptureSource& source)
    : endpoint_(source.Device().StreamEndpoint()), isCutOff_(source.IsCutOff()) {
  ControlHistory history;
  CaptureReader reader{source.Path()};
  UsbRecord record;
  bool hasPackets = false;
  while (reader.Next(record)) {
    if (record.Address != source.Device().Address) continue;
    history.Add(record);
    hasPackets = hasPackets || record.Type == TransferType::Isochronous;
    if (!hasPackets) aheadOfStream_ = history.Exchanges().size();
  }
  exchanges_ = history.Exchanges();
  std::optional<std::uint16_t> select;
  for (const ControlExchange& exchange : exchanges_) AddExchange(exchange, select);
  if (endpoint_) {
    packets_.emplace(source);
    ReadAhead();
  }
}

void CaptureBus::AddExchange(const ControlExchange& exchange,
                             std::optional<std::uint16_t>& select) {
  const SetupPacket& setup = exchange.Setup;
  if (IsSetInterface(setup)) {
    settingsRecorded_ = true;
    if (exchange.Status == 0) settings_.emplace(setup.Index, setup.Value);
    return;
  }
  if (IsUsable(exchange)) {
    const auto position = static_cast<std::size_t>(&exchange - exchanges_.data());
    const Question question{IsRegisterRead(setup) ? select : std::nullopt, setup,
                            OutData(setup, exchange.Data)};
    Answers& answers = answers_[question];
    answers.All.push_back(position);
    answers.Unused.insert(position);
  }
  if (IsSelectWrite(setup)) select = setup.Value;
}

ControlResult CaptureBus::ControlTransfer(const SetupPacket& setup, std::span<std::uint8_t> data) {
  const std::lock_guard lock(controlMutex_);
  if (unplugged_) return {UsbStatus::Disconnected, 0};
  const Question question{IsRegisterRead(setup) ? select_ : std::nullopt, setup,
                          OutData(setup, data)};
  if (IsSelectWrite(setup)) select_ = setup.Value;
  const ControlExchange* exchange = FindAnswer(question);
  if (exchange == nullptr && IsGetDescriptor(setup)) exchange = FindDescriptor(setup);
  if (exchange == nullptr) return {UsbStatus::NotRecorded, 0};
  return Answer(*exchange, setup, data);
}

std::vector<SetupPacket> CaptureBus::RequestsAheadOfStream() const {
  std::vector<SetupPacket> requests;
  for (std::size_t i = 0; i < aheadOfStream_; ++i) requests.push_back(exchanges_[i].Setup);
  return requests;
}

void CaptureBus::ForgetRequests() {
  const std::lock_guard lock(controlMutex_);
  for (Answers* const answers : touched_) {
    answers->Unused = {answers->All.begin(), answers->All.end()};
  }
  touched_.clear();
  select_.reset();
  position_ = 0;
}

const ControlExchange* CaptureBus::FindAnswer(const Question& question) {
  const auto found = answers_.find(question);
  if (found == answers_.end()) return nullptr;
  Answers& answers = found->second;
  touched_.insert(&answers);
  if (answers.Unused.empty()) return &exchanges_[answers.All.back()];
  auto match = answers.Unused.lower_bound(position_);
  if (match == answers.Unused.end()) match = answers.Unused.begin();
  const std::size_t position = *match;
  answers.Unused.erase(match);
  position_ = position + 1;
  return &exchanges_[position];
}

const ControlExchange* CaptureBus::FindDescriptor(const SetupPacket& setup) const {
  const auto answers = [&setup](const ControlExchange& exchange) {
    SetupPacket other = exchange.Setup;
    other.Length = setup.Length;
    if (other != setup || !exchange.Completed || exchange.Status != 0) return false;
    // An answer shorter than requested is the whole descriptor.
    return exchange.Data.size() >= setup.Length || exchange.Data.size() < exchange.Setup.Length;
  };
  const auto found = std::ranges::find_if(exchanges_, answers);
  return found == exchanges_.end() ? nullptr : &*found;
}

UsbStatus CaptureBus::SelectSetting(std::uint8_t interface, std::uint8_t alternateSetting) {
  const std::lock_guard lock(controlMutex_);
  if (unplugged_) return UsbStatus::Disconnected;
  const bool given = alternateSetting == 0 || !settingsRecorded_ ||
                     settings_.contains({interface, alternateSetting});
  return given ? UsbStatus::Ok : UsbStatus::NoBandwidth;
}

void CaptureBus::ReadAhead() {
  try {
    IsochronousPayload payload;
    next_.reset();
    if (packets_->Next(payload)) {
      next_ = payload;
      microframe_ = payload.Microframe;
    } else {
      const bool isShortened = packets_->IsCutOff() && !isCutOff_;
      streamStatus_ = isShortened ? UsbStatus::Failed : UsbStatus::EndOfCapture;
    }
  } catch (const CaptureError&) {
    // The file could be read to its end when the bus was made; it has been changed since.
    streamStatus_ = UsbStatus::Failed;
  }
}

void CaptureBus::FillPacket(IsochronousPacket& packet, std::span<std::uint8_t> share) {
  const std::span<const std::uint8_t> data = next_->Data;
  packet.Status = data.size() <= share.size() ? next_->Status : UsbStatus::Failed;
  packet.Length = static_cast<std::uint32_t>(std::min(data.size(), share.size()));
  std::copy_n(data.begin(), packet.Length, share.begin());
  ++microframe_;
  ReadAhead();
}

IsochronousResult CaptureBus::ReadIsochronous(std::uint8_t endpoint, std::span<std::uint8_t> buffer,
                                              std::span<IsochronousPacket> packets) {
  const std::lock_guard lock(streamMutex_);
  IsochronousResult result{UsbStatus::Ok, microframe_};
  if (unplugged_) {
    result.Status = UsbStatus::Disconnected;
  } else if (endpoint != endpoint_) {
    result.Status = UsbStatus::NotRecorded;
  } else if (!next_) {
    result.Status = streamStatus_;
  }
  const std::size_t share = packets.empty() ? 0 : buffer.size() / packets.size();
  std::size_t offset = 0;
  for (IsochronousPacket& packet : packets) {
    packet = {static_cast<std::uint32_t>(offset), 0, result.Status};
    if (result.Status == UsbStatus::Ok) {
      if (next_) {
        FillPacket(packet, buffer.subspan(offset, share));
      } else {
        packet.Status = streamStatus_;
      }
    }
    offset += share;
  }
  return result;
}

void CaptureBus::Abort(std::uint8_t /*endpoint*/) {
  // A read never waits: none can be in progress.
}

std::uint32_t CaptureBus::FrameNumber() {
  return microframe_ / kMicroframesPerFrame;
}

void CaptureBus::Unplug() {
  unplugged_ = true;
}

}  // namespace lidcam::bus
