#include "integrations/gstreamer/camera/frame_buffers.h"

#include <utility>

namespace lidcam::gstreamer {
namespace {

struct Loan {
  Loan(const lidcam_frame* frame, std::shared_ptr<std::atomic<int>> lent)
      : Frame(frame), Lent(std::move(lent)) {
    ++*Lent;
  }
  Loan(const Loan&) = delete;
  Loan& operator=(const Loan&) = delete;
  ~Loan() {
    lidcam_frame_release(Frame);
    --*Lent;
  }

  const lidcam_frame* Frame;
  std::shared_ptr<std::atomic<int>> Lent;
};

void EndLoan(gpointer loan) {
  delete static_cast<Loan*>(loan);
}

GstBuffer* Lend(const lidcam_frame* frame, const std::shared_ptr<std::atomic<int>>& lent) {
  // The memory is marked read-only: elements that change pixels in place get a copy from GStreamer.
  return gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY,
                                     const_cast<std::uint8_t*>(frame->data), frame->size, 0,
                                     frame->size, new Loan(frame, lent), EndLoan);
}

GstBuffer* Copy(const lidcam_frame* frame) {
  GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, frame->size, nullptr);
  if (buffer != nullptr) gst_buffer_fill(buffer, 0, frame->data, frame->size);
  lidcam_frame_release(frame);
  return buffer;
}

}  // namespace

GstBuffer* FrameBuffers::Wrap(const lidcam_frame* frame) {
  if (lent_->load() < kMostLent) return Lend(frame, lent_);
  ++copyCount_;
  return Copy(frame);
}

}  // namespace lidcam::gstreamer
