#include <gtest/gtest.h>

#include "tests/driver/avstream/support/surface_world.h"

#include <algorithm>

#include "driver/usb/records/usb_records.h"
#include "platform/host/nt/memory/pool.h"

namespace lidcam::test {

ExactBlock MakeFormat(LONG width, LONG height, ULONG biSize, ULONG formatSize) {
  KS_DATAFORMAT_VIDEOINFOHEADER format{};
  format.DataFormat.FormatSize = formatSize;
  format.DataFormat.Specifier = kClientVideoInfo;
  format.VideoInfoHeader.AvgTimePerFrame = 333333;
  KS_BITMAPINFOHEADER& bitmap = format.VideoInfoHeader.bmiHeader;
  bitmap.biSize = biSize;
  bitmap.biWidth = width;
  bitmap.biHeight = height;
  bitmap.biPlanes = 1;
  bitmap.biBitCount = 16;
  bitmap.biCompression = kClientYuy2;
  bitmap.biSizeImage = static_cast<ULONG>(width * height * 2);
  ExactBlock block(formatSize, 0xCD);
  std::memcpy(block.Data(), &format, std::min<std::size_t>(formatSize, sizeof(format)));
  return block;
}

SurfaceWorld::SurfaceWorld() {
  static TransportRecord record;
  Ks.Device.Context = &Device;
  Device.TransportRecord = &record;
  Device.Pins = &kPinOperations;
  Device.Filter = &kFilterEntries;
  Device.WdmLevel = 4;
}

WorldPin::WorldPin(SurfaceWorld& world, ExactBlock format) : Format(std::move(format)) {
  FillPinDescriptor(kPinEntries, 0, 5, Descriptor);
  Pin.Descriptor = &Descriptor;
  Pin.Bag = &Bag;
  Pin.ConnectionFormat = &Format.As<KSDATAFORMAT>();
  world.Ks.RequestPin = &Pin;
}

void ExpectOneObject(std::size_t bytes) {
  constexpr std::uint32_t kObjectTag = 'K' | 'C' << 8 | 'N' << 16 | 'w' << 24;
  const host::PoolUsage usage = host::PoolUsageOfTag(kObjectTag);
  EXPECT_EQ(usage.Blocks, 1U);
  EXPECT_EQ(usage.NonPagedBlocks, 1U);
  EXPECT_EQ(usage.Bytes, bytes);
}

void InSurface(const std::function<void(SurfaceWorld& world)>& test) {
  host::Simulate({.Seed = 1}, [&] {
    SurfaceWorld world;
    test(world);
  });
  EXPECT_EQ(host::PoolUsageOfAll().Blocks, 0U);
}

}  // namespace lidcam::test
