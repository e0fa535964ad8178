#include "apps/lidcam/output/film/film_encoder.h"

#include "apps/lidcam/output/film/film_file.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include <array>
#include <utility>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

constexpr std::array kH264Encoders = {"libx264", "libopenh264", "mpeg4"};
constexpr int kSlices = 4;
constexpr int kFramesPerKeyFrame = 30;
constexpr std::int64_t kNominalTicks = kFilmTicksPerSecond / 30;

const AVCodec* FindEncoder(FilmCodec kind) {
  if (kind == FilmCodec::Ffv1) return avcodec_find_encoder(AV_CODEC_ID_FFV1);
  for (const char* const name : kH264Encoders) {
    if (const AVCodec* const codec = avcodec_find_encoder_by_name(name)) return codec;
  }
  return nullptr;
}

// A checksum for each slice, so that a damaged file shows where.
void ConfigureFfv1(AVCodecContext& codec) {
  codec.level = 3;
  codec.slices = kSlices;
  codec.gop_size = 1;
  codec.thread_count = kSlices;
  codec.thread_type = FF_THREAD_SLICE;
  av_opt_set(codec.priv_data, "slicecrc", "1", 0);
}

// No frame waits for a later one, so that a cut file has all of them. One thread: the bytes don't depend on the
// machine's processors.
void ConfigureH264(AVCodecContext& codec) {
  codec.gop_size = kFramesPerKeyFrame;
  codec.max_b_frames = 0;
  codec.thread_count = 1;
  codec.flags |= AV_CODEC_FLAG_QSCALE;
  codec.global_quality = 3 * FF_QP2LAMBDA;
  av_opt_set(codec.priv_data, "preset", "veryfast", 0);
  av_opt_set(codec.priv_data, "tune", "zerolatency", 0);
  av_opt_set(codec.priv_data, "crf", "18", 0);
}

std::int64_t TicksOf(std::chrono::microseconds time) {
  constexpr std::int64_t kTick =
      std::chrono::microseconds(std::chrono::seconds(1)).count() / kFilmTicksPerSecond;
  return (time.count() + kTick / 2) / kTick;
}

}  // namespace

FilmEncoder::FilmEncoder(std::string path, FilmCodec codec, PictureSize size, bool hasGlobalHeader)
    : path_(std::move(path)), size_(size) {
  Open(codec, hasGlobalHeader);
  MakePicture();
}

FilmEncoder::~FilmEncoder() {
  sws_freeContext(conversion_);
  av_packet_free(&packet_);
  av_frame_free(&picture_);
  avcodec_free_context(&codec_);
}

void FilmEncoder::Open(FilmCodec kind, bool hasGlobalHeader) {
  const AVCodec* const encoder = FindEncoder(kind);
  if (encoder == nullptr) {
    throw CommandError("output '" + path_ + "': this libavcodec has no encoder for it");
  }
  codec_ = avcodec_alloc_context3(encoder);
  if (codec_ == nullptr) RequireAv(AVERROR(ENOMEM), path_, "the encoder can't be made");
  codec_->width = size_.Width;
  codec_->height = size_.Height;
  codec_->time_base = {1, kFilmTicksPerSecond};
  codec_->framerate = {0, 1};
  codec_->sample_aspect_ratio = {1, 1};
  codec_->pix_fmt = kind == FilmCodec::Ffv1 ? AV_PIX_FMT_YUV422P : AV_PIX_FMT_YUV420P;
  codec_->color_range = AVCOL_RANGE_MPEG;
  codec_->colorspace = AVCOL_SPC_SMPTE170M;
  codec_->flags |= AV_CODEC_FLAG_BITEXACT;
  if (hasGlobalHeader) codec_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if (kind == FilmCodec::Ffv1) {
    ConfigureFfv1(*codec_);
  } else {
    ConfigureH264(*codec_);
  }
  RequireAv(avcodec_open2(codec_, encoder, nullptr), path_, "the encoder can't be opened");
}

void FilmEncoder::MakePicture() {
  picture_ = av_frame_alloc();
  packet_ = av_packet_alloc();
  if (picture_ == nullptr || packet_ == nullptr) {
    RequireAv(AVERROR(ENOMEM), path_, "the encoder can't be made");
  }
  picture_->format = codec_->pix_fmt;
  picture_->width = size_.Width;
  picture_->height = size_.Height;
  RequireAv(av_frame_get_buffer(picture_, 0), path_, "the encoder can't be made");
  conversion_ =
      sws_getContext(size_.Width, size_.Height, AV_PIX_FMT_YUYV422, size_.Width, size_.Height,
                     codec_->pix_fmt, SWS_ACCURATE_RND | SWS_BITEXACT, nullptr, nullptr, nullptr);
  if (conversion_ == nullptr) {
    RequireAv(AVERROR(ENOMEM), path_, "the picture can't be converted");
  }
}

void FilmEncoder::Encode(const OutputFrame& frame, const PacketHandler& packets) {
  RequireAv(av_frame_make_writable(picture_), path_, "a frame can't be encoded");
  const std::uint8_t* const source = frame.Yuy2.data();
  const int stride = size_.Width * 2;
  sws_scale(conversion_, &source, &stride, 0, size_.Height, picture_->data, picture_->linesize);
  const std::int64_t ticks = TicksOf(frame.Time);
  if (before_ >= 0) lasted_ = ticks - before_;
  before_ = ticks;
  picture_->pts = ticks;
  Take(picture_, packets);
}

void FilmEncoder::Flush(const PacketHandler& packets) {
  Take(nullptr, packets);
}

void FilmEncoder::Take(const AVFrame* picture, const PacketHandler& packets) {
  RequireAv(avcodec_send_frame(codec_, picture), path_, "a frame can't be encoded");
  for (;;) {
    const int result = avcodec_receive_packet(codec_, packet_);
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return;
    RequireAv(result, path_, "a frame can't be encoded");
    // The last frame lasts as long as the one before it; all others last until the next one.
    packet_->duration = lasted_ > 0 ? lasted_ : kNominalTicks;
    packets(*packet_);
    av_packet_unref(packet_);
  }
}

}  // namespace lidcam::app
