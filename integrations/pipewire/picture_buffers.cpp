#include "integrations/pipewire/picture_buffers.h"

#include <spa/buffer/meta.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace lidcam::integrations::pipewire {
namespace {

void Describe(pw_buffer& buffer, const Picture& picture) {
  spa_data& data = buffer.buffer->datas[0];
  data.chunk->offset = 0;
  data.chunk->size =
      static_cast<std::uint32_t>(std::min<std::size_t>(picture.Data.size(), data.maxsize));
  data.chunk->stride = static_cast<std::int32_t>(picture.Stride);
  data.chunk->flags = 0;
  auto* const header = static_cast<spa_meta_header*>(
      spa_buffer_find_meta_data(buffer.buffer, SPA_META_Header, sizeof(spa_meta_header)));
  if (header == nullptr) return;
  header->flags = 0;
  header->offset = 0;
  header->pts = picture.Time;
  header->dts_offset = 0;
  header->seq = static_cast<std::uint64_t>(picture.Number);
}

}  // namespace

PictureBuffers::PictureBuffers(std::size_t pictureBytes)
    : pictureBytes_(pictureBytes),
      memory_(std::make_shared<PictureMemory>(pictureBytes, kMost)),
      slots_(kMost) {}

void PictureBuffers::Add(pw_buffer& buffer) {
  const auto slot = std::ranges::find(slots_, nullptr, &Slot::Buffer);
  if (slot == slots_.end()) return;
  const auto at = static_cast<std::size_t>(slot - slots_.begin()) * memory_->PartBytes();
  spa_data& data = buffer.buffer->datas[0];
  data.type = SPA_DATA_MemFd;
  data.flags = SPA_DATA_FLAG_READWRITE;
  data.fd = memory_->File();
  data.mapoffset = static_cast<std::uint32_t>(at);
  data.maxsize = static_cast<std::uint32_t>(memory_->PartBytes());
  data.data = memory_->Bytes().data() + at;
  *slot = {.Buffer = &buffer, .IsOurs = false, .Lent = nullptr};
}

void PictureBuffers::Remove(const pw_buffer& buffer) {
  for (Slot& slot : slots_) {
    if (slot.Buffer == &buffer) slot = {};
  }
}

CameraMemory PictureBuffers::Memory() const {
  const auto count = static_cast<std::size_t>(
      std::ranges::count_if(slots_, [](const Slot& slot) { return slot.Buffer != nullptr; }));
  return {.Owner = memory_,
          .Bytes = memory_->Bytes().first(count * memory_->PartBytes()),
          .Buffers = static_cast<std::uint32_t>(count)};
}

void PictureBuffers::Reclaim(pw_stream* stream) {
  while (pw_buffer* const buffer = pw_stream_dequeue_buffer(stream)) {
    // One of the format before has no slot.
    const auto slot = std::ranges::find(slots_, buffer, &Slot::Buffer);
    if (slot == slots_.end()) continue;
    slot->IsOurs = true;
    slot->Lent.reset();
  }
}

void PictureBuffers::Show(pw_stream* stream, Picture& picture) {
  Reclaim(stream);
  Slot* const slot = SlotFor(picture);
  if (slot == nullptr) return;
  spa_data& data = slot->Buffer->buffer->datas[0];
  if (data.data == picture.Data.data()) {
    slot->Lent = std::move(picture.Lent);
  } else {
    std::memcpy(data.data, picture.Data.data(),
                std::min<std::size_t>(picture.Data.size(), data.maxsize));
  }
  Describe(*slot->Buffer, picture);
  slot->IsOurs = false;
  pw_stream_queue_buffer(stream, slot->Buffer);
}

// A viewer may still read a notice from the picture's own buffer; the picture then goes into another one.
PictureBuffers::Slot* PictureBuffers::SlotFor(const Picture& picture) {
  Slot* other = nullptr;
  for (Slot& slot : slots_) {
    if (slot.Buffer == nullptr || !slot.IsOurs) continue;
    if (slot.Buffer->buffer->datas[0].data == picture.Data.data()) return &slot;
    other = &slot;
  }
  return other;
}

}  // namespace lidcam::integrations::pipewire
