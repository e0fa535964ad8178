#include "tests/integrations/lidcam_stand_in.h"

#include <algorithm>

using lidcam::integrations::StandIn;

struct lidcam_camera {};
struct lidcam_watch {};

namespace {

constexpr std::chrono::milliseconds kFrameInterval{10};

thread_local std::string t_error;
lidcam_camera g_camera;
lidcam_watch g_watch;

constexpr lidcam_camera_info kInfo = {.address = "usb:1-2:1af0:0511",
                                      .description = "Notebook camera",
                                      .unit = "usb-1-2",
                                      .kind = LIDCAM_KIND_PLUGGED_IN,
                                      .vendor_id = 0x1AF0,
                                      .product_id = 0x0511,
                                      .in_use_by = "",
                                      .shared_by = "",
                                      .obstacle = ""};

constexpr std::int64_t kRecordedInterval = 500'000;  // 100 ns
constexpr lidcam_camera_info kRecording = {.address = "capture:bus.pcap",
                                           .description = "Recording",
                                           .unit = "",
                                           .kind = LIDCAM_KIND_RECORDING,
                                           .vendor_id = 0x1AF0,
                                           .product_id = 0x0511,
                                           .in_use_by = "",
                                           .shared_by = "",
                                           .obstacle = ""};

constexpr lidcam_format FormatOf(std::uint32_t width, std::uint32_t height) {
  return {.pixels = LIDCAM_PIXELS_YUY2,
          .width = width,
          .height = height,
          .image_bytes = 2 * width * height,
          .intervals = nullptr,
          .interval_count = 0,
          .shortest_interval = 100'000,
          .longest_interval = 10'000'000};
}
constexpr lidcam_format kLarge = FormatOf(640, 480);
constexpr lidcam_format kSmall = FormatOf(160, 120);
constexpr const lidcam_format* kFormats[] = {&kLarge, &kSmall, nullptr};

constexpr lidcam_control kBrightness = {.name = "Brightness",
                                        .description = "added to the luminance",
                                        .minimum = -100,
                                        .maximum = 100,
                                        .step = 1,
                                        .default_value = 0,
                                        .flags = 0};
constexpr lidcam_control kMirror = {.name = "Mirror",
                                    .description = "1: left and right exchanged",
                                    .minimum = 0,
                                    .maximum = 1,
                                    .step = 1,
                                    .default_value = 0,
                                    .flags = LIDCAM_CONTROL_SWITCH};
constexpr const lidcam_control* kControls[] = {&kBrightness, &kMirror, nullptr};

const lidcam_control* ControlOf(const std::string& name) {
  return name == kBrightness.name ? &kBrightness : name == kMirror.name ? &kMirror : nullptr;
}

lidcam_status Fail(lidcam_status status, const std::string& text) {
  t_error = text;
  return status;
}

struct BorrowedFrame {
  lidcam_frame Frame{};
  std::vector<std::uint8_t> Data;
};

BorrowedFrame* MakeFrame(StandIn& stand) {
  auto* const borrowed = new BorrowedFrame;
  const std::size_t size = std::size_t{2} * stand.Stream.width * stand.Stream.height;
  const std::int64_t number = stand.FrameNumber++;
  std::uint8_t* data = nullptr;
  if (stand.Stream.memory != nullptr) {
    const auto part = static_cast<std::uint32_t>(number) % stand.Stream.buffers;
    data = stand.Stream.memory + stand.Stream.memory_size / stand.Stream.buffers * part;
  } else {
    borrowed->Data.resize(size);
    data = borrowed->Data.data();
  }
  std::fill_n(data, size, static_cast<std::uint8_t>(number));
  borrowed->Frame.data = data;
  borrowed->Frame.size = size;
  borrowed->Frame.width = stand.Stream.width;
  borrowed->Frame.height = stand.Stream.height;
  borrowed->Frame.stride = 2 * stand.Stream.width;
  borrowed->Frame.picture_number = number;
  borrowed->Frame.stream_time = kRecordedInterval * (number + 1);
  borrowed->Frame.monotonic_ns = 1'000'000 * (number + 1);
  ++stand.BorrowedFrames;
  return borrowed;
}

}  // namespace

