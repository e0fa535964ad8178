#include "library/register_sets/set_checker.h"

#include <algorithm>

#include "library/register_sets/text_format.h"

namespace lidcam::app {
namespace {

using Weight = SetFinding::Weight;

void CheckEntry(std::span<const std::uint8_t> entry, std::size_t offset,
                std::vector<SetFinding>& findings) {
  if (entry[0] != kSetSensorMarker && entry[0] != kSetBridgeMarker) {
    findings.push_back({offset, Weight::Fault,
                        FormatText("marker %02X is neither 33 (sensor) nor 11 (bridge): the entry "
                                   "is passed over",
                                   entry[0])});
  } else if (entry[1] == kSetSelectRegister) {
    findings.push_back({offset + 1, Weight::Fault,
                        "register FFFF is the select register: the write would redirect the next "
                        "one"});
  }
}

void CheckCount(const SetSectionView& section, std::vector<SetFinding>& findings) {
  const SetSectionKind* const kind = SetSectionOfType(section.Type);
  const std::size_t count = section.Payload.size() / kSetEntrySize;
  if (kind == nullptr || count <= kind->MostEntries) return;
  findings.push_back({section.Offset, Weight::Fault,
                      FormatText("%zu entries in [%s], which can have %zu at most", count,
                                 std::string(kind->Name).c_str(), kind->MostEntries)});
}

void CheckSection(const SetSectionView& section, std::vector<SetFinding>& findings) {
  const std::size_t excess = section.Payload.size() % kSetEntrySize;
  if (excess != 0) {
    findings.push_back(
        {section.Offset, Weight::Fault,
         FormatText("%zu bytes of entries are not a multiple of 3", section.Payload.size())});
  }
  CheckCount(section, findings);
  const std::size_t first = section.Offset + kSetHeadSize;
  for (std::size_t at = 0; at + kSetEntrySize <= section.Payload.size(); at += kSetEntrySize) {
    CheckEntry(section.Payload.subspan(at, kSetEntrySize), first + at, findings);
  }
}

// A later section replaces an earlier one of its type; a type without a section stays as it is.
void CheckCompleteness(const SetLayout& layout, std::size_t fileSize,
                       std::vector<SetFinding>& findings) {
  for (const SetSectionKind& kind : kSetSectionKinds) {
    const SetSectionView* earlier = nullptr;
    for (const SetSectionView& section : layout.Sections) {
      if (section.Type != kind.Type) continue;
      if (earlier != nullptr) {
        findings.push_back({section.Offset, Weight::Note,
                            FormatText("replaces the section [%s] at offset %zu",
                                       std::string(kind.Name).c_str(), earlier->Offset)});
      }
      earlier = &section;
    }
    if (earlier == nullptr) {
      findings.push_back(
          {fileSize, Weight::Note, FormatText("no section [%s]", std::string(kind.Name).c_str())});
    }
  }
}

}  // namespace

std::vector<SetFinding> CheckRegisterSet(std::span<const std::uint8_t> file) {
  SetLayout layout = ReadSetLayout(file);
  std::vector<SetFinding> findings = std::move(layout.Findings);
  for (const SetSectionView& section : layout.Sections) CheckSection(section, findings);
  CheckCompleteness(layout, file.size(), findings);
  std::stable_sort(findings.begin(), findings.end(),
                   [](const auto& left, const auto& right) { return left.Offset < right.Offset; });
  return findings;
}

std::string FindingText(std::string_view fileName, const SetFinding& finding) {
  return FormatText("%s: offset %zu: %s: %s", std::string(fileName).c_str(), finding.Offset,
                    finding.Kind == Weight::Fault ? "fault" : "note", finding.Text.c_str());
}

}  // namespace lidcam::app
