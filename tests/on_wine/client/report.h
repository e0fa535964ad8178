#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>

namespace lidcam::wine {

/// A step that went wrong; the text says which and how.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Tells of a step that is done: a line "ok WHAT".
void Ok(const std::string& what);

/// @throws Failure unless `isMet`
void Require(bool isMet, const std::string& what);

/// @throws Failure with the calling thread's last error, unless `isDone`
void RequireCall(bool isDone, const std::string& what);

/// Asks again and again, with a rest in between, until it is so.
/// @param limit  milliseconds
/// @return whether it has become so by then
[[nodiscard]] bool WaitUntil(const std::function<bool()>& isMet, std::uint32_t limit);

[[nodiscard]] std::string Hex(std::uint32_t number);
[[nodiscard]] std::string Narrow(const std::wstring& text);

}  // namespace lidcam::wine
