#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "library/camera/opened_camera.h"

namespace lidcam::app {

/// What the threads of a session wait for. It may outlive the session.
struct SessionSignal {
  std::mutex Mutex;
  std::condition_variable Changed;

  void Notify() {
    { const std::lock_guard lock(Mutex); }
    Changed.notify_all();
  }
};

/// Work for the thread that has a camera open, from any thread.
class CameraTasks {
 public:
  /// @param opened  null once the camera is gone
  using Task = std::function<void(OpenedCamera* opened)>;

  explicit CameraTasks(std::shared_ptr<SessionSignal> signal) : signal_(std::move(signal)) {}
  CameraTasks(const CameraTasks&) = delete;
  CameraTasks& operator=(const CameraTasks&) = delete;
  ~CameraTasks() = default;

  /// Makes the calling thread the camera's.
  void Adopt(OpenedCamera* opened);

  /// Runs a task on the camera's thread, and rethrows its exception. At once if that is the calling thread.
  void Run(const Task& task);

  /// Lets the tasks that wait, and all later ones, run without the camera: at once, on the threads that ask. On the
  /// camera's thread.
  void Close();

  /// Whether the calling thread is the camera's.
  [[nodiscard]] bool IsOwnThread() const;

  // On the camera's thread.

  /// Runs the tasks that wait. Without the signal's mutex.
  void RunPending();
  /// With the signal's mutex.
  [[nodiscard]] bool HasPending() const { return !pending_.empty(); }

 private:
  struct Entry {
    const Task* Work = nullptr;
    std::exception_ptr Error{};
    bool IsDone = false;
  };

  const std::shared_ptr<SessionSignal> signal_;
  std::thread::id thread_{};        ///< under the signal's mutex
  bool isClosed_ = false;           ///< under the signal's mutex
  OpenedCamera* opened_ = nullptr;  ///< on the camera's thread
  std::deque<Entry*> pending_;      ///< under the signal's mutex
};

}  // namespace lidcam::app
