#include "platform/host/client/camera.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

#include "platform/host/client/client_error.h"

namespace lidcam::client {
namespace {

constexpr std::size_t kListAlignment = 8;

/// The fields in which the camera's own level blocks and the published ones agree.
struct LevelBlock {
  ULONG Property[6];
  LONG Value;
  ULONG Flags;
  ULONG Capabilities;
  ULONG Rest[4];
};
static_assert(sizeof(LevelBlock) == 52);
static_assert(offsetof(LevelBlock, Value) == offsetof(KSPROPERTY_VIDEOPROCAMP_S, Value));

bool IsSame(const GUID& one, const GUID& other) {
  return std::memcmp(&one, &other, sizeof(GUID)) == 0;
}

Block PinRequest(ULONG pin, std::span<const std::byte> behind = {}) {
  KSP_PIN head{};
  head.PinId = pin;
  Block request(sizeof(head) + behind.size());
  std::memcpy(request.Data(), &head, sizeof(head));
  if (!behind.empty()) std::memcpy(request.Data() + sizeof(head), behind.data(), behind.size());
  return request;
}

/// Copies record `n` of a list that a KSMULTIPLE_ITEM begins.
template <typename Item>
std::vector<Item> ItemsOf(const Block& list, const char* what) {
  KSMULTIPLE_ITEM head{};
  if (list.Size() < sizeof(head)) throw ClientError(what, STATUS_INVALID_BUFFER_SIZE);
  std::memcpy(&head, list.Data(), sizeof(head));
  if ((list.Size() - sizeof(head)) / sizeof(Item) < head.Count) {
    throw ClientError(what, STATUS_INVALID_BUFFER_SIZE);
  }
  std::vector<Item> items(head.Count);
  if (head.Count != 0) {
    std::memcpy(items.data(), list.Data() + sizeof(head), head.Count * sizeof(Item));
  }
  return items;
}

KS_DATARANGE_VIDEO VideoRangeAt(std::span<const std::byte> bytes, const KSDATARANGE& head) {
  KS_DATARANGE_VIDEO range{};
  if (head.FormatSize < sizeof(range) || !IsSame(head.MajorFormat, KSDATAFORMAT_TYPE_VIDEO) ||
      !IsSame(head.Specifier, KSDATAFORMAT_SPECIFIER_VIDEOINFO)) {
    throw ClientError("list its formats as video", STATUS_NO_MATCH);
  }
  std::memcpy(&range, bytes.data(), sizeof(range));
  return range;
}

}  // namespace

Camera Camera::Open(PDEVICE_OBJECT device, const std::u16string& name) {
  std::unique_ptr<host::DeviceFile> file;
  Check(host::DeviceFile::Open(device, name, nullptr, file), "open the camera");
  return Camera(std::move(file));
}

std::vector<GUID> Camera::Categories() const {
  return ItemsOf<GUID>(Properties().GetSized(KSPROPSETID_Topology, KSPROPERTY_TOPOLOGY_CATEGORIES),
                       "list its categories");
}

ULONG Camera::PinCount() const {
  ULONG count = 0;
  Check(Properties().Get(KSPROPSETID_Pin, KSPROPERTY_PIN_CTYPES, count), "count its pins");
  return count;
}

std::vector<KS_DATARANGE_VIDEO> Camera::Ranges(ULONG pin) const {
  constexpr const char* kWhat = "list its formats";
  Block list;
  Check(Properties().GetSized(KSPROPSETID_Pin, KSPROPERTY_PIN_DATARANGES, PinRequest(pin), list),
        kWhat);
  KSMULTIPLE_ITEM head{};
  if (list.Size() < sizeof(head)) throw ClientError(kWhat, STATUS_INVALID_BUFFER_SIZE);
  std::memcpy(&head, list.Data(), sizeof(head));
  std::span<const std::byte> left = list.Bytes().subspan(sizeof(head));
  std::vector<KS_DATARANGE_VIDEO> ranges;
  for (ULONG i = 0; i < head.Count; ++i) {
    KSDATARANGE range{};
    if (left.size() >= sizeof(range)) std::memcpy(&range, left.data(), sizeof(range));
    if (range.FormatSize < sizeof(range) || range.FormatSize > left.size()) {
      throw ClientError(kWhat, STATUS_INVALID_BUFFER_SIZE);
    }
    ranges.push_back(VideoRangeAt(left, range));
    const std::size_t step =
        (range.FormatSize + kListAlignment - 1) / kListAlignment * kListAlignment;
    left = left.subspan(step < left.size() ? step : left.size());
  }
  return ranges;
}

VideoFormat Camera::Intersect(const KS_DATARANGE_VIDEO& range, std::optional<LONGLONG> interval,
                              ULONG pin) const {
  struct {
    KSMULTIPLE_ITEM Head;
    KS_DATARANGE_VIDEO Range;
  } asked{{sizeof(asked), 1}, range};
  if (interval) asked.Range.VideoInfoHeader.AvgTimePerFrame = *interval;
  Block format;
  Check(Properties().GetSized(KSPROPSETID_Pin, KSPROPERTY_PIN_DATAINTERSECTION,
                              PinRequest(pin, std::as_bytes(std::span(&asked, 1))), format),
        "make a format of one of its ranges");
  return VideoFormat(std::move(format));
}

VideoFormat Camera::FormatOf(std::int32_t width, std::int32_t height,
                             std::optional<LONGLONG> interval, ULONG pin) const {
  for (const KS_DATARANGE_VIDEO& range : Ranges(pin)) {
    const KS_BITMAPINFOHEADER& bitmap = range.VideoInfoHeader.bmiHeader;
    if (bitmap.biWidth == width && bitmap.biHeight == height) {
      return Intersect(range, interval, pin);
    }
  }
  throw ClientError(
      "give pictures of " + std::to_string(width) + "x" + std::to_string(height) + " pixels",
      STATUS_NO_MATCH);
}

Level Camera::GetLevel(const GUID& set, ULONG id) const {
  LevelBlock block{};
  Check(Properties().GetBlock(set, id, block), "read a control");
  return {block.Value, block.Flags, block.Capabilities};
}

void Camera::SetLevel(const GUID& set, ULONG id, const Level& level) const {
  LevelBlock block{};
  block.Value = level.Value;
  block.Flags = level.Flags;
  block.Capabilities = level.Capabilities;
  Check(Properties().SetBlock(set, id, block), "set a control");
}

ULONG Camera::VideoControlCaps() const {
  KSPROPERTY_VIDEOCONTROL_CAPS_S caps{};
  Check(Properties().GetBlock(PROPSETID_VIDCAP_VIDEOCONTROL, KSPROPERTY_VIDEOCONTROL_CAPS, caps),
        "tell its modes");
  return caps.VideoControlCaps;
}

LONG Camera::VideoMode() const {
  KSPROPERTY_VIDEOCONTROL_MODE_S mode{};
  Check(Properties().GetBlock(PROPSETID_VIDCAP_VIDEOCONTROL, KSPROPERTY_VIDEOCONTROL_MODE, mode),
        "tell its mode");
  return mode.Mode;
}

void Camera::SetVideoMode(LONG mode) const {
  KSPROPERTY_VIDEOCONTROL_MODE_S block{};
  block.Mode = mode;
  Check(Properties().SetBlock(PROPSETID_VIDCAP_VIDEOCONTROL, KSPROPERTY_VIDEOCONTROL_MODE, block),
        "change its mode");
}

std::vector<LONGLONG> Camera::FrameIntervals(std::int32_t width, std::int32_t height) const {
  KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S asked{};
  asked.Dimensions = {width, height};
  Block list;
  Check(Properties().GetSized(PROPSETID_VIDCAP_VIDEOCONTROL, KSPROPERTY_VIDEOCONTROL_FRAME_RATES,
                              Block(std::as_bytes(std::span(&asked, 1))), list),
        "list its frame rates");
  return ItemsOf<LONGLONG>(list, "list its frame rates");
}

}  // namespace lidcam::client
