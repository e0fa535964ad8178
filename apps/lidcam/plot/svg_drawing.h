#pragma once

#include <span>
#include <string>
#include <string_view>

namespace lidcam::app {

/// A place on a drawing, in pixels from its upper left corner.
struct SvgPoint {
  double X = 0;
  double Y = 0;
};

struct SvgArea {
  double X = 0;
  double Y = 0;
  double Width = 0;
  double Height = 0;

  [[nodiscard]] double Right() const { return X + Width; }
  [[nodiscard]] double Bottom() const { return Y + Height; }
};

struct SvgStroke {
  std::string_view Colour = "#000000";
  double Width = 1;
  std::string_view Dashes = {};  ///< "4 3": lengths of dashes and gaps; empty: a whole line
};

enum class SvgAnchor { Start, Middle, End };

struct SvgText {
  double Size = 13;
  std::string_view Colour = "#222222";
  SvgAnchor Anchor = SvgAnchor::Start;
  bool IsBold = false;
  bool IsUpward = false;  ///< turned to read from the bottom to the top
};

/// A drawing in the vector format of web pages. Equal calls give equal bytes: coordinates have two
/// decimals at most, and nothing tells time or machine.
class SvgDrawing {
 public:
  SvgDrawing(double width, double height);

  void Rectangle(const SvgArea& area, std::string_view fill, double opacity = 1);
  void Line(SvgPoint from, SvgPoint to, const SvgStroke& stroke);
  void Polyline(std::span<const SvgPoint> points, const SvgStroke& stroke);
  void Polygon(std::span<const SvgPoint> points, std::string_view fill);
  void Circle(SvgPoint centre, double radius, std::string_view fill);
  /// @param at  the base line's start, middle or end, as the style's anchor says
  void Text(SvgPoint at, std::string_view text, const SvgText& style);

  /// The whole document.
  [[nodiscard]] std::string Finish() const { return content_ + "</svg>\n"; }

 private:
  std::string content_;
};

/// A number with at most two decimals and without trailing zeros.
[[nodiscard]] std::string SvgNumber(double value);

/// About how wide a text is in the drawing's typeface.
[[nodiscard]] double SvgTextWidth(std::string_view text, double size);

}  // namespace lidcam::app
