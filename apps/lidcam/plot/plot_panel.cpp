#include "apps/lidcam/plot/plot_panel.h"

#include <algorithm>
#include <cmath>

namespace lidcam::app {
namespace {

constexpr std::string_view kGrid = "#c4c8cc";
constexpr double kTickText = 12;
constexpr double kTitleText = 13;

// The title stands beyond the widest tick text.
constexpr double kTitleDistance = 58;

void DrawTickTexts(SvgDrawing& drawing, double x, SvgAnchor anchor, const PlotAxis& axis) {
  for (const PlotTick& tick : axis.Ticks) {
    drawing.Text({x, axis.Scale.Y(tick.Value) + kTickText * 0.36}, tick.Text,
                 {.Size = kTickText, .Colour = axis.Colour, .Anchor = anchor});
  }
}

void DrawTitle(SvgDrawing& drawing, double x, const PlotAxis& axis) {
  drawing.Text({x, (axis.Scale.Top + axis.Scale.Bottom) / 2}, axis.Title,
               {.Size = kTitleText,
                .Colour = axis.Colour,
                .Anchor = SvgAnchor::Middle,
                .IsBold = true,
                .IsUpward = true});
}

}  // namespace

std::vector<double> TimeScale::Ticks() const {
  constexpr double kWanted = 10;
  const double rough = End / kWanted;
  const double power = std::pow(10, std::floor(std::log10(rough)));
  double step = 10 * power;
  for (const double candidate : {1.0, 2.0, 5.0}) {
    if (candidate * power >= rough) {
      step = candidate * power;
      break;
    }
  }
  std::vector<double> ticks;
  // Counted, so that no rounding adds up.
  for (int i = 0; i * step <= End * (1 + 1e-9); ++i) ticks.push_back(i * step);
  return ticks;
}

double ValueScale::Y(double value) const {
  const double within = std::clamp(value, Low, High);
  const double part =
      IsLogarithmic ? std::log(within / Low) / std::log(High / Low) : (within - Low) / (High - Low);
  return Bottom - (Bottom - Top) * part;
}

std::vector<PlotTick> NumberTicks(std::span<const double> values) {
  std::vector<PlotTick> ticks;
  for (const double value : values) ticks.push_back({value, SvgNumber(value)});
  return ticks;
}

void DrawLeftAxis(SvgDrawing& drawing, const TimeScale& time, const PlotAxis& axis) {
  for (const PlotTick& tick : axis.Ticks) {
    const double y = axis.Scale.Y(tick.Value);
    drawing.Line({time.Left, y}, {time.Right, y}, {.Colour = kGrid, .Width = 0.7});
  }
  DrawTickTexts(drawing, time.Left - 8, SvgAnchor::End, axis);
  DrawTitle(drawing, time.Left - kTitleDistance, axis);
}

void DrawRightAxis(SvgDrawing& drawing, const TimeScale& time, const PlotAxis& axis) {
  DrawTickTexts(drawing, time.Right + 8, SvgAnchor::Start, axis);
  DrawTitle(drawing, time.Right + kTitleDistance, axis);
}

void DrawHeldValue(SvgDrawing& drawing, const TimeScale& time, const ValueScale& scale,
                   std::span<const FrameRow> rows, const RowValue& value, const SvgStroke& stroke) {
  std::vector<SvgPoint> points;
  for (const FrameRow& row : rows) {
    const double x = time.X(row.Seconds);
    const double y = scale.Y(value(row));
    if (!points.empty() && points.back().Y == y) continue;
    if (!points.empty()) points.push_back({x, points.back().Y});
    points.push_back({x, y});
  }
  points.push_back({time.X(rows.back().Seconds), points.back().Y});
  drawing.Polyline(points, stroke);
}

void DrawMeasuredValue(SvgDrawing& drawing, const TimeScale& time, const ValueScale& scale,
                       std::span<const FrameRow> rows, const RowValue& value,
                       const SvgStroke& stroke) {
  std::vector<SvgPoint> points;
  for (const FrameRow& row : rows) points.push_back({time.X(row.Seconds), scale.Y(value(row))});
  drawing.Polyline(points, stroke);
}

}  // namespace lidcam::app
