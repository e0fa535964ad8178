#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"

namespace lidcam {

/// A 32-bit field of the record, signed or not, as the signed value that a control carries. An
/// empty one may be neither loaded nor stored.
/// @par Any thread
class SettingField {
 public:
  constexpr SettingField() = default;
  constexpr explicit(false) SettingField(Shared<std::int32_t> CameraContext::*field)
      : signed_(field) {}
  constexpr explicit(false) SettingField(Shared<std::uint32_t> CameraContext::*field)
      : unsigned_(field) {}
  constexpr explicit(false) SettingField(std::uint32_t CameraContext::*field) : plain_(field) {}

  friend constexpr bool operator==(const SettingField&, const SettingField&) = default;

  [[nodiscard]] std::int32_t Load(const CameraContext& context) const {
    if (signed_ != nullptr) return context.*signed_;
    if (plain_ != nullptr) return static_cast<std::int32_t>(context.*plain_);
    const std::uint32_t value = context.*unsigned_;
    return static_cast<std::int32_t>(value);
  }

  void Store(CameraContext& context, std::int32_t value) const {
    if (signed_ != nullptr) {
      context.*signed_ = value;
    } else if (plain_ != nullptr) {
      context.*plain_ = static_cast<std::uint32_t>(value);
    } else {
      context.*unsigned_ = static_cast<std::uint32_t>(value);
    }
  }

 private:
  Shared<std::int32_t> CameraContext::*signed_ = nullptr;
  Shared<std::uint32_t> CameraContext::*unsigned_ = nullptr;
  std::uint32_t CameraContext::*plain_ = nullptr;
};

}  // namespace lidcam
