#include "platform/host/nt/system/debug_print.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

#include "platform/host/nt/declarations/nt_declarations.h"
#include "platform/host/nt/system/message_format.h"

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

DebugPrintObserver::DebugPrintObserver(DebugPrintSink see) {
  DebugOutput& output = TheOutput();
  const std::lock_guard guard(output.Lock);
  previous_ = output.Sink;
  output.Sink = [see = std::move(see), previous = previous_](const std::string& message) {
    see(message);
    if (previous) previous(message);
  };
}

DebugPrintObserver::~DebugPrintObserver() {
  DebugOutput& output = TheOutput();
  const std::lock_guard guard(output.Lock);
  output.Sink = std::move(previous_);
}

}  // namespace lidcam::host

#if defined(__x86_64__)

// The platform's list of variable arguments is a pointer to them.
ULONG DbgPrint(PCSTR format, ...) {
  auto& output = lidcam::host::TheOutput();
  const std::lock_guard guard(output.Lock);
  if (!output.Sink) return 0;
  __builtin_ms_va_list arguments;
  __builtin_ms_va_start(arguments, format);
  std::string text =
      lidcam::host::FormatMessage(format, reinterpret_cast<const std::uint64_t*>(arguments));
  __builtin_ms_va_end(arguments);
  text.resize(std::min(text.size(), lidcam::host::kLongestMessage - 1));
  output.Sink(text);
  return 0;
}

#else

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

#endif
