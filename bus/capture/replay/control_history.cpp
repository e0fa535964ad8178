#include "bus/capture/replay/control_history.h"

namespace lidcam::bus {
namespace {

constexpr std::uint8_t kDeviceToHost = 0x80;
constexpr std::uint8_t kToInterface = 0x01;
constexpr std::uint8_t kVendorOut = 0x40;
constexpr std::uint8_t kVendorIn = 0xC0;
constexpr std::uint8_t kGetDescriptor = 0x06;
constexpr std::uint8_t kSetInterface = 0x0B;
constexpr std::uint8_t kRegisterWrite = 0xA0;
constexpr std::uint8_t kRegisterRead = 0xA1;
constexpr std::uint16_t kSelectRegister = 0xFFFF;

void Append(std::vector<std::uint8_t>& to, std::span<const std::uint8_t> from) {
  to.insert(to.end(), from.begin(), from.end());
}

}  // namespace

void ControlHistory::Add(const UsbRecord& record) {
  if (record.Type != TransferType::Control) return;
  if (record.Setup) {
    pending_[record.Id] = exchanges_.size();
    exchanges_.push_back({*record.Setup, {}, 0, false});
    Append(exchanges_.back().Data, record.Data);
    return;
  }
  const auto open = pending_.find(record.Id);
  if (open == pending_.end()) return;  // begun before the capture
  ControlExchange& exchange = exchanges_[open->second];
  if (record.Event == RecordEvent::Submit) {
    Append(exchange.Data, record.Data);
    return;
  }
  if (exchange.Setup.IsDeviceToHost()) Append(exchange.Data, record.Data);
  if (record.Status != 0) exchange.Status = record.Status;
  exchange.Completed = true;
  if (record.Stage != ControlStage::Data) pending_.erase(open);
}

bool IsGetDescriptor(const SetupPacket& setup) {
  return setup.RequestType == kDeviceToHost && setup.Request == kGetDescriptor;
}

bool IsGetDeviceDescriptor(const SetupPacket& setup) {
  return IsGetDescriptor(setup) && setup.Value == 0x0100;
}

bool IsSetInterface(const SetupPacket& setup) {
  return setup.RequestType == kToInterface && setup.Request == kSetInterface;
}

bool IsRegisterRequest(const SetupPacket& setup) {
  const bool write = setup.RequestType == kVendorOut && setup.Request == kRegisterWrite;
  const bool read = setup.RequestType == kVendorIn && setup.Request == kRegisterRead;
  return (write || read) && setup.Index >= 0xFF00;
}

bool IsSelectWrite(const SetupPacket& setup) {
  return IsRegisterRequest(setup) && !setup.IsDeviceToHost() && setup.Index == kSelectRegister;
}

}  // namespace lidcam::bus
