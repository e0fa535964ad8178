#include "bench/resampler_peers.h"

extern "C" {
#include <libswscale/swscale.h>
}

#include <libyuv.h>
#include <libyuv/scale_uv.h>

#include <memory>
#include <stdexcept>

namespace lidcam::bench {
namespace {

Subject MakeSwscale(const char* name, int filter, const Conversion& c, const std::uint8_t* source,
                    std::uint8_t* output) {
  const std::shared_ptr<SwsContext> context(
      sws_getContext(c.SourceWidth, c.SourceHeight, AV_PIX_FMT_YUYV422, c.Width, c.Height,
                     AV_PIX_FMT_YUYV422, filter, nullptr, nullptr, nullptr),
      sws_freeContext);
  if (context == nullptr) throw std::runtime_error("libswscale has no context for this scale");
  return {name, [=] {
            const std::uint8_t* const sources[] = {source};
            const int sourceSteps[] = {c.SourceWidth * 2};
            std::uint8_t* const outputs[] = {output};
            const int outputSteps[] = {c.Width * 2};
            sws_scale(context.get(), sources, sourceSteps, 0, c.SourceHeight, outputs, outputSteps);
          }};
}

// Planes of a picture with halved chroma columns.
struct Planes {
  Planes(int width, int height)
      : Width(width),
        Height(height),
        Bytes(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 2) {}

  std::uint8_t* Y() { return Bytes.data(); }
  std::uint8_t* U() { return Y() + Bytes.size() / 2; }
  std::uint8_t* V() { return U() + Bytes.size() / 4; }

  int Width;
  int Height;
  std::vector<std::uint8_t> Bytes;
};

Subject MakeYuvByPlanes(const Conversion& c, const std::uint8_t* source, std::uint8_t* output) {
  const auto from = std::make_shared<Planes>(c.SourceWidth, c.SourceHeight);
  const auto to = std::make_shared<Planes>(c.Width, c.Height);
  return {kYuvByPlanes, [=] {
            Planes& a = *from;
            Planes& b = *to;
            libyuv::YUY2ToI422(source, a.Width * 2, a.Y(), a.Width, a.U(), a.Width / 2, a.V(),
                               a.Width / 2, a.Width, a.Height);
            libyuv::I422Scale(a.Y(), a.Width, a.U(), a.Width / 2, a.V(), a.Width / 2, a.Width,
                              a.Height, b.Y(), b.Width, b.U(), b.Width / 2, b.V(), b.Width / 2,
                              b.Width, b.Height, libyuv::kFilterBilinear);
            libyuv::I422ToYUY2(b.Y(), b.Width, b.U(), b.Width / 2, b.V(), b.Width / 2, output,
                               b.Width * 2, b.Width, b.Height);
          }};
}

Subject MakeYuvByArgb(const Conversion& c, const std::uint8_t* source, std::uint8_t* output) {
  const auto from = std::make_shared<std::vector<std::uint8_t>>(2 * c.SourceBytes());
  const auto to = std::make_shared<std::vector<std::uint8_t>>(2 * c.OutputBytes());
  return {kYuvByArgb, [=] {
            libyuv::YUY2ToARGB(source, c.SourceWidth * 2, from->data(), c.SourceWidth * 4,
                               c.SourceWidth, c.SourceHeight);
            libyuv::ARGBScale(from->data(), c.SourceWidth * 4, c.SourceWidth, c.SourceHeight,
                              to->data(), c.Width * 4, c.Width, c.Height, libyuv::kFilterBilinear);
            libyuv::ARGBToYUY2(to->data(), c.Width * 4, output, c.Width * 2, c.Width, c.Height);
          }};
}

// Of packed YUY2 every second byte is luma: two planes, the second of U and V in turn.
Subject MakeYuvBySplit(const Conversion& c, const std::uint8_t* source, std::uint8_t* output) {
  const auto from = std::make_shared<Planes>(c.SourceWidth, c.SourceHeight);
  const auto to = std::make_shared<Planes>(c.Width, c.Height);
  return {kYuvBySplit, [=] {
            Planes& a = *from;
            Planes& b = *to;
            libyuv::SplitUVPlane(source, a.Width * 2, a.Y(), a.Width, a.U(), a.Width, a.Width,
                                 a.Height);
            libyuv::ScalePlane(a.Y(), a.Width, a.Width, a.Height, b.Y(), b.Width, b.Width, b.Height,
                               libyuv::kFilterBilinear);
            libyuv::UVScale(a.U(), a.Width, a.Width / 2, a.Height, b.U(), b.Width, b.Width / 2,
                            b.Height, libyuv::kFilterBilinear);
            libyuv::MergeUVPlane(b.Y(), b.Width, b.U(), b.Width, output, b.Width * 2, b.Width,
                                 b.Height);
          }};
}

}  // namespace

std::vector<Subject> MakePeers(const Conversion& conversion, const std::uint8_t* source,
                               std::uint8_t* output) {
  return {MakeSwscale(kSwscaleBilinear, SWS_BILINEAR, conversion, source, output),
          MakeSwscale(kSwscaleFastBilinear, SWS_FAST_BILINEAR, conversion, source, output),
          MakeYuvByPlanes(conversion, source, output), MakeYuvByArgb(conversion, source, output),
          MakeYuvBySplit(conversion, source, output)};
}

}  // namespace lidcam::bench
