#include "platform/host/nt/system/debug_print.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <utility>

#include "platform/host/nt/declarations/nt_declarations.h"

namespace lidcam::host {
namespace {

struct DebugOutput {
  std::recursive_mutex Lock;
  DebugPrintSink Sink;
};

DebugOutput& TheOutput() {
  static auto* const output = new DebugOutput;
  return *output;
}

// The platform cuts messages at this many bytes.
constexpr std::size_t kLongestMessage = 512;

}  // namespace

void SetDebugPrintSink(DebugPrintSink sink) {
  DebugOutput& output = TheOutput();
  const std::lock_guard guard(output.Lock);
  output.Sink = std::move(sink);
}

DebugPrintCapture::DebugPrintCapture() {
  DebugOutput& output = TheOutput();
  const std::lock_guard guard(output.Lock);
  previous_ = std::exchange(output.Sink,
                            [this](const std::string& message) { messages_.push_back(message); });
}

DebugPrintCapture::~DebugPrintCapture() {
  DebugOutput& output = TheOutput();
  const std::lock_guard guard(output.Lock);
  output.Sink = std::move(previous_);
}

std::vector<std::string> DebugPrintCapture::Messages() const {
  DebugOutput& output = TheOutput();
  const std::lock_guard guard(output.Lock);
  return messages_;
}

}  // namespace lidcam::host

ULONG DbgPrint(PCSTR format, ...) {
  auto& output = lidcam::host::TheOutput();
  const std::lock_guard guard(output.Lock);
  if (!output.Sink) return 0;
  std::array<char, lidcam::host::kLongestMessage> text{};
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  output.Sink(text.data());
  return 0;
}
