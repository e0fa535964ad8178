#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/kernel.h"

namespace lidcam::client {

/// Memory of a request: any number of bytes, aligned to 8.
class Block {
 public:
  explicit Block(std::size_t bytes = 0)
      : words_((bytes + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t)), bytes_(bytes) {}
  explicit Block(std::span<const std::byte> bytes);

  [[nodiscard]] std::size_t Size() const { return bytes_; }
  [[nodiscard]] std::byte* Data() { return reinterpret_cast<std::byte*>(words_.data()); }
  [[nodiscard]] const std::byte* Data() const {
    return reinterpret_cast<const std::byte*>(words_.data());
  }
  [[nodiscard]] std::span<const std::byte> Bytes() const { return {Data(), bytes_}; }

  /// Cuts the block after the first `bytes`.
  void Shorten(std::size_t bytes);

 private:
  std::vector<std::uint64_t> words_;
  std::size_t bytes_;
};

/// A whole KS_DATAFORMAT_VIDEOINFOHEADER and any bytes after it.
class VideoFormat {
 public:
  /// @throws ClientError (STATUS_INVALID_BUFFER_SIZE) if the bytes aren't a whole format
  explicit VideoFormat(Block block);

  [[nodiscard]] const KS_DATAFORMAT_VIDEOINFOHEADER& Header() const;
  [[nodiscard]] KS_DATAFORMAT_VIDEOINFOHEADER& Header();
  [[nodiscard]] std::span<const std::byte> Bytes() const { return block_.Bytes(); }

  [[nodiscard]] std::int32_t Width() const { return Bitmap().biWidth; }
  [[nodiscard]] std::int32_t Height() const { return Bitmap().biHeight; }
  [[nodiscard]] std::uint32_t ImageBytes() const { return Bitmap().biSizeImage; }
  /// 100 ns
  [[nodiscard]] LONGLONG FrameInterval() const { return Header().VideoInfoHeader.AvgTimePerFrame; }

 private:
  [[nodiscard]] const KS_BITMAPINFOHEADER& Bitmap() const {
    return Header().VideoInfoHeader.bmiHeader;
  }

  Block block_;
};

}  // namespace lidcam::client
