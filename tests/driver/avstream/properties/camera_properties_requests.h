#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include "driver/avstream/properties/property_requests.h"
#include "platform/kernel.h"
#include "tests/driver/support/register_space.h"

namespace lidcam::test {

// The four sets as a client knows them.
inline constexpr GUID kClientVideoProcAmp = {
    0xC6E13360, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
inline constexpr GUID kClientCameraControl = {
    0xC6E13370, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
inline constexpr GUID kClientVideoControl = {
    0x6A2E0670, 0x28E4, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
inline constexpr GUID kClientPrivate = {
    0xA4C6088B, 0x6B7D, 0x4F4C, {0x98, 0x19, 0xDC, 0x3A, 0x3C, 0xAD, 0x13, 0x0E}};

/// The private set with its last bit changed.
inline constexpr GUID kForeignSet = {
    0xA4C6088B, 0x6B7D, 0x4F4C, {0x98, 0x19, 0xDC, 0x3A, 0x3C, 0xAD, 0x13, 0x0F}};

inline constexpr NTSTATUS kSuccess = 0;
inline constexpr auto kNotSupported = static_cast<NTSTATUS>(0xC00000BB);
inline constexpr auto kTooSmall = static_cast<NTSTATUS>(0xC0000023);
inline constexpr auto kOverflow = static_cast<NTSTATUS>(0x80000005);

/// Value that shows an untouched information, and the byte that new blocks are filled with.
inline constexpr ULONG_PTR kUntouched = 0x5A5A;
inline constexpr std::uint8_t kFresh = 0xEE;
inline constexpr std::uint32_t kFreshWord = 0xEEEEEEEE;

/// A client's value block of an exact length, so that a memory checker finds any access beyond it.
class Block {
 public:
  explicit Block(std::size_t bytes) : bytes_(bytes, kFresh) {}

  Block& Put(std::size_t offset, std::uint32_t word) {
    std::memcpy(bytes_.data() + offset, &word, sizeof(word));
    return *this;
  }

  [[nodiscard]] std::uint32_t Word(std::size_t offset) const {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes_.data() + offset, sizeof(word));
    return word;
  }

  [[nodiscard]] std::uint64_t Long(std::size_t offset) const {
    return Word(offset) | std::uint64_t{Word(offset + 4)} << 32;
  }

  [[nodiscard]] ULONG Size() const { return static_cast<ULONG>(bytes_.size()); }
  [[nodiscard]] std::uint8_t* Data() { return bytes_.data(); }

  bool operator==(const Block&) const = default;

 private:
  std::vector<std::uint8_t> bytes_;
};

struct Reply {
  NTSTATUS Status;
  ULONG_PTR Information;
  Block Data;
};

/// A camera that answers property requests.
class PropertyCamera : public RegisterSpace {
 public:
  Reply Get(const GUID& set, ULONG id, Block block, LONG width = 0) {
    return Ask(GetCameraProperty, set, id, std::move(block), width);
  }

  Reply Set(const GUID& set, ULONG id, Block block) {
    return Ask(SetCameraProperty, set, id, std::move(block), 0);
  }

 private:
  template <typename Handler>
  Reply Ask(Handler handler, const GUID& set, ULONG id, Block block, LONG width) {
    KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S request{};
    request.Property.Set = set;
    request.Property.Id = id;
    request.StreamIndex = 7;
    request.RangeIndex = 9;
    request.Dimensions = {width, 1};
    ULONG_PTR information = kUntouched;
    const NTSTATUS status =
        handler(Context(), request.Property, {block.Data(), block.Size(), &information});
    return {status, information, std::move(block)};
  }
};

}  // namespace lidcam::test
