// Prints the average luminance and the exposure of a few frames.
//
//     c++ -std=c++17 average_brightness.cpp $(pkg-config --cflags --libs lidcam) -o average_brightness
//     ./average_brightness [CAMERA] [FRAMES]

#include <lidcam.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

struct CloseCamera {
  void operator()(lidcam_camera* camera) const { lidcam_close(camera); }
};
using Camera = std::unique_ptr<lidcam_camera, CloseCamera>;

struct ReleaseFrame {
  void operator()(const lidcam_frame* frame) const { lidcam_frame_release(frame); }
};
using Frame = std::unique_ptr<const lidcam_frame, ReleaseFrame>;

// A YUY2 pixel is its luminance, and a half of a pair's colour.
double AverageLuminance(const lidcam_frame& frame) {
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < frame.size; i += 2) sum += frame.data[i];
  return static_cast<double>(sum) / (frame.width * frame.height);
}

int Fail() {
  std::fprintf(stderr, "average_brightness: %s\n", lidcam_error_text());
  return 1;
}

}  // namespace

int main(int count, char** arguments) {
  const char* const address = count > 1 ? arguments[1] : nullptr;
  const int frames = count > 2 ? std::atoi(arguments[2]) : 10;

  lidcam_camera* opened = nullptr;
  if (lidcam_open(address, nullptr, &opened) < 0) return Fail();
  const Camera camera(opened);
  if (lidcam_start(camera.get(), nullptr) < 0) return Fail();

  for (int i = 0; i < frames; ++i) {
    const lidcam_frame* next = nullptr;
    const lidcam_status status = lidcam_next_frame(camera.get(), 5000, &next);
    if (status < 0) return Fail();
    if (status != LIDCAM_OK) break;
    const Frame frame(next);
    std::printf("%8.3f s  %ux%u  luminance %5.1f  exposure %u  gain %u\n",
                static_cast<double>(frame->stream_time) / 1e7, frame->width, frame->height,
                AverageLuminance(*frame), frame->exposure, frame->coarse_gain);
  }
  return 0;
}
