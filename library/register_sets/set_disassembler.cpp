#include "library/register_sets/set_disassembler.h"

#include <string_view>

#include "library/register_sets/set_checker.h"
#include "library/register_sets/set_layout.h"
#include "library/register_sets/text_format.h"

namespace lidcam::app {
namespace {

std::string EntryText(std::span<const std::uint8_t> entry) {
  switch (entry[0]) {
    case kSetSensorMarker:
      return FormatText("sensor FF%02X = %02X", entry[1], entry[2]);
    case kSetBridgeMarker:
      return FormatText("bridge FF%02X = %02X", entry[1], entry[2]);
    default:
      return FormatText("raw %02X %02X %02X", entry[0], entry[1], entry[2]);
  }
}

std::string HeadText(const SetSectionView& section) {
  const SetSectionKind* const kind = SetSectionOfType(section.Type);
  const std::size_t count = section.Payload.size() / kSetEntrySize;
  const std::string place =
      FormatText("# offset %zu, %zu %s", section.Offset, count, count == 1 ? "entry" : "entries");
  if (kind == nullptr) return FormatText("# [type %u]  %s", section.Type, place.c_str());
  return FormatText("[%s]  %s", std::string(kind->Name).c_str(), place.c_str());
}

std::string SectionText(const SetSectionView& section) {
  const std::string_view indent = SetSectionOfType(section.Type) == nullptr ? "# " : "";
  std::string text = "\n" + HeadText(section) + "\n";
  std::size_t at = 0;
  for (; at + kSetEntrySize <= section.Payload.size(); at += kSetEntrySize) {
    text.append(indent).append(EntryText(section.Payload.subspan(at, kSetEntrySize))).append("\n");
  }
  if (at == section.Payload.size()) return text;
  text.append("# left over:");
  for (; at < section.Payload.size(); ++at) text += FormatText(" %02X", section.Payload[at]);
  return text + "\n";
}

}  // namespace

std::string DisassembleRegisterSet(std::span<const std::uint8_t> file) {
  const SetLayout layout = ReadSetLayout(file);
  std::string text = FormatText("# %zu bytes, body length %u\n", file.size(), layout.BodyLength);
  for (const SetFinding& finding : CheckRegisterSet(file)) {
    if (finding.Kind != SetFinding::Weight::Fault) continue;
    text += FormatText("# fault at offset %zu: %s\n", finding.Offset, finding.Text.c_str());
  }
  for (const SetSectionView& section : layout.Sections) text += SectionText(section);
  return text;
}

}  // namespace lidcam::app
