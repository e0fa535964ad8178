#include "tests/on_wine/client/report.h"

#include <windows.h>

#include <array>
#include <cstdio>

namespace lidcam::wine {

void Ok(const std::string& what) {
  std::printf("ok %s\n", what.c_str());
  std::fflush(stdout);
}

void Require(bool isMet, const std::string& what) {
  if (!isMet) throw Failure(what);
}

void RequireCall(bool isDone, const std::string& what) {
  const DWORD error = GetLastError();
  if (!isDone) throw Failure(what + ": error " + std::to_string(error));
}

bool WaitUntil(const std::function<bool()>& isMet, std::uint32_t limit) {
  constexpr DWORD kRest = 50;
  const ULONGLONG end = GetTickCount64() + limit;
  while (!isMet()) {
    if (GetTickCount64() >= end) return false;
    Sleep(kRest);
  }
  return true;
}

std::string Hex(std::uint32_t number) {
  std::array<char, 12> text{};
  std::snprintf(text.data(), text.size(), "%08X", static_cast<unsigned>(number));
  return text.data();
}

// Names and paths of the test are ASCII.
std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (const wchar_t letter : text) narrow += letter < 0x80 ? static_cast<char>(letter) : '?';
  return narrow;
}

}  // namespace lidcam::wine
