// Formats of hostile clients: intersections of data ranges, connection formats and changes of
// format, correct except for some words or entirely arbitrary, with true or false lengths; then a
// short stream into buffers whose size the client chooses. In all cases nothing is written outside
// of a buffer, every buffer comes back, and nothing of a refused connection is left.

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "fuzz/support/installed_world.h"

namespace lidcam::fuzz {
namespace {

using client::Block;

constexpr int kMost = 12;
constexpr std::size_t kLongest = 400;
constexpr std::uint32_t kLargestBuffer = 1U << 20;
constexpr std::size_t kBuffers = 4;

constexpr std::pair<std::int32_t, std::int32_t> kSizes[] = {
    {160, 120}, {176, 144}, {320, 240}, {352, 288}, {640, 480}};

constexpr char16_t kPinName[] = u"{146F1A80-4791-11D0-A5D6-28DB04C10000}\\";
constexpr char16_t kClockName[] = u"{53172480-4791-11D0-A5D6-28DB04C10000}";

// `known` with some words changed, and lengthened or shortened; or arbitrary bytes.
Block AnyBlock(Input& input, std::span<const std::byte> known) {
  const auto kind = input.Take<std::uint8_t>();
  if (kind % 8 == 0) return TakeBlock(input, input.Take<std::uint16_t>() % kLongest);
  Block block(known);
  if (kind % 8 == 1) {
    block = Block(input.Take<std::uint16_t>() % kLongest);
    const std::size_t bytes = std::min(block.Size(), known.size());
    if (bytes != 0) std::memcpy(block.Data(), known.data(), bytes);
  }
  input.Change(block.Data(), block.Size());
  return block;
}

// A frame whose buffer has exactly the size in its header.
struct Buffer {
  struct {
    KSSTREAM_HEADER Header;
    KS_FRAME_INFO Info;
  } Head{};
  std::vector<std::byte> Data;
  std::unique_ptr<host::DeviceRequest> Request;
};

class Client {
 public:
  Client(Input& input, const client::Camera& camera)
      : input_(input), camera_(camera), ranges_(camera.Ranges()) {}

  void Run() {
    for (int i = 0; i < kMost && !input_.IsEmpty(); ++i) {
      switch (input_.Take<std::uint8_t>() % 7) {
        case 0:
          Intersect();
          break;
        case 1:
          CloseDown();
          Connect(pin_);
          break;
        case 2:
          ChangeFormat();
          break;
        case 3:
          LookAtPin();
          break;
        case 5:
          ConnectSecond();
          break;
        case 6:
          GoByClock();
          break;
        default:
          Stream();
          break;
      }
    }
    CloseDown();
  }

 private:
  Block KnownFormat() {
    const auto [width, height] = kSizes[input_.Take<std::uint8_t>() % std::size(kSizes)];
    return Block(camera_.FormatOf(width, height).Bytes());
  }

  void Intersect() {
    const KS_DATARANGE_VIDEO& known = ranges_[input_.Take<std::uint8_t>() % ranges_.size()];
    const Block range = AnyBlock(input_, std::as_bytes(std::span(&known, 1)));
    struct Head {
      KSP_PIN Pin;
      KSMULTIPLE_ITEM List;
    } head{};
    const auto size = static_cast<ULONG>(sizeof(head.List) + range.Size());
    head.List = {input_.Take<std::uint8_t>() % 4 == 0 ? input_.Take<ULONG>() : size,
                 input_.Take<std::uint8_t>() % 4 == 0 ? input_.Take<ULONG>() : 1U};
    Block request(sizeof(head) + range.Size());
    std::memcpy(request.Data(), &head, sizeof(head));
    if (range.Size() != 0) {
      std::memcpy(request.Data() + sizeof(head), range.Data(), range.Size());
    }
    Block value(input_.Take<std::uint16_t>() % kLongest);
    ULONG_PTR information = 0;
    const NTSTATUS status =
        camera_.Properties().Ask(KSPROPSETID_Pin, KSPROPERTY_PIN_DATAINTERSECTION,
                                 KSPROPERTY_TYPE_GET, request, value, information);
    if (status == STATUS_SUCCESS) Require(information <= value.Size());
  }

