#include "apps/lidcam/output/film/film_writer.h"

#include "apps/lidcam/output/film/film_encoder.h"
#include "apps/lidcam/output/film/film_file.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <utility>
#include <vector>

#include "apps/lidcam/output/pictures/jpeg_file.h"

namespace lidcam::app {
namespace {

/// Options of a container, which the library keeps as a list of its own.
class ContainerOptions {
 public:
  ContainerOptions() = default;
  ContainerOptions(const ContainerOptions&) = delete;
  ContainerOptions& operator=(const ContainerOptions&) = delete;
  ~ContainerOptions() { av_dict_free(&list_); }

  void Set(const char* name, const char* value) { av_dict_set(&list_, name, value, 0); }
  [[nodiscard]] AVDictionary* List() const { return list_; }

 private:
  AVDictionary* list_ = nullptr;
};

/// Frames that are encoded, at their own times.
class EncodedWriter : public FrameWriter {
 public:
  EncodedWriter(std::unique_ptr<ByteOutput> file, PictureSize size, const char* container,
                FilmCodec codec)
      : film_(std::move(file), container, codec == FilmCodec::Ffv1),
        encoder_(film_.Path(), codec, size, film_.WantsGlobalHeader()) {
    ContainerOptions options;
    // An ordinary MP4 has its index at the end, and without it nothing plays. A fragment has its own, and lies in
    // the file once the next frame comes.
    // Its times are the stream's, although the first one isn't 0.
    options.Set("movflags", "+frag_every_frame+empty_moov+default_base_moof+frag_discont");
    options.Set("use_editlist", "0");
    film_.Begin(
        [&](AVStream& stream) {
          RequireAv(avcodec_parameters_from_context(stream.codecpar, &encoder_.Codec()),
                    film_.Path(), "the stream can't be described");
          stream.time_base = encoder_.Codec().time_base;
          stream.sample_aspect_ratio = encoder_.Codec().sample_aspect_ratio;
        },
        options.List());
  }

  void Write(const OutputFrame& frame) override {
    encoder_.Encode(frame, [this](AVPacket& packet) { Take(packet); });
  }

  void Finish() override {
    if (!film_.HasFailed()) encoder_.Flush([this](AVPacket& packet) { Take(packet); });
    film_.Finish();
  }

  [[nodiscard]] std::string Place() const override { return film_.Path(); }

 private:
  void Take(AVPacket& packet) { film_.Write(packet, 1, kFilmTicksPerSecond); }

  FilmFile film_;
  FilmEncoder encoder_;
};

/// Pictures in JPEG, one a frame period.
class AviWriter : public FrameWriter {
 public:
  AviWriter(std::unique_ptr<ByteOutput> file, PictureSize size,
            std::chrono::microseconds framePeriod)
      : size_(size),
        period_(static_cast<int>(framePeriod.count())),
        film_(std::move(file), "avi", false) {
    film_.Begin(
        [this](AVStream& stream) {
          stream.codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
          stream.codecpar->codec_id = AV_CODEC_ID_MJPEG;
          stream.codecpar->width = size_.Width;
          stream.codecpar->height = size_.Height;
          stream.time_base = {period_, kMicrosecondsPerSecond};
          stream.avg_frame_rate = {kMicrosecondsPerSecond, period_};
        },
        nullptr);
  }

  void Write(const OutputFrame& frame) override {
    std::vector<std::uint8_t> jpeg = EncodeJpeg(film_.Path(), size_, frame.Yuy2);
    const std::size_t length = jpeg.size();
    jpeg.resize(length + AV_INPUT_BUFFER_PADDING_SIZE);
    AVPacket* packet = av_packet_alloc();
    packet->data = jpeg.data();
    packet->size = static_cast<int>(length);
    packet->pts = count_;
    packet->dts = count_;
    packet->duration = 1;
    packet->flags = AV_PKT_FLAG_KEY;
    ++count_;
    const std::unique_ptr<AVPacket, void (*)(AVPacket*)> owner(
        packet, [](AVPacket* used) { av_packet_free(&used); });
    film_.Write(*packet, period_, kMicrosecondsPerSecond);
  }

  void Finish() override { film_.Finish(); }
  [[nodiscard]] std::string Place() const override { return film_.Path(); }

 private:
  static constexpr int kMicrosecondsPerSecond = 1'000'000;

  const PictureSize size_;
  const int period_;  ///< microseconds
  FilmFile film_;
  std::int64_t count_ = 0;
};

}  // namespace

std::unique_ptr<FrameWriter> MakeFilmWriter(std::unique_ptr<ByteOutput> file, PictureSize size,
                                            OutputForm form,
                                            std::chrono::microseconds framePeriod) {
  if (form == OutputForm::Avi)
    return std::make_unique<AviWriter>(std::move(file), size, framePeriod);
  if (form == OutputForm::Mp4) {
    return std::make_unique<EncodedWriter>(std::move(file), size, "mp4", FilmCodec::H264);
  }
  return std::make_unique<EncodedWriter>(std::move(file), size, "matroska", FilmCodec::Ffv1);
}

}  // namespace lidcam::app
