#include "viewer/server/access.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

#include "library/control_socket/base64.h"

namespace lidcam::viewer {
namespace {

std::string CookieName(std::uint16_t port) {
  return "lidcam_" + std::to_string(port);
}

std::string_view Trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

bool IsEqualWithoutCase(std::string_view one, std::string_view other) {
  const auto lower = [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  };
  if (one.size() != other.size()) return false;
  for (std::size_t i = 0; i < one.size(); ++i) {
    if (lower(one[i]) != lower(other[i])) return false;
  }
  return true;
}

}  // namespace

bool IsSecret(std::string_view secret, std::string_view given) {
  // As long for every given text of a length, whatever it contains.
  unsigned difference = secret.size() == given.size() ? 0U : 1U;
  for (std::size_t i = 0; i < given.size(); ++i) {
    const char own = secret.empty() ? '\0' : secret[i % secret.size()];
    difference |= static_cast<unsigned>(static_cast<unsigned char>(own ^ given[i]));
  }
  return difference == 0 && !secret.empty();
}

std::string NewSecret() {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::array<unsigned char, 16> bits{};
  if (getrandom(bits.data(), bits.size(), 0) != static_cast<ssize_t>(bits.size())) {
    throw std::runtime_error("the system gives no random numbers for the address's token");
  }
  std::string text;
  for (const unsigned char byte : bits) {
    text.push_back(kDigits[byte >> 4]);
    text.push_back(kDigits[byte & 0xF]);
  }
  return text;
}

bool IsFitForToken(std::string_view text) {
  constexpr std::size_t kLeast = 16;
  const auto isFit = [](char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
           (letter >= '0' && letter <= '9') || letter == '-' || letter == '_';
  };
  return text.size() >= kLeast && std::ranges::all_of(text, isFit);
}

Access::Access(std::optional<std::string> password, std::optional<std::string> programToken)
    : password_(std::move(password)),
      token_(NewSecret()),
      session_(NewSecret()),
      snapshotToken_(programToken ? std::move(*programToken) : NewSecret()) {}

bool Access::IsOwnHost(std::string_view host, const LocalAddress& local) {
  if (IsEqualWithoutCase(host, local.Text)) return true;
  const std::string name = "localhost:" + std::to_string(local.Port);
  return local.IsLoopback && IsEqualWithoutCase(host, name);
}

bool Access::IsOwnOrigin(std::string_view origin, const LocalAddress& local) {
  constexpr std::string_view kScheme = "http://";
  return origin.starts_with(kScheme) && IsOwnHost(origin.substr(kScheme.size()), local);
}

bool Access::HasSession(std::string_view cookies, std::uint16_t port) const {
  const std::string name = CookieName(port) + "=";
  while (!cookies.empty()) {
    const std::size_t end = cookies.find(';');
    const std::string_view cookie = Trimmed(cookies.substr(0, end));
    if (cookie.starts_with(name) && IsSecret(session_, cookie.substr(name.size()))) return true;
    cookies = end == std::string_view::npos ? std::string_view() : cookies.substr(end + 1);
  }
  return false;
}

std::string Access::SetCookie(std::uint16_t port) const {
  return CookieName(port) + "=" + session_ + "; HttpOnly; SameSite=Strict; Path=/";
}

bool Access::HasPassword(std::string_view authorization) const {
  constexpr std::string_view kBasic = "Basic ";
  if (!password_ || authorization.size() < kBasic.size()) return false;
  if (!IsEqualWithoutCase(authorization.substr(0, kBasic.size()), kBasic)) return false;
  const auto bytes = app::FromBase64(Trimmed(authorization.substr(kBasic.size())));
  if (!bytes) return false;
  const std::string given(bytes->begin(), bytes->end());
  const std::size_t colon = given.find(':');
  return colon != std::string::npos &&
         IsSecret(*password_, std::string_view(given).substr(colon + 1));
}

bool Access::IsToken(std::string_view token) const {
  return !NeedsPassword() && IsSecret(token_, token);
}

bool Access::IsSnapshotToken(std::string_view token) const {
  return IsSecret(snapshotToken_, token);
}

}  // namespace lidcam::viewer
