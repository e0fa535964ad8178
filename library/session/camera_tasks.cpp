#include "library/session/camera_tasks.h"

namespace lidcam::app {

void CameraTasks::Adopt(OpenedCamera* opened) {
  const std::lock_guard lock(signal_->Mutex);
  thread_ = std::this_thread::get_id();
  opened_ = opened;
}

void CameraTasks::Close() {
  {
    const std::lock_guard lock(signal_->Mutex);
    isClosed_ = true;
    opened_ = nullptr;
  }
  RunPending();
}

bool CameraTasks::IsOwnThread() const {
  const std::lock_guard lock(signal_->Mutex);
  return thread_ == std::this_thread::get_id();
}

void CameraTasks::Run(const Task& task) {
  if (IsOwnThread()) {
    task(opened_);
    return;
  }
  Entry entry{.Work = &task};
  std::unique_lock lock(signal_->Mutex);
  if (isClosed_) {
    lock.unlock();
    task(nullptr);
    return;
  }
  pending_.push_back(&entry);
  signal_->Changed.notify_all();
  signal_->Changed.wait(lock, [&] { return entry.IsDone; });
  if (entry.Error != nullptr) std::rethrow_exception(entry.Error);
}

void CameraTasks::RunPending() {
  std::unique_lock lock(signal_->Mutex);
  while (!pending_.empty()) {
    Entry* const entry = pending_.front();
    pending_.pop_front();
    lock.unlock();
    std::exception_ptr error;
    try {
      (*entry->Work)(opened_);
    } catch (const std::exception&) {
      error = std::current_exception();
    }
    lock.lock();
    entry->Error = error;
    entry->IsDone = true;
    signal_->Changed.notify_all();
  }
}

}  // namespace lidcam::app
