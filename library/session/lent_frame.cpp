#include "library/session/lent_frame.h"

#include <algorithm>
#include <utility>

namespace lidcam::app {

LentFrame::LentFrame(std::shared_ptr<FrameLedger> ledger, client::Frame&& buffer,
                     const FrameFacts& facts)
    : ledger_(std::move(ledger)),
      facts_(facts),
      buffer_(std::move(buffer)),
      bytes_(buffer_->Bytes().first(std::min(buffer_->Bytes().size(), facts.Size.Yuy2Bytes()))) {
  const std::lock_guard lock(ledger_->mutex_);
  ledger_->held_.insert(this);
}

LentFrame::~LentFrame() {
  {
    const std::lock_guard lock(ledger_->mutex_);
    ledger_->held_.erase(this);
    if (buffer_) ledger_->givenBack_.push_back(std::move(*buffer_));
  }
  ledger_->given_();
}

void FrameLedger::ReturnBuffers() {
  std::vector<client::Frame> frames;
  {
    const std::lock_guard lock(mutex_);
    frames.swap(givenBack_);
  }
}

void FrameLedger::DetachAll() {
  const std::lock_guard lock(mutex_);
  for (LentFrame* const frame : held_) {
    if (!frame->buffer_) continue;
    frame->memory_ = frame->buffer_->TakeMemory();
    frame->buffer_.reset();
  }
}

}  // namespace lidcam::app
