#include "library/register_sets/set_layout.h"

#include <algorithm>

#include "library/register_sets/text_format.h"

namespace lidcam::app {
namespace {

using Weight = SetFinding::Weight;

std::uint32_t LittleEndian32(std::span<const std::uint8_t> bytes) {
  return bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

class LayoutReader {
 public:
  explicit LayoutReader(std::span<const std::uint8_t> file) : file_(file) {}

  SetLayout Read() {
    if (file_.size() < kSetLengthSize) {
      AddFault(0,
               FormatText("the file has %zu bytes; the body's length alone takes 4", file_.size()));
      return std::move(layout_);
    }
    ReadBodyLength();
    std::size_t offset = kSetLengthSize;
    while (offset < end_ && ReadSection(offset)) {
    }
    return std::move(layout_);
  }

 private:
  void ReadBodyLength() {
    const std::size_t present = file_.size() - kSetLengthSize;
    layout_.BodyLength = LittleEndian32(file_);
    end_ = kSetLengthSize + std::min<std::size_t>(present, layout_.BodyLength);
    if (layout_.BodyLength > present) {
      AddFault(
          0, FormatText("body length %u, but only %zu bytes follow", layout_.BodyLength, present));
    }
    if (layout_.BodyLength < present) {
      AddFault(end_, FormatText("%zu bytes stand behind the body of length %u",
                                present - layout_.BodyLength, layout_.BodyLength));
    }
    if (layout_.BodyLength > kLongestSetBody) {
      AddFault(0, FormatText("body length %u is above %zu", layout_.BodyLength, kLongestSetBody));
    }
  }

  // False where the lengths lead no further.
  bool ReadSection(std::size_t& offset) {
    const std::size_t rest = end_ - offset;
    if (rest < kSetHeadSize) {
      AddFault(offset, FormatText("the sections do not add up: %zu bytes are left, and the head of "
                                  "a section takes 8",
                                  rest));
      return false;
    }
    const std::uint32_t length = LittleEndian32(file_.subspan(offset));
    const std::uint32_t type = LittleEndian32(file_.subspan(offset + 4));
    if (length < kSetHeadSize) {
      AddFault(offset, FormatText("section length %u is below 8, its head's", length));
      return false;
    }
    if (length > rest) {
      AddFault(offset, FormatText("the sections do not add up: section length %u, but only %zu "
                                  "bytes are left",
                                  length, rest));
      return false;
    }
    if (SetSectionOfType(type) == nullptr) {
      AddFault(offset + 4, FormatText("section type %u is not 1 (setup), 2 (low light) or 3 "
                                      "(normal): loading stops here",
                                      type));
    }
    layout_.Sections.push_back(
        {offset, type, file_.subspan(offset + kSetHeadSize, length - kSetHeadSize)});
    offset += length;
    return true;
  }

  void AddFault(std::size_t offset, std::string text) {
    layout_.Findings.push_back({offset, Weight::Fault, std::move(text)});
  }

  std::span<const std::uint8_t> file_;
  std::size_t end_ = 0;  // of the body, or of the file where that comes first
  SetLayout layout_;
};

}  // namespace

const SetSectionKind* SetSectionOfType(std::uint32_t type) {
  const auto* const found = std::find_if(std::begin(kSetSectionKinds), std::end(kSetSectionKinds),
                                         [type](const auto& kind) { return kind.Type == type; });
  return found != std::end(kSetSectionKinds) ? found : nullptr;
}

const SetSectionKind* SetSectionOfName(std::string_view name) {
  const auto* const found = std::find_if(std::begin(kSetSectionKinds), std::end(kSetSectionKinds),
                                         [name](const auto& kind) { return kind.Name == name; });
  return found != std::end(kSetSectionKinds) ? found : nullptr;
}

SetLayout ReadSetLayout(std::span<const std::uint8_t> file) {
  return LayoutReader(file).Read();
}

}  // namespace lidcam::app
