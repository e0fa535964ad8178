#pragma once

namespace lidcam {

/// Whether this processor has 64-bit floating point that rounds after every operation. Only a
/// 32-bit x86 processor without SSE2 lacks it.
[[nodiscard]] bool CpuHasDoubles();

// Features that the processor has and whose registers the system saves for every thread. The
// processor is queried once. All false on processors other than x86.

[[nodiscard]] bool CpuHasSse2();
[[nodiscard]] bool CpuHasSsse3();
[[nodiscard]] bool CpuHasAvx2();

/// AVX-512 F, BW and VL.
[[nodiscard]] bool CpuHasAvx512();

/// AVX-512 F, BW, VL and VBMI.
[[nodiscard]] bool CpuHasAvx512Vbmi();

}  // namespace lidcam