  void CloseDown() {
    pin_.reset();
    clock_.reset();
  }

  void Connect(std::unique_ptr<host::DeviceFile>& pin) {
    const Block format = AnyBlock(input_, KnownFormat().Bytes());
    KSPIN_CONNECT connect{};
    connect.Interface.Set = KSINTERFACESETID_Standard;
    connect.Medium.Set = KSMEDIUMSETID_Standard;
    if (input_.Take<std::uint8_t>() % 8 == 0) {
      input_.Change(&connect, sizeof(connect));
    }
    std::vector<std::byte> behind(sizeof(connect) + format.Size());
    std::memcpy(behind.data(), &connect, sizeof(connect));
    if (format.Size() != 0) {
      std::memcpy(behind.data() + sizeof(connect), format.Data(), format.Size());
    }
    std::u16string name = kPinName;
    const std::size_t letters = name.size();
    name.resize(letters + (behind.size() + 1) / sizeof(char16_t));
    std::memcpy(name.data() + letters, behind.data(), behind.size());
    const NTSTATUS status =
        host::DeviceFile::Open(camera_.File().Device(), name, &camera_.File(), pin);
    Require(NT_SUCCESS(status) == (pin != nullptr));
  }

  // The filter allows one pin at a time.
  void ConnectSecond() {
    std::unique_ptr<host::DeviceFile> second;
    Connect(second);
    Require(pin_ == nullptr || second == nullptr);
  }

  void GoByClock() {
    if (pin_ == nullptr || clock_ != nullptr) return;
    if (!NT_SUCCESS(host::DeviceFile::Open(pin_->Device(), kClockName, pin_.get(), clock_))) return;
    Require(client::PropertyClient(*pin_).Set(KSPROPSETID_Stream, KSPROPERTY_STREAM_MASTERCLOCK,
                                              clock_->Handle()) != STATUS_PENDING);
  }

  void ChangeFormat() {
    if (pin_ == nullptr) return;
    Block format = AnyBlock(input_, KnownFormat().Bytes());
    Block request(sizeof(KSPROPERTY));
    ULONG_PTR information = 0;
    const client::PropertyClient properties(*pin_);
    Require(properties.Ask(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_DATAFORMAT,
                           KSPROPERTY_TYPE_SET, request, format, information) != STATUS_PENDING);
  }

  void LookAtPin() {
    if (pin_ == nullptr) return;
    const client::PropertyClient properties(*pin_);
    const Block format =
        properties.GetSized(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_DATAFORMAT);
    Require(format.Size() >= sizeof(KSDATAFORMAT));
    Require(properties.GetSized(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_ALLOCATORFRAMING_EX)
                .Size() == sizeof(KSALLOCATOR_FRAMING_EX));
    KSPROPERTY_DROPPEDFRAMES_CURRENT_S dropped{};
    Require(properties.GetBlock(PROPSETID_VIDCAP_DROPPEDFRAMES, KSPROPERTY_DROPPEDFRAMES_CURRENT,
                                dropped) == STATUS_SUCCESS);
    KSSTATE state{};
    Require(properties.Get(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE, state) ==
            STATUS_SUCCESS);
    KSPRIORITY priority{};
    Require(properties.Get(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_PRIORITY, priority) ==
            STATUS_SUCCESS);
    HANDLE clock = nullptr;
    Require(properties.Get(KSPROPSETID_Stream, KSPROPERTY_STREAM_MASTERCLOCK, clock) ==
            STATUS_SUCCESS);
    AskForTrigger();
  }

