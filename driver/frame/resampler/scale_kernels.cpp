#include "driver/frame/resampler/scale_kernels.h"

#include <algorithm>
#include <atomic>

#include "driver/frame/resampler/jobs/cpu_features.h"
#include "driver/frame/resampler/jobs/scale_reference.h"
#include "driver/frame/resampler/simd/scale_simd_kernels.h"
#include "driver/frame/resampler/simd/scale_simd_plan.h"

namespace lidcam {
namespace {

bool RunsEverywhere() {
  return true;
}

#if LIDCAM_SCALE_REGISTER_BITS >= 128
template <std::uint32_t lanes>
std::uint64_t WorkBytes(std::uint32_t pairs) {
  return SimdWorkBytes(pairs, lanes);
}
#endif

constexpr ScaleKernel kKernels[] = {
    {"reference", RunsEverywhere, ScaleByReference, ReferenceWorkBytes, BuildColumns},
#if LIDCAM_SCALE_REGISTER_BITS >= 128
    {"SSE2", CpuHasSse2, ScaleBySse2, WorkBytes<1>, BuildColumnsBySse2},
    {"SSSE3", CpuHasSsse3, ScaleBySsse3, WorkBytes<1>, BuildColumnsBySse2},
#endif
#if LIDCAM_SCALE_REGISTER_BITS >= 512
    {"AVX2", CpuHasAvx2, ScaleByAvx2, WorkBytes<2>, BuildColumnsByAvx2},
    {"AVX-512", CpuHasAvx512, ScaleByAvx512, WorkBytes<4>, BuildColumnsByAvx512},
    {"AVX-512 VBMI", CpuHasAvx512Vbmi, ScaleByAvx512Vbmi, WorkBytes<4>, BuildColumnsByAvx512},
#endif
};

const ScaleKernel& FastestSupported(std::span<const ScaleKernel> kernels) {
  const ScaleKernel* fastest = &kernels.front();
  for (const ScaleKernel& kernel : kernels) {
    if (kernel.IsSupported()) fastest = &kernel;
  }
  return *fastest;
}

// Threads that choose at the same time all choose the same.
constinit std::atomic<const ScaleKernel*> g_chosen{nullptr};

}  // namespace

std::span<const ScaleKernel> ScaleKernels() {
  return kKernels;
}

const ScaleKernel& ChosenScaleKernel() {
  const ScaleKernel* chosen = g_chosen.load(std::memory_order_relaxed);
  if (chosen == nullptr) {
    chosen = &FastestSupported(kKernels);
    g_chosen.store(chosen, std::memory_order_relaxed);
  }
  return *chosen;
}

#ifndef _KERNEL_MODE
void LimitScaleKernels(std::size_t count) {
  const std::span<const ScaleKernel> kernels = kKernels;
  g_chosen.store(&FastestSupported(kernels.first(std::min(count, kernels.size()))),
                 std::memory_order_relaxed);
}
#endif

}  // namespace lidcam
