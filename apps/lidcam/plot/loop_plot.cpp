#include "apps/lidcam/plot/loop_plot.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <vector>

#include "apps/lidcam/plot/plot_panel.h"
#include "apps/lidcam/plot/svg_drawing.h"

namespace lidcam::app {
namespace {

// Colours that stay apart without red or green: they differ in lightness as well.
constexpr std::string_view kInk = "#1f2328";
constexpr std::string_view kFaint = "#57606a";
constexpr std::string_view kLightColour = "#8a5a00";
constexpr std::string_view kExposureColour = "#0057a8";
constexpr std::string_view kIndexColour = "#6b6f76";
constexpr std::string_view kFineColour = "#c04a00";
constexpr std::string_view kCoarseColour = "#5b3a8e";
constexpr std::string_view kDeadBandColour = "#009e73";

struct StateColour {
  std::uint32_t State;
  std::string_view Band;  ///< in the band that names the state
  std::string_view Tint;  ///< behind the curves
  std::string_view Text;  ///< upon the band
};

constexpr std::array kStateColours = {
    StateColour{LightStateNormal, "#a9d5f5", "#f1f8fd", kInk},
    StateColour{LightStateDummy, "#f0b429", "#fdf4db", kInk},
    StateColour{LightStateLowLight, "#4a3f78", "#e6e3ef", "#ffffff"},
    StateColour{LightStateInitial, "#b5b8bc", "#f2f2f2", kInk},
};

const StateColour& ColourOf(std::uint32_t state) {
  const auto found = std::ranges::find(kStateColours, state, &StateColour::State);
  return found == kStateColours.end() ? kStateColours.back() : *found;
}

constexpr double kWidth = 1200;
constexpr double kLeft = 100;
constexpr double kRight = 1100;
constexpr double kGap = 16;
constexpr double kLaneHeight = 22;
constexpr double kBandHeight = 24;
constexpr std::int32_t kIndexOfNewCamera = 30;

// --- What happened -------------------------------------------------------------------------------

enum class EventKind { LightChange, Transition, StepUp, StepDown, Commit, Refused };

struct Event {
  EventKind Kind;
  double Seconds;
};

void AddEvents(const FrameRow* before, const FrameRow& row, std::vector<Event>& events) {
  const auto add = [&](EventKind kind) { events.push_back({kind, row.Seconds}); };
  if (before != nullptr && before->Lux != row.Lux) add(EventKind::LightChange);
  const std::uint32_t stateBefore = before != nullptr ? before->State : LightStateInitial;
  if (stateBefore != row.State) add(EventKind::Transition);
  const std::int32_t indexBefore = before != nullptr ? before->Index : kIndexOfNewCamera;
  if (row.Events.Steps != 0) {
    add(row.Index < indexBefore ? EventKind::StepDown : EventKind::StepUp);
  }
  if (row.Events.Commits != 0) add(EventKind::Commit);
  if (row.Events.Refused != 0) add(EventKind::Refused);
}

std::vector<Event> FindEvents(std::span<const FrameRow> rows) {
  std::vector<Event> events;
  const FrameRow* before = nullptr;
  for (const FrameRow& row : rows) {
    AddEvents(before, row, events);
    before = &row;
  }
  return events;
}

// --- The drawing, from the top down --------------------------------------------------------------

class LoopPlot {
 public:
  LoopPlot(std::span<const FrameRow> rows, double height)
      : rows_(rows),
        events_(FindEvents(rows)),
        time_{kLeft, kRight, std::max(rows.back().Seconds, 0.1)},
        drawing_(kWidth, height) {}

  void Heading(const std::string& title);
  void Legend();
  void StateBand();
  void LightPanel();
  void LuminancePanel();
  void ExposurePanel();
  void GainPanel();
  void EventLanes();
  void TimeAxis();

  [[nodiscard]] std::string Finish() const { return drawing_.Finish(); }

 private:
  struct Stay {
    std::uint32_t State;
    double From;
    double To;
  };

