#include "testbed/transport_testbed.h"

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "driver/core/base/reference_counted_memory.h"
#include "driver/frame/delivery/frame_delivery.h"
#include "platform/host/ks/device/class_rules.h"

namespace lidcam::testbed {
namespace {

constexpr std::uint32_t kSurpriseRemoved = 3;

// The size of raw frames varies by a few bytes; the assembler accepts these, too.
constexpr std::int64_t kSizeTolerance = 10;

KS_DATAFORMAT_VIDEOINFOHEADER FormatFor(const StreamRequest& request) {
  KS_DATAFORMAT_VIDEOINFOHEADER format{};
  format.DataFormat.FormatSize = sizeof(format);
  KS_VIDEOINFOHEADER& video = format.VideoInfoHeader;
  video.AvgTimePerFrame = request.FrameInterval;
  video.bmiHeader.biSize = sizeof(video.bmiHeader);
  video.bmiHeader.biWidth = request.Width;
  video.bmiHeader.biHeight = request.Height;
  video.bmiHeader.biPlanes = 1;
  video.bmiHeader.biBitCount = 16;
  video.bmiHeader.biCompression = kFourccYuy2;
  video.bmiHeader.biSizeImage = static_cast<DWORD>(request.Width * request.Height * 2);
  format.DataFormat.SampleSize = video.bmiHeader.biSizeImage;
  return format;
}

class MutexHold {
 public:
  explicit MutexHold(KMUTEX& mutex) : mutex_(mutex) {
    KeWaitForSingleObject(&mutex_, Executive, KernelMode, FALSE, nullptr);
  }
  MutexHold(const MutexHold&) = delete;
  MutexHold& operator=(const MutexHold&) = delete;
  ~MutexHold() noexcept(false) {
    if (!check_.IsUnwinding()) KeReleaseMutex(&mutex_, FALSE);
  }

 private:
  const host::UnwindCheck check_;
  KMUTEX& mutex_;
};

/// The class holds the device's mutex around these calls.
class ClassHold {
 public:
  ClassHold(host::StreamingDevice& device, host::ClassCall call) : device_(device) {
    host::AcquireDeviceFor(device_, call);
  }
  ClassHold(const ClassHold&) = delete;
  ClassHold& operator=(const ClassHold&) = delete;
  ~ClassHold() noexcept(false) {
    if (!check_.IsUnwinding()) host::ReleaseDeviceOf(device_);
  }

 private:
  const host::UnwindCheck check_;
  host::StreamingDevice& device_;
};

std::size_t PictureBytes(const CameraContext& camera) {
  const std::int64_t width = camera.RequestedWidth;
  const std::int64_t height = camera.RequestedHeight;
  return width > 0 && height > 0 ? static_cast<std::size_t>(width * height * 2) : 0;
}

}  // namespace

/// The calls of the pin by the driver and the streaming class.
struct HostedPin {
  static TransportTestbed& CameraOf(PKSPIN pin) {
    return *static_cast<TransportTestbed*>(pin->Context);
  }

  static NTSTATUS NTAPI Process(PKSPIN pin) { return CameraOf(pin).Process(); }

  static std::uint8_t IsProcessing(PKSPIN pin) {
    return static_cast<std::uint8_t>(InterlockedCompareExchange(&CameraOf(pin).processing_, 0, 0) &
                                     0xFF);
  }

  // The connection already has the format, and the picture's memory follows the camera's record.
  static NTSTATUS ApplyFormat(PKSPIN) { return STATUS_SUCCESS; }

