#include "serve/usbredir/usbredir_session.h"

#include <usbredirparser.h>

#include <algorithm>
#include <array>
#include <exception>
#include <utility>

#include "serve/usbredir/device_messages.h"

namespace lidcam::serve::usbredir {
namespace {

using bus::UsbStatus;

// A client that hasn't sent hello after this time is disconnected.
constexpr std::chrono::seconds kGreetingLimit{5};
constexpr std::chrono::milliseconds kFrame{1};
// If the client read nothing for longer than this, or the machine was busy, the rest of that time
// is skipped.
constexpr std::chrono::milliseconds kCatchUp{30};

// At most so many requests come at once that none of them is one too many.
constexpr std::size_t kInputLimit = std::size_t{16} * 1024;
constexpr std::size_t kOutputEnough = std::size_t{256} * 1024;

constexpr std::size_t kHeaderSize = 12;  // type, length, and an id of 32 bits
constexpr std::uint8_t kIn = 0x80;

std::uint8_t StatusOf(UsbStatus status) {
  switch (status) {
    case UsbStatus::Ok:
      return usb_redir_success;
    case UsbStatus::Stalled:
    case UsbStatus::NotRecorded:
      return usb_redir_stall;
    case UsbStatus::TimedOut:
    case UsbStatus::Silent:
      return usb_redir_timeout;
    case UsbStatus::Aborted:
      return usb_redir_cancelled;
    default:
      return usb_redir_ioerror;
  }
}

}  // namespace

/// Wraps the parser's callbacks: exceptions must not pass through the parser.
struct Callbacks {
  template <typename Call>
  static void Guard(void* session, const Call& call) noexcept {
    auto& self = *static_cast<UsbredirSession*>(session);
    try {
      call(self);
    } catch (const std::exception& error) {
      if (self.failure_.empty()) self.failure_ = error.what();
    }
  }

  static void Ask(void* session, UsbredirSession::Asked asked) {
    Guard(session, [&](UsbredirSession& self) { self.Ask(asked); });
  }

