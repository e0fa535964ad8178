#include "platform/host/nt/simulation/trace_hash.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

#include "base/split_mix.h"

namespace lidcam::host {
namespace {

std::uint64_t Fnv(std::uint64_t hash, unsigned byte) {
  return (hash ^ byte) * 0x100000001B3;
}

// Byte by byte, as the hash is defined.
class PlainHash {
 public:
  void Add(std::uint32_t thread, const char* call) {
    value_ = Fnv(value_, thread & 0xFF);
    for (; *call != '\0'; ++call) value_ = Fnv(value_, static_cast<unsigned char>(*call));
  }
  [[nodiscard]] std::uint64_t Value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325;
};

TEST(TraceHash, IsThatOfTheThreadsAndTheNamesByteByByte) {
  constexpr std::array kNames{"",
                              "a",
                              "\xFF\x80",
                              "KeSetEvent",
                              "KeClearEvent",
                              "store",
                              "load",
                              "KeWaitForMultipleObjects",
                              "b",
                              "IoFreeIrp"};
  base::SplitMix random(1);
  TraceHash hash;
  PlainHash plain;
  EXPECT_EQ(hash.Value(), plain.Value());
  for (int i = 0; i < 100'000; ++i) {
    const auto thread = static_cast<std::uint32_t>(random.Next() % 1000);
    const char* const name = kNames.at(random.Next() % kNames.size());
    hash.Add(thread, name);
    plain.Add(thread, name);
    ASSERT_EQ(hash.Value(), plain.Value()) << i;
  }
}

// More than there are places for.
TEST(TraceHash, IsTheSameWithManyNames) {
  static std::array<std::array<char, 8>, 3000> names{};
  TraceHash hash;
  PlainHash plain;
  for (std::size_t i = 0; i < names.size(); ++i) {
    names.at(i) = {'n', static_cast<char>('a' + i % 26), static_cast<char>('a' + i / 26 % 26)};
  }
  for (int round = 0; round < 2; ++round) {
    for (const std::array<char, 8>& name : names) {
      hash.Add(1, name.data());
      plain.Add(1, name.data());
      ASSERT_EQ(hash.Value(), plain.Value()) << name.data();
    }
  }
}

}  // namespace
}  // namespace lidcam::host
