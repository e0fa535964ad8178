#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

namespace lidcam::wine {

/// A failed step; the text gives the step and the reason.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reports a completed step: a line "ok WHAT".
void Ok(const std::string& what);

/// @throws Failure unless `isMet`
void Require(bool isMet, const std::string& what);

/// @throws Failure with the calling thread's last error, unless `isDone`
void RequireCall(bool isDone, const std::string& what);

/// Polls, with a pause in between, until `isMet`.
/// @param limit  milliseconds
/// @return whether it was met within the limit
[[nodiscard]] bool WaitUntil(const std::function<bool()>& isMet, std::uint32_t limit);

[[nodiscard]] std::string Hex(std::uint32_t number);
[[nodiscard]] std::string Narrow(const std::wstring& text);

}  // namespace lidcam::wine
