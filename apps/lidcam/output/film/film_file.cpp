#include "apps/lidcam/output/film/film_file.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <span>
#include <utility>

#include "library/base/command_error.h"

namespace lidcam::app {
namespace {

constexpr int kAccessBuffer = 65536;

// What the library has to say comes with its results.
void KeepLibraryQuiet() {
  static const bool isQuiet = [] {
    av_log_set_level(AV_LOG_QUIET);
    return true;
  }();
  static_cast<void>(isQuiet);
}

}  // namespace

void RequireAv(int result, const std::string& path, const std::string& what) {
  if (result >= 0) return;
  std::array<char, AV_ERROR_MAX_STRING_SIZE> reason{};
  av_strerror(result, reason.data(), reason.size());
  throw CommandError("output '" + path + "': " + what + ": " + reason.data());
}

FilmFile::FilmFile(std::unique_ptr<ByteOutput> file, const char* format, bool flushesEach)
    : file_(std::move(file)), flushesEach_(flushesEach) {
  KeepLibraryQuiet();
  RequireAv(avformat_alloc_output_context2(&format_, nullptr, format, nullptr), Path(),
            "no such container");
  auto* const buffer = static_cast<std::uint8_t*>(av_malloc(kAccessBuffer));
  access_ = avio_alloc_context(buffer, kAccessBuffer, 1, this, nullptr, TakeBytes,
                               file_->IsSeekable() ? MoveTo : nullptr);
  if (access_ == nullptr) {
    av_free(buffer);
    avformat_free_context(format_);
    RequireAv(AVERROR(ENOMEM), Path(), "the container can't be made");
  }
  format_->pb = access_;
  // Equal frames give equal bytes: no random numbers, no version of the library.
  format_->avoid_negative_ts = AVFMT_AVOID_NEG_TS_DISABLED;  // which would let the first time be 0
  format_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_BITEXACT | AVFMT_FLAG_FLUSH_PACKETS;
}

FilmFile::~FilmFile() {
  // What the library still has is lost with the file.
  hasFailed_ = true;
  avformat_free_context(format_);
  av_freep(&access_->buffer);
  avio_context_free(&access_);
}

bool FilmFile::WantsGlobalHeader() const {
  return (format_->oformat->flags & AVFMT_GLOBALHEADER) != 0;
}

void FilmFile::Begin(const std::function<void(AVStream& stream)>& describe, AVDictionary* options) {
  stream_ = avformat_new_stream(format_, nullptr);
  if (stream_ == nullptr) RequireAv(AVERROR(ENOMEM), Path(), "the stream can't be made");
  describe(*stream_);
  AVDictionary* all = nullptr;
  av_dict_copy(&all, options, 0);
  const int result = avformat_write_header(format_, &all);
  av_dict_free(&all);
  Require(result, "the header can't be written");
  avio_flush(access_);
  Require(0, "");
  hasBegun_ = true;
}

void FilmFile::Write(AVPacket& packet, int ticksNumerator, int ticksDenominator) {
  av_packet_rescale_ts(&packet, {ticksNumerator, ticksDenominator}, stream_->time_base);
  packet.stream_index = stream_->index;
  int result = av_write_frame(format_, &packet);
  if (result >= 0 && flushesEach_) result = av_write_frame(format_, nullptr);
  avio_flush(access_);
  Require(result, "a frame can't be written");
  file_->MarkWhole();
}

void FilmFile::Finish() {
  if (hasBegun_ && !hasFailed_) {
    const int result = av_write_trailer(format_);
    avio_flush(access_);
    Require(result, "the end can't be written");
    file_->MarkWhole();
  }
  file_->Commit();
}

int FilmFile::TakeBytes(void* self, std::uint8_t* bytes, int count) {
  auto& film = *static_cast<FilmFile*>(self);
  if (film.hasFailed_) return AVERROR(EIO);
  try {
    film.Take(bytes, static_cast<std::size_t>(count));
    return count;
  } catch (...) {
    film.failure_ = std::current_exception();
    film.hasFailed_ = true;
    return AVERROR(EIO);
  }
}

void FilmFile::Take(const std::uint8_t* bytes, std::size_t count) {
  std::span<const std::uint8_t> rest(bytes, count);
  const std::int64_t behind = file_->Size() - position_;
  const auto replaced = static_cast<std::size_t>(
      std::clamp<std::int64_t>(behind, 0, static_cast<std::int64_t>(count)));
  if (replaced > 0) file_->Overwrite(position_, rest.first(replaced));
  rest = rest.subspan(replaced);
  if (!rest.empty()) file_->Write(rest);
  position_ += static_cast<std::int64_t>(count);
}

std::int64_t FilmFile::MoveTo(void* self, std::int64_t offset, int whence) {
  auto& film = *static_cast<FilmFile*>(self);
  if (whence == AVSEEK_SIZE) return film.file_->Size();
  std::int64_t place = offset;
  if (whence == SEEK_CUR) place += film.position_;
  if (whence == SEEK_END) place += film.file_->Size();
  if (place < 0 || place > film.file_->Size()) return AVERROR(EINVAL);
  film.position_ = place;
  return place;
}

void FilmFile::Require(int result, const std::string& what) {
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
  if (result < 0) hasFailed_ = true;
  RequireAv(result, Path(), what);
}

}  // namespace lidcam::app