namespace lidcam::integrations {

StandIn& StandIn::The() {
  static StandIn stand;
  return stand;
}

void StandIn::Reset() {
  const std::lock_guard lock(Mutex);
  IsPluggedIn = true;
  IsLost = IsOpen = IsStreaming = IsBroken = false;
  OpenStatus = LIDCAM_OK;
  Opened.clear();
  RecordedFrames = 0;
  Starts = 0;
  Values = {{"Brightness", 0}, {"Mirror", 0}};
  Saved.clear();
  Viewers.clear();
  FrameNumber = 0;
  BorrowedFrames = 0;
}

void StandIn::Send(lidcam_event_kind kind, const std::string& address, const char* control) {
  lidcam_event_handler handler = nullptr;
  void* user = nullptr;
  {
    const std::lock_guard lock(Mutex);
    handler = OnEvent;
    user = EventUser;
  }
  const lidcam_event event{
      .kind = kind, .address = address.c_str(), .control = control, .value = 0, .text = ""};
  if (handler != nullptr) handler(&g_camera, &event, user);
}

void StandIn::TellOfCameras() {
  if (OnCameras != nullptr) OnCameras(CamerasUser);
  Changed.notify_all();
}

void StandIn::Unplug() {
  {
    const std::lock_guard lock(Mutex);
    IsPluggedIn = false;
    IsLost = IsOpen;
  }
  Send(LIDCAM_EVENT_UNPLUGGED, kInfo.address, "");
  TellOfCameras();
}

void StandIn::Replug(const std::string& address) {
  {
    const std::lock_guard lock(Mutex);
    IsPluggedIn = true;
  }
  Send(LIDCAM_EVENT_REPLUGGED, address, "");
  TellOfCameras();
}

void StandIn::RefuseToOpen(lidcam_status status) {
  const std::lock_guard lock(Mutex);
  OpenStatus = status;
}

void StandIn::ChangeControl(const std::string& name, std::int32_t value) {
  {
    const std::lock_guard lock(Mutex);
    Values[name] = value;
  }
  Send(LIDCAM_EVENT_CONTROL, kInfo.address, name.c_str());
}

void StandIn::BreakStream() {
  const std::lock_guard lock(Mutex);
  IsBroken = true;
  Changed.notify_all();
}

}  // namespace lidcam::integrations

extern "C" {

const char* lidcam_error_text(void) {
  return t_error.c_str();
}

lidcam_status lidcam_watch_cameras(lidcam_cameras_handler handler, void* user,
                                   lidcam_watch** watch) {
  StandIn& stand = StandIn::The();
  stand.OnCameras = handler;
  stand.CamerasUser = user;
  *watch = &g_watch;
  return LIDCAM_OK;
}

void lidcam_watch_end(lidcam_watch*) {
  StandIn::The().OnCameras = nullptr;
}

lidcam_status lidcam_open(const char* address, const lidcam_open_options*, lidcam_camera** camera) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  stand.Opened.emplace_back(address);
  stand.Changed.notify_all();
  if (stand.OpenStatus < LIDCAM_OK) return Fail(stand.OpenStatus, "it is refused");
  if (!stand.IsPluggedIn) return Fail(LIDCAM_ERROR_NOT_FOUND, "no camera is plugged in");
  if (stand.IsOpen) return Fail(LIDCAM_ERROR_IN_USE, "it is open twice");
  stand.IsOpen = true;
  stand.IsLost = false;
  *camera = &g_camera;
  return LIDCAM_OK;
}

void lidcam_close(lidcam_camera* camera) {
  if (camera == nullptr) return;
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  stand.IsOpen = stand.IsStreaming = stand.IsLost = false;
  stand.OnEvent = nullptr;
  stand.Changed.notify_all();
}

const lidcam_camera_info* lidcam_camera_get_info(const lidcam_camera*) {
  return StandIn::The().RecordedFrames == 0 ? &kInfo : &kRecording;
}