  static void Install(usbredirparser& parser);
};

void Callbacks::Install(usbredirparser& parser) {
  using Kind = UsbredirSession::Kind;
  parser.log_func = [](void*, int, const char*) {};
  parser.read_func = [](void* session, std::uint8_t* data, int count) {
    return static_cast<UsbredirSession*>(session)->TakeInput(
        {data, static_cast<std::size_t>(count)});
  };
  parser.write_func = [](void* session, std::uint8_t* data, int count) {
    Guard(session, [&](UsbredirSession& self) {
      self.Output().insert(self.Output().end(), data, data + count);
    });
    return count;
  };
  parser.hello_func = [](void* session, usb_redir_hello_header*) {
    Guard(session, [](UsbredirSession& self) { self.Greet(); });
  };
  parser.reset_func = [](void* session) {
    Guard(session, [](UsbredirSession& self) { self.stream_.reset(); });
  };
  parser.set_configuration_func = [](void* session, std::uint64_t id,
                                     usb_redir_set_configuration_header* header) {
    Ask(session, {Kind::SetConfiguration, id, 0, {0x00, 9, header->configuration, 0, 0}});
  };
  parser.get_configuration_func = [](void* session, std::uint64_t id) {
    Ask(session, {Kind::GetConfiguration, id, 0, {0x80, 8, 0, 0, 1}});
  };
  parser.set_alt_setting_func = [](void* session, std::uint64_t id,
                                   usb_redir_set_alt_setting_header* header) {
    Ask(session, {Kind::SetSetting, id, 0, {0x01, 11, header->alt, header->interface, 0}});
  };
  parser.get_alt_setting_func = [](void* session, std::uint64_t id,
                                   usb_redir_get_alt_setting_header* header) {
    Ask(session, {Kind::GetSetting, id, 0, {0x81, 10, 0, header->interface, 1}});
  };
  parser.start_iso_stream_func = [](void* session, std::uint64_t id,
                                    usb_redir_start_iso_stream_header* header) {
    Guard(session, [&](UsbredirSession& self) { self.StartStream(id, header->endpoint); });
  };
  parser.stop_iso_stream_func = [](void* session, std::uint64_t id,
                                   usb_redir_stop_iso_stream_header* header) {
    Guard(session, [&](UsbredirSession& self) { self.StopStream(id, header->endpoint); });
  };
  parser.start_interrupt_receiving_func = [](void* session, std::uint64_t id,
                                             usb_redir_start_interrupt_receiving_header* header) {
    Guard(session, [&](UsbredirSession& self) { self.AnswerInterrupt(id, header->endpoint); });
  };
  parser.stop_interrupt_receiving_func = [](void* session, std::uint64_t id,
                                            usb_redir_stop_interrupt_receiving_header* header) {
    Guard(session, [&](UsbredirSession& self) { self.AnswerInterrupt(id, header->endpoint); });
  };
  parser.cancel_data_packet_func = [](void* session, std::uint64_t id) {
    Guard(session, [&](UsbredirSession& self) { self.Cancel(id); });
  };
  parser.control_packet_func = [](void* session, std::uint64_t id,
                                  usb_redir_control_packet_header* header, std::uint8_t* data,
                                  int length) {
    Guard(session, [&](UsbredirSession& self) {
      self.Ask(
          {Kind::Control,
           id,
           header->endpoint,
           {header->requesttype, header->request, header->value, header->index, header->length}},
          {data, static_cast<std::size_t>(length)});
    });
    usbredirparser_free_packet_data(static_cast<UsbredirSession*>(session)->parser_.get(), data);
  };
  // The camera has neither bulk endpoints nor endpoints OUT: data for them are dropped.
  parser.bulk_packet_func = [](void* session, std::uint64_t, usb_redir_bulk_packet_header*,
                               std::uint8_t* data, int) {
    usbredirparser_free_packet_data(static_cast<UsbredirSession*>(session)->parser_.get(), data);
  };
  parser.iso_packet_func = [](void* session, std::uint64_t, usb_redir_iso_packet_header*,
                              std::uint8_t* data, int) {
    usbredirparser_free_packet_data(static_cast<UsbredirSession*>(session)->parser_.get(), data);
  };
  parser.interrupt_packet_func = [](void* session, std::uint64_t,
                                    usb_redir_interrupt_packet_header*, std::uint8_t* data, int) {
    usbredirparser_free_packet_data(static_cast<UsbredirSession*>(session)->parser_.get(), data);
  };
  parser.alloc_bulk_streams_func = [](void*, std::uint64_t, usb_redir_alloc_bulk_streams_header*) {
  };
  parser.free_bulk_streams_func = [](void*, std::uint64_t, usb_redir_free_bulk_streams_header*) {};
  parser.device_disconnect_ack_func = [](void*) {};
  parser.filter_reject_func = [](void* session) {
    Guard(session, [](UsbredirSession& self) { self.Finish("the client refuses the device"); });
  };
}

UsbredirSession::UsbredirSession(CameraSupply& supply, Time start, Log log)
    : supply_(supply),
      log_(std::move(log)),
      now_(start),
      greetingLimit_(start + kGreetingLimit),
      parser_(usbredirparser_create(), usbredirparser_destroy) {
  if (parser_ == nullptr) throw std::bad_alloc();
  parser_->priv = this;
  Callbacks::Install(*parser_);
  // Without ids of 64 bits: every header has the same size then.
  std::array<std::uint32_t, USB_REDIR_CAPS_SIZE> abilities{};
  for (const int ability :
       {usb_redir_cap_connect_device_version, usb_redir_cap_filter,
        usb_redir_cap_device_disconnect_ack, usb_redir_cap_ep_info_max_packet_size}) {
    usbredirparser_caps_set_cap(abilities.data(), ability);
  }
  usbredirparser_init(parser_.get(), "lidcam", abilities.data(), USB_REDIR_CAPS_SIZE,
                      usbredirparser_fl_usb_host);
}

void UsbredirSession::Receive(std::span<const std::uint8_t> bytes) {
  input_.insert(input_.end(), bytes.begin(), bytes.end());
}

std::size_t UsbredirSession::InputRoom() const {
  return kInputLimit - std::min(kInputLimit, input_.size());
}

std::optional<Session::Time> UsbredirSession::Deadline() const {
  if (camera_ == nullptr) return greetingLimit_;
  const std::optional<Time> deadline = controls_.Deadline();
  if (!stream_) return deadline;
  return std::min(deadline.value_or(Time::max()), stream_->Next);
}

void UsbredirSession::Advance(Time now) {
  now_ = now;
  if (IsOver()) return;
  if (Output().size() < kOutputEnough) Parse();
  if (camera_ == nullptr) {
    if (!IsOver() && now >= greetingLimit_) Finish("it said no hello");
  } else {
    AnswerControls(now);
    if (!IsOver()) PushStream(now);
  }
  Flush();
}

void UsbredirSession::Parse() {
  if (input_.empty()) return;
  CheckMessage(input_);
  const int status = usbredirparser_do_read(parser_.get());
  if (!failure_.empty()) throw ProtocolError(failure_);
  if (status != 0) throw ProtocolError("malformed: a message that the protocol doesn't know");
}

// The parser itself would allocate memory for any length in a header.
void UsbredirSession::CheckMessage(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const std::size_t skipped = std::min<std::size_t>(messageLeft_, bytes.size());
    messageLeft_ -= static_cast<std::uint32_t>(skipped);
    bytes = bytes.subspan(skipped);
    const std::size_t some = std::min(kHeaderSize - header_.size(), bytes.size());
    header_.insert(header_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(some));
    bytes = bytes.subspan(some);
    if (header_.size() < kHeaderSize) continue;
    messageLeft_ = std::uint32_t{header_[4]} | std::uint32_t{header_[5]} << 8 |
                   std::uint32_t{header_[6]} << 16 | std::uint32_t{header_[7]} << 24;
    header_.clear();
    if (messageLeft_ > kMostMessageBytes) {
      throw ProtocolError("malformed: message length " + std::to_string(messageLeft_));
    }
  }
}

