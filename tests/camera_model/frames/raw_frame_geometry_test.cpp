#include "camera_model/frames/raw_frame_geometry.h"

#include <gtest/gtest.h>

#include "tests/camera_model/camera_bench.h"

namespace lidcam::camera_model {
namespace {

struct SizeRow {
  SensorModel Model;
  RawSize Size;
  std::uint32_t Width;
  std::uint32_t Height;
  std::uint32_t Total;
};

constexpr SizeRow kSizes[] = {
    {SensorModel::VGA0408, RawSize::Full, 640, 480, 614466},
    {SensorModel::VGA0408, RawSize::Half, 320, 240, 153666},
    {SensorModel::VGA0408, RawSize::Third, 240, 160, 76866},
    {SensorModel::VGA0408, RawSize::Quarter, 160, 120, 38466},
    {SensorModel::VGA0408, RawSize::Sixth, 120, 80, 19266},
    {SensorModel::VGA0708, RawSize::Full, 640, 480, 614466},
    {SensorModel::VGA0708, RawSize::Half, 320, 240, 153666},
    {SensorModel::VGA0708, RawSize::Third, 240, 160, 76866},
    {SensorModel::VGA0708, RawSize::Quarter, 160, 120, 38466},
    {SensorModel::VGA0708, RawSize::Sixth, 120, 80, 19266},
    {SensorModel::OV7660, RawSize::Full, 640, 480, 614466},
    {SensorModel::OV7660, RawSize::Half, 320, 240, 153666},
    {SensorModel::OV7660, RawSize::Third, 238, 159, 75750},
    {SensorModel::OV7660, RawSize::Quarter, 160, 120, 38466},
    {SensorModel::OV7660, RawSize::Sixth, 120, 80, 19266},
    {SensorModel::OV7663, RawSize::Full, 640, 480, 614466},
    {SensorModel::OV7663, RawSize::Half, 320, 240, 153666},
    {SensorModel::OV7663, RawSize::Third, 238, 159, 75750},
    {SensorModel::OV7663, RawSize::Quarter, 160, 120, 38466},
    {SensorModel::OV7663, RawSize::Sixth, 120, 80, 19266},
    {SensorModel::OV7670, RawSize::Full, 640, 480, 614466},
    {SensorModel::OV7670, RawSize::Half, 320, 240, 153666},
    {SensorModel::OV7670, RawSize::Third, 238, 159, 75750},
    {SensorModel::OV7670, RawSize::Quarter, 160, 120, 38466},
    {SensorModel::OV7670, RawSize::Sixth, 120, 80, 19266},
    {SensorModel::K82, RawSize::Full, 640, 480, 614458},
    {SensorModel::K82, RawSize::Half, 320, 240, 153666},
    {SensorModel::K82, RawSize::Third, 238, 160, 76226},
    {SensorModel::K82, RawSize::Quarter, 160, 120, 38462},
    {SensorModel::K82, RawSize::Sixth, 120, 80, 19106},
    {SensorModel::Mi1318, RawSize::Full, 640, 512, 655426},
    {SensorModel::Mi1318, RawSize::Half, 320, 256, 163906},
    {SensorModel::Mi1318, RawSize::Quarter, 160, 128, 41022},
    {SensorModel::Mi1318, RawSize::Mega, 1280, 1024, 2621506},
    {SensorModel::VGA7648, RawSize::Full, 640, 476, 609346},
    {SensorModel::VGA7648, RawSize::Half, 320, 238, 152386},
    {SensorModel::VGA7648, RawSize::Quarter, 160, 119, 38146},
    {SensorModel::Reserved3, RawSize::Full, 640, 480, 614466},
    {SensorModel::Reserved3, RawSize::Half, 320, 240, 153666},
    {SensorModel::Reserved3, RawSize::Quarter, 160, 120, 38466},
};

TEST(RawFrameGeometry, EverySensorSendsItsOwnTotals) {
  for (const SizeRow& row : kSizes) {
    const RawFrameGeometry expected{row.Width, row.Height, row.Total};
    EXPECT_EQ(GeometryOf(row.Model, row.Size), expected)
        << NameOf(row.Model) << " size " << static_cast<int>(row.Size);
  }
}

TEST(RawFrameGeometry, ASizeThatTheSensorLacksIsSentWhole) {
  EXPECT_EQ(GeometryOf(SensorModel::VGA7648, RawSize::Third).TotalBytes, 609346U);
  EXPECT_EQ(GeometryOf(SensorModel::OV7670, RawSize::Mega).TotalBytes, 614466U);
  EXPECT_EQ(GeometryOf(SensorModel::Mi1318, RawSize::Sixth).TotalBytes, 655426U);
}

TEST(RawFrameGeometry, NeverMorePixelBytesThanPixels) {
  for (const SizeRow& row : kSizes) {
    EXPECT_LE(row.Total - 66, row.Width * row.Height * 2) << NameOf(row.Model);
  }
}

struct ModeRow {
  std::uint8_t Reducer;
  std::uint8_t Mode;
  RawSize Size;
};

TEST(RawFrameGeometry, BridgeRegistersChooseTheSize) {
  constexpr ModeRow kRows[] = {{0x00, 0x00, RawSize::Full},    {0x00, 0x01, RawSize::Full},
                               {0x80, 0x10, RawSize::Half},    {0x80, 0x11, RawSize::Half},
                               {0x80, 0x08, RawSize::Quarter}, {0x80, 0x09, RawSize::Quarter},
                               {0x80, 0x0A, RawSize::Quarter}, {0x80, 0x0B, RawSize::Quarter},
                               {0x80, 0x18, RawSize::Third},   {0x80, 0x0C, RawSize::Sixth},
                               {0x00, 0x10, RawSize::Full},    {0x00, 0x08, RawSize::Full},
                               {0x80, 0x00, RawSize::Full}};
  CameraBench bench{SensorModel::VGA0708};
  for (const ModeRow& row : kRows) {
    bench.WriteBridge(0x5D, row.Reducer);
    bench.WriteBridge(0x0A, row.Mode);
    EXPECT_EQ(SelectedRawSize(bench.bridge), row.Size) << int{row.Reducer} << " " << int{row.Mode};
  }
}

TEST(RawFrameGeometry, OnlyMi1318SendsAllItsPixels) {
  for (const SensorModel model : kAllSensorModels) {
    CameraBench bench{model};
    bench.WriteBridge(0x0A, 0x04);
    EXPECT_EQ(SelectedRawSize(bench.bridge),
              model == SensorModel::Mi1318 ? RawSize::Mega : RawSize::Full);
  }
}

}  // namespace
}  // namespace lidcam::camera_model
