#include "tests/driver/core/control/bring_up_world.h"

#include <unistd.h>

#include <fstream>

#include "platform/host/nt/files/files.h"
#include "platform/host/nt/registry/registry.h"

namespace lidcam::test {
namespace {

void PutLittleEndian(std::ofstream& file, std::size_t value) {
  for (int shift = 0; shift < 32; shift += 8) file.put(static_cast<char>((value >> shift) & 0xFF));
}

}  // namespace

std::size_t CameraBlocks() {
  return host::PoolUsageOfTag(kTagOfWdm).Blocks;
}

BringUpWorld::BringUpWorld()
    : systemRoot_(std::filesystem::temp_directory_path() /
                  ("lidcam-bring-up-" + std::to_string(getpid()))),
      device_{host::ImagingDriverKey(0)} {
  std::filesystem::create_directories(systemRoot_ / "system32" / "drivers");
  host::SetSystemRoot(systemRoot_);
  host::OpenRegistry({});
  Space.SetPhysicalDevice(&device_);
  SetIdentity(0x1AF0, 0x6012);
}

BringUpWorld::~BringUpWorld() {
  host::FailPoolAllocation(0);
  host::SetRegistryCallHook(nullptr);
  host::CloseRegistry();
  host::SetSystemRoot({});
  std::filesystem::remove_all(systemRoot_);
}

void BringUpWorld::BeVga0708() {
  SetIdentity(0x1AF0, 0x0511);
  Space.Sensor[0x02] = 0x15;
}

void BringUpWorld::SetIdentity(unsigned vendor, unsigned product) {
  descriptor_[8] = static_cast<std::uint8_t>(vendor & 0xFF);
  descriptor_[9] = static_cast<std::uint8_t>(vendor >> 8);
  descriptor_[10] = static_cast<std::uint8_t>(product & 0xFF);
  descriptor_[11] = static_cast<std::uint8_t>(product >> 8);
}

void BringUpWorld::InstallSetupTable(const std::string& fileName,
                                     const std::vector<std::array<std::uint8_t, 3>>& entries) {
  std::ofstream file(systemRoot_ / "system32" / "drivers" / fileName, std::ios::binary);
  const std::size_t sectionLength = 8 + 3 * entries.size();
  PutLittleEndian(file, sectionLength);
  PutLittleEndian(file, sectionLength);
  PutLittleEndian(file, 1);
  for (const auto& entry : entries) {
    for (const std::uint8_t byte : entry) file.put(static_cast<char>(byte));
  }
}

CameraPointer BringUpWorld::Create(std::uint32_t longConfig) {
  return CameraPointer(
      CreateCameraContext(Space.Transport(), Capabilities, descriptor_.data(), longConfig));
}

}  // namespace lidcam::test
