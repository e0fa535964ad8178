#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "apps/lidcam/output/frame_writer.h"
#include "library/base/units.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct SwsContext;

namespace lidcam::app {

enum class FilmCodec {
  Ffv1,  ///< lossless; each frame stands for itself
  H264,  ///< in the first of libavcodec's encoders that is there, else MPEG-4
};

/// Encodes frames by libavcodec. Throws CommandError.
class FilmEncoder {
 public:
  using PacketHandler = std::function<void(AVPacket& packet)>;

  /// @param path               names the output in errors
  /// @param hasGlobalHeader    the container's header describes the stream
  FilmEncoder(std::string path, FilmCodec codec, PictureSize size, bool hasGlobalHeader);
  FilmEncoder(const FilmEncoder&) = delete;
  FilmEncoder& operator=(const FilmEncoder&) = delete;
  ~FilmEncoder();

  [[nodiscard]] const AVCodecContext& Codec() const { return *codec_; }

  /// Encodes a frame; the packets' times are in ticks of kFilmTicksPerSecond.
  void Encode(const OutputFrame& frame, const PacketHandler& packets);

  /// Encodes what is left.
  void Flush(const PacketHandler& packets);

 private:
  void Open(FilmCodec kind, bool hasGlobalHeader);
  void MakePicture();
  void Take(const AVFrame* picture, const PacketHandler& packets);

  const std::string path_;
  const PictureSize size_;
  AVCodecContext* codec_ = nullptr;
  AVFrame* picture_ = nullptr;
  AVPacket* packet_ = nullptr;
  SwsContext* conversion_ = nullptr;
  std::int64_t before_ = -1;  ///< ticks of the newest frame
  std::int64_t lasted_ = 0;   ///< ticks between the two newest frames
};

}  // namespace lidcam::app