int UsbredirSession::TakeInput(std::span<std::uint8_t> into) {
  const std::size_t count = std::min(into.size(), input_.size());
  std::copy_n(input_.begin(), count, into.begin());
  input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(count));
  return static_cast<int>(count);
}

void UsbredirSession::Greet() {
  camera_ = supply_.Take();
  if (camera_ == nullptr) {
    Finish("all cameras are taken");
    return;
  }
  SendInterfaces();
  SendEndpoints();
  SendDevice();
  log_("attached");
}

void UsbredirSession::SendInterfaces() {
  usb_redir_interface_info_header message = InterfacesOf(supply_.Device());
  usbredirparser_send_interface_info(parser_.get(), &message);
}

void UsbredirSession::SendEndpoints() {
  usb_redir_ep_info_header message = EndpointsOf(camera_->Camera());
  usbredirparser_send_ep_info(parser_.get(), &message);
}

void UsbredirSession::SendDevice() {
  usb_redir_device_connect_header message = DeviceOf(supply_.Device());
  usbredirparser_send_device_connect(parser_.get(), &message);
}

void UsbredirSession::Ask(Asked asked, std::span<const std::uint8_t> data) {
  if (camera_ == nullptr) throw ProtocolError("malformed: a request ahead of the hello");
  const bus::SetupPacket& setup = asked.Setup;
  if (!setup.IsDeviceToHost() && data.size() < setup.Length) {
    throw ProtocolError("malformed: data stage " + std::to_string(data.size()));
  }
  controls_.Add(asked, setup, {data.begin(), data.end()});
  if (controls_.Count() > kMostPendingRequests || controls_.KeptBytes() > kMostKeptBytes) {
    throw ProtocolError("too many requests pend");
  }
}

void UsbredirSession::Cancel(std::uint64_t id) {
  std::optional<Asked> cancelled;
  const auto isIt = [&](const Asked& asked) {
    const bool is = asked.What == Kind::Control && asked.Id == id;
    if (is) cancelled = asked;
    return is;
  };
  // A request that has been answered can't be cancelled.
  if (controls_.Cancel(isIt)) AnswerCancelled(*cancelled);
}

void UsbredirSession::AnswerCancelled(const Asked& asked) {
  SendControl(asked, usb_redir_cancelled, {}, 0);
}

void UsbredirSession::AnswerControls(Time now) {
  while (!IsOver() && Output().size() < kOutputEnough) {
    const auto request = controls_.TakeDue(camera_->Camera(), now);
    if (!request) return;
    if (request->Answer->Status == UsbStatus::Disconnected) {
      Unplug();
    } else {
      Answer(*request);
    }
    Flush();
  }
}

void UsbredirSession::Answer(const ControlQueue<Asked>::Request& request) {
  const Asked& asked = request.Asked;
  const std::uint8_t status = StatusOf(request.Answer->Status);
  const auto value = static_cast<std::uint8_t>(asked.Setup.Value);
  const auto interface = static_cast<std::uint8_t>(asked.Setup.Index);
  const bool hasByte = !request.Data.empty();
  switch (asked.What) {
    case Kind::Control: {
      std::vector<std::uint8_t> data;
      if (asked.Setup.IsDeviceToHost()) {
        data.assign(request.Data.begin(), request.Data.begin() + request.Answer->Transferred);
      }
      SendControl(asked, status, data, request.Answer->Transferred);
      return;
    }
    case Kind::SetConfiguration:
    case Kind::GetConfiguration: {
      if (asked.What == Kind::SetConfiguration) {
        stream_.reset();
        SendInterfaces();
        SendEndpoints();
      }
      usb_redir_configuration_status_header message{status, hasByte ? request.Data[0] : value};
      usbredirparser_send_configuration_status(parser_.get(), asked.Id, &message);
      return;
    }
    case Kind::SetSetting:
    case Kind::GetSetting: {
      if (asked.What == Kind::SetSetting) {
        stream_.reset();
        SendEndpoints();
      }
      usb_redir_alt_setting_status_header message{status, interface,
                                                  hasByte ? request.Data[0] : value};
      usbredirparser_send_alt_setting_status(parser_.get(), asked.Id, &message);
      return;
    }
  }
}

