#include "driver/frame/resampler/jobs/cpu_features.h"

#include <atomic>
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace lidcam {
namespace {

enum Feature : std::uint32_t {
  FeatureSse2 = 1U << 0,
  FeatureSsse3 = 1U << 1,
  FeatureAvx2 = 1U << 2,
  FeatureAvx512 = 1U << 3,
  FeatureAvx512Vbmi = 1U << 4,
  FeaturesKnown = 1U << 31,
};

constexpr bool HasAll(std::uint32_t value, std::uint32_t bits) {
  return (value & bits) == bits;
}

#if defined(__x86_64__) || defined(__i386__)

// CPUID leaf 1.
constexpr std::uint32_t kLeaf1EdxSse2 = 1U << 26;
constexpr std::uint32_t kLeaf1EcxSsse3 = 1U << 9;
constexpr std::uint32_t kLeaf1EcxSystemSaves = 1U << 27;  // XGETBV is there
// CPUID leaf 7.
constexpr std::uint32_t kLeaf7EbxAvx2 = 1U << 5;
constexpr std::uint32_t kLeaf7EbxAvx512 = (1U << 16) | (1U << 30) | (1U << 31);  // F, BW, VL
constexpr std::uint32_t kLeaf7EcxVbmi = 1U << 1;
// Registers that the system saves for every thread.
constexpr std::uint32_t kSaved256Bits = 0x06;
constexpr std::uint32_t kSaved512Bits = 0xE6;

struct CpuidResult {
  std::uint32_t Eax = 0;
  std::uint32_t Ebx = 0;
  std::uint32_t Ecx = 0;
  std::uint32_t Edx = 0;
};

CpuidResult AskCpuid(std::uint32_t leaf) {
  CpuidResult result;
  if (static_cast<std::uint32_t>(__get_cpuid_max(0, nullptr)) >= leaf) {
    __cpuid_count(leaf, 0, result.Eax, result.Ebx, result.Ecx, result.Edx);
  }
  return result;
}

std::uint32_t SavedRegisters() {
  std::uint32_t low = 0;
  std::uint32_t high = 0;
  __asm__ volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return low;
}

std::uint32_t AskProcessor() {
  const CpuidResult leaf1 = AskCpuid(1);
  const CpuidResult leaf7 = AskCpuid(7);
  std::uint32_t features = FeaturesKnown;
  if (HasAll(leaf1.Edx, kLeaf1EdxSse2)) features |= FeatureSse2;
  if (HasAll(leaf1.Ecx, kLeaf1EcxSsse3)) features |= FeatureSsse3;
  if (!HasAll(leaf1.Ecx, kLeaf1EcxSystemSaves)) return features;
  const std::uint32_t saved = SavedRegisters();
  if (HasAll(saved, kSaved256Bits) && HasAll(leaf7.Ebx, kLeaf7EbxAvx2)) features |= FeatureAvx2;
  if (HasAll(saved, kSaved512Bits) && HasAll(leaf7.Ebx, kLeaf7EbxAvx512)) {
    features |= FeatureAvx512;
    if (HasAll(leaf7.Ecx, kLeaf7EcxVbmi)) features |= FeatureAvx512Vbmi;
  }
  return features;
}

#else

std::uint32_t AskProcessor() {
  return FeaturesKnown;
}

#endif

// Threads that query at the same time all store the same.
constinit std::atomic<std::uint32_t> g_features{0};

bool Has(Feature feature) {
  std::uint32_t features = g_features.load(std::memory_order_relaxed);
  if (features == 0) {
    features = AskProcessor();
    g_features.store(features, std::memory_order_relaxed);
  }
  return HasAll(features, feature);
}

}  // namespace

bool CpuHasDoubles() {
#if defined(__i386__)
  return CpuHasSse2();
#else
  return true;
#endif
}

bool CpuHasSse2() {
  return Has(FeatureSse2);
}

bool CpuHasSsse3() {
  return Has(FeatureSsse3);
}

bool CpuHasAvx2() {
  return Has(FeatureAvx2);
}

bool CpuHasAvx512() {
  return Has(FeatureAvx512);
}

bool CpuHasAvx512Vbmi() {
  return Has(FeatureAvx512Vbmi);
}

}  // namespace lidcam
