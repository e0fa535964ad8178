// The features found for a processor, over the test's own processors: the source is compiled here
// once more, with its queries redirected to them.

#include <cpuid.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <ostream>

namespace {

// A processor's answers, and the registers that its system saves for every thread (XCR0).
struct Processor {
  const char* Name;
  std::uint32_t HighestLeaf;
  std::uint32_t Leaf1Ecx;
  std::uint32_t Leaf1Edx;
  std::uint32_t Leaf7Ebx;
  std::uint32_t Leaf7Ecx;
  std::uint32_t Saved;
};

Processor g_processor{};
constexpr bool kAsksTheMachine = false;

void AnswerCpuid(std::uint32_t leaf, std::uint32_t& ebx, std::uint32_t& ecx, std::uint32_t& edx) {
  ebx = leaf == 7 ? g_processor.Leaf7Ebx : 0;
  ecx = leaf == 7 ? g_processor.Leaf7Ecx : g_processor.Leaf1Ecx;
  edx = leaf == 7 ? 0 : g_processor.Leaf1Edx;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,bugprone-macro-parentheses,bugprone-suspicious-include)
#define lidcam lidcam_over_any_processor
#define __get_cpuid_max(leaf, signature) (g_processor.HighestLeaf)
#undef __cpuid_count
#define __cpuid_count(leaf, subleaf, eax, ebx, ecx, edx) AnswerCpuid(leaf, ebx, ecx, edx)
#define __asm__            \
  low = g_processor.Saved; \
  if (kAsksTheMachine) asm
#include "driver/frame/resampler/jobs/cpu_features.cpp"
#undef __asm__
#undef __cpuid_count
#undef __get_cpuid_max
#undef lidcam
// NOLINTEND(bugprone-reserved-identifier,bugprone-macro-parentheses,bugprone-suspicious-include)

namespace lidcam_over_any_processor {
namespace {

struct Features {
  bool Sse2;
  bool Ssse3;
  bool Avx2;
  bool Avx512;
  bool Avx512Vbmi;

