#include "tests/on_wine/client/camera/camera_stream.h"

#include <cstring>

#include "tests/on_wine/client/report.h"

namespace lidcam::wine {
namespace {

constexpr ULONG kNormalPriority = 0x40000000;

std::vector<std::byte> ConnectRequest(std::span<const std::byte> format) {
  KSPIN_CONNECT connect{};
  connect.Interface.Set = KSINTERFACESETID_Standard;
  connect.Interface.Id = KSINTERFACE_STANDARD_STREAMING;
  connect.Medium.Set = KSMEDIUMSETID_Standard;
  connect.Medium.Id = KSMEDIUM_TYPE_ANYINSTANCE;
  connect.PinId = 0;
  connect.Priority = {kNormalPriority, 1};
  const auto head = std::as_bytes(std::span(&connect, 1));
  std::vector<std::byte> request(head.begin(), head.end());
  request.insert(request.end(), format.begin(), format.end());
  return request;
}

std::size_t ImageBytesOf(std::span<const std::byte> format) {
  KS_DATAFORMAT_VIDEOINFOHEADER header{};
  Require(format.size() >= sizeof(header), "a format is cut off");
  std::memcpy(&header, format.data(), sizeof(header));
  return header.VideoInfoHeader.bmiHeader.biSizeImage;
}

}  // namespace

CameraStream::CameraStream(const CameraFile& camera, std::span<const std::byte> format)
    : camera_(camera), frameBytes_(ImageBytesOf(format)) {
  camera_.File().Ask(kOpenPin, ConnectRequest(format), 0, "open the pin");
  isOpen_ = true;
  camera_.File().Ask(kUseClock, {}, 0, "open the pin's clock");
}

CameraStream::~CameraStream() {
  if (!isOpen_) return;
  try {
    Close();
  } catch (const Failure&) {
    // An earlier error is the one to report.
  }
}

void CameraStream::SetState(KSSTATE state) const {
  const auto request =
      PropertyRequest(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE, KSPROPERTY_TYPE_SET);
  const NTSTATUS status =
      camera_.AskProperty(Target::Pin, request, std::as_bytes(std::span(&state, 1))).Status;
  Require(status >= 0, "state " + std::to_string(state) + " of the pin: status " +
                           Hex(static_cast<std::uint32_t>(status)));
}

KSSTATE CameraStream::State() const {
  KSSTATE state = KSSTATE_STOP;
  const auto request =
      PropertyRequest(KSPROPSETID_Connection, KSPROPERTY_CONNECTION_STATE, KSPROPERTY_TYPE_GET);
  const Answer answer =
      camera_.AskProperty(Target::Pin, request, std::as_bytes(std::span(&state, 1)));
  Require(answer.Status >= 0 && answer.Value.size() == sizeof(state), "read the pin's state");
  std::memcpy(&state, answer.Value.data(), sizeof(state));
  return state;
}

void CameraStream::Queue() {
  queued_.push_back(camera_.File().Begin(kReadFrame, {}, sizeof(FrameAnswer) + frameBytes_));
}

ReadFrame CameraStream::Next() {
  Require(!queued_.empty(), "wait for a frame that nobody asked for");
  ReadFrame frame;
  frame.Error = queued_.front()->Wait();
  if (frame.Error == 0) {
    const auto output = queued_.front()->Output();
    Require(output.size() >= sizeof(frame.Head), "a frame comes back without its head");
    std::memcpy(&frame.Head, output.data(), sizeof(frame.Head));
    const auto picture = output.subspan(sizeof(frame.Head));
    Require(frame.Head.DataUsed <= picture.size(), "a frame is longer than its buffer");
    const auto filled = picture.first(frame.Head.DataUsed);
    frame.Picture.assign(filled.begin(), filled.end());
  }
  queued_.pop_front();
  return frame;
}

void CameraStream::Close() {
  isOpen_ = false;
  camera_.File().Ask(kClosePin, {}, 0, "close the pin");
}

}  // namespace lidcam::wine
