#pragma once

#include <gtest/gtest.h>
#include <usbredirparser.h>

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace lidcam::serve::usbredir {

/// The client's side of a connection, by the library's own parser. What comes is kept as a line each.
class Guest {
 public:
  Guest() : parser_(usbredirparser_create(), usbredirparser_destroy) {
    parser_->priv = this;
    InstallChannel();
    InstallMessages();
    std::array<std::uint32_t, USB_REDIR_CAPS_SIZE> abilities{};
    for (const int ability :
         {usb_redir_cap_connect_device_version, usb_redir_cap_device_disconnect_ack,
          usb_redir_cap_ep_info_max_packet_size, usb_redir_cap_64bits_ids}) {
      usbredirparser_caps_set_cap(abilities.data(), ability);
    }
    usbredirparser_init(parser_.get(), "a guest", abilities.data(), USB_REDIR_CAPS_SIZE, 0);
  }

  [[nodiscard]] usbredirparser* Parser() { return parser_.get(); }

  /// What was sent with the parser since.
  std::vector<std::uint8_t> TakeOutput() {
    EXPECT_EQ(usbredirparser_do_write(parser_.get()), 0);
    return std::exchange(output_, {});
  }

  void Take(std::vector<std::uint8_t> bytes) {
    input_ = std::move(bytes);
    EXPECT_EQ(usbredirparser_do_read(parser_.get()), 0);
  }

  /// The lines since.
  std::vector<std::string> TakeLines() { return std::exchange(lines_, {}); }
  /// The data of the stream since.
  std::vector<std::uint8_t> TakeStream() { return std::exchange(stream_, {}); }

  usb_redir_ep_info_header Endpoints{};

 private:
  static Guest& Of(void* guest) { return *static_cast<Guest*>(guest); }

  [[gnu::format(printf, 2, 3)]] void Note(const char* format, ...) {
    std::array<char, 200> line{};
    va_list values;
    va_start(values, format);
    std::vsnprintf(line.data(), line.size(), format, values);
    va_end(values);
    lines_.emplace_back(line.data());
  }

  void InstallChannel() {
    parser_->log_func = [](void*, int, const char*) {};
    parser_->read_func = [](void* guest, std::uint8_t* data, int count) {
      std::vector<std::uint8_t>& input = Of(guest).input_;
      const std::size_t some = std::min(static_cast<std::size_t>(count), input.size());
      std::copy_n(input.begin(), some, data);
      input.erase(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(some));
      return static_cast<int>(some);
    };
    parser_->write_func = [](void* guest, std::uint8_t* data, int count) {
      Of(guest).output_.insert(Of(guest).output_.end(), data, data + count);
      return count;
    };
  }

  void InstallMessages() {
    parser_->hello_func = [](void* guest, usb_redir_hello_header* hello) {
      Of(guest).Note("hello %s", hello->version);
    };
    parser_->interface_info_func = [](void* guest, usb_redir_interface_info_header* info) {
      Of(guest).Note("interfaces %u: %u class %02x", info->interface_count, info->interface[0],
                     info->interface_class[0]);
    };
    parser_->ep_info_func = [](void* guest, usb_redir_ep_info_header* info) {
      Of(guest).Endpoints = *info;
      Of(guest).Note("endpoints");
    };
    parser_->device_connect_func = [](void* guest, usb_redir_device_connect_header* device) {
      Of(guest).Note("device %04x:%04x speed %u class %02x release %04x", device->vendor_id,
                     device->product_id, device->speed, device->device_class,
                     device->device_version_bcd);
    };
    parser_->device_disconnect_func = [](void* guest) { Of(guest).Note("unplugged"); };
    parser_->configuration_status_func = [](void* guest, std::uint64_t id,
                                            usb_redir_configuration_status_header* status) {
      Of(guest).Note("%u configuration %u status %u", static_cast<unsigned>(id),
                     status->configuration, status->status);
    };
    parser_->alt_setting_status_func = [](void* guest, std::uint64_t id,
                                          usb_redir_alt_setting_status_header* status) {
      Of(guest).Note("%u interface %u setting %u status %u", static_cast<unsigned>(id),
                     status->interface, status->alt, status->status);
    };
    parser_->iso_stream_status_func = [](void* guest, std::uint64_t id,
                                         usb_redir_iso_stream_status_header* status) {
      Of(guest).Note("%u stream %02x status %u", static_cast<unsigned>(id), status->endpoint,
                     status->status);
    };
    parser_->interrupt_receiving_status_func =
        [](void* guest, std::uint64_t id, usb_redir_interrupt_receiving_status_header* status) {
          Of(guest).Note("%u interrupt %02x status %u", static_cast<unsigned>(id), status->endpoint,
                         status->status);
        };
    parser_->control_packet_func = [](void* guest, std::uint64_t id,
                                      usb_redir_control_packet_header* header, std::uint8_t* data,
                                      int length) {
      std::string bytes;
      for (int i = 0; i < length; ++i) {
        std::array<char, 4> text{};
        std::snprintf(text.data(), text.size(), " %02x", data[i]);
        bytes += text.data();
      }
      Of(guest).Note("%u control %02x status %u length %u:%s", static_cast<unsigned>(id),
                     header->endpoint, header->status, header->length, bytes.c_str());
      usbredirparser_free_packet_data(Of(guest).Parser(), data);
    };
    parser_->iso_packet_func = [](void* guest, std::uint64_t id,
                                  usb_redir_iso_packet_header* header, std::uint8_t* data,
                                  int length) {
      Of(guest).Note("%u packet %02x status %u length %u", static_cast<unsigned>(id),
                     header->endpoint, header->status, header->length);
      Of(guest).stream_.insert(Of(guest).stream_.end(), data, data + length);
      usbredirparser_free_packet_data(Of(guest).Parser(), data);
    };
  }

  std::unique_ptr<usbredirparser, void (*)(usbredirparser*)> parser_;
  std::vector<std::uint8_t> input_;
  std::vector<std::uint8_t> output_;
  std::vector<std::uint8_t> stream_;
  std::vector<std::string> lines_;
};

}  // namespace lidcam::serve::usbredir
