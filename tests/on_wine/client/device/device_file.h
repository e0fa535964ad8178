#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tests/on_wine/client/platform_headers.h"

namespace lidcam::wine {

/// Time limit of each request in milliseconds, after which the test fails.
inline constexpr DWORD kRequestLimit = 30'000;

/// A handle that its owner closes.
class Handle {
 public:
  explicit Handle(HANDLE handle = nullptr) : handle_(handle) {}
  Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Handle();

  [[nodiscard]] HANDLE Get() const { return handle_; }
  [[nodiscard]] bool IsOpen() const;

 private:
  HANDLE handle_;
};

/// A request in flight. It must be completed before it is destroyed, otherwise the test ends there:
/// its buffers may still be written to.
class PendingRequest {
 public:
  /// @param file  outlives this
  PendingRequest(HANDLE file, ULONG code, std::span<const std::byte> input,
                 std::size_t outputBytes);
  PendingRequest(const PendingRequest&) = delete;
  PendingRequest& operator=(const PendingRequest&) = delete;
  ~PendingRequest();

  /// Waits for the answer.
  /// @return the error, 0 for success
  /// @throws Failure when it takes longer than kRequestLimit
  DWORD Wait();

  [[nodiscard]] std::span<const std::byte> Output() const {
    return std::span(output_).first(bytes_);
  }

 private:
  HANDLE file_;
  ULONG code_;
  Handle event_;
  OVERLAPPED overlapped_{};
  std::vector<std::byte> input_;
  std::vector<std::byte> output_;
  DWORD bytes_ = 0;
  DWORD error_ = 0;
  bool isPending_ = false;
};

/// An open device. One thread at a time.
class DeviceFile {
 public:
  /// Waits for a device that doesn't exist yet.
  /// @throws Failure if it doesn't exist within kRequestLimit
  explicit DeviceFile(const std::wstring& path);

  /// @return the answer
  /// @throws Failure naming `what`
  std::vector<std::byte> Ask(ULONG code, std::span<const std::byte> input, std::size_t outputBytes,
                             const std::string& what) const;
  /// @return the error, 0 for success
  [[nodiscard]] DWORD Tell(ULONG code, std::span<const std::byte> input) const;
  [[nodiscard]] std::unique_ptr<PendingRequest> Begin(ULONG code, std::span<const std::byte> input,
                                                      std::size_t outputBytes) const;

 private:
  Handle handle_;
};

}  // namespace lidcam::wine