void UsbredirSession::SendControl(const Asked& asked, std::uint8_t status,
                                  std::span<std::uint8_t> data, std::uint32_t length) {
  const bus::SetupPacket& setup = asked.Setup;
  usb_redir_control_packet_header message{.endpoint = asked.Endpoint,
                                          .request = setup.Request,
                                          .requesttype = setup.RequestType,
                                          .status = status,
                                          .value = setup.Value,
                                          .index = setup.Index,
                                          .length = static_cast<std::uint16_t>(length)};
  usbredirparser_send_control_packet(parser_.get(), asked.Id, &message, data.data(),
                                     static_cast<int>(data.size()));
}

void UsbredirSession::StartStream(std::uint64_t id, std::uint8_t endpoint) {
  if (camera_ == nullptr) throw ProtocolError("malformed: a stream ahead of the hello");
  const bool hasPackets = camera_->Camera().BytesPerMicroframe(endpoint) != 0;
  if (hasPackets) stream_ = Stream{endpoint, now_ + kFrame};
  SendStreamStatus(id, endpoint,
                   static_cast<std::uint8_t>(hasPackets ? usb_redir_success : usb_redir_inval));
}

void UsbredirSession::StopStream(std::uint64_t id, std::uint8_t endpoint) {
  if (stream_ && stream_->Endpoint == endpoint) stream_.reset();
  SendStreamStatus(id, endpoint, usb_redir_success);
}

void UsbredirSession::SendStreamStatus(std::uint64_t id, std::uint8_t endpoint,
                                       std::uint8_t status) {
  usb_redir_iso_stream_status_header message{status, endpoint};
  usbredirparser_send_iso_stream_status(parser_.get(), id, &message);
}

// The interrupt endpoint accepts the start of receiving, and never sends data.
void UsbredirSession::AnswerInterrupt(std::uint64_t id, std::uint8_t endpoint) {
  const bool isThere =
      camera_ != nullptr && camera_->Camera().KindOf(endpoint | kIn) == EndpointKind::Interrupt;
  usb_redir_interrupt_receiving_status_header message{
      static_cast<std::uint8_t>(isThere ? usb_redir_success : usb_redir_inval), endpoint};
  usbredirparser_send_interrupt_receiving_status(parser_.get(), id, &message);
}

void UsbredirSession::PushStream(Time now) {
  while (stream_ && stream_->Next <= now && Output().size() < kOutputEnough) {
    stream_->Next = std::max(stream_->Next + kFrame, now - kCatchUp);
    PushMillisecond();
    Flush();
  }
}

void UsbredirSession::PushMillisecond() {
  Stream& stream = *stream_;
  bool isStalled = false;
  const auto send = [&](const StreamPacket& packet) {
    isStalled = isStalled || packet.Status == UsbStatus::Stalled;
    if (isStalled) return;
    std::vector<std::uint8_t> data(packet.Data.begin(), packet.Data.end());
    usb_redir_iso_packet_header message{stream.Endpoint, StatusOf(packet.Status),
                                        static_cast<std::uint16_t>(data.size())};
    usbredirparser_send_iso_packet(parser_.get(), stream.Sent++, &message, data.data(),
                                   static_cast<int>(data.size()));
  };
  const UsbStatus status =
      camera_->Camera().ReadStream(stream.Endpoint, bus::kMicroframesPerFrame, send);
  if (status == UsbStatus::Disconnected) {
    Unplug();
  } else if (isStalled) {
    SendStreamStatus(stream.Sent, stream.Endpoint, usb_redir_stall);
    stream_.reset();
  }
}

void UsbredirSession::Unplug() {
  stream_.reset();
  usbredirparser_send_device_disconnect(parser_.get());
  Finish("the camera was unplugged");
}

void UsbredirSession::Flush() {
  if (usbredirparser_has_data_to_write(parser_.get()) == 0) return;
  if (usbredirparser_do_write(parser_.get()) != 0 || !failure_.empty()) {
    throw ProtocolError(failure_.empty() ? "the answer could not be composed" : failure_);
  }
}

}  // namespace lidcam::serve::usbredir
