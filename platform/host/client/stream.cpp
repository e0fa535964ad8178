#include "platform/host/client/stream.h"

#include <cstring>
#include <string>

#include "platform/host/client/client_error.h"

namespace lidcam::client {

/// A buffer, with its stream headers, which the driver fills.
struct StreamBuffer {
  struct Headers {
    KSSTREAM_HEADER Header;
    KS_FRAME_INFO Info;
  };

  Headers Head{};
  std::vector<std::byte> Own;  ///< empty in memory of the stream's user
  std::span<std::byte> Data;
  std::unique_ptr<host::DeviceRequest> Request;  ///< null while the buffer is the application's
  bool IsLent = false;                           ///< a Frame refers to it
};

namespace {

std::u16string TextOf(const GUID& guid) {
  std::u16string text = u"{";
  const auto hex = [&text](ULONG value, int digits) {
    while (digits-- > 0) text += u"0123456789ABCDEF"[(value >> (4 * digits)) & 0xF];
  };
  hex(guid.Data1, 8);
  text += u'-';
  hex(guid.Data2, 4);
  text += u'-';
  hex(guid.Data3, 4);
  for (int i = 0; i < 8; ++i) {
    if (i == 0 || i == 2) text += u'-';
    hex(guid.Data4[i], 2);
  }
  return text + u'}';
}

/// The name under which a filter's pin is opened, with the connection behind it.
std::u16string PinName(const VideoFormat& format, ULONG pin) {
  KSPIN_CONNECT connect{};
  connect.Interface.Set = KSINTERFACESETID_Standard;
  connect.Interface.Id = KSINTERFACE_STANDARD_STREAMING;
  connect.Medium.Set = KSMEDIUMSETID_Standard;
  connect.Medium.Id = KSMEDIUM_TYPE_ANYINSTANCE;
  connect.PinId = pin;
  connect.Priority = {0x40000000, 1};  // normal
  std::u16string name = TextOf(KSNAME_Pin) + u'\\';
  const std::size_t bytes = sizeof(connect) + format.Bytes().size();
  const std::size_t letters = name.size();
  name.resize(letters + (bytes + sizeof(char16_t) - 1) / sizeof(char16_t));
  auto* const behind = reinterpret_cast<std::byte*>(name.data() + letters);
  std::memcpy(behind, &connect, sizeof(connect));
  std::memcpy(behind + sizeof(connect), format.Bytes().data(), format.Bytes().size());
  return name;
}

}  // namespace

Frame::~Frame() noexcept(false) {
  if (stream_ != nullptr) stream_->Release(*buffer_);
}

LONGLONG Frame::PresentationTime() const {
  return buffer_->Head.Header.PresentationTime.Time;
}
LONGLONG Frame::Duration() const {
  return buffer_->Head.Header.Duration;
}
ULONG Frame::OptionsFlags() const {
  return buffer_->Head.Header.OptionsFlags;
}
LONGLONG Frame::PictureNumber() const {
  return buffer_->Head.Info.PictureNumber;
}
LONGLONG Frame::DropCount() const {
  return buffer_->Head.Info.DropCount;
}
std::span<const std::byte> Frame::Bytes() const {
  const std::size_t used = buffer_->Head.Header.DataUsed;
  return buffer_->Data.first(used < buffer_->Data.size() ? used : buffer_->Data.size());
}

// The buffer stays lent, so that it isn't queued again.
std::vector<std::byte> Frame::TakeMemory() {
  std::exchange(stream_, nullptr);
  return std::move(buffer_->Own);
}

Stream::Stream(const Camera& camera, const VideoFormat& format, const StreamOptions& options) {
  Check(host::DeviceFile::Open(camera.File().Device(), PinName(format, options.Pin), &camera.File(),
                               pin_),
        "connect a stream");
  bufferBytes_ = Framing().FramingItem[0].FramingRange.Range.MinFrameSize;
  const std::size_t room = options.Memory.size() / (options.Buffers != 0 ? options.Buffers : 1);
  if (!options.Memory.empty() && room < bufferBytes_) {
    throw ClientError("fill buffers of that size", STATUS_BUFFER_TOO_SMALL);
  }
  for (std::size_t i = 0; i < options.Buffers; ++i) {
    auto buffer = std::make_unique<StreamBuffer>();
    if (options.Memory.empty()) buffer->Own.resize(bufferBytes_);
    buffer->Data = options.Memory.empty() ? std::span(buffer->Own)
                                          : options.Memory.subspan(i * room, bufferBytes_);
    buffers_.push_back(std::move(buffer));
  }
}

// The pin's cleanup completes all requests of buffers. They are released before the file, which
// stays open for its requests.
Stream::~Stream() noexcept(false) {
  clock_.reset();
  for (const auto& buffer : buffers_) buffer->Request.reset();
  pin_.reset();
}

KSSTATE Stream::State() const {
  KSSTATE state = KSSTATE_STOP;
  Check(Properties().Get(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE, state),
        "tell the state of a stream");
  return state;
}

NTSTATUS Stream::SetState(KSSTATE state) {
  const NTSTATUS status =
      Properties().Set(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE, state);
  if (state == KSSTATE_STOP && NT_SUCCESS(status)) TakeBack();
  return status;
}

void Stream::Run() {
  Check(SetState(KSSTATE_PAUSE), "prepare a stream");
  QueueAll();
  Check(SetState(KSSTATE_RUN), "run a stream");
}

void Stream::Pause() {
  Check(SetState(KSSTATE_PAUSE), "pause a stream");
}

void Stream::Stop() {
  isQueuing_ = false;
  const NTSTATUS status = SetState(KSSTATE_STOP);
  if (!NT_SUCCESS(status)) {
    CancelBuffers();
    TakeBack();
  }
  Check(status, "stop a stream");
}

VideoFormat Stream::Format() const {
  return VideoFormat(
      Properties().GetSized(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_DATAFORMAT));
}

NTSTATUS Stream::SetFormat(const VideoFormat& format) {
  Block request(sizeof(KSPROPERTY));
  Block value(format.Bytes());
  ULONG_PTR information = 0;
  return Properties().Ask(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_DATAFORMAT,
                          KSPROPERTY_TYPE_SET, request, value, information);
}

KSALLOCATOR_FRAMING_EX Stream::Framing() const {
  const Block block =
      Properties().GetSized(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_ALLOCATORFRAMING_EX);
  KSALLOCATOR_FRAMING_EX framing{};
  if (block.Size() < sizeof(framing)) {
    throw ClientError("tell what buffers it needs", STATUS_INVALID_BUFFER_SIZE);
  }
  std::memcpy(&framing, block.Data(), sizeof(framing));
  return framing;
}

KSPROPERTY_DROPPEDFRAMES_CURRENT_S Stream::DroppedFrames() const {
  KSPROPERTY_DROPPEDFRAMES_CURRENT_S dropped{};
  Check(Properties().GetBlock(PROPSETID_VIDCAP_DROPPEDFRAMES, KSPROPERTY_DROPPEDFRAMES_CURRENT,
                              dropped),
        "count dropped frames");
  return dropped;
}

void Stream::UseClock() {
  std::unique_ptr<host::DeviceFile> clock;
  Check(host::DeviceFile::Open(pin_->Device(), TextOf(KSNAME_Clock), pin_.get(), clock),
        "open the clock of a stream");
  Check(Properties().Set(KSPROPSETID_Stream, KSPROPERTY_STREAM_MASTERCLOCK, clock->Handle()),
        "go by the clock of a stream");
  clock_ = std::move(clock);
}

LONGLONG Stream::ClockTime() const {
  if (clock_ == nullptr)
    throw ClientError("tell the time of a stream", STATUS_INVALID_DEVICE_STATE);
  LONGLONG time = 0;
  Check(PropertyClient(*clock_).Get(KSPROPSETID_Clock, KSPROPERTY_CLOCK_TIME, time),
        "tell the time of a stream");
  return time;
}

NextFrame Stream::Next(LONGLONG timeout) {
  if (!NT_SUCCESS(end_)) return {end_, std::nullopt};
  if (queued_.empty()) return {STATUS_TIMEOUT, std::nullopt};
  LARGE_INTEGER limit{};
  limit.QuadPart = -timeout;
  if (!queued_.front()->Request->Wait(&limit)) return {STATUS_TIMEOUT, std::nullopt};
  StreamBuffer& buffer = TakeFirst();
  if (!NT_SUCCESS(end_)) return {end_, std::nullopt};
  buffer.IsLent = true;
  return {STATUS_SUCCESS, Frame(*this, buffer)};
}

void Stream::CancelBuffers() {
  isQueuing_ = false;
  for (StreamBuffer* const buffer : queued_) buffer->Request->Cancel();
}

StreamBuffer& Stream::TakeFirst() {
  StreamBuffer& buffer = *queued_.front();
  queued_.pop_front();
  const NTSTATUS status = buffer.Request->Status();
  buffer.Request.reset();
  if (!NT_SUCCESS(status) && NT_SUCCESS(end_)) end_ = status;
  if (!NT_SUCCESS(status)) isQueuing_ = false;
  return buffer;
}

void Stream::TakeBack() {
  isQueuing_ = false;
  while (!queued_.empty()) {
    static_cast<void>(queued_.front()->Request->Wait());
    TakeFirst();
  }
  end_ = STATUS_CANCELLED;
}

void Stream::QueueAll() {
  if (!NT_SUCCESS(end_)) {
    CancelBuffers();  // a buffer may have been queued since the stop
    TakeBack();
  }
  end_ = STATUS_SUCCESS;
  isQueuing_ = true;
  for (const auto& buffer : buffers_) {
    if (buffer->Request == nullptr && !buffer->IsLent) Queue(*buffer);
  }
}

void Stream::Queue(StreamBuffer& buffer) {
  buffer.Head = {};
  buffer.Head.Header.Size = sizeof(buffer.Head);
  buffer.Head.Header.FrameExtent = static_cast<ULONG>(buffer.Data.size());
  buffer.Head.Header.Data = buffer.Data.data();
  buffer.Head.Info.ExtendedHeaderSize = sizeof(buffer.Head.Info);
  buffer.Request = pin_->BeginControl(IOCTL_KS_READ_STREAM,
                                      {.Output = &buffer.Head, .OutputBytes = sizeof(buffer.Head)});
  queued_.push_back(&buffer);
}

void Stream::Release(StreamBuffer& buffer) {
  buffer.IsLent = false;
  if (isQueuing_) Queue(buffer);
}

}  // namespace lidcam::client
