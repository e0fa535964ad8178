// Whole command lines of the program: any words for any command, one per line of the input, in a
// folder with a file of each kind that commands read, and one with the rest of the input. Commands
// run in virtual time and are interrupted soon. For any words the program ends with 0, 1 or 2,
// gives a reason unless it is 0, and leaves no incomplete file.

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "driver/core/base/camera_trace.h"
#include "fuzz/support/app_in_virtual_time.h"
#include "fuzz/support/input.h"
#include "platform/host/nt/files/files.h"
#include "platform/host/nt/registry/registry.h"
#include "platform/host/nt/system/debug_print.h"

// The program's own entry, under another name than the engine's.
extern "C" int LidcamMain(int argc, char** argv);

namespace lidcam::fuzz {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostWords = 40;
constexpr std::size_t kLongestWord = 4096;
constexpr std::uint32_t kShort = 12;  // polls: streams deliver nothing
constexpr std::uint32_t kLong = 400;  // polls: streams deliver some frames
constexpr std::uint32_t kNoLimit = 1U << 30;
constexpr char kLongMark = '+';  // ahead of the words: kLong instead of kShort

/// A run's output and exit status.
struct Ending {
  int Status = 0;
  std::string Errors;
};

// Receives the program's output in place of the standard streams, which the engine and the
// sanitizers use. Threads of an earlier run may still print in a later one: these are never closed.
class Outputs {
 public:
  Outputs() : out_(Open(outText_)), errors_(Open(errorText_)) {
    std::setvbuf(errors_, nullptr, _IONBF, 0);
    Require(null_ >= 0 && ::dup2(null_, STDIN_FILENO) == STDIN_FILENO);
  }

  static Outputs& Instance() {
    static auto* const outputs = new Outputs;
    return *outputs;
  }

  void Empty() {
    std::fflush(out_);
    outText_.clear();
    errorText_.clear();
  }

  [[nodiscard]] std::FILE* Out() const { return out_; }
  [[nodiscard]] std::FILE* Errors() const { return errors_; }
  [[nodiscard]] int Null() const { return null_; }
  [[nodiscard]] const std::string& ErrorText() const { return errorText_; }

 private:
  static std::FILE* Open(std::string& text) {
    cookie_io_functions_t operations{};
    operations.write = [](void* cookie, const char* bytes, std::size_t size) {
      static_cast<std::string*>(cookie)->append(bytes, size);
      return static_cast<ssize_t>(size);
    };
    std::FILE* const stream = ::fopencookie(&text, "w", operations);
    Require(stream != nullptr);
    return stream;
  }

  std::string outText_;
  std::string errorText_;
  std::FILE* const out_;
  std::FILE* const errors_;
  const int null_ = ::open("/dev/null", O_RDWR | O_CLOEXEC);
};

// Standard input is empty; the program's output is discarded during the object's lifetime.
class OutputAside {
 public:
  OutputAside() : oldOut_(stdout), oldErrors_(stderr) {
    std::fflush(stdout);
    outputs_.Empty();
    stdout = outputs_.Out();
    stderr = outputs_.Errors();
    ::dup2(outputs_.Null(), STDOUT_FILENO);
    oldCout_ = std::cout.rdbuf(out_.rdbuf());
    oldCerr_ = std::cerr.rdbuf(errors_.rdbuf());
  }
  OutputAside(const OutputAside&) = delete;
  OutputAside& operator=(const OutputAside&) = delete;
  ~OutputAside() {
    std::cout.rdbuf(oldCout_);
    std::cerr.rdbuf(oldCerr_);
    stdout = oldOut_;
    stderr = oldErrors_;
    ::dup2(oldOutFile_, STDOUT_FILENO);
    ::close(oldOutFile_);
  }

  [[nodiscard]] std::string Errors() const { return outputs_.ErrorText() + errors_.str(); }

