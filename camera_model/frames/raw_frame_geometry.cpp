#include "camera_model/frames/raw_frame_geometry.h"

namespace lidcam::camera_model {
namespace {

struct GeometryRow {
  SensorModel Model;
  RawSize Size;
  RawFrameGeometry Geometry;
};

using enum SensorModel;

constexpr GeometryRow kGeometry[] = {
    {VGA0408, RawSize::Full, {640, 480, 614466}},
    {VGA0408, RawSize::Half, {320, 240, 153666}},
    {VGA0408, RawSize::Third, {240, 160, 76866}},
    {VGA0408, RawSize::Quarter, {160, 120, 38466}},
    {VGA0408, RawSize::Sixth, {120, 80, 19266}},
    {VGA0708, RawSize::Full, {640, 480, 614466}},
    {VGA0708, RawSize::Half, {320, 240, 153666}},
    {VGA0708, RawSize::Third, {240, 160, 76866}},
    {VGA0708, RawSize::Quarter, {160, 120, 38466}},
    {VGA0708, RawSize::Sixth, {120, 80, 19266}},
    {OV7660, RawSize::Full, {640, 480, 614466}},
    {OV7660, RawSize::Half, {320, 240, 153666}},
    {OV7660, RawSize::Third, {238, 159, 75750}},
    {OV7660, RawSize::Quarter, {160, 120, 38466}},
    {OV7660, RawSize::Sixth, {120, 80, 19266}},
    {OV7663, RawSize::Full, {640, 480, 614466}},
    {OV7663, RawSize::Half, {320, 240, 153666}},
    {OV7663, RawSize::Third, {238, 159, 75750}},
    {OV7663, RawSize::Quarter, {160, 120, 38466}},
    {OV7663, RawSize::Sixth, {120, 80, 19266}},
    {OV7670, RawSize::Full, {640, 480, 614466}},
    {OV7670, RawSize::Half, {320, 240, 153666}},
    {OV7670, RawSize::Third, {238, 159, 75750}},
    {OV7670, RawSize::Quarter, {160, 120, 38466}},
    {OV7670, RawSize::Sixth, {120, 80, 19266}},
    // K82 sends a few pixels less at the end of some sizes.
    {K82, RawSize::Full, {640, 480, 614458}},
    {K82, RawSize::Half, {320, 240, 153666}},
    {K82, RawSize::Third, {238, 160, 76226}},
    {K82, RawSize::Quarter, {160, 120, 38462}},
    {K82, RawSize::Sixth, {120, 80, 19106}},
    // Mi1318 keeps the 5:4 aspect ratio of its 1280 by 1024 pixels.
    {Mi1318, RawSize::Full, {640, 512, 655426}},
    {Mi1318, RawSize::Half, {320, 256, 163906}},
    {Mi1318, RawSize::Quarter, {160, 128, 41022}},
    {Mi1318, RawSize::Mega, {1280, 1024, 2621506}},
    // VGA7648 has four lines fewer.
    {VGA7648, RawSize::Full, {640, 476, 609346}},
    {VGA7648, RawSize::Half, {320, 238, 152386}},
    {VGA7648, RawSize::Quarter, {160, 119, 38146}},
    {Reserved3, RawSize::Full, {640, 480, 614466}},
    {Reserved3, RawSize::Half, {320, 240, 153666}},
    {Reserved3, RawSize::Quarter, {160, 120, 38466}},
};

constexpr std::uint8_t kSizeBits = 0x1C;

RawSize ReducedSize(std::uint8_t sizeBits) {
  switch (sizeBits) {
    case 0x10:
      return RawSize::Half;
    case 0x18:
      return RawSize::Third;
    case 0x08:
      return RawSize::Quarter;
    case 0x0C:
      return RawSize::Sixth;
    default:
      return RawSize::Full;
  }
}

}  // namespace

RawFrameGeometry GeometryOf(SensorModel model, RawSize size) {
  for (const GeometryRow& row : kGeometry) {
    if (row.Model == model && row.Size == size) return row.Geometry;
  }
  return GeometryOf(model, RawSize::Full);
}

RawSize SelectedRawSize(const Bridge& bridge) {
  const auto sizeBits = static_cast<std::uint8_t>(bridge.Peek(0x0A) & kSizeBits);
  const bool isReduced = (bridge.Peek(0x5D) & 0x80) != 0;
  if (isReduced) return ReducedSize(sizeBits);
  const bool wantsAllPixels = sizeBits == 0x04;
  return wantsAllPixels && bridge.AttachedSensor().Model() == SensorModel::Mi1318 ? RawSize::Mega
                                                                                  : RawSize::Full;
}

}  // namespace lidcam::camera_model
