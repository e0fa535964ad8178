#include "integrations/v4l2/loopback_device.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace lidcam::integrations::v4l2 {
namespace {

constexpr std::string_view kDriver = "v4l2 loopback";
constexpr std::string_view kNode = "/dev/video";
constexpr std::uint32_t kFrameRate = 30;
constexpr std::uint32_t kBytesAPixel = 2;

class MachineCalls : public DeviceCalls {
 public:
  int Open(const char* path) override { return open(path, O_RDWR | O_CLOEXEC); }
  int Control(int descriptor, unsigned long request, void* argument) override {
    int result = -1;
    do {
      result = ioctl(descriptor, request, argument);
    } while (result < 0 && errno == EINTR);
    return result;
  }
  std::ptrdiff_t Write(int descriptor, std::span<const std::uint8_t> bytes) override {
    std::ptrdiff_t result = -1;
    do {
      result = write(descriptor, bytes.data(), bytes.size());
    } while (result < 0 && errno == EINTR);
    return result;
  }
  void Close(int descriptor) override { close(descriptor); }
};

std::string HowToLoad(const std::string& path) {
  std::string command =
      "sudo modprobe v4l2loopback exclusive_caps=1 max_buffers=8 card_label=lidcam";
  if (path.starts_with(kNode)) command += " video_nr=" + path.substr(kNode.size());
  return "'" + command + "' makes one (packages v4l2loopback-dkms and linux-headers-amd64)";
}

std::string Reason() {
  return std::strerror(errno);
}

template <std::size_t Size>
std::string TextOf(const std::uint8_t (&field)[Size]) {
  const char* const text = reinterpret_cast<const char*>(field);
  return {text, strnlen(text, Size)};
}

}  // namespace

DeviceCalls& SystemCalls() {
  static MachineCalls calls;
  return calls;
}

LoopbackDevice::LoopbackDevice(Options options, DeviceCalls& calls)
    : options_(std::move(options)), calls_(calls), descriptor_(Open()) {
  try {
    CheckDevice();
    SetFormat();
    SetRate();
    StartOutput();
  } catch (...) {
    calls_.Close(descriptor_);
    throw;
  }
}

LoopbackDevice::~LoopbackDevice() {
  calls_.Close(descriptor_);
}

int LoopbackDevice::Open() const {
  const int descriptor = calls_.Open(options_.Path.c_str());
  if (descriptor >= 0) return descriptor;
  switch (errno) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
      throw ShareError("there is no device '" + options_.Path + "': " + HowToLoad(options_.Path));
    case EACCES:
      throw ShareError(
          "device '" + options_.Path +
          "' may not be opened: 'sudo usermod -aG video $USER' allows it from the next "
          "login on");
    default:
      throw ShareError("device '" + options_.Path + "' cannot be opened: " + Reason());
  }
}

void LoopbackDevice::CheckDevice() const {
  v4l2_capability capability{};
  if (Control(VIDIOC_QUERYCAP, &capability) < 0) {
    throw ShareError("'" + options_.Path + "' is no video device: " + HowToLoad(options_.Path));
  }
  const std::string driver = TextOf(capability.driver);
  if (driver != kDriver) {
    throw ShareError("device '" + options_.Path + "' is one of the driver '" + driver +
                     "', and not of v4l2loopback: " + HowToLoad("/dev/videoN"));
  }
  if ((capability.device_caps & V4L2_CAP_VIDEO_OUTPUT) == 0) {
    throw ShareError("device '" + options_.Path + "' gets its pictures from another program");
  }
  if ((capability.device_caps & V4L2_CAP_VIDEO_CAPTURE) != 0) {
    options_.Tell(
        "warning: v4l2loopback was loaded without exclusive_caps=1, and browsers don't "
        "take '" +
        options_.Path + "' for a camera");
  }
}

void LoopbackDevice::SetFormat() const {
  v4l2_format format{};
  format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  v4l2_pix_format& picture = format.fmt.pix;
  picture.width = options_.Size.Width;
  picture.height = options_.Size.Height;
  picture.pixelformat = V4L2_PIX_FMT_YUYV;
  picture.field = V4L2_FIELD_NONE;
  picture.bytesperline = kBytesAPixel * options_.Size.Width;
  picture.sizeimage = picture.bytesperline * options_.Size.Height;
  picture.colorspace = V4L2_COLORSPACE_SMPTE170M;
  if (Control(VIDIOC_S_FMT, &format) < 0) {
    throw ShareError("device '" + options_.Path + "' takes no format: " +
                     (errno == EBUSY ? "another program uses it" : Reason()));
  }
  if (picture.width != options_.Size.Width || picture.height != options_.Size.Height ||
      picture.pixelformat != V4L2_PIX_FMT_YUYV) {
    throw ShareError("device '" + options_.Path + "' stays at " + std::to_string(picture.width) +
                     "x" + std::to_string(picture.height) +
                     ", since a program that looks at it has it open: end that first");
  }
}

void LoopbackDevice::SetRate() const {
  v4l2_streamparm rate{};
  rate.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  rate.parm.output.timeperframe = {.numerator = 1, .denominator = kFrameRate};
  if (Control(VIDIOC_S_PARM, &rate) < 0) {
    options_.Tell("warning: device '" + options_.Path + "' takes no frame rate: " + Reason());
  }
}

void LoopbackDevice::StartOutput() const {
  // Without it the device can't be given pictures any more once this program has ended.
  int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  if (Control(VIDIOC_STREAMON, &type) < 0) {
    throw ShareError("device '" + options_.Path + "' takes no pictures: " + Reason());
  }
}

void LoopbackDevice::Write(std::span<const std::uint8_t> picture) {
  const std::ptrdiff_t written = calls_.Write(descriptor_, picture);
  if (written == static_cast<std::ptrdiff_t>(picture.size())) return;
  throw ShareError("device '" + options_.Path + "' takes no pictures any more: " +
                   (written < 0 ? Reason() : "only a part of one"));
}

int LoopbackDevice::Control(unsigned long request, void* argument) const {
  return calls_.Control(descriptor_, request, argument);
}

}  // namespace lidcam::integrations::v4l2
