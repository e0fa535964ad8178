#include "bus/capture/files/decompression.h"

#include <archive.h>
#include <archive_entry.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

namespace lidcam::bus {
namespace {

constexpr std::size_t kBlockSize = 65536;

constexpr std::array<std::uint8_t, 2> kGzipMark{0x1F, 0x8B};
constexpr std::array<std::uint8_t, kCompressionMarkSize> kXzMark{0xFD, 0x37, 0x7A,
                                                                 0x58, 0x5A, 0x00};
constexpr std::array<std::uint8_t, 4> kZstandardMark{0x28, 0xB5, 0x2F, 0xFD};

bool BeginsWith(std::span<const std::uint8_t> bytes, std::span<const std::uint8_t> mark) {
  return bytes.size() >= mark.size() && std::ranges::equal(bytes.first(mark.size()), mark);
}

struct ArchiveCloser {
  void operator()(archive* reader) const { archive_read_free(reader); }
};

/// The library's reader of one compressed file: of an archive, which a report is, its recording, otherwise the whole.
class Decompressor {
 public:
  Decompressor(ByteSource source, DecompressionEnd& end)
      : source_(std::move(source)), block_(kBlockSize), end_(end), reader_(archive_read_new()) {}

  /// False without memory.
  bool Open() {
    if (!reader_) return false;
    archive_read_support_filter_gzip(reader_.get());
    archive_read_support_filter_xz(reader_.get());
    archive_read_support_filter_zstd(reader_.get());
    archive_read_support_format_tar(reader_.get());
    archive_read_support_format_raw(reader_.get());
    archive_read_support_format_empty(reader_.get());
    return true;
  }

  std::ptrdiff_t Read(std::span<char> buffer) {
    if (!hasBegun_) Begin();
    if (isOver_) return HasFailed() ? Fail() : 0;
    const la_ssize_t count = archive_read_data(reader_.get(), buffer.data(), buffer.size());
    if (count > 0) return count;
    isOver_ = true;
    if (count < 0) NoteError();
    return HasFailed() ? Fail() : 0;
  }

 private:
  void Begin() {
    hasBegun_ = true;
    archive_entry* entry = nullptr;
    int result = archive_read_open(reader_.get(), this, nullptr, ReadBlock, nullptr);
    if (result == ARCHIVE_OK) result = FindCapture(entry);
    const bool isOpen = result == ARCHIVE_OK || result == ARCHIVE_WARN;
    // The library does not recognise a compressed file that is cut within its header, and returns
    // its bytes unchanged.
    const bool isKnown = archive_filter_count(reader_.get()) > 1;
    if (isOpen && isKnown) return;
    isOver_ = true;
    if (isOpen) {
      end_.IsCut = true;
    } else if (result != ARCHIVE_EOF) {
      NoteError();
    }
  }

  int FindCapture(archive_entry*& entry) {
    bool isArchive = false;
    while (true) {
      const int result = archive_read_next_header(reader_.get(), &entry);
      if (result == ARCHIVE_EOF && isArchive) {
        end_.Damage = "the archive contains no recording, which ends in .pcap";
      }
      if (result != ARCHIVE_OK && result != ARCHIVE_WARN) return result;
      isArchive = archive_format(reader_.get()) != ARCHIVE_FORMAT_RAW;
      const char* const name = archive_entry_pathname(entry);
      if (!isArchive || (name != nullptr && std::string_view(name).ends_with(".pcap"))) {
        return result;
      }
    }
  }

  // If the library has requested bytes beyond the file's end, the file is cut, whatever the
  // library's error.
  void NoteError() {
    if (isAtEnd_) {
      end_.IsCut = true;
      return;
    }
    const char* const reason = archive_error_string(reader_.get());
    end_.Damage = reason != nullptr ? reason : "damaged compressed data";
  }

  [[nodiscard]] bool HasFailed() const { return !end_.Damage.empty(); }

  static std::ptrdiff_t Fail() {
    errno = EIO;
    return -1;
  }

  static la_ssize_t ReadBlock(archive* reader, void* self, const void** bytes) {
    auto& decompressor = *static_cast<Decompressor*>(self);
    const std::ptrdiff_t count = decompressor.source_(decompressor.block_);
    if (count < 0) archive_set_error(reader, errno, "%s", "the file can't be read");
    if (count == 0) decompressor.isAtEnd_ = true;
    *bytes = decompressor.block_.data();
    return count;
  }

  ByteSource source_;
  std::vector<std::uint8_t> block_;
  DecompressionEnd& end_;
  std::unique_ptr<archive, ArchiveCloser> reader_;
  bool hasBegun_ = false;
  bool isAtEnd_ = false;  ///< of the compressed file
  bool isOver_ = false;
};

/// A stream of the C library over an object with Read(), which the stream owns.
template <typename Reader>
StreamHandle StreamOver(std::unique_ptr<Reader> reader) {
  cookie_io_functions_t operations{};
  operations.read = [](void* cookie, char* buffer, std::size_t size) -> ssize_t {
    return static_cast<Reader*>(cookie)->Read({buffer, size});
  };
  operations.close = [](void* cookie) {
    delete static_cast<Reader*>(cookie);
    return 0;
  };
  StreamHandle stream{fopencookie(reader.get(), "rb", operations)};
  if (!stream) return nullptr;
  static_cast<void>(reader.release());  // deleted with the stream
  std::setvbuf(stream.get(), nullptr, _IOFBF, kBlockSize);
  return stream;
}

class PlainReader {
 public:
  explicit PlainReader(ByteSource source) : source_(std::move(source)) {}

  std::ptrdiff_t Read(std::span<char> buffer) {
    return source_({reinterpret_cast<std::uint8_t*>(buffer.data()), buffer.size()});
  }

 private:
  ByteSource source_;
};

}  // namespace

bool IsCompressed(std::span<const std::uint8_t> head) {
  return BeginsWith(head, kGzipMark) || BeginsWith(head, kXzMark) ||
         BeginsWith(head, kZstandardMark);
}

StreamHandle OpenDecompressed(ByteSource source, DecompressionEnd& end) {
  auto decompressor = std::make_unique<Decompressor>(std::move(source), end);
  if (!decompressor->Open()) return nullptr;
  return StreamOver(std::move(decompressor));
}

StreamHandle OpenPlain(ByteSource source) {
  return StreamOver(std::make_unique<PlainReader>(std::move(source)));
}

}  // namespace lidcam::bus
