#include "tests/driver/frame/resampler/support/bytewise_windows.h"

#include <cstring>

#include "driver/frame/resampler/simd/scale_simd_avx512.h"
#include "driver/frame/resampler/simd/scale_simd_shuffles.h"

namespace lidcam {
namespace {

struct BytewiseWindows : Avx512Operations<BytewiseWindows> {
  static Vector ShuffleWindow64(const std::uint8_t* window, Vector indices) {
    return Pick<64>(window, indices);
  }
  static Vector ShuffleWindow128(const std::uint8_t* window, Vector indices) {
    return Pick<128>(window, indices);
  }

 private:
  template <std::size_t bytes>
  static Vector Pick(const std::uint8_t* window, Vector indices) {
    alignas(64) std::uint8_t index[64];
    alignas(64) std::uint8_t picked[64];
    std::uint8_t loaded[bytes];
    std::memcpy(loaded, window, bytes);  // all of it, as a register's load reads it
    Store(index, indices);
    for (std::size_t i = 0; i < 64; ++i) picked[i] = loaded[index[i] % bytes];
    return Load(picked);
  }
};

}  // namespace

void ScaleByBytewiseWindows(const ScaleJob& job, ScaleFunction unfit) {
  ScaleWithPlan(job, kWindowShape<BytewiseWindows>, ScaleByWindows<BytewiseWindows>, unfit);
}

}  // namespace lidcam
