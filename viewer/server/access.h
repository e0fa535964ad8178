#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace lidcam::viewer {

/// Compares a secret with what a client sent, in a time that tells nothing of where they differ.
[[nodiscard]] bool IsSecret(std::string_view secret, std::string_view given);

/// A secret of 128 random bits, as 32 hexadecimal digits. Throws std::runtime_error.
[[nodiscard]] std::string NewSecret();

/// Whether a text may be the token of the addresses for other programs: at least 16 letters, digits, '-' and '_'.
[[nodiscard]] bool IsFitForToken(std::string_view text);

/// Where a connection reached the server.
struct LocalAddress {
  std::string Text;  ///< "127.0.0.1:8080", "[::1]:8080": what a Host field must name
  std::uint16_t Port = 0;
  bool IsLoopback = false;
};

/// Who may see the cameras: one who knows the token of the printed address, or the password; from then on the
/// browser's cookie. Pages of other origins are kept away, also those that have their name resolve to this machine.
class Access {
 public:
  /// @param password      none: the token opens
  /// @param programToken  of the addresses for other programs; none: one that is drawn now
  explicit Access(std::optional<std::string> password,
                  std::optional<std::string> programToken = std::nullopt);

  /// Whether a Host field names the address that the connection reached: a page that rebinds its name to this
  /// machine's address names its own.
  [[nodiscard]] static bool IsOwnHost(std::string_view host, const LocalAddress& local);
  /// Whether an Origin field is that of this server's own pages.
  [[nodiscard]] static bool IsOwnOrigin(std::string_view origin, const LocalAddress& local);

  /// Whether a Cookie field has this server's session.
  [[nodiscard]] bool HasSession(std::string_view cookies, std::uint16_t port) const;
  /// The Set-Cookie field that gives it. The port is part of the name: all ports of a host share their cookies.
  [[nodiscard]] std::string SetCookie(std::uint16_t port) const;

  [[nodiscard]] bool NeedsPassword() const { return password_.has_value(); }
  /// Whether an Authorization field has the password, under any name.
  [[nodiscard]] bool HasPassword(std::string_view authorization) const;
  [[nodiscard]] bool IsToken(std::string_view token) const;
  [[nodiscard]] bool IsSnapshotToken(std::string_view token) const;

  [[nodiscard]] const std::string& Token() const { return token_; }
  [[nodiscard]] const std::string& SnapshotToken() const { return snapshotToken_; }

 private:
  const std::optional<std::string> password_;
  const std::string token_;
  const std::string session_;
  const std::string snapshotToken_;
};

}  // namespace lidcam::viewer
