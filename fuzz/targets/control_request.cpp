// What another process writes to the socket of an open camera: each line gets one line of JSON as its answer, or ends
// the connection. A value that the camera doesn't take is refused.

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "camera_model/bus_adapter/simulated_bus.h"
#include "camera_model/device/camera_options.h"
#include "fuzz/support/input.h"
#include "library/camera/bring_up/virtual_time.h"
#include "library/camera/opened_camera.h"
#include "library/control_socket/camera_service.h"
#include "library/settings/host_environment.h"

namespace lidcam::fuzz {
namespace {

// For the settings that requests store.
class OwnHome {
 public:
  OwnHome() {
    const char* const shared = "/dev/shm";
    const std::filesystem::path place =
        std::filesystem::is_directory(shared) ? shared : std::filesystem::temp_directory_path();
    std::string name = (place / "lidcam-XXXXXX").string();
    Require(::mkdtemp(name.data()) != nullptr);
    folder_ = name;
    ::setenv("LIDCAM_HOME", folder_.c_str(), 1);
  }
  OwnHome(const OwnHome&) = delete;
  OwnHome& operator=(const OwnHome&) = delete;
  ~OwnHome() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

 private:
  std::filesystem::path folder_;
};

app::StillPicture SmallStill(std::uint32_t value) {
  return {.Yuy2 = std::vector<std::uint8_t>(16, 0x80),
          .Size = {4, 2},
          .SizeIndex = 0,
          .Value = static_cast<std::uint16_t>(value)};
}

bool Answers(app::CameraService& service, const std::string& line) {
  const std::string answer = service.Answer(line);
  if (answer.empty()) return false;
  Require(answer.find('\n') == std::string::npos);
  Require(nlohmann::json::parse(answer, nullptr, false).is_object());
  return true;
}

void Talk(app::OpenedCamera& opened, const std::string& text) {
  app::ServedCamera camera;
  camera.Choice.Camera = "sim";
  camera.Run = [&opened](const std::function<void(app::OpenedCamera & opened)>& use) {
    use(opened);
  };
  camera.Still = SmallStill;
  app::CameraService service(std::move(camera), [] {
    return app::ServedStatus{.IsStreaming = true, .Size = {640, 480}, .Viewers = {"PipeWire"}};
  });
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    if (!Answers(service, text.substr(at, end - at))) return;
    at = end + 1;
  }
}

}  // namespace
}  // namespace lidcam::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  namespace app = lidcam::app;
  static const lidcam::fuzz::OwnHome home;
  const std::string text(reinterpret_cast<const char*>(data), size);
  const app::RunSettings settings =
      app::OpenHostEnvironment({.IsQuiet = true}, app::SetFiles::OfSimulatedCameras);
  app::RunInVirtualTime([&] {
    const auto bus = lidcam::bus::MakeSimulatedBus({}, lidcam::bus::Pacing::FreeRunning);
    app::WithOpenedCamera(*bus,
                          [&](app::OpenedCamera& opened) { lidcam::fuzz::Talk(opened, text); });
  });
  return 0;
}
