#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <string>

#include "apps/lidcam/output/byte_output.h"

struct AVDictionary;
struct AVFormatContext;
struct AVIOContext;
struct AVPacket;
struct AVStream;

namespace lidcam::app {

/// Ticks a second of a film's time: one is a microframe of the bus.
inline constexpr int kFilmTicksPerSecond = 8000;

/// Throws CommandError with the library's reason for a negative result.
void RequireAv(int result, const std::string& path, const std::string& what);

/// A container file with one video stream, of libavformat. Each packet is in the file at the next one's Write() at the latest, so that the file plays up to a sudden end of the program. Throws CommandError.
class FilmFile {
 public:
  /// @param format       libavformat's name: "matroska", "mp4", "avi"
  /// @param flushesEach  what the format has collected is written with each packet
  FilmFile(std::unique_ptr<ByteOutput> file, const char* format, bool flushesEach);
  FilmFile(const FilmFile&) = delete;
  FilmFile& operator=(const FilmFile&) = delete;
  ~FilmFile();

  /// Whether encoders have to leave the stream's description to the file's header.
  [[nodiscard]] bool WantsGlobalHeader() const;

  /// Writes the header.
  ///
  /// @param describe  fills the stream's parameters and its time base
  /// @param options   of the container, may be null
  void Begin(const std::function<void(AVStream& stream)>& describe, AVDictionary* options);

  /// Writes a packet whose times are in ticks of a second of `ticks`.
  void Write(AVPacket& packet, int ticksNumerator, int ticksDenominator);

  /// Completes the file and brings it under its name. After a failed write it ends behind the last whole
  /// packet.
  void Finish();

  /// Whether a write has failed: packets are refused from then on.
  [[nodiscard]] bool HasFailed() const { return hasFailed_; }
  [[nodiscard]] const std::string& Path() const { return file_->Path(); }

 private:
  static int TakeBytes(void* self, std::uint8_t* bytes, int count);
  static std::int64_t MoveTo(void* self, std::int64_t offset, int whence);

  void Take(const std::uint8_t* bytes, std::size_t count);
  /// Throws what the file threw, else for a negative result.
  void Require(int result, const std::string& what);

  const std::unique_ptr<ByteOutput> file_;
  const bool flushesEach_;
  AVFormatContext* format_ = nullptr;
  AVIOContext* access_ = nullptr;
  AVStream* stream_ = nullptr;
  std::int64_t position_ = 0;
  std::exception_ptr failure_;  ///< of the file; it can't be thrown through the library
  bool hasFailed_ = false;
  bool hasBegun_ = false;
};

}  // namespace lidcam::app
