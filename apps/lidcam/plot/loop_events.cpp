#include "apps/lidcam/plot/loop_events.h"

#include "driver/exposure/light_state.h"

namespace lidcam::app {
namespace {

constexpr std::int32_t kIndexOfNewCamera = 30;

void AddEvents(const FrameRow* before, const FrameRow& row, std::vector<LoopEvent>& events) {
  const auto add = [&](LoopEventKind kind) { events.push_back({kind, row.Seconds}); };
  if (before != nullptr && before->Lux != row.Lux) {
    events.push_back({LoopEventKind::LightChange, row.LuxSince.value_or(row.Seconds)});
  }
  const std::uint32_t stateBefore = before != nullptr ? before->State : LightStateInitial;
  if (stateBefore != row.State) add(LoopEventKind::Transition);
  const std::int32_t indexBefore = before != nullptr ? before->Index : kIndexOfNewCamera;
  if (row.Events.Steps != 0) {
    add(row.Index < indexBefore ? LoopEventKind::StepDown : LoopEventKind::StepUp);
  }
  if (row.Events.Commits != 0) add(LoopEventKind::Commit);
  if (row.Events.Refused != 0) add(LoopEventKind::Refused);
}

}  // namespace

std::vector<LoopEvent> FindLoopEvents(std::span<const FrameRow> rows) {
  std::vector<LoopEvent> events;
  const FrameRow* before = nullptr;
  for (const FrameRow& row : rows) {
    AddEvents(before, row, events);
    before = &row;
  }
  return events;
}

std::vector<StateStay> FindStateStays(std::span<const FrameRow> rows) {
  std::vector<StateStay> stays;
  for (const FrameRow& row : rows) {
    if (stays.empty()) stays.push_back({row.State, row.Seconds, row.Seconds});
    stays.back().To = row.Seconds;
    if (stays.back().State != row.State) stays.push_back({row.State, row.Seconds, row.Seconds});
  }
  return stays;
}

}  // namespace lidcam::app
