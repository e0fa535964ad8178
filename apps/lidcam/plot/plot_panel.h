#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "apps/lidcam/frames/frame_log.h"
#include "apps/lidcam/plot/svg_drawing.h"

namespace lidcam::app {

/// Seconds along the width that all panels share.
struct TimeScale {
  double Left = 0;
  double Right = 1;
  double End = 1;  ///< seconds at the right edge; 0 s is at the left one

  [[nodiscard]] double X(double seconds) const { return Left + (Right - Left) * seconds / End; }
  /// Round seconds from 0 to the end, about ten of them.
  [[nodiscard]] std::vector<double> Ticks() const;
};

/// A quantity up the height of a panel.
struct ValueScale {
  double Top = 0;
  double Bottom = 1;
  double Low = 0;
  double High = 1;
  bool IsLogarithmic = false;

  /// Values beyond the scale stand at its edge.
  [[nodiscard]] double Y(double value) const;
};

struct PlotTick {
  double Value;
  std::string Text;
};

/// One axis of a panel, in the colour of its curve.
struct PlotAxis {
  ValueScale Scale;
  std::string_view Title;
  std::string_view Colour;
  std::vector<PlotTick> Ticks;
};

/// Ticks at round numbers.
[[nodiscard]] std::vector<PlotTick> NumberTicks(std::span<const double> values);

/// Lines across the panel at the ticks, with their texts and the title on the left.
void DrawLeftAxis(SvgDrawing& drawing, const TimeScale& time, const PlotAxis& axis);
/// Tick texts and title on the right, without lines.
void DrawRightAxis(SvgDrawing& drawing, const TimeScale& time, const PlotAxis& axis);

using RowValue = std::function<double(const FrameRow& row)>;

/// Draws a value that holds from each frame to the next one.
void DrawHeldValue(SvgDrawing& drawing, const TimeScale& time, const ValueScale& scale,
                   std::span<const FrameRow> rows, const RowValue& value, const SvgStroke& stroke);

/// Draws a value measured at each frame.
void DrawMeasuredValue(SvgDrawing& drawing, const TimeScale& time, const ValueScale& scale,
                       std::span<const FrameRow> rows, const RowValue& value,
                       const SvgStroke& stroke);

}  // namespace lidcam::app
