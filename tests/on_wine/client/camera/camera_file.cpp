#include "tests/on_wine/client/camera/camera_file.h"

#include <cstring>
#include <initializer_list>

#include "tests/on_wine/client/report.h"

namespace lidcam::wine {
namespace {

constexpr auto kNotConnected = static_cast<NTSTATUS>(0xC000009D);
constexpr auto kBufferOverflow = static_cast<NTSTATUS>(0x80000005);

/// The fields in which the camera's own level blocks and the published ones agree.
struct LevelBlock {
  ULONG Property[6];
  LONG Value;
  ULONG Flags;
  ULONG Capabilities;
  ULONG Led;
  ULONG Rest[3];
};
static_assert(sizeof(LevelBlock) == 52);

/// Follows the head of a request to a pin.
struct PinOfRequest {
  ULONG PinId;
  ULONG Reserved;
};
static_assert(sizeof(KSPROPERTY) + sizeof(PinOfRequest) == sizeof(KSP_PIN));

/// Basic support of a level with a range and a default.
struct LevelDescription {
  KSPROPERTY_DESCRIPTION Head;
  KSPROPERTY_MEMBERSHEADER RangeHead;
  KSPROPERTY_STEPPING_LONG Range;
  KSPROPERTY_MEMBERSHEADER DefaultHead;
  LONG Default;
};
// The answer ends with the default, without the padding after it.
constexpr std::size_t kLevelDescriptionBytes = offsetof(LevelDescription, Default) + sizeof(LONG);

template <typename Record>
std::span<const std::byte> BytesOf(const Record& record) {
  return std::as_bytes(std::span(&record, 1));
}

template <typename Record>
Record RecordAt(std::span<const std::byte> bytes, std::size_t offset, const std::string& what) {
  Record record{};
  Require(offset <= bytes.size() && bytes.size() - offset >= sizeof(record),
          what + ": the answer ends early");
  std::memcpy(&record, bytes.data() + offset, sizeof(record));
  return record;
}

std::vector<std::byte> Join(std::initializer_list<std::span<const std::byte>> parts) {
  std::size_t bytes = 0;
  for (const auto& part : parts) bytes += part.size();
  std::vector<std::byte> joined(bytes);
  std::size_t at = 0;
  for (const auto& part : parts) {
    if (!part.empty()) std::memcpy(joined.data() + at, part.data(), part.size());
    at += part.size();
  }
  return joined;
}

void RequireStatus(NTSTATUS status, const std::string& what) {
  Require(status >= 0, what + ": status " + Hex(static_cast<std::uint32_t>(status)));
}

}  // namespace

std::vector<std::byte> PropertyRequest(const GUID& set, ULONG id, ULONG flags,
                                       std::span<const std::byte> behindHead) {
  KSPROPERTY head{};
  head.Set = set;
  head.Id = id;
  head.Flags = flags;
  return Join({BytesOf(head), behindHead});
}

Answer CameraFile::AskProperty(Target whom, std::span<const std::byte> request,
                               std::span<const std::byte> value) const {
  const PropertyQuestion question{whom, static_cast<std::uint32_t>(request.size()),
                                  static_cast<std::uint32_t>(value.size()), 0};
  const std::vector<std::byte> input = Join({BytesOf(question), request, value});
  const auto pending = file_.Begin(kProperty, input, sizeof(PropertyAnswer) + value.size());
  if (pending->Wait() != 0) return {kNotConnected, {}, 0};
  const std::span<const std::byte> output = pending->Output();
  const auto head = RecordAt<PropertyAnswer>(output, 0, "ask the camera for a property");
  return {static_cast<NTSTATUS>(head.Status),
          {output.begin() + sizeof(head), output.end()},
          head.Information};
}

std::vector<std::byte> CameraFile::GetSized(const GUID& set, ULONG id,
                                            std::span<const std::byte> behindHead,
                                            const std::string& what) const {
  const auto request = PropertyRequest(set, id, KSPROPERTY_TYPE_GET, behindHead);
  const Answer length = AskProperty(Target::Filter, request, {});
  Require(length.Status == kBufferOverflow,
          what + ": status " + Hex(static_cast<std::uint32_t>(length.Status)));
  Answer answer = AskProperty(Target::Filter, request, std::vector<std::byte>(length.Information));
  RequireStatus(answer.Status, what);
  Require(answer.Information <= answer.Value.size(), what + ": more than there is room for");
  answer.Value.resize(answer.Information);
  return answer.Value;
}

ULONG CameraFile::PinCount() const {
  const ULONG room = 0;
  const Answer answer = AskProperty(
      Target::Filter, PropertyRequest(KSPROPSETID_Pin, KSPROPERTY_PIN_CTYPES, KSPROPERTY_TYPE_GET),
      BytesOf(room));
  RequireStatus(answer.Status, "count the pins");
  return RecordAt<ULONG>(answer.Value, 0, "count the pins");
}

std::vector<KS_DATARANGE_VIDEO> CameraFile::Ranges() const {
  const std::string what = "list the formats";
  const std::vector<std::byte> list =
      GetSized(KSPROPSETID_Pin, KSPROPERTY_PIN_DATARANGES, BytesOf(PinOfRequest{}), what);
  const auto head = RecordAt<KSMULTIPLE_ITEM>(list, 0, what);
  std::vector<KS_DATARANGE_VIDEO> ranges;
  std::size_t offset = sizeof(head);
  for (ULONG i = 0; i < head.Count; ++i) {
    ranges.push_back(RecordAt<KS_DATARANGE_VIDEO>(list, offset, what));
    const ULONG bytes = ranges.back().DataRange.FormatSize;
    Require(bytes >= sizeof(KS_DATARANGE_VIDEO), what + ": a range isn't video's");
    offset += (bytes + 7) / 8 * 8;
  }
  return ranges;
}

std::vector<std::byte> CameraFile::Intersect(const KS_DATARANGE_VIDEO& range) const {
  const std::string what = "make a format of a range";
  const PinOfRequest pin{};
  const KSMULTIPLE_ITEM count{sizeof(count) + sizeof(range), 1};
  const auto behind = Join({BytesOf(pin), BytesOf(count), BytesOf(range)});
  auto format = GetSized(KSPROPSETID_Pin, KSPROPERTY_PIN_DATAINTERSECTION, behind, what);
  static_cast<void>(RecordAt<KS_DATAFORMAT_VIDEOINFOHEADER>(format, 0, what));
  return format;
}

std::vector<LONGLONG> CameraFile::FrameIntervals(LONG width, LONG height) const {
  const std::string what = "list the frame rates";
  KSPROPERTY_VIDEOCONTROL_FRAME_RATES_S asked{};
  asked.Dimensions = {width, height};
  const auto list = GetSized(PROPSETID_VIDCAP_VIDEOCONTROL, KSPROPERTY_VIDEOCONTROL_FRAME_RATES,
                             BytesOf(asked).subspan(sizeof(KSPROPERTY)), what);
  const auto head = RecordAt<KSMULTIPLE_ITEM>(list, 0, what);
  std::vector<LONGLONG> intervals;
  for (ULONG i = 0; i < head.Count; ++i) {
    intervals.push_back(RecordAt<LONGLONG>(list, sizeof(head) + i * sizeof(LONGLONG), what));
  }
  return intervals;
}

NTSTATUS CameraFile::GetLevel(const GUID& set, ULONG id, Level& level) const {
  LevelBlock block{};
  auto request = PropertyRequest(set, id, KSPROPERTY_TYPE_GET);
  request.resize(sizeof(block));
  std::memcpy(&block, request.data(), sizeof(KSPROPERTY));
  const Answer answer = AskProperty(Target::Filter, request, BytesOf(block));
  if (answer.Status >= 0) block = RecordAt<LevelBlock>(answer.Value, 0, "read a control");
  level = {block.Value, block.Flags, block.Led};
  return answer.Status;
}

NTSTATUS CameraFile::SetLevel(const GUID& set, ULONG id, const Level& level) const {
  LevelBlock block{};
  auto request = PropertyRequest(set, id, KSPROPERTY_TYPE_SET);
  request.resize(sizeof(block));
  std::memcpy(&block, request.data(), sizeof(KSPROPERTY));
  block.Value = level.Value;
  block.Flags = level.Flags;
  block.Led = level.Led;
  return AskProperty(Target::Filter, request, BytesOf(block)).Status;
}

LevelRange CameraFile::RangeOf(const GUID& set, ULONG id) const {
  const std::string what = "describe a control";
  Answer answer =
      AskProperty(Target::Filter, PropertyRequest(set, id, KSPROPERTY_TYPE_BASICSUPPORT),
                  std::vector<std::byte>(sizeof(LevelDescription)));
  RequireStatus(answer.Status, what);
  Require(answer.Value.size() >= kLevelDescriptionBytes, what + ": the answer ends early");
  answer.Value.resize(sizeof(LevelDescription));
  const auto told = RecordAt<LevelDescription>(answer.Value, 0, what);
  Require(told.Head.MembersListCount == 2, what + ": not a range and a default");
  return {told.Range.Bounds.SignedMinimum, told.Range.Bounds.SignedMaximum,
          told.Range.SteppingDelta, told.Default};
}

}  // namespace lidcam::wine