 private:
  Outputs& outputs_ = Outputs::Instance();
  std::FILE* const oldOut_;
  std::FILE* const oldErrors_;
  const int oldOutFile_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  std::ostringstream out_;
  std::ostringstream errors_;
  std::streambuf* oldCout_;
  std::streambuf* oldCerr_;
};

Ending RunProgram(std::vector<std::string> words, std::uint32_t polls) {
  std::vector<char*> arguments;
  std::string name = "lidcam";
  arguments.push_back(name.data());
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  InterruptAfter(polls);
  OutputAside aside;
  Ending ending;
  ending.Status = LidcamMain(static_cast<int>(arguments.size() - 1), arguments.data());
  ending.Errors = aside.Errors();
  return ending;
}

// Resets all that the last command opened or set, so that the next one is independent of it.
void ForgetLastRun() {
  SetCameraTraceSink(nullptr);
  host::SetRegistryFile({});
  host::SetSystemRoot({});
  host::SetDebugPrintSink(nullptr);
}

void WriteText(const fs::path& path, std::string_view text) {
  std::ofstream(path, std::ios::binary) << text;
}

/// A working folder for the program, with the same contents at the begin of each run.
class Workplace {
 public:
  Workplace() {
    std::string name = (fs::temp_directory_path() / "lidcam-XXXXXX").string();
    Require(::mkdtemp(name.data()) != nullptr);
    root_ = name;
    fs::create_directories(Samples());
    Require(::setenv("LIDCAM_HOME", (root_ / "work" / "home").c_str(), 1) == 0);
    ::unsetenv("LIDCAM_SYSTEM_ROOT");
    Require(::setenv("LIDCAM_CAMERA", "sim", 1) == 0);
    fs::current_path(Samples());
    MakeSamples();
  }
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;
  ~Workplace() {
    std::error_code error;
    fs::current_path("/", error);
    fs::remove_all(root_, error);
  }

  void TidyUp() const {
    fs::current_path(root_);
    fs::remove_all(root_ / "work");
    fs::copy(Samples(), root_ / "work", fs::copy_options::recursive);
    fs::current_path(root_ / "work");
  }

  static void RequireNothingUnfinished() {
    for (const fs::directory_entry& entry : fs::directory_iterator(".")) {
      Require(entry.path().filename().string().find(".part") == std::string::npos);
    }
  }

 private:
  [[nodiscard]] fs::path Samples() const { return root_ / "samples"; }

  void MakeSamples() const {
    WriteText("source.txt", "[setup]\nbridge FF0A = 11\n");
    WriteText("faults.txt", "at 10ms lose 5\ncontrol 40 stall\n");
    Require(RunProgram({"record", "--fast", "--raw-size", "160x120", "--size", "160x120",
                        "--frames", "1", "-q", "-o", "bus.pcap"},
                       kNoLimit)
                .Status == 0);
    Require(RunProgram({"stream", "--fast", "--size", "160x120", "--frames", "3", "-q", "--log",
                        "frames.csv"},
                       kNoLimit)
                .Status == 0);
    fs::copy_file(root_ / "work" / "home" / "simulated-root" / "system32" / "drivers" / "S001.set",
                  "S001.set");
    ForgetLastRun();
  }

  fs::path root_;
};

// No path leads out of the folder.
std::vector<std::string> WordsOf(std::string_view text) {
  std::vector<std::string> words;
  std::size_t begin = 0;
  while (begin < text.size() && words.size() < kMostWords) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    std::string word(text.substr(begin, std::min(end - begin, kLongestWord)));
    for (char& letter : word) {
      if (letter == '/') letter = '_';
    }
    words.push_back(std::move(word));
    begin = end + 1;
  }
  return words;
}

void Run(std::string_view text) {
  static const Workplace workplace;
  workplace.TidyUp();
  const bool runsLong = !text.empty() && text.front() == kLongMark;
  if (runsLong) text.remove_prefix(1);
  const std::size_t end = std::min(text.find('\0'), text.size());
  if (end != text.size()) WriteText("given", text.substr(end + 1));
  text = text.substr(0, end);
  const std::vector<std::string> words = WordsOf(text);
  // Between two polls of a simulation is a whole run of it.
  const bool isSimulation = std::ranges::find(words, "simulate") != words.end();
  const Ending ending = RunProgram(words, runsLong && !isSimulation ? kLong : kShort);
  ForgetLastRun();
  Require(ending.Status >= 0 && ending.Status <= 2);
  if (ending.Status != 0) Require(ending.Errors.find("lidcam: ") != std::string::npos);
  if (text.find(".part") == std::string_view::npos) Workplace::RequireNothingUnfinished();
}

}  // namespace
}  // namespace lidcam::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lidcam::fuzz::Run({reinterpret_cast<const char*>(data), size});
  return 0;
}