  static constexpr PinOperations kOperations{IsProcessing, ApplyFormat};
};

TransportTestbed::TransportTestbed(bus::UsbBus& bus, TransportTestbedOptions options)
    : Testbed(bus, {std::move(options.DriverKey), options.FirstBusFrame, options.Filter},
              [this] { KeSetEvent(&progress_, IO_NO_INCREMENT, FALSE); }),
      frames_(std::move(options.Frames)),
      takesFrames_(options.TakesFrames) {
  KeInitializeEvent(&progress_, SynchronizationEvent, FALSE);
  KeInitializeMutex(&consumer_, 0);
  Build([this] { AddDevice(); }, [this] { ksDevice_.reset(); });
}

void TransportTestbed::AddDevice() {
  ksDevice_ = std::make_unique<host::StreamingDevice>(&DriverObject(), PhysicalDevice());
  if (!NT_SUCCESS(AddCameraDevice(ksDevice_.get()))) {
    throw std::runtime_error("the driver has no room for the camera's device");
  }
  Device().Pins = &HostedPin::kOperations;
}

TransportTestbed::~TransportTestbed() noexcept(false) {
  if (std::uncaught_exceptions() == 0) Close();
}

void TransportTestbed::Close() {
  if (!IsPluggedIn()) return;
  if (isStarted_) {
    Pause();
    Release();
    Stop();
  }
  TakeDown([this] { delete ksDevice_.release(); });
}

NTSTATUS TransportTestbed::Start() {
  const NTSTATUS status = StartHardware();
  if (!NT_SUCCESS(status)) return status;
  try {
    MakePin();
  } catch (const std::runtime_error&) {
    Device().StopHardware();
    return STATUS_INSUFFICIENT_RESOURCES;
  }
  Device().HardwareStarted = 1;
  isStarted_ = true;
  return status;
}

NTSTATUS TransportTestbed::StartHardware() {
  const ClassHold hold(*ksDevice_, host::ClassCall::Start);
  return Device().StartHardware(ksDevice_.get());
}

void TransportTestbed::MakePin() {
  pin_ = std::make_unique<host::StreamingPin>(*ksDevice_, HostedPin::Process, &format_.DataFormat);
  pin_->Context = this;
}

NTSTATUS TransportTestbed::Acquire(const StreamRequest& request) {
  const MutexHold hold(consumer_);
  format_ = FormatFor(request);
  const NTSTATUS status = Device().AcquireStream(pin_.get(), &format_.VideoInfoHeader);
  if (!NT_SUCCESS(status)) return status;
  const CameraContext* const camera = Device().Camera;
  const std::uint32_t starts = camera->FrameStartCount;
  const std::lock_guard lock(countsMutex_);
  counts_ = {};
  atAcquire_ = Meter();
  firstFrameStart_ = starts;
  frameStarts_ = starts;
  handlerError_ = nullptr;
  return status;
}

NTSTATUS TransportTestbed::Run() {
  return Device().RunStream();
}

NTSTATUS TransportTestbed::Pause() {
  return Device().PauseStream();
}

NTSTATUS TransportTestbed::Resume() {
  return Device().ResumeStream();
}

NTSTATUS TransportTestbed::Release() {
  return Device().ReleaseStream();
}

NTSTATUS TransportTestbed::Stop() {
  if (!isStarted_) return STATUS_SUCCESS;
  isStarted_ = false;
  Device().HardwareStarted = 0;
  Device().OnDeviceGone(0);
  delete pin_.release();  // may throw, which reset() can't pass on
  return Device().StopHardware();
}

void TransportTestbed::TellGone() {
  Device().OnDeviceGone(kSurpriseRemoved);
}

void TransportTestbed::Unplug() {
  PullPlug();
  TellGone();
}

void TransportTestbed::PowerDown() {
  const ClassHold hold(*ksDevice_, host::ClassCall::SetPower);
  Device().PowerSet(ksDevice_.get(), nullptr, PowerDeviceD3, PowerDeviceD0);
}

void TransportTestbed::PowerUp() {
  const ClassHold hold(*ksDevice_, host::ClassCall::SetPower);
  Device().PowerSet(ksDevice_.get(), nullptr, PowerDeviceD0, PowerDeviceD3);
}

std::uint32_t TransportTestbed::AlternateSetting() const {
  const UsbStreamRecord* const stream = Device().UsbStream;
  return stream != nullptr ? stream->StreamFormat.AlternateSetting : 0;
}

void TransportTestbed::WithCamera(const std::function<void(CameraContext& camera)>& use) {
  RunThenEnd(
      [&] {
        KeWaitForSingleObject(&consumer_, Executive, KernelMode, FALSE, nullptr);
        use(*Device().Camera);
      },
      [&] { KeReleaseMutex(&consumer_, FALSE); });
}

bool TransportTestbed::WaitForFrames(std::uint64_t delivered, LONGLONG limit) {
  const auto end = static_cast<LONGLONG>(KeQueryInterruptTime()) + limit;
  for (;;) {
    RethrowHandlerError();
    if (Counts().Delivered() >= delivered) return true;
    LARGE_INTEGER left{};
    left.QuadPart = static_cast<LONGLONG>(KeQueryInterruptTime()) - end;
    if (left.QuadPart >= 0 || End() != BusEnd::None) {
      NoteFrameStarts();
      return false;
    }
    KeWaitForSingleObject(&progress_, Executive, KernelMode, FALSE, &left);
  }
}

// Frames that were begun and never delivered are counted here only.
void TransportTestbed::NoteFrameStarts() {
  const CameraContext* const camera = Device().Camera;
  if (camera == nullptr) return;
  const std::uint32_t starts = camera->FrameStartCount;
  const std::lock_guard lock(countsMutex_);
  frameStarts_ = starts;
}

BusMeter TransportTestbed::SinceAcquired() const {
  const BusMeter now = Meter();
  return {now.Bytes - atAcquire_.Bytes, now.Microframes - atAcquire_.Microframes};
}

FrameCounts TransportTestbed::Counts() const {
  const std::lock_guard lock(countsMutex_);
  FrameCounts counts = counts_;
  const BusMeter meter = SinceAcquired();
  counts.BusBytes = meter.Bytes;
  counts.Microframes = meter.Microframes;
  // The frame that is being received is not counted.
  const std::uint32_t starts = frameStarts_ - firstFrameStart_;
  const std::uint64_t ended = starts == 0 ? 0 : starts - 1U;
  counts.Dropped = ended > counts.Delivered() ? ended - counts.Delivered() : 0;
  return counts;
}

// As in the streaming class's pins: for the frame thread the pin is busy from before the frame is
// fetched until it has been read.
NTSTATUS TransportTestbed::Process() {
  const MutexHold hold(consumer_);
  CameraContext* const camera = Device().Camera;
  if (camera == nullptr || !takesFrames_) return STATUS_UNSUCCESSFUL;
  InterlockedIncrement(&processing_);
  std::uint32_t rawBytes = 0;
  ReferenceCountedMemory* memory = nullptr;
  std::uint8_t* const raw = Device().HoldRawFrame(rawBytes, memory);
  const bool hasFrame = raw != nullptr && rawBytes != 0;
  if (hasFrame) Deliver(*camera, raw, rawBytes);
  if (memory != nullptr) LetGo(*memory);
  InterlockedDecrement(&processing_);
  KeSetEvent(&progress_, IO_NO_INCREMENT, FALSE);
  return hasFrame ? STATUS_PENDING : STATUS_UNSUCCESSFUL;
}

void TransportTestbed::Deliver(CameraContext& camera, std::uint8_t* raw, std::uint32_t rawBytes) {
  {
    const std::lock_guard lock(countsMutex_);
    if (handlerError_ != nullptr) return;
  }
  picture_.resize(PictureBytes(camera));
  std::uint32_t written = 0;
  DeliverFrame(camera, picture_.data(), static_cast<std::uint32_t>(picture_.size()), raw, rawBytes,
               written);
  const std::int64_t expected = std::uint32_t{camera.RawFrameSize};
  const bool isGood = std::abs(std::int64_t{rawBytes} - expected) <= kSizeTolerance;
  const std::uint32_t starts = camera.FrameStartCount;
  std::uint64_t microframe = 0;
  {
    const std::lock_guard lock(countsMutex_);
    ++(isGood ? counts_.Good : counts_.Bad);
    frameStarts_ = starts;
    microframe = SinceAcquired().Microframes;
  }
  if (!frames_) return;
  try {
    frames_({.Yuy2 = picture_,
             .RawFrame = {raw, rawBytes},
             .Microframe = microframe,
             .IsGood = isGood,
             .Camera = camera});
  } catch (const std::exception&) {
    const std::lock_guard lock(countsMutex_);
    handlerError_ = std::current_exception();
  }
}

void TransportTestbed::RethrowHandlerError() {
  const std::lock_guard lock(countsMutex_);
  if (handlerError_ != nullptr) std::rethrow_exception(handlerError_);
}

void WithTransportTestbed(bus::UsbBus& bus, TransportTestbedOptions options,
                          const std::function<void(TransportTestbed& camera)>& use) {
  TransportTestbed camera(bus, std::move(options));
  RunThenEnd([&] { use(camera); }, [&] { camera.Close(); });
}

}  // namespace lidcam::testbed
