#include "tests/on_wine/client/device/device_file.h"

#include <cstdio>
#include <cstdlib>

#include "tests/on_wine/client/report.h"

namespace lidcam::wine {

Handle::~Handle() {
  if (IsOpen()) CloseHandle(handle_);
}

bool Handle::IsOpen() const {
  return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE;
}

PendingRequest::PendingRequest(HANDLE file, ULONG code, std::span<const std::byte> input,
                               std::size_t outputBytes)
    : file_(file),
      code_(code),
      event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
      input_(input.begin(), input.end()),
      output_(outputBytes) {
  RequireCall(event_.IsOpen(), "make an event");
  overlapped_.hEvent = event_.Get();
  const BOOL isDone =
      DeviceIoControl(file_, code, input_.data(), static_cast<DWORD>(input_.size()), output_.data(),
                      static_cast<DWORD>(output_.size()), nullptr, &overlapped_);
  error_ = isDone ? 0 : GetLastError();
  isPending_ = isDone || error_ == ERROR_IO_PENDING;
}

PendingRequest::~PendingRequest() {
  if (!isPending_) return;
  CancelIoEx(file_, &overlapped_);
  if (WaitForSingleObject(event_.Get(), kRequestLimit) == WAIT_OBJECT_0) return;
  std::printf("failed: request %08lX can't be cancelled\n", code_);
  std::fflush(stdout);
  std::_Exit(1);
}

DWORD PendingRequest::Wait() {
  if (!isPending_) return error_;
  if (WaitForSingleObject(event_.Get(), kRequestLimit) != WAIT_OBJECT_0) {
    throw Failure("request " + Hex(code_) + " isn't answered");
  }
  isPending_ = false;
  error_ = GetOverlappedResult(file_, &overlapped_, &bytes_, FALSE) ? 0 : GetLastError();
  return error_;
}

DeviceFile::DeviceFile(const std::wstring& path) {
  const auto isOpen = [&] {
    handle_ = Handle(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                 FILE_FLAG_OVERLAPPED, nullptr));
    return handle_.IsOpen();
  };
  RequireCall(WaitUntil(isOpen, kRequestLimit), "open " + Narrow(path));
}

std::vector<std::byte> DeviceFile::Ask(ULONG code, std::span<const std::byte> input,
                                       std::size_t outputBytes, const std::string& what) const {
  PendingRequest request(handle_.Get(), code, input, outputBytes);
  const DWORD error = request.Wait();
  Require(error == 0, what + ": error " + std::to_string(error));
  return {request.Output().begin(), request.Output().end()};
}

DWORD DeviceFile::Tell(ULONG code, std::span<const std::byte> input) const {
  return PendingRequest(handle_.Get(), code, input, 0).Wait();
}

std::unique_ptr<PendingRequest> DeviceFile::Begin(ULONG code, std::span<const std::byte> input,
                                                  std::size_t outputBytes) const {
  return std::make_unique<PendingRequest>(handle_.Get(), code, input, outputBytes);
}

}  // namespace lidcam::wine
