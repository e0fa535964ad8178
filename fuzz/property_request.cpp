// Property requests of any kind, several in a row, to an installed camera and to a pin of it: any set,
// id and flags, requests and values of any length and content. Whatever comes, the answer stays inside
// its buffer, a refused request changes nothing in the client's memory, a pin that was brought to any
// state comes to a stop again, and the next client finds a camera that answers.

#include <cstdint>

#include "driver/avstream/camera_properties_sets.h"
#include "fuzz/installed_world.h"

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
};
constexpr std::size_t kSetCount = sizeof(kSets) / sizeof(GUID);

constexpr ULONG kFlags[] = {KSPROPERTY_TYPE_GET, KSPROPERTY_TYPE_SET, KSPROPERTY_TYPE_BASICSUPPORT,
                            KSPROPERTY_TYPE_SETSUPPORT};

// Leading byte: the set, or one of the input's own; the flags likewise.
void Ask(Input& input, const client::PropertyClient& properties) {
  const auto kind = input.Take<std::uint8_t>();
  const std::size_t set = kind % 16U;
  const GUID guid = set < kSetCount ? kSets[set] : input.Take<GUID>();
  const ULONG flags = (kind & 0x40) == 0 ? kFlags[kind >> 4 & 3] : input.Take<ULONG>();
  const ULONG id = (kind & 0x80) == 0 ? input.Take<std::uint8_t>() : input.Take<ULONG>();
  client::Block request = input.TakeBlock(input.Take<std::uint8_t>() % (kLongest + 1));
  client::Block value = input.TakeBlock(input.Take<std::uint8_t>() % (kLongest + 1));
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

void RequireAnswers(const client::Camera& camera) {
  camera.SetLevel(kVideoProcAmpSet, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS,
                  {7, KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL});
  Require(camera.GetLevel(kVideoProcAmpSet, KSPROPERTY_VIDEOPROCAMP_BRIGHTNESS).Value == 7);
  Require(camera.Ranges().size() == 5);
}

void AskPin(Input& input, const client::Camera& camera) {
  client::Stream stream(camera, camera.FormatOf(160, 120));
  for (int i = 0; i < kMost && !input.IsEmpty(); ++i) Ask(input, stream.Properties());
  // Leaves the camera without a stream that was prepared and never run: nobody would get one.
  const NTSTATUS status = stream.SetState(KSSTATE_RUN);
  Require(status == STATUS_SUCCESS);
  Require(stream.SetState(KSSTATE_STOP) == STATUS_SUCCESS);
}

void Run(Input& input) {
  const client::Camera& camera = InstalledWorld::Next().Camera();
  const host::PoolUsage before = host::PoolUsageOfAll();
  if (input.Take<std::uint8_t>() % 4 == 0) {
    AskPin(input, camera);
  } else {
    for (int i = 0; i < kMost && !input.IsEmpty(); ++i) Ask(input, camera.Properties());
  }
  RequireAnswers(camera);
  InstalledWorld::Sleep(1);
  Require(host::PoolUsageOfAll().Blocks == before.Blocks);
}

}  // namespace
}  // namespace lidcam::fuzz

// The world that inputs share would be searched for leaks after each of them. What the driver loses shows
// in the pool after each input, and when the world ends.
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