  // The pin lists this event and refuses every request for it.
  void AskForTrigger() {
    KSIDENTIFIER request{};
    request.Set = KSEVENTSETID_VIDCAPTOSTI;
    request.Id = KSEVENT_VIDCAPTOSTI_EXT_TRIGGER;
    request.Flags = KSEVENT_TYPE_ENABLE;
    KSEVENTDATA event{};
    ULONG_PTR information = 0;
    Require(!NT_SUCCESS(pin_->Control(
        IOCTL_KS_ENABLE_EVENT, {&request, sizeof(request), &event, sizeof(event)}, information)));
  }

  NTSTATUS SetState(KSSTATE state) {
    return client::PropertyClient(*pin_).Set(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE,
                                             state);
  }

  // Any states, with a run before each stop. The number after the last state is invalid.
  void WanderThroughStates() {
    for (std::uint32_t left = input_.UpTo(3); left != 0; --left) {
      const auto state = static_cast<KSSTATE>(input_.UpTo(KSSTATE_RUN + 1));
      if (state == KSSTATE_STOP) Require(SetState(KSSTATE_RUN) == STATUS_SUCCESS);
      static_cast<void>(SetState(state));
      InstalledWorld::Sleep(input_.Take<std::uint8_t>());
    }
    Require(SetState(KSSTATE_RUN) == STATUS_SUCCESS);
  }

  void Queue(Buffer& buffer) {
    const auto chosen = input_.Take<std::uint8_t>();
    const std::uint32_t extent = chosen % 4 == 0 ? input_.Take<std::uint32_t>() % kLargestBuffer
                                                 : Minimum() % kLargestBuffer;
    buffer.Data.resize(extent);
    buffer.Head = {};
    buffer.Head.Header.Size =
        chosen % 16 == 15 ? input_.Take<std::uint32_t>() : sizeof(buffer.Head);
    buffer.Head.Header.FrameExtent = extent;
    buffer.Head.Header.Data = extent != 0 ? buffer.Data.data() : nullptr;
    buffer.Request = pin_->BeginControl(
        IOCTL_KS_READ_STREAM, {.Output = &buffer.Head, .OutputBytes = sizeof(buffer.Head)});
  }

  ULONG Minimum() {
    const client::PropertyClient properties(*pin_);
    const Block framing =
        properties.GetSized(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_ALLOCATORFRAMING_EX);
    KSALLOCATOR_FRAMING_EX record{};
    std::memcpy(&record, framing.Data(), sizeof(record));
    return record.FramingItem[0].FramingRange.Range.MinFrameSize;
  }

  // A prepared stream must run before it stops: otherwise it stays prepared.
  void Stream() {
    if (pin_ == nullptr) return;
    std::array<Buffer, kBuffers> buffers;
    const NTSTATUS prepared = SetState(KSSTATE_PAUSE);
    for (Buffer& buffer : buffers) Queue(buffer);
    if (NT_SUCCESS(prepared)) {
      Require(SetState(KSSTATE_RUN) == STATUS_SUCCESS);
      InstalledWorld::Sleep(input_.Take<std::uint8_t>() * 3);
      WanderThroughStates();
    }
    Require(SetState(KSSTATE_STOP) == STATUS_SUCCESS);
    for (Buffer& buffer : buffers) {
      // A stop completes all queued buffers; a stream that was never prepared isn't stopped.
      if (!NT_SUCCESS(prepared)) buffer.Request->Cancel();
      LARGE_INTEGER now{};
      Require(buffer.Request->Wait(&now));
    }
  }

  Input& input_;
  const client::Camera& camera_;
  const std::vector<KS_DATARANGE_VIDEO> ranges_;
  std::unique_ptr<host::DeviceFile> pin_;
  std::unique_ptr<host::DeviceFile> clock_;
};

void Run(Input& input) {
  const client::Camera& camera = InstalledWorld::Next().Camera();
  const host::PoolUsage before = host::PoolUsageOfAll();
  Client(input, camera).Run();
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
