#include "apps/lidcam/plot/svg_drawing.h"

#include <array>
#include <cstdio>

#include "apps/lidcam/output/utf8_text.h"

namespace lidcam::app {
namespace {

constexpr const char* kTypeface = "Helvetica, Arial, 'DejaVu Sans', sans-serif";

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char letter : Utf8Text(text)) {
    switch (letter) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        // The format has no place for other control characters.
        escaped += static_cast<unsigned char>(letter) < 0x20 ? ' ' : letter;
    }
  }
  return escaped;
}

std::string Attribute(std::string_view name, std::string_view value) {
  return " " + std::string(name) + "=\"" + std::string(value) + "\"";
}

std::string Attribute(std::string_view name, double value) {
  return Attribute(name, SvgNumber(value));
}

std::string StrokeOf(const SvgStroke& stroke) {
  std::string text = Attribute("stroke", stroke.Colour) + Attribute("stroke-width", stroke.Width);
  if (!stroke.Dashes.empty()) text += Attribute("stroke-dasharray", stroke.Dashes);
  return text;
}

std::string PointsOf(std::span<const SvgPoint> points) {
  std::string text;
  for (const SvgPoint& point : points) {
    text += (text.empty() ? "" : " ") + SvgNumber(point.X) + "," + SvgNumber(point.Y);
  }
  return Attribute("points", text);
}

std::string_view NameOf(SvgAnchor anchor) {
  switch (anchor) {
    case SvgAnchor::Middle:
      return "middle";
    case SvgAnchor::End:
      return "end";
    case SvgAnchor::Start:
      break;
  }
  return "start";
}

}  // namespace

std::string SvgNumber(double value) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.2f", value);
  std::string number = text.data();
  while (number.back() == '0') number.pop_back();
  if (number.back() == '.') number.pop_back();
  return number == "-0" ? "0" : number;
}

double SvgTextWidth(std::string_view text, double size) {
  constexpr double kMeanLetter = 0.56;
  return static_cast<double>(text.size()) * size * kMeanLetter;
}

SvgDrawing::SvgDrawing(double width, double height) {
  content_ = "<svg xmlns=\"http://www.w3.org/2000/svg\"" + Attribute("width", width) +
             Attribute("height", height) +
             Attribute("viewBox", "0 0 " + SvgNumber(width) + " " + SvgNumber(height)) +
             Attribute("font-family", kTypeface) + ">\n";
  Rectangle({0, 0, width, height}, "#ffffff");
}

void SvgDrawing::Rectangle(const SvgArea& area, std::string_view fill, double opacity) {
  content_ += "<rect" + Attribute("x", area.X) + Attribute("y", area.Y) +
              Attribute("width", area.Width) + Attribute("height", area.Height) +
              Attribute("fill", fill);
  if (opacity < 1) content_ += Attribute("fill-opacity", opacity);
  content_ += "/>\n";
}

void SvgDrawing::Line(SvgPoint from, SvgPoint to, const SvgStroke& stroke) {
  content_ += "<line" + Attribute("x1", from.X) + Attribute("y1", from.Y) + Attribute("x2", to.X) +
              Attribute("y2", to.Y) + StrokeOf(stroke) + "/>\n";
}

void SvgDrawing::Polyline(std::span<const SvgPoint> points, const SvgStroke& stroke) {
  content_ += "<polyline" + PointsOf(points) + Attribute("fill", "none") + StrokeOf(stroke) +
              Attribute("stroke-linejoin", "round") + "/>\n";
}

void SvgDrawing::Polygon(std::span<const SvgPoint> points, std::string_view fill) {
  content_ += "<polygon" + PointsOf(points) + Attribute("fill", fill) + "/>\n";
}

void SvgDrawing::Circle(SvgPoint centre, double radius, std::string_view fill) {
  content_ += "<circle" + Attribute("cx", centre.X) + Attribute("cy", centre.Y) +
              Attribute("r", radius) + Attribute("fill", fill) + "/>\n";
}

void SvgDrawing::Text(SvgPoint at, std::string_view text, const SvgText& style) {
  content_ += "<text" + Attribute("x", at.X) + Attribute("y", at.Y) +
              Attribute("font-size", style.Size) + Attribute("fill", style.Colour);
  if (style.Anchor != SvgAnchor::Start) content_ += Attribute("text-anchor", NameOf(style.Anchor));
  if (style.IsBold) content_ += Attribute("font-weight", "bold");
  if (style.IsUpward) {
    content_ +=
        Attribute("transform", "rotate(-90 " + SvgNumber(at.X) + " " + SvgNumber(at.Y) + ")");
  }
  content_ += ">" + Escaped(text) + "</text>\n";
}

}  // namespace lidcam::app
