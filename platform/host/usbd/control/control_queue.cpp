#include <algorithm>
#include <utility>

#include "platform/host/usbd/control/control_requests.h"

namespace lidcam::host {

USBD_STATUS ControlQueue::Submit(PIRP irp, URB& urb, PDRIVER_CANCEL cancel) {
  auto request = std::make_unique<UsbRequest>();
  request->Irp = irp;
  request->Urb = &urb;
  if (!AcceptRequest(*request, cancel)) return USBD_STATUS_CANCELED;
  queue_.push_back(std::move(request));
  return USBD_STATUS_PENDING;
}

bool ControlQueue::MarkCancelled(PIRP irp) {
  const auto found = std::find_if(queue_.begin(), queue_.end(),
                                  [irp](const auto& request) { return request->Irp == irp; });
  if (found == queue_.end()) return false;
  (*found)->IsCancelled = true;
  return true;
}

void ControlQueue::Run() {
  while (RunOnce()) {
  }
}

bool ControlQueue::RunOnce() {
  std::vector<UsbRequest> ended;
  UsbRequest* next = nullptr;
  bool isOver = false;
  {
    const SpinLockGuard guard(device_.Lock);
    ended = TakeEnded();
    isOver = device_.IsStopping && queue_.empty();
    if (!queue_.empty() && queue_.front()->Status == USBD_STATUS_PENDING &&
        !queue_.front()->IsSilent) {
      next = queue_.front().get();
    }
  }
  if (!ended.empty()) {
    const DispatchLevelGuard level;
    for (const UsbRequest& request : ended) CompleteUrb(request.Irp, *request.Urb, request.Status);
  } else if (isOver) {
    return false;
  } else if (next == nullptr) {
    KeWaitForSingleObject(&device_.ControlWork, Executive, KernelMode, FALSE, nullptr);
  } else {
    Execute(*next);
  }
  return true;
}

std::vector<UsbRequest> ControlQueue::TakeEnded() {
  std::vector<UsbRequest> ended;
  std::erase_if(queue_, [&](const auto& request) {
    if (request->Status == USBD_STATUS_PENDING) {
      if (device_.IsGone) {
        request->Status = USBD_STATUS_DEVICE_GONE;
      } else if (request->IsCancelled) {
        request->Status = USBD_STATUS_CANCELED;
      } else {
        return false;
      }
    }
    if (!TakeFromCanceller(*request)) return false;
    ended.push_back(*request);
    return true;
  });
  return ended;
}

void ControlQueue::Execute(UsbRequest& request) {
  const USBD_STATUS status = requests_.Execute(*request.Urb);
  bool isGone = false;
  {
    const SpinLockGuard guard(device_.Lock);
    request.Status = request.IsCancelled ? USBD_STATUS_CANCELED : status;
    request.IsSilent = request.Status == USBD_STATUS_PENDING;
    isGone = status == USBD_STATUS_DEVICE_GONE && !device_.IsGone;
    if (isGone) device_.IsGone = true;
  }
  if (isGone) device_.Wake();
}

}  // namespace lidcam::host