lidcam_status lidcam_set_viewers(lidcam_camera*, const char* const* viewers) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  stand.Viewers.clear();
  for (; *viewers != nullptr; ++viewers) stand.Viewers.emplace_back(*viewers);
  stand.Changed.notify_all();
  return LIDCAM_OK;
}

lidcam_status lidcam_formats_list(lidcam_camera*, const lidcam_format* const** formats,
                                  size_t* count) {
  *formats = kFormats;
  *count = std::size(kFormats) - 1;
  return LIDCAM_OK;
}

lidcam_status lidcam_start(lidcam_camera*, const lidcam_stream_options* options) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  if (stand.IsLost) return Fail(LIDCAM_ERROR_UNPLUGGED, "the camera is unplugged");
  if (stand.IsStreaming) return Fail(LIDCAM_ERROR_WRONG_STATE, "a stream runs already");
  stand.Stream = *options;
  stand.IsStreaming = true;
  stand.IsBroken = false;
  if (stand.RecordedFrames != 0) stand.FrameNumber = 0;
  ++stand.Starts;
  stand.Changed.notify_all();
  return LIDCAM_OK;
}

lidcam_status lidcam_stop(lidcam_camera*) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  stand.IsStreaming = false;
  stand.Changed.notify_all();
  return LIDCAM_OK;
}

lidcam_status lidcam_next_frame(lidcam_camera*, int32_t, const lidcam_frame** frame) {
  StandIn& stand = StandIn::The();
  std::unique_lock lock(stand.Mutex);
  stand.Changed.wait_for(lock, kFrameInterval, [&] { return stand.IsLost || stand.IsBroken; });
  if (stand.IsLost) return Fail(LIDCAM_ERROR_UNPLUGGED, "the camera is unplugged");
  if (stand.IsBroken) return Fail(LIDCAM_ERROR_FAILED, "the stream broke off");
  const bool isOver = stand.RecordedFrames != 0 && stand.FrameNumber >= stand.RecordedFrames;
  if (!stand.IsStreaming || isOver) return LIDCAM_END;
  const auto most = static_cast<int>(stand.Stream.buffers);
  if (most != 0 && stand.BorrowedFrames >= most) return LIDCAM_TIMEOUT;
  *frame = &MakeFrame(stand)->Frame;
  return LIDCAM_OK;
}

void lidcam_frame_release(const lidcam_frame* frame) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  --stand.BorrowedFrames;
  delete reinterpret_cast<const BorrowedFrame*>(frame);
}

lidcam_status lidcam_set_event_handler(lidcam_camera*, lidcam_event_handler handler, void* user) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  stand.OnEvent = handler;
  stand.EventUser = user;
  return LIDCAM_OK;
}

lidcam_status lidcam_controls_list(lidcam_camera*, const lidcam_control* const** controls,
                                   size_t* count) {
  *controls = kControls;
  *count = std::size(kControls) - 1;
  return LIDCAM_OK;
}

lidcam_status lidcam_control_get(lidcam_camera*, const char* name, int32_t* value) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  if (stand.IsLost) return Fail(LIDCAM_ERROR_UNPLUGGED, "the camera is unplugged");
  *value = stand.Values.at(name);
  return LIDCAM_OK;
}

lidcam_status lidcam_control_set(lidcam_camera*, const char* name, int32_t value) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  if (stand.IsLost) return Fail(LIDCAM_ERROR_UNPLUGGED, "the camera is unplugged");
  const lidcam_control* const control = ControlOf(name);
  if (control == nullptr || value < control->minimum || value > control->maximum) {
    return Fail(LIDCAM_ERROR_INVALID_ARGUMENT, std::string(name) + ": a value that there is not");
  }
  stand.Values[name] = value;
  stand.Changed.notify_all();
  return LIDCAM_OK;
}

lidcam_status lidcam_control_save(lidcam_camera*, const char* name) {
  StandIn& stand = StandIn::The();
  const std::lock_guard lock(stand.Mutex);
  stand.Saved.emplace_back(name);
  return LIDCAM_OK;
}

}  // extern "C"
