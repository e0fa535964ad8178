// Property requests of any kind, several in sequence, to an installed camera and to its pin, at
// rest and while a stream delivers frames: any set, id and flags, requests and values of any length
// and content; requests for events; settings of any type and length in the registry, which a camera
// loads when it is powered up; and direct calls of the core behind the tables. In all cases the
// answer stays inside its buffer, a refused request changes nothing in the client's memory, a pin
// in any state can be stopped, and the camera answers the next client.

#include <cstdint>

#include "driver/avstream/properties/property_ids.h"
#include "driver/avstream/properties/property_requests.h"
#include "driver/core/control/control_codes.h"
#include "driver/core/settings/settings_store.h"
#include "fuzz/support/installed_world.h"
#include "testbed/installed_driver.h"

namespace lidcam::fuzz {
namespace {

constexpr std::size_t kLongest = 200;
constexpr int kMost = 24;

constexpr GUID kSets[] = {
    GuidOf(STATIC_PROPSETID_VIDCAP_VIDEOPROCAMP),
    GuidOf(STATIC_PROPSETID_VIDCAP_CAMERACONTROL),
    GuidOf(STATIC_PROPSETID_VIDCAP_VIDEOCONTROL),
    PROPSETID_CAMERA_PRIVATE,
    GuidOf(STATIC_PROPSETID_VIDCAP_DROPPEDFRAMES),
    GuidOf(STATIC_KSPROPSETID_Pin),
    GuidOf(STATIC_KSPROPSETID_Topology),
    GuidOf(STATIC_KSPROPSETID_Connection),
    GuidOf(STATIC_KSPROPSETID_Stream),
    GuidOf(STATIC_KSPROPSETID_General),
    GuidOf(STATIC_KSPROPSETID_Clock),
    GuidOf(STATIC_KSEVENTSETID_VIDCAPTOSTI),
};
constexpr std::size_t kSetCount = sizeof(kSets) / sizeof(GUID);

constexpr ULONG kEventFlags[] = {KSEVENT_TYPE_ENABLE, KSEVENT_TYPE_ONESHOT, KSEVENT_TYPE_SETSUPPORT,
                                 KSEVENT_TYPE_BASICSUPPORT};

constexpr ULONG kFlags[] = {KSPROPERTY_TYPE_GET, KSPROPERTY_TYPE_SET, KSPROPERTY_TYPE_BASICSUPPORT,
                            KSPROPERTY_TYPE_SETSUPPORT};

// 100 ns. Longer than the time to the camera's first frame.
constexpr LONGLONG kFrameLimit = 20'000'000;

// First byte: a known set, or one from the input; the flags likewise.
void Ask(Input& input, const client::PropertyClient& properties) {
  const auto kind = input.Take<std::uint8_t>();
  const std::size_t set = kind % 16U;
  const GUID guid = set < kSetCount ? kSets[set] : input.Take<GUID>();
  const ULONG flags = (kind & 0x40) == 0 ? kFlags[kind >> 4 & 3] : input.Take<ULONG>();
  const ULONG id = (kind & 0x80) == 0 ? input.Take<std::uint8_t>() : input.Take<ULONG>();
  client::Block request = TakeBlock(input, input.Take<std::uint8_t>() % (kLongest + 1));
  client::Block value = TakeBlock(input, input.Take<std::uint8_t>() % (kLongest + 1));
  const client::Block before = value;
  ULONG_PTR information = 0;
  const NTSTATUS status = properties.Ask(guid, id, flags, request, value, information);
  Require(status != STATUS_PENDING);
  if (NT_SUCCESS(status)) Require(information <= value.Size());
  const bool isError = !NT_SUCCESS(status) && status != STATUS_BUFFER_OVERFLOW;
  if (isError && value.Size() != 0) {
    Require(std::memcmp(before.Data(), value.Data(), value.Size()) == 0);
  }
}

// The pin lists one event and refuses every request for it; the streaming class answers the rest.
void AskForEvent(Input& input, const host::DeviceFile& file) {
  const auto kind = input.Take<std::uint8_t>();
  const ULONG id = input.Take<std::uint8_t>();
  client::Block request = TakeBlock(input, input.Take<std::uint8_t>() % (kLongest + 1));
  if (request.Size() >= sizeof(KSIDENTIFIER)) {
    const std::size_t set = kind % 16U;
    const KSIDENTIFIER head{set < kSetCount ? kSets[set] : input.Take<GUID>(), id,
                            kEventFlags[kind >> 4 & 3]};
    std::memcpy(request.Data(), &head, sizeof(head));
  }
  client::Block value = TakeBlock(input, input.Take<std::uint8_t>() % (kLongest + 1));
  ULONG_PTR information = 0;
  const NTSTATUS status =
      file.Control(input.OneIn(8) ? IOCTL_KS_DISABLE_EVENT : IOCTL_KS_ENABLE_EVENT,
                   {request.Data(), static_cast<ULONG>(request.Size()), value.Data(),
                    static_cast<ULONG>(value.Size())},
                   information);
  Require(status != STATUS_PENDING);
}

void AskForEvents(Input& input, const host::DeviceFile& file) {
  for (int i = 0; i < kMost && !input.IsEmpty(); ++i) AskForEvent(input, file);
}

void RequireAnswers(const client::Camera& camera) {
  camera.SetLevel(kVideoProcAmpSet, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS,
                  {7, KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL});
  Require(camera.GetLevel(kVideoProcAmpSet, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS).Value == 7);
  Require(camera.Ranges().size() == 5);
}

void AskCamera(Input& input, const client::Camera& camera) {
  for (int i = 0; i < kMost && !input.IsEmpty(); ++i) Ask(input, camera.Properties());
}

void AskPin(Input& input, const client::Camera& camera) {
  client::Stream stream(camera, camera.FormatOf(160, 120));
  for (int i = 0; i < kMost && !input.IsEmpty(); ++i) Ask(input, stream.Properties());
  // Runs a prepared stream that never ran: otherwise it would stay prepared for all later clients.
  const NTSTATUS status = stream.SetState(KSSTATE_RUN);
  Require(status == STATUS_SUCCESS);
  Require(stream.SetState(KSSTATE_STOP) == STATUS_SUCCESS);
}

// A request may affect the stream: a register that it writes may end the frames.
void AskWhileFramesCome(Input& input, const client::Camera& camera) {
  client::Stream stream(camera, camera.FormatOf(160, 120));
  if (input.OneIn(2)) stream.UseClock();
  stream.Run();
  for (int i = 0; i < kMost && !input.IsEmpty(); ++i) {
    const bool asksPin = input.OneIn(4);
    Ask(input, asksPin ? stream.Properties() : camera.Properties());
    static_cast<void>(stream.Next(kFrameLimit / kMost));
  }
  Require(stream.SetState(KSSTATE_STOP) == STATUS_SUCCESS);
}

void WakeWithSettings(Input& input, InstalledWorld& world) {
  for (int i = 0; i < kMost && !input.IsEmpty(); ++i) {
    const std::size_t number = input.Take<std::uint8_t>() % std::size(kLoadedSettings);
    const auto chosen = input.Take<std::uint8_t>();
    const ULONG type = chosen % 4 == 0 ? input.Take<std::uint8_t>() : REG_DWORD;
    client::Block value = TakeBlock(input, chosen % 4 == 1 ? input.Take<std::uint8_t>() : 4U);
    world.StoreSetting(kLoadedSettings[number].Name, type, value);
  }
  world.Wake();
}

// Codes and foreign sets that no table of the filter contains, as arguments of the core and its
// translation. The block is as long as the translation requires.
void AskCore(Input& input, CameraContext& camera) {
  for (int i = 0; i < 4 * kMost && !input.IsEmpty(); ++i) {
    const auto way = input.Take<std::uint8_t>();
    const bool isSet = input.OneIn(4);
    ControlRecord record{};
    record.Code = input.Take<std::uint32_t>();
    input.TakeInto(&record.Value, sizeof(record.Value));
    record.Flags = input.Take<std::uint32_t>();
    record.Caps = input.Take<std::uint32_t>();
    if (way % 2 == 0) {
      static_cast<void>(isSet ? SetControl(camera, record) : GetControl(camera, record));
      continue;
    }
    const std::size_t set = way / 2 % kSetCount;
    KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S request{};
    request.Property.Set = kSets[set];
    request.Property.Id = record.Code;
    request.Dimensions.cx = record.Value;
    client::Block value = TakeBlock(input, input.Take<std::uint8_t>() % (kLongest + 1));
    ULONG_PTR information = 0;
    const PropertyBuffer buffer{value.Data(), static_cast<ULONG>(value.Size()), &information};
    const auto ask = isSet ? SetCameraProperty : GetCameraProperty;
    static_cast<void>(ask(camera, request.Property, buffer));
  }
}

// Any keys and values in calls of the settings store.
void AskStore(Input& input, const TransportRecordHead& device) {
  for (int i = 0; i < kMost && !input.IsEmpty(); ++i) {
    const std::uint32_t kind = input.Take<std::uint8_t>() % 4U;
    std::u16string name;
    for (std::uint32_t left = input.UpTo(300); left != 0 && !input.IsEmpty(); --left) {
      const auto letter = input.Take<std::uint8_t>();
      if (letter != 0) name += static_cast<char16_t>(letter);
    }
    HANDLE const root = OpenSettingsRoot(&device, name.c_str(), kind);
    if (root == nullptr) continue;
    std::uint32_t value = 0;
    std::uint32_t size = input.UpTo(sizeof(value));
    static_cast<void>(ReadSettingValue(root, name.c_str(), u"Exposure", REG_DWORD, &value, size));
    HANDLE key = nullptr;
    if (NT_SUCCESS(CreateKeyChain(root, KEY_ALL_ACCESS, name.c_str(), key))) {
      Require(NT_SUCCESS(WriteSettingValue(key, u"Exposure", value)));
      Require(CloseSettingsKey(key) == 0);
    }
    Require(CloseSettingsKey(root) == 0);
  }
}

void Run(Input& input) {
  InstalledWorld& world = InstalledWorld::Next();
  const client::Camera& camera = world.Camera();
  const host::PoolUsage before = host::PoolUsageOfAll();
  const auto chosen = input.Take<std::uint8_t>();
  switch (chosen % 7) {
    case 0:
      AskPin(input, camera);
      break;
    case 1:
      AskCamera(input, camera);
      break;
    case 2:
      AskWhileFramesCome(input, camera);
      break;
    case 4:
      // The operations of this program know the record of an image, and not the convention of its callbacks.
      if (!testbed::IsDriverOfImage())
        world.WithRecord([&input](CameraContext& record) { AskCore(input, record); });
      break;
    case 5:
      AskStore(input, world.Transport());
      break;
    case 6:
      if (chosen / 7 % 2 == 0) {
        AskForEvents(input, camera.File());
      } else {
        AskForEvents(input, client::Stream(camera, camera.FormatOf(160, 120)).File());
      }
      break;
    default:
      WakeWithSettings(input, world);
      break;
  }
  RequireAnswers(camera);
  InstalledWorld::Sleep(1);
  Require(host::PoolUsageOfAll().Blocks == before.Blocks);
}

}  // namespace
}  // namespace lidcam::fuzz

// No leak check: it would search the inputs' shared world after each of them. Leaks of the driver
// show in the pool after each input, and at the end of the world.
extern "C" const char* __asan_default_options();   // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __asan_default_options() {  // NOLINT(bugprone-reserved-identifier)
  return "detect_leaks=0";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lidcam::fuzz::Input input(data, size);
  lidcam::fuzz::Run(input);
  return 0;
}
