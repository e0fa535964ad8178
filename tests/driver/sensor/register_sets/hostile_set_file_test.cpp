// Malformed set files: whatever they contain, the load stores into the tables that the file names
// and nowhere else.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>

#include "driver/sensor/register_sets/register_set_file.h"
#include "platform/host/nt/memory/pool.h"
#include "platform/host/nt/objects/handles.h"
#include "platform/host/nt/system/debug_print.h"
#include "tests/driver/sensor/register_sets/register_set_bytes.h"
#include "tests/driver/support/record_bytes.h"
#include "tests/driver/support/system_root.h"

namespace lidcam::test {
namespace {

constexpr std::uint32_t kFiles = 2000;
constexpr std::uint32_t kLongestFile = 65536;
constexpr std::uint8_t kCanary = 0x5A;

class Dice {
 public:
  explicit Dice(std::uint32_t seed) : engine_(seed) {}

  // From 0 on, below `limit`. The engine's numbers are the same with every library.
  std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(engine_() % limit); }

  std::uint8_t Byte() { return static_cast<std::uint8_t>(Below(256)); }

 private:
  std::mt19937 engine_;
};

Bytes RandomBytes(Dice& dice) {
  Bytes file(dice.Below(kLongestFile + 1));
  for (std::uint8_t& byte : file) byte = dice.Byte();
  return file;
}

// Mostly the true length; else one that cuts the section, or reaches beyond the body or beyond
// everything. Never below 8: read as a type, such a length would name a table.
std::uint32_t SectionLength(Dice& dice, std::uint32_t payload) {
  switch (dice.Below(8)) {
    case 0:
      return 8 + dice.Below(payload + 1);
    case 1:
      return payload + 8 + dice.Below(4000);
    case 2:
      return 0xFFFFFFFF - dice.Below(4000);
    default:
      return payload + 8;
  }
}

// Sections of one type, with lengths that may be wrong. As no byte of a payload is 0, a walk that
// has lost its place finds no section of another type there.
Bytes FileOfType(Dice& dice, std::uint32_t type) {
  Bytes body;
  const std::uint32_t sections = 1 + dice.Below(30);
  for (std::uint32_t i = 0; i < sections; ++i) {
    const std::uint32_t size = dice.Below(4) == 0 ? dice.Below(2200) : dice.Below(300);
    Bytes payload(size);
    for (std::uint8_t& byte : payload) byte = static_cast<std::uint8_t>(1 + dice.Below(255));
    body = Join({body, LittleEndian(SectionLength(dice, size)), LittleEndian(type), payload});
  }
  body.resize(std::min<std::size_t>(body.size(), kLongestFile - 4));
  const auto told = static_cast<std::uint32_t>(body.size());
  return Join({LittleEndian(dice.Below(4) == 0 ? dice.Below(100000) : told), body});
}

Bytes FileWithBytesChanged(Dice& dice) {
  Bytes file = Join({FileOfType(dice, 1 + dice.Below(3)), FileOfType(dice, 1 + dice.Below(3))});
  file.resize(std::min<std::size_t>(file.size(), kLongestFile));
  const auto reach = static_cast<std::uint32_t>(std::min<std::size_t>(file.size(), 2000));
  for (std::uint32_t changes = dice.Below(20); changes > 0; --changes) {
    file[dice.Below(reach)] = dice.Byte();
  }
  return file;
}

class HostileSetFile : public ::testing::Test {
 protected:
  // Loads the file into a record filled with canaries.
  void Load(const Bytes& file) {
    disk_.Write("S001.set", file);
    FillRecord(*context_, kCanary);
    const Bytes before = BytesAroundTables(*context_);
    LoadRegisterFile(*context_, u"\\SystemRoot\\system32\\drivers\\S001.set");
    ASSERT_TRUE(BytesAroundTables(*context_) == before);
    ASSERT_EQ(host::PoolUsageOfAll().Blocks, 0U);
    ASSERT_EQ(host::OpenHandleCount(), 0U);
  }

  static bool IsUntouched(const RegisterSetTable& table) {
    const Bytes bytes = BytesOf(table);
    return std::all_of(bytes.begin(), bytes.end(), [](auto byte) { return byte == kCanary; });
  }

  CameraContext& Context() { return *context_; }

  RegisterSetTable& TableOf(std::uint32_t type) {
    if (type == 1) return context_->SetupRegisters;
    return type == 2 ? context_->LowLightRegisters : context_->NormalRegisters;
  }

 private:
  TemporarySystemRoot disk_;
  host::DebugPrintCapture debug_;
  std::unique_ptr<CameraContext> context_ = std::make_unique<CameraContext>();
};

TEST_F(HostileSetFile, RandomBytesStayInsideTheTables) {
  for (std::uint32_t seed = 0; seed < kFiles / 4; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    ASSERT_NO_FATAL_FAILURE(Load(RandomBytes(dice)));
  }
}

TEST_F(HostileSetFile, ChangedBytesStayInsideTheTables) {
  for (std::uint32_t seed = 10000; seed < 10000 + kFiles / 2; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    ASSERT_NO_FATAL_FAILURE(Load(FileWithBytesChanged(dice)));
  }
}

TEST_F(HostileSetFile, SectionsOfOneTypeLeaveTheOtherTablesUntouched) {
  std::uint32_t filled = 0;
  for (std::uint32_t seed = 20000; seed < 20000 + kFiles / 4; ++seed) {
    SCOPED_TRACE(seed);
    Dice dice(seed);
    const std::uint32_t type = 1 + seed % 3;
    ASSERT_NO_FATAL_FAILURE(Load(FileOfType(dice, type)));
    EXPECT_TRUE(type == 1 || IsUntouched(Context().SetupRegisters));
    EXPECT_TRUE(type == 2 || IsUntouched(Context().LowLightRegisters));
    EXPECT_TRUE(type == 3 || IsUntouched(Context().NormalRegisters));
    if (!IsUntouched(TableOf(type))) ++filled;
  }
  EXPECT_GT(filled, kFiles / 8) << "too few files fill a table";
}

}  // namespace
}  // namespace lidcam::test
