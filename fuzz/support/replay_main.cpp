// Runs a fuzz target over stored inputs without the fuzzing engine, in the order of their names:
//   replay_TARGET FOLDER|FILE...

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// Time limit of one input in seconds, for a slow machine and sanitizers.
constexpr unsigned int kLimit = 60;

extern "C" void TellLimit(int) {
  constexpr char kText[] = "hang: this input takes more than 60 s\n";
  static_cast<void>(::write(STDERR_FILENO, kText, sizeof(kText) - 1) == 0);
  std::abort();
}

// Absolute paths: a target may change the working folder.
std::vector<fs::path> FilesOf(const fs::path& given) {
  const fs::path place = fs::absolute(given);
  if (!fs::is_directory(place)) return {place};
  std::vector<fs::path> files;
  for (const fs::directory_entry& entry : fs::directory_iterator(place)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::ranges::sort(files);
  return files;
}

// The input has a block of exactly its size: a sanitizer detects a read beyond its end.
bool Run(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
  if (!file) return false;
  const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
  std::ranges::copy(bytes, exact.get());
  // If an input ends the process, its name is the last one printed.
  std::printf("%s\n", path.c_str());
  std::fflush(stdout);
  ::alarm(kLimit);
  LLVMFuzzerTestOneInput(exact.get(), bytes.size());
  ::alarm(0);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGALRM, TellLimit);
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    const std::vector<fs::path> found = FilesOf(argv[i]);
    if (found.empty()) std::fprintf(stderr, "%s: no input in this folder\n", argv[i]);
    files.insert(files.end(), found.begin(), found.end());
  }
  if (files.empty()) {
    std::fprintf(stderr, "usage: %s FOLDER|FILE... with one input at least\n", argv[0]);
    return 2;
  }
  for (const fs::path& file : files) {
    if (Run(file)) continue;
    std::fprintf(stderr, "%s: can't be read\n", file.c_str());
    return 1;
  }
  std::printf("%zu inputs\n", files.size());
  return 0;
}