  ValueScale Panel(double height, double low, double high, bool isLogarithmic = false);
  void Border(double top, double bottom);
  void Moments(double top, double bottom);
  [[nodiscard]] std::vector<Stay> Stays() const;
  void LightTexts(const ValueScale& scale);
  double LegendLine(double x, std::string_view text, const SvgStroke& stroke);
  double LegendArea(double x, std::string_view text, std::string_view colour, double opacity);
  void Lane(std::string_view title, std::span<const EventKind> kinds);
  void Mark(EventKind kind, SvgPoint at);
  [[nodiscard]] std::ptrdiff_t CountOf(EventKind kind) const {
    return std::ranges::count(events_, kind, &Event::Kind);
  }

  std::span<const FrameRow> rows_;
  std::vector<Event> events_;
  TimeScale time_;
  SvgDrawing drawing_;
  double y_ = 0;
};

std::string Counted(std::ptrdiff_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

void LoopPlot::Heading(const std::string& title) {
  drawing_.Text({kLeft, 34}, title, {.Size = 21, .Colour = kInk, .IsBold = true});
  const std::string summary =
      Counted(static_cast<std::ptrdiff_t>(rows_.size()), "frame") + " in " +
      SvgNumber(rows_.back().Seconds) +
      " s: " + Counted(CountOf(EventKind::StepUp) + CountOf(EventKind::StepDown), "step") + ", " +
      Counted(CountOf(EventKind::Transition), "transition") + ", " +
      Counted(CountOf(EventKind::Commit), "commit") + ", " +
      Counted(CountOf(EventKind::Refused), "frame") + " with refused writes";
  drawing_.Text({kLeft, 56}, summary, {.Size = 13.5, .Colour = kFaint});
  y_ = 80;
}

double LoopPlot::LegendLine(double x, std::string_view text, const SvgStroke& stroke) {
  drawing_.Line({x, y_ - 4}, {x + 26, y_ - 4}, stroke);
  drawing_.Text({x + 32, y_}, text, {.Colour = kInk});
  return x + 32 + SvgTextWidth(text, 13) + 26;
}

double LoopPlot::LegendArea(double x, std::string_view text, std::string_view colour,
                            double opacity) {
  drawing_.Rectangle({x, y_ - 11, 20, 14}, colour, opacity);
  drawing_.Text({x + 26, y_}, text, {.Colour = kInk});
  return x + 26 + SvgTextWidth(text, 13) + 28;
}

void LoopPlot::Legend() {
  double x = kLeft;
  x = LegendLine(x, "luminance", {.Colour = kInk, .Width = 1.8});
  x = LegendArea(x, "dead band", kDeadBandColour, 0.35);
  x = LegendLine(x, "exposure", {.Colour = kExposureColour, .Width = 2.2});
  x = LegendLine(x, "index", {.Colour = kIndexColour, .Width = 1.4, .Dashes = "5 3"});
  x = LegendLine(x, "fine gain", {.Colour = kFineColour, .Width = 2});
  LegendLine(x, "coarse gain", {.Colour = kCoarseColour, .Width = 2, .Dashes = "7 3 2 3"});
  y_ += 22;
  x = kLeft;
  drawing_.Text({x, y_}, "light state:", {.Colour = kInk});
  x += 82;
  for (const StateColour& colour : kStateColours) {
    x = LegendArea(x, LightStateName(colour.State), colour.Band, 1);
  }
  x += 6;
  drawing_.Line({x, y_ - 14}, {x, y_ + 3}, {.Colour = kLightColour, .Width = 1.4, .Dashes = "2 3"});
  drawing_.Text({x + 8, y_}, "light change", {.Colour = kInk});
  x += 8 + SvgTextWidth("light change", 13) + 26;
  drawing_.Line({x, y_ - 14}, {x, y_ + 3}, {.Colour = kInk, .Width = 1});
  drawing_.Text({x + 8, y_}, "transition", {.Colour = kInk});
  y_ += 16;
}

std::vector<LoopPlot::Stay> LoopPlot::Stays() const {
  std::vector<Stay> stays;
  for (const FrameRow& row : rows_) {
    if (stays.empty()) stays.push_back({row.State, row.Seconds, row.Seconds});
    stays.back().To = row.Seconds;
    if (stays.back().State != row.State) stays.push_back({row.State, row.Seconds, row.Seconds});
  }
  return stays;
}

void LoopPlot::StateBand() {
  constexpr double kTextSize = 13;
  for (const Stay& stay : Stays()) {
    const SvgArea area{time_.X(stay.From), y_, time_.X(stay.To) - time_.X(stay.From), kBandHeight};
    const StateColour& colour = ColourOf(stay.State);
    const std::string_view name = LightStateName(stay.State);
    drawing_.Rectangle(area, colour.Band);
    if (area.Width < SvgTextWidth(name, kTextSize) + 18) continue;
    drawing_.Text({area.X + area.Width / 2, y_ + 17}, name,
                  {.Size = kTextSize, .Colour = colour.Text, .Anchor = SvgAnchor::Middle});
  }
  drawing_.Text({kLeft - 8, y_ + 17}, "light state",
                {.Size = 13, .Colour = kInk, .Anchor = SvgAnchor::End, .IsBold = true});
  y_ += kBandHeight + kGap;
}

ValueScale LoopPlot::Panel(double height, double low, double high, bool isLogarithmic) {
  for (const Stay& stay : Stays()) {
    drawing_.Rectangle({time_.X(stay.From), y_, time_.X(stay.To) - time_.X(stay.From), height},
                       ColourOf(stay.State).Tint);
  }
  const ValueScale scale{y_, y_ + height, low, high, isLogarithmic};
  y_ += height + kGap;
  return scale;
}

void LoopPlot::Border(double top, double bottom) {
  drawing_.Line({kLeft, top}, {kLeft, bottom}, {.Colour = kFaint, .Width = 1});
  drawing_.Line({kLeft, bottom}, {kRight, bottom}, {.Colour = kFaint, .Width = 1});
}

void LoopPlot::Moments(double top, double bottom) {
  for (const Event& event : events_) {
    const double x = time_.X(event.Seconds);
    if (event.Kind == EventKind::LightChange) {
      drawing_.Line({x, top}, {x, bottom}, {.Colour = kLightColour, .Width = 1.4, .Dashes = "2 3"});
    } else if (event.Kind == EventKind::Transition) {
      drawing_.Line({x, top}, {x, bottom}, {.Colour = kInk, .Width = 1});
    }
  }
}

// What the light is, where it begins and as long as there is room for the words.
void LoopPlot::LightTexts(const ValueScale& scale) {
  constexpr double kTextSize = 12;
  double freeFrom = 0;
  std::optional<double> before;
  for (const FrameRow& row : rows_) {
    if (row.Lux == before) continue;
    before = row.Lux;
    const std::string text = row.Lux ? SvgNumber(*row.Lux) + " lx" : "unknown";
    const double x = time_.X(row.Seconds) + 5;
    const double width = SvgTextWidth(text, kTextSize);
    if (x < freeFrom || x + width > kRight) continue;
    const double y = scale.Y(row.Lux.value_or(0));
    const bool isNearTop = y - scale.Top < kTextSize + 6;
    const double base = isNearTop ? y + kTextSize + 3 : y - 5;
    // Lines of transitions run behind the words.
    drawing_.Rectangle({x - 2, base - kTextSize + 1, width + 6, kTextSize + 2}, "#ffffff", 0.8);
    drawing_.Text({x, base}, text, {.Size = kTextSize, .Colour = kLightColour, .IsBold = true});
    freeFrom = x + width + 6;
  }
}

void LoopPlot::LightPanel() {
  const auto lux = [](const FrameRow& row) { return row.Lux.value_or(0); };
  if (std::ranges::none_of(rows_, [](const FrameRow& row) { return row.Lux.has_value(); })) return;
  double lowest = 1e6;
  double highest = 0.1;
  for (const FrameRow& row : rows_) {
    if (lux(row) > 0) lowest = std::min(lowest, lux(row));
    highest = std::max(highest, lux(row));
  }
  // Darkness has no place on a logarithmic scale: it stands at the edge.
  const double low = std::pow(10, std::floor(std::log10(std::min(lowest, highest)) - 1e-9));
  const double high = std::pow(10, std::ceil(std::log10(highest) + 1e-9));
  std::vector<double> decades;
  for (double decade = low; decade <= high * 1.001; decade *= 10) decades.push_back(decade);
  const ValueScale scale = Panel(96, low, high, true);
  DrawLeftAxis(drawing_, time_, {scale, "light (lx)", kLightColour, NumberTicks(decades)});
  Moments(scale.Top, scale.Bottom);
  DrawHeldValue(drawing_, time_, scale, rows_, lux, {.Colour = kLightColour, .Width = 2});
  LightTexts(scale);
  Border(scale.Top, scale.Bottom);
}

void LoopPlot::LuminancePanel() {
  constexpr std::array kTicks{0.0, 50.0, 100.0, 150.0, 200.0, 255.0};
  const ValueScale scale = Panel(230, 0, 255);
  DrawLeftAxis(drawing_, time_, {scale, "luminance", kInk, NumberTicks(kTicks)});
  drawing_.Rectangle({kLeft, scale.Y(96), kRight - kLeft, scale.Y(80) - scale.Y(96)},
                     kDeadBandColour, 0.35);
  drawing_.Text({kRight + 8, scale.Y(94)}, "dead band", {.Size = 12, .Colour = "#00684c"});
  drawing_.Text({kRight + 8, scale.Y(80)}, "80 to 96", {.Size = 12, .Colour = "#00684c"});
  Moments(scale.Top, scale.Bottom);
  DrawMeasuredValue(drawing_, time_, scale, rows_,
                    [](const FrameRow& row) { return static_cast<double>(row.Luma); },
                    {.Colour = kInk, .Width = 1.8});
  Border(scale.Top, scale.Bottom);
}

void LoopPlot::ExposurePanel() {
  constexpr std::array kExposureTicks{0.0, 5.0, 10.0, 15.0, 20.0};
  constexpr std::array kIndexTicks{0.0, 20.0, 40.0, 54.0, 76.0};
  const ValueScale exposure = Panel(150, 0, 21);
  ValueScale index = exposure;
  index.High = 84;
  DrawLeftAxis(drawing_, time_,
               {exposure, "exposure (periods)", kExposureColour, NumberTicks(kExposureTicks)});
  DrawRightAxis(drawing_, time_, {index, "index", kIndexColour, NumberTicks(kIndexTicks)});
  Moments(exposure.Top, exposure.Bottom);
  DrawHeldValue(drawing_, time_, index, rows_,
                [](const FrameRow& row) { return static_cast<double>(row.Index); },
                {.Colour = kIndexColour, .Width = 1.4, .Dashes = "5 3"});
  DrawHeldValue(drawing_, time_, exposure, rows_,
                [](const FrameRow& row) { return static_cast<double>(row.Exposure); },
                {.Colour = kExposureColour, .Width = 2.2});
  Border(exposure.Top, exposure.Bottom);
}

void LoopPlot::GainPanel() {
  constexpr std::array kFineTicks{0.0, 128.0, 192.0, 256.0};
  constexpr std::array kCoarseTicks{0.0, 1.0, 2.0, 3.0};
  const ValueScale fine = Panel(110, 0, 256);
  ValueScale coarse = fine;
  coarse.High = 3.6;
  DrawLeftAxis(drawing_, time_, {fine, "fine gain", kFineColour, NumberTicks(kFineTicks)});
  DrawRightAxis(drawing_, time_, {coarse, "coarse gain", kCoarseColour, NumberTicks(kCoarseTicks)});
  Moments(fine.Top, fine.Bottom);
  DrawHeldValue(drawing_, time_, coarse, rows_,
                [](const FrameRow& row) { return static_cast<double>(row.CoarseGain); },
                {.Colour = kCoarseColour, .Width = 2, .Dashes = "7 3 2 3"});
  DrawHeldValue(drawing_, time_, fine, rows_,
                [](const FrameRow& row) { return static_cast<double>(row.FineGain); },
                {.Colour = kFineColour, .Width = 2});
  Border(fine.Top, fine.Bottom);
}

void LoopPlot::Mark(EventKind kind, SvgPoint at) {
  constexpr double kSize = 5;
  const std::array up{SvgPoint{at.X, at.Y - kSize},
                      SvgPoint{at.X + kSize * 0.9, at.Y + kSize * 0.8},
                      SvgPoint{at.X - kSize * 0.9, at.Y + kSize * 0.8}};
  const std::array down{SvgPoint{at.X, at.Y + kSize},
                        SvgPoint{at.X + kSize * 0.9, at.Y - kSize * 0.8},
                        SvgPoint{at.X - kSize * 0.9, at.Y - kSize * 0.8}};
  const std::array diamond{SvgPoint{at.X, at.Y - kSize - 1}, SvgPoint{at.X + kSize, at.Y},
                           SvgPoint{at.X, at.Y + kSize + 1}, SvgPoint{at.X - kSize, at.Y}};
  switch (kind) {
    case EventKind::LightChange:
      drawing_.Circle(at, kSize, kLightColour);
      break;
    case EventKind::Transition:
      drawing_.Polygon(diamond, kInk);
      break;
    case EventKind::StepUp:
      drawing_.Polygon(up, kExposureColour);
      break;
    case EventKind::StepDown:
      drawing_.Polygon(down, "#e07b00");
      break;
    case EventKind::Commit:
      drawing_.Line({at.X, at.Y - 6}, {at.X, at.Y + 6}, {.Colour = kInk, .Width = 1.6});
      break;
    case EventKind::Refused:
      drawing_.Line({at.X - 5, at.Y - 5}, {at.X + 5, at.Y + 5}, {.Colour = "#b00020", .Width = 2});
      drawing_.Line({at.X - 5, at.Y + 5}, {at.X + 5, at.Y - 5}, {.Colour = "#b00020", .Width = 2});
      break;
  }
}

void LoopPlot::Lane(std::string_view title, std::span<const EventKind> kinds) {
  const double middle = y_ + kLaneHeight / 2;
  drawing_.Line({kLeft, middle}, {kRight, middle}, {.Colour = "#d8dbde", .Width = 1});
  drawing_.Text({kLeft - 10, middle + 4.5}, title,
                {.Size = 12.5, .Colour = kInk, .Anchor = SvgAnchor::End});
  std::ptrdiff_t count = 0;
  for (const Event& event : events_) {
    if (std::ranges::find(kinds, event.Kind) == kinds.end()) continue;
    Mark(event.Kind, {time_.X(event.Seconds), middle});
    ++count;
  }
  drawing_.Text({kRight + 10, middle + 4.5}, std::to_string(count),
                {.Size = 12.5, .Colour = kFaint});
  y_ += kLaneHeight;
}

void LoopPlot::EventLanes() {
  constexpr std::array kLight{EventKind::LightChange};
  constexpr std::array kTransition{EventKind::Transition};
  constexpr std::array kUp{EventKind::StepUp};
  constexpr std::array kDown{EventKind::StepDown};
  constexpr std::array kCommit{EventKind::Commit};
  constexpr std::array kRefused{EventKind::Refused};
  Lane("light change", kLight);
  Lane("transition", kTransition);
  Lane("step up", kUp);
  Lane("step down", kDown);
  Lane("commit", kCommit);
  Lane("refused", kRefused);
}

void LoopPlot::TimeAxis() {
  y_ += 4;
  drawing_.Line({kLeft, y_}, {kRight, y_}, {.Colour = kFaint, .Width = 1});
  for (const double tick : time_.Ticks()) {
    const double x = time_.X(tick);
    drawing_.Line({x, y_}, {x, y_ + 5}, {.Colour = kFaint, .Width = 1});
    drawing_.Text({x, y_ + 19}, SvgNumber(tick),
                  {.Size = 12, .Colour = kInk, .Anchor = SvgAnchor::Middle});
  }
  drawing_.Text({(kLeft + kRight) / 2, y_ + 39}, "time since the stream's start (s)",
                {.Size = 13, .Colour = kInk, .Anchor = SvgAnchor::Middle, .IsBold = true});
}

}  // namespace

std::string DrawLoopPlot(std::span<const FrameRow> rows, const std::string& title) {
  constexpr double kHeightWithLight = 990;
  constexpr double kHeightOfLight = 96 + kGap;
  const bool hasLight =
      std::ranges::any_of(rows, [](const FrameRow& row) { return row.Lux.has_value(); });
  LoopPlot plot(rows, hasLight ? kHeightWithLight : kHeightWithLight - kHeightOfLight);
  plot.Heading(title);
  plot.Legend();
  plot.StateBand();
  plot.LightPanel();
  plot.LuminancePanel();
  plot.ExposurePanel();
  plot.GainPanel();
  plot.EventLanes();
  plot.TimeAxis();
  return plot.Finish();
}

}  // namespace lidcam::app
