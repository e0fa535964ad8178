#include "platform/image/source_place.h"

#include <array>
#include <cstdio>
#include <filesystem>

namespace lidcam::image {
namespace {

// For a shell.
std::string Quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char letter : text) quoted += letter == '\'' ? "'\\''" : std::string(1, letter);
  return quoted + "'";
}

std::string OutputOf(const std::string& command) {
  std::string output;
  std::FILE* const pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return output;
  std::array<char, 512> piece{};
  while (std::fgets(piece.data(), piece.size(), pipe) != nullptr) output += piece.data();
  pclose(pipe);
  return output;
}

// "one at a:1\n (inlined by) two at b:2\n" in one line.
std::string InOneLine(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  for (std::size_t at = text.find('\n'); at != std::string::npos; at = text.find('\n'))
    text.replace(at, 1, ",");
  return text;
}

}  // namespace

std::string SourcePlace(const ImageFile& file, std::uint32_t address) {
  const std::filesystem::path folder = std::filesystem::absolute(file.Name()).parent_path();
  const std::string symbols = folder.string() + ".debug";
  std::error_code error;
  if (!std::filesystem::exists(symbols, error)) return {};
  std::array<char, 24> number{};
  std::snprintf(number.data(), number.size(), "0x%llx",
                static_cast<unsigned long long>(file.PreferredBase() + address));
  const std::string text =
      InOneLine(OutputOf("x86_64-w64-mingw32-addr2line -f -C -i -p -e " + Quoted(symbols) + " " +
                         number.data() + " 2>/dev/null"));
  return text.starts_with("??") ? "" : text;
}

}  // namespace lidcam::image
