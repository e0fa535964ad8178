#include "scenarios/clients/application.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "driver/avstream/properties/property_ids.h"
#include "platform/host/client/client_error.h"
#include "platform/host/nt/scheduling/scheduler.h"
#include "platform/host/nt/scheduling/thread.h"
#include "scenarios/clients/client_stage.h"
#include "scenarios/clients/property_requests.h"
#include "scenarios/run/status_text.h"

namespace lidcam::scenarios {
namespace {

using client::Block;
using client::Camera;
using client::ClientError;
using client::VideoFormat;

struct Size {
  std::int32_t Width;
  std::int32_t Height;
};

constexpr Size kSizes[] = {{160, 120}, {160, 120}, {176, 144}, {320, 240}, {352, 288}, {640, 480}};
constexpr std::string_view kKindsOfSizes[] = {"160x120", "160x120", "176x144",
                                              "320x240", "352x288", "640x480"};

constexpr LONGLONG kIntervals[] = {333333, 333333, 1000000, 666666,           100000,
                                   0,      -5,     1,       LONGLONG{1} << 62};

constexpr LONGLONG kPatience = 3 * kSecond;
constexpr ULONG kLongestImage = 1U << 20;

// Status of all requests after a removal.
constexpr NTSTATUS kRemoved = STATUS_DELETE_PENDING;

// Statuses of invalid requests.
constexpr std::array kRefusals{
    STATUS_SUCCESS,           STATUS_BUFFER_OVERFLOW,   STATUS_BUFFER_TOO_SMALL,
    STATUS_INVALID_PARAMETER, STATUS_NOT_SUPPORTED,     STATUS_INVALID_DEVICE_REQUEST,
    STATUS_NOT_FOUND,         STATUS_PROPSET_NOT_FOUND, STATUS_INVALID_BUFFER_SIZE,
    STATUS_NO_MATCH,          STATUS_INVALID_HANDLE,    STATUS_INVALID_DEVICE_STATE,
    STATUS_UNSUCCESSFUL,
};

constexpr KSSTATE kStates[] = {KSSTATE_STOP, KSSTATE_ACQUIRE, KSSTATE_PAUSE, KSSTATE_RUN,
                               KSSTATE_RUN};

bool IsCameraSet(const GUID& set) {
  return IsSameGuid(set, kVideoProcAmpSet) || IsSameGuid(set, kCameraControlSet) ||
         IsSameGuid(set, kVideoControlSet) || IsSameGuid(set, PROPSETID_CAMERA_PRIVATE);
}

}  // namespace

Application::Application(ClientStage& clients, std::uint64_t number)
    : clients_(clients),
      stage_(clients.Host()),
      name_("client " + std::to_string(number)),
      chance_(stage_.Key().Seed, 100 + number) {}

void Application::Require(bool holds, const std::string& what) {
  stage_.Require(holds, name_ + ", " + doing_.Step + ": " + what);
}

void Application::RequireAlways(bool holds, const std::string& what) {
  stage_.RequireAlways(holds, name_ + ", " + doing_.Step + ": " + what);
}

// A device that is stopped, or whose hardware failed to start, refuses openings.
bool Application::IsOutOfOrder(NTSTATUS status) const {
  if (clients_.Rules().LacksMemory && status == STATUS_INSUFFICIENT_RESOURCES) return true;
  if (!clients_.Rules().HasTrouble) return false;
  return status == STATUS_DEVICE_NOT_READY || status == STATUS_DEVICE_DATA_ERROR ||
         status == STATUS_OBJECT_NAME_NOT_FOUND;
}

// Without faults, only the application itself can cause a refusal.
bool Application::IsSound() const {
  return !clients_.Rules().HasTrouble && !clients_.Rules().LacksMemory;
}

template <typename Operation>
NTSTATUS Application::Do(const char* name, Operation operation) {
  doing_ = {name, host::CurrentWorld().Now(), false, &host::CurrentThread()};
  wasGone_ = clients_.IsGone();
  wasRemoved_ = clients_.IsRemoved();
  NTSTATUS status = STATUS_SUCCESS;
  try {
    status = operation();
  } catch (const ClientError& error) {
    status = error.Status();
  }
  stage_.Trace().Add(name_ + " " + name + " -> " + HexOf(status));
  return status;
}

template <typename Operation>
void Application::DoAllowing(const char* name, std::initializer_list<NTSTATUS> allowed,
                             Operation operation) {
  const NTSTATUS status = Do(name, operation);
  if (wasRemoved_) return Require(status == kRemoved, "a removed device answers " + HexOf(status));
  const bool isAllowed = std::ranges::find(allowed, status) != allowed.end() ||
                         (clients_.IsGoing() && status == kRemoved) || IsOutOfOrder(status);
  Require(isAllowed, "answers " + HexOf(status));
}

// A removal that runs meanwhile leaves the bus's own device, which refuses files with a status of its own.
void Application::RequireRefusalOfGone(NTSTATUS status) {
  const bool isRefused = clients_.IsBeingRemoved() ? !NT_SUCCESS(status) : status == kRemoved;
  Require(isRefused, "a camera that is gone answers " + HexOf(status));
}

void Application::Sleep(LONGLONG longest) {
  doing_ = {"sleep", host::CurrentWorld().Now(), false, &host::CurrentThread()};
  Stage::Sleep(static_cast<LONGLONG>(chance_.Between(1, stage_.LongestSleep(longest))));
}

// ---- Opening and closing.

void Application::OpenCamera() {
  constexpr const char16_t* kWrong[] = {u"\\", u"{86D5B265-6B04-4838-ADAE-9718707A7BDC}",
                                        u"\\{86D5B265-6B04-4838-ADAE-9718707A7BD}",
                                        u"\\{86D5B265-6B04-4838-ADAE-9718707A7BDC}S", u"\\{"};
  const bool isWrong = chance_.OneIn(8);
  const std::u16string name =
      isWrong ? chance_.OneOf(kWrong) : (chance_.OneIn(3) ? u"" : client::kFilterName);
  const NTSTATUS status = Do("open the camera", [&] {
    camera_.emplace(Camera::Open(clients_.TopDevice(), name));
    return STATUS_SUCCESS;
  });
  if (wasRemoved_) return Require(!NT_SUCCESS(status), "a removed camera is opened");
  if (wasGone_) return RequireRefusalOfGone(status);
  if (isWrong) return Require(!NT_SUCCESS(status), "an unknown name is opened");
  if (IsSound()) return Require(NT_SUCCESS(status), "answers " + HexOf(status));
  // After the driver's device is removed, the bus's own device is left, which supports no files.
  const bool isAllowed = NT_SUCCESS(status) || clients_.IsGoing() || IsOutOfOrder(status);
  Require(isAllowed, "answers " + HexOf(status));
}

void Application::CloseCamera() {
  Do("close the camera", [&] {
    camera_.reset();
    return STATUS_SUCCESS;
  });
}

// A format of one of the pin's own ranges; none if the camera is gone or refuses.
std::optional<VideoFormat> Application::AnyFormat() {
  const Size size = kSizes[stage_.Kinds().Choose(chance_, kKindsOfSizes)];
  const LONGLONG interval = chance_.OneIn(2) ? 333333 : chance_.OneOf(kIntervals);
  std::optional<VideoFormat> format;
  // A filter that was opened while the hardware had failed has no formats.
  const NTSTATUS none = IsSound() ? STATUS_SUCCESS : STATUS_NO_MATCH;
  DoAllowing("choose a format", {STATUS_SUCCESS, none}, [&] {
    format.emplace(camera_->FormatOf(size.Width, size.Height, interval));
    return STATUS_SUCCESS;
  });
  return format;
}

// Changes some bytes, except for the length, which the client itself uses.
VideoFormat Application::Mutated(const VideoFormat& format) {
  Block bytes(format.Bytes());
  const std::uint64_t count = chance_.Between(1, 4);
  for (std::uint64_t i = 0; i < count; ++i) {
    const std::uint64_t at = chance_.Between(sizeof(ULONG), bytes.Size() - 1);
    bytes.Data()[at] = static_cast<std::byte>(chance_.Next());
  }
  VideoFormat mutated(std::move(bytes));
  KS_BITMAPINFOHEADER& bitmap = mutated.Header().VideoInfoHeader.bmiHeader;
  if (bitmap.biSizeImage > kLongestImage) bitmap.biSizeImage = kLongestImage;
  return mutated;
}

void Application::Connect() {
  std::optional<VideoFormat> format = AnyFormat();
  if (!format) return;
  const bool isMutated = chance_.OneIn(6);
  if (isMutated) format.emplace(Mutated(*format));
  const auto buffers = static_cast<std::size_t>(
      chance_.OneIn(4) ? chance_.Below(8) : stage_.Kinds().Value("buffers", 5, 1, 12));
  const NTSTATUS status = Do("connect", [&] {
    stream_ = std::make_unique<CheckedStream>(stage_, IsSound(), *camera_, *format, buffers);
    return STATUS_SUCCESS;
  });
  if (wasRemoved_) return Require(!NT_SUCCESS(status), "a removed camera is connected");
  if (wasGone_) return RequireRefusalOfGone(status);
  if (isMutated) {
    const bool isKnown = status == STATUS_SUCCESS || status == STATUS_NO_MATCH ||
                         status == STATUS_INVALID_PARAMETER || !IsSound();
    return Require(isKnown, "answers " + HexOf(status));
  }
  const bool isAllowed = NT_SUCCESS(status) || clients_.IsGoing() || IsOutOfOrder(status);
  Require(isAllowed, "answers " + HexOf(status));
}

void Application::Disconnect() {
  Do("disconnect", [&] {
    stream_.reset();
    return STATUS_SUCCESS;
  });
}

void Application::End() {
  if (chance_.OneIn(2)) CloseCamera();
  Disconnect();
  CloseCamera();
  doing_.IsOver = true;
}

// ---- The stream.

void Application::ChangeState() {
  SetAnyState(chance_.OneIn(20) ? static_cast<KSSTATE>(chance_.Between(4, 7))
                                : chance_.OneOf(kStates));
}

void Application::SetAnyState(KSSTATE state) {
  const NTSTATUS status =
      Do(("set state " + std::to_string(state)).c_str(), [&] { return stream_->SetState(state); });
  if (wasRemoved_) return Require(status == kRemoved, "a removed device answers " + HexOf(status));
  if (state > KSSTATE_RUN) {
    return Require(status == STATUS_INVALID_PARAMETER || clients_.IsGoing(),
                   "answers " + HexOf(status));
  }
  const bool isContended = status == STATUS_SHARING_VIOLATION || status == STATUS_UNSUCCESSFUL;
  if (IsSound()) {
    return Require(status == STATUS_SUCCESS || isContended, "answers " + HexOf(status));
  }
  Require(IsBusStatus(status) || isContended || status == STATUS_TIMEOUT ||
              (clients_.IsGoing() && status == kRemoved),
          "answers " + HexOf(status));
}

void Application::RunStream() {
  const NTSTATUS status = Do("run", [&] { return stream_->Run(); });
  if (wasRemoved_) return Require(status == kRemoved, "a removed device answers " + HexOf(status));
  const bool isContended = status == STATUS_SHARING_VIOLATION || status == STATUS_UNSUCCESSFUL;
  const bool isSound = status == STATUS_SUCCESS || isContended;
  Require(isSound ||
              (!IsSound() && (IsBusStatus(status) || (clients_.IsGoing() && status == kRemoved))),
          "answers " + HexOf(status));
}

void Application::StopStream() {
  const NTSTATUS status = Do("stop", [&] { return stream_->Stop(); });
  if (wasRemoved_) return Require(status == kRemoved, "a removed device answers " + HexOf(status));
  if (IsSound()) return Require(status == STATUS_SUCCESS, "answers " + HexOf(status));
  Require(IsBusStatus(status) || (clients_.IsGoing() && status == kRemoved),
          "answers " + HexOf(status));
}

void Application::TakeFrames(std::uint64_t most) {
  const std::uint64_t count = chance_.Between(1, most);
  for (std::uint64_t i = 0; i < count && stream_ != nullptr; ++i) TakeFrame();
}

void Application::TakeFrame() {
  const bool isToCome = IsSound() && !clients_.Rules().WritesRegisters &&
                        !stage_.Camera().HasMixedAccesses() && stream_->IsToDeliver();
  const LONGLONG patience = chance_.OneIn(4) ? 0 : kPatience;
  const LONGLONG began = host::CurrentWorld().Now();
  const NTSTATUS status = Do("take a frame", [&] { return stream_->Take(patience); });
  const bool isOver = host::CurrentWorld().Now() >= stage_.CountedFrom(began) + patience;
  const bool isLate = status == STATUS_TIMEOUT && isToCome && patience != 0 && isOver;
  // After a stall the stream may have been recovered, which moves it to a pipe without a picture; and the recovery may
  // have stopped for good.
  if (stage_.HasRestartByRecovery() || stage_.Trace().HasStoppedRecovery()) {
    Require(!isLate, "no frame comes to a running stream");
  } else {
    RequireAlways(!isLate, "no frame comes to a running stream");
  }
  const bool isEnd = status == STATUS_CANCELLED || status == STATUS_DEVICE_NOT_CONNECTED;
  Require(status == STATUS_SUCCESS || status == STATUS_TIMEOUT || isEnd ||
              (clients_.IsGoing() && status == kRemoved) ||
              (!stream_->HasRoom() && status == STATUS_INVALID_PARAMETER) ||
              (clients_.Rules().LacksMemory && status == STATUS_INSUFFICIENT_RESOURCES),
          "answers " + HexOf(status));
}

// A format for a picture other than that of the pin's framing may leave too little room for the
// picture, which then isn't written.
void Application::ChangeFormat() {
  if (!camera_) return;
  std::optional<VideoFormat> format = AnyFormat();
  if (!format) return;
  const bool isMutated = chance_.OneIn(4);
  if (isMutated) format.emplace(Mutated(*format));
  const bool isStopped = stream_->IsStopped();
  const NTSTATUS status = Do("set format", [&] { return stream_->SetFormat(*format); });
  if (wasRemoved_) return Require(status == kRemoved, "a removed device answers " + HexOf(status));
  if (!IsSound()) return;
  const NTSTATUS expected = isStopped ? STATUS_SUCCESS : STATUS_INVALID_DEVICE_STATE;
  Require(status == expected ||
              (isMutated && (status == STATUS_NO_MATCH || status == STATUS_INVALID_PARAMETER)),
          "answers " + HexOf(status));
}

void Application::UseClock() {
  const bool isStopped = stream_->IsStopped();
  DoAllowing("use the clock", {isStopped ? STATUS_SUCCESS : STATUS_INVALID_DEVICE_STATE},
             [&] { return stream_->UseClock(); });
}

void Application::LookAtStream() {
  DoAllowing("look at the stream", {STATUS_SUCCESS}, [&] {
    const KSPROPERTY_DROPPEDFRAMES_CURRENT_S dropped = stream_->Pin().DroppedFrames();
    static_cast<void>(stream_->Pin().Format());
    const KSALLOCATOR_FRAMING_EX framing = stream_->Pin().Framing();
    stage_.Require(framing.FramingItem[0].Frames == 5, "a pin has another number of frames");
    stage_.Require(dropped.PictureNumber >= 0 && dropped.DropCount >= 0, "a count is below zero");
    return STATUS_SUCCESS;
  });
}

// ---- Properties.

void Application::Ask(const client::PropertyClient& properties) {
  PropertyRequest request = AnyPropertyRequest(chance_, clients_.Rules().WritesRegisters);
  const Block before = request.Value;
  ULONG_PTR information = 0;
  const bool isWhole = request.Request.Size() >= sizeof(KSPROPERTY);
  const NTSTATUS status = Do("ask for a property", [&] {
    return properties.Ask(request.Set, request.Id, request.Flags, request.Request, request.Value,
                          information);
  });
  if (wasRemoved_) return Require(status == kRemoved, "a removed device answers " + HexOf(status));
  const bool isSame =
      before.Size() == 0 || std::memcmp(before.Data(), request.Value.Data(), before.Size()) == 0;
  if (!NT_SUCCESS(status) && status != STATUS_BUFFER_OVERFLOW) {
    RequireAlways(isSame, "a refused request changes the client's memory");
  }
  if (status == STATUS_SUCCESS) {
    RequireAlways(isWhole, "half a request is answered");
    RequireAlways(information <= request.Value.Size(), "an answer is longer than its buffer");
    const bool isOfCamera =
        request.Flags == KSPROPERTY_TYPE_GET || request.Flags == KSPROPERTY_TYPE_SET;
    RequireAlways(!wasGone_ || !isOfCamera || !IsCameraSet(request.Set),
                  "a camera that is gone answers");
  }
  const bool isAllowed = std::ranges::find(kRefusals, status) != kRefusals.end() || !IsSound() ||
                         status == STATUS_SHARING_VIOLATION;
  Require(isAllowed, "answers " + HexOf(status));
}

void Application::AskAnything() {
  Ask(camera_->Properties());
}

// A request that sets the state changes the stream's state, too.
void Application::AskPin() {
  Ask(stream_->Pin().Properties());
  stream_->LookAtState();
}

void Application::AskSupport() {
  constexpr ULONG kIds[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 30};
  const GUID set = chance_.OneIn(2) ? kVideoProcAmpSet : kCameraControlSet;
  const ULONG id = chance_.OneOf(kIds);
  DoAllowing("describe a property", {STATUS_SUCCESS, STATUS_NOT_FOUND}, [&] {
    const client::PropertySupport support = camera_->Properties().Support(set, id);
    stage_.Require(support.AccessFlags == (KSPROPERTY_TYPE_GET | KSPROPERTY_TYPE_SET) &&
                       support.Values && support.Default,
                   "a level has no range");
    return STATUS_SUCCESS;
  });
}

void Application::ChangeLevel() {
  constexpr ULONG kIds[] = {0, 1, 3, 4, 5, 6, 7, 8};
  const ULONG id = chance_.OneOf(kIds);
  const auto value = static_cast<LONG>(chance_.Below(20));
  const auto change = [&] {
    camera_->SetLevel(kVideoProcAmpSet, id, {value, KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL});
    static_cast<void>(camera_->GetLevel(kVideoProcAmpSet, id));
    return STATUS_SUCCESS;
  };
  if (IsSound()) {
    DoAllowing("change a level", {STATUS_SUCCESS}, change);
  } else if (clients_.IsGone()) {
    DoAllowing("change a level", {STATUS_UNSUCCESSFUL}, change);
  } else {
    DoAllowing("change a level", {STATUS_SUCCESS, STATUS_UNSUCCESSFUL, STATUS_NOT_SUPPORTED},
               change);
  }
}

void Application::ChangeLight() {
  PrivatePropertyBlock block{};
  block.Value = static_cast<LONG>(chance_.Below(2));
  block.Led = static_cast<ULONG>(chance_.Between(LedPolicyOn, LedPolicyFollowLight));
  const NTSTATUS refused = IsSound() ? STATUS_SUCCESS : STATUS_UNSUCCESSFUL;
  DoAllowing("change the light", {STATUS_SUCCESS, refused}, [&] {
    return camera_->Properties().SetBlock(PROPSETID_CAMERA_PRIVATE, PrivatePropertyLight, block);
  });
}

void Application::ListFormats() {
  DoAllowing("list the formats", {STATUS_SUCCESS}, [&] {
    const std::size_t formats = camera_->Ranges().size();
    stage_.Require(formats == 5 || (formats == 0 && !IsSound()),
                   "a pin has another number of formats");
    stage_.Require(camera_->PinCount() == 1 && camera_->Categories().size() == 2,
                   "a camera has other pins or categories");
    return STATUS_SUCCESS;
  });
}

void Application::Intersect() {
  DoAllowing(
      "intersect",
      {STATUS_SUCCESS, STATUS_NO_MATCH, STATUS_INVALID_PARAMETER, STATUS_INVALID_BUFFER_SIZE}, [&] {
        const std::vector<KS_DATARANGE_VIDEO> ranges = camera_->Ranges();
        if (ranges.empty()) return STATUS_NO_MATCH;
        KS_DATARANGE_VIDEO range = ranges[chance_.Below(ranges.size())];
        auto* const bytes = reinterpret_cast<std::byte*>(&range);
        const std::uint64_t changes = chance_.Below(4);
        for (std::uint64_t i = 0; i < changes; ++i) {
          bytes[chance_.Below(sizeof(range))] = static_cast<std::byte>(chance_.Next());
        }
        static_cast<void>(camera_->Intersect(range));
        return STATUS_SUCCESS;
      });
}

// ---- Operations that must succeed.

void Application::RequireSuccess(NTSTATUS status) {
  Require(status == STATUS_SUCCESS, "answers " + HexOf(status));
}

void Application::OpenOnly() {
  RequireSuccess(Do("open the camera only", [&] {
    camera_.emplace(Camera::Open(clients_.TopDevice()));
    return STATUS_SUCCESS;
  }));
}

void Application::ConnectOnly() {
  RequireSuccess(Do("connect only", [&] {
    stream_ = std::make_unique<CheckedStream>(stage_, IsSound(), *camera_,
                                              camera_->FormatOf(160, 120), 5);
    return STATUS_SUCCESS;
  }));
}

void Application::RequireFrames() {
  const auto require = [this](NTSTATUS status) {
    if (!stage_.Camera().HasMixedAccesses()) RequireSuccess(status);
  };
  require(Do("open the camera again", [&] {
    camera_.emplace(Camera::Open(clients_.TopDevice()));
    stream_ =
        std::make_unique<CheckedStream>(stage_, true, *camera_, camera_->FormatOf(160, 120), 5);
    return STATUS_SUCCESS;
  }));
  require(Do("run again", [&] { return stream_->Run(); }));
  for (int i = 0; i < 3; ++i) {
    require(Do("take a frame again", [&] { return stream_->Take(kPatience); }));
  }
  End();
}

}  // namespace lidcam::scenarios