  friend bool operator==(const Features&, const Features&) = default;
  friend std::ostream& operator<<(std::ostream& stream, const Features& features) {
    return stream << features.Sse2 << features.Ssse3 << features.Avx2 << features.Avx512
                  << features.Avx512Vbmi;
  }
};

Features FeaturesOf(const Processor& processor) {
  g_processor = processor;
  g_features.store(0);
  return {CpuHasSse2(), CpuHasSsse3(), CpuHasAvx2(), CpuHasAvx512(), CpuHasAvx512Vbmi()};
}

constexpr std::uint32_t kSse2 = 0x04000000;
constexpr std::uint32_t kSsse3 = 0x00000200;
constexpr std::uint32_t kOsxsave = 0x08000000;
constexpr std::uint32_t kAvx2 = 0x00000020;
constexpr std::uint32_t kAvx512F = 0x00010000;
constexpr std::uint32_t kAvx512Bw = 0x40000000;
constexpr std::uint32_t kAvx512Vl = 0x80000000;
constexpr std::uint32_t kAvx512 = kAvx512F | kAvx512Bw | kAvx512Vl;
constexpr std::uint32_t kVbmi = 0x00000002;
constexpr std::uint32_t kAll = 0xFFFFFFFF;

TEST(CpuFeatures, NeedTheProcessorsWordAndForWideRegistersTheSystems) {
  struct Row {
    Processor Given;
    Features Expected;
  };
  const Row rows[] = {
      {{"one of before SSE2", 13, 0, ~kSse2, 0, 0, 0}, {false, false, false, false, false}},
      {{"SSE2 alone", 13, 0, kSse2, 0, 0, 0}, {true, false, false, false, false}},
      {{"all but SSSE3", 13, ~(kSsse3 | kOsxsave), kAll, 0, 0, 0},
       {true, false, false, false, false}},
      {{"SSSE3", 13, kSsse3, kSse2, 0, 0, 0}, {true, true, false, false, false}},
      {{"SSSE3 alone", 13, kSsse3, 0, 0, 0, 0}, {false, true, false, false, false}},
      {{"leaf 1 at most", 1, kSsse3 | kOsxsave, kSse2, kAll, kAll, kAll},
       {true, true, false, false, false}},
      {{"leaf 6 at most", 6, kSsse3 | kOsxsave, kSse2, kAll, kAll, kAll},
       {true, true, false, false, false}},
      {{"no leaf", 0, kAll, kAll, kAll, kAll, kAll}, {false, false, false, false, false}},
      {{"leaf 7", 7, kSsse3 | kOsxsave, kSse2, kAvx2, 0, 6}, {true, true, true, false, false}},
      {{"a system that saves nothing", 13, ~kOsxsave, kAll, kAll, kAll, kAll},
       {true, true, false, false, false}},
      {{"256 bits not saved", 13, kAll, kAll, kAll, kAll, 0xE2}, {true, true, false, false, false}},
      {{"128 bits not saved", 13, kAll, kAll, kAll, kAll, 0xE4}, {true, true, false, false, false}},
      {{"256 bits saved", 13, kAll, kAll, kAll, kAll, 0x06}, {true, true, true, false, false}},
      {{"no mask registers saved", 13, kAll, kAll, kAll, kAll, 0xC6},
       {true, true, true, false, false}},
      {{"half of 512 bits saved", 13, kAll, kAll, kAll, kAll, 0xA6},
       {true, true, true, false, false}},
      {{"16 of 32 registers saved", 13, kAll, kAll, kAll, kAll, 0x66},
       {true, true, true, false, false}},
      {{"512 bits saved", 13, kAll, kAll, kAll, kAll, 0xE6}, {true, true, true, true, true}},
      {{"AVX2 alone", 13, kAll, kAll, kAvx2, kAll, 0xE7}, {true, true, true, false, false}},
      {{"all but AVX2", 13, kAll, kAll, ~kAvx2, ~kVbmi, 0xE7}, {true, true, false, true, false}},
      {{"AVX-512", 13, kAll, kAll, kAvx512, 0, 0xE7}, {true, true, false, true, false}},
      {{"AVX-512 VBMI", 13, kAll, kAll, kAvx512, kVbmi, 0xE7}, {true, true, false, true, true}},
      {{"no F", 13, kAll, kAll, ~kAvx512F, kAll, 0xE7}, {true, true, true, false, false}},
      {{"no BW", 13, kAll, kAll, ~kAvx512Bw, kAll, 0xE7}, {true, true, true, false, false}},
      {{"no VL", 13, kAll, kAll, ~kAvx512Vl, kAll, 0xE7}, {true, true, true, false, false}},
  };
  for (const Row& row : rows) EXPECT_EQ(FeaturesOf(row.Given), row.Expected) << row.Given.Name;
}

TEST(CpuFeatures, AreAskedForOnce) {
  EXPECT_EQ(FeaturesOf({"SSE2", 13, 0, kSse2, 0, 0, 0}).Sse2, true);
  g_processor.Leaf1Edx = 0;
  EXPECT_TRUE(CpuHasSse2());
  EXPECT_FALSE(CpuHasSsse3());
  EXPECT_EQ(FeaturesOf({"none", 13, 0, 0, 0, 0, 0}).Sse2, false);
  g_processor.Leaf1Edx = kSse2;
  EXPECT_FALSE(CpuHasSse2());
}

TEST(CpuFeatures, OfA64BitProcessorHaveDoublesWhateverItSays) {
  FeaturesOf({"none", 13, 0, 0, 0, 0, 0});
  EXPECT_EQ(CpuHasDoubles(), sizeof(void*) == 8);
}

}  // namespace
}  // namespace lidcam_over_any_processor
