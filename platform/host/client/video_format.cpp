#include "platform/host/client/video_format.h"

#include <cstring>
#include <utility>

#include "platform/host/client/client_error.h"

namespace lidcam::client {

Block::Block(std::span<const std::byte> bytes) : Block(bytes.size()) {
  if (!bytes.empty()) std::memcpy(Data(), bytes.data(), bytes.size());
}

void Block::Shorten(std::size_t bytes) {
  if (bytes < bytes_) bytes_ = bytes;
}

VideoFormat::VideoFormat(Block block) : block_(std::move(block)) {
  if (block_.Size() < sizeof(KS_DATAFORMAT_VIDEOINFOHEADER) ||
      Header().DataFormat.FormatSize < sizeof(KS_DATAFORMAT_VIDEOINFOHEADER) ||
      Header().DataFormat.FormatSize > block_.Size()) {
    throw ClientError("describe a whole video format", STATUS_INVALID_BUFFER_SIZE);
  }
  block_.Shorten(Header().DataFormat.FormatSize);
}

const KS_DATAFORMAT_VIDEOINFOHEADER& VideoFormat::Header() const {
  return *reinterpret_cast<const KS_DATAFORMAT_VIDEOINFOHEADER*>(block_.Data());
}

KS_DATAFORMAT_VIDEOINFOHEADER& VideoFormat::Header() {
  return *reinterpret_cast<KS_DATAFORMAT_VIDEOINFOHEADER*>(block_.Data());
}

}  // namespace lidcam::client
