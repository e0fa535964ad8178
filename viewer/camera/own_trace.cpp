#include "viewer/camera/own_trace.h"

namespace lidcam::viewer {

OwnTrace::OwnTrace(bool isOnly, Handler tell)
    : isOnly_(isOnly),
      tell_(std::move(tell)),
      observer_(app::TraceObserver::CameraHandler(
          [this](const CameraContext* camera, std::string_view line) { Take(camera, line); })) {}

void OwnTrace::BelongTo(const CameraContext& camera) {
  const std::lock_guard lock(mutex_);
  camera_ = &camera;
  for (const auto& [its, line] : kept_) {
    if (its == camera_) tell_(line);
  }
  kept_.clear();
}

void OwnTrace::Take(const CameraContext* camera, std::string_view line) {
  const std::lock_guard lock(mutex_);
  if (isOnly_ || (camera != nullptr && camera == camera_)) {
    tell_(line);
  } else if (camera != nullptr && camera_ == nullptr) {
    if (kept_.size() == kMostKept) kept_.pop_front();
    kept_.emplace_back(camera, line);
  }
}

}  // namespace lidcam::viewer
