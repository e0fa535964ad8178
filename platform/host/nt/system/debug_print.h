#pragma once

#include <functional>
#include <string>
#include <vector>

namespace lidcam::host {

/// Receives each message of DbgPrint(), byte for byte, on the thread that prints.
using DebugPrintSink = std::function<void(const std::string& message)>;

/// Sets where debug messages go; null drops them, which is the initial state.
void SetDebugPrintSink(DebugPrintSink sink);

/// Collects the debug messages printed during its lifetime, and restores the previous sink.
class DebugPrintCapture {
 public:
  DebugPrintCapture();
  DebugPrintCapture(const DebugPrintCapture&) = delete;
  DebugPrintCapture& operator=(const DebugPrintCapture&) = delete;
  ~DebugPrintCapture();

  /// The messages so far, in order.
  [[nodiscard]] std::vector<std::string> Messages() const;

 private:
  std::vector<std::string> messages_;
  DebugPrintSink previous_;
};

/// Sees the debug messages printed during its lifetime, which go to the previous sink, too.
class DebugPrintObserver {
 public:
  /// @param see  called on the thread that prints
  explicit DebugPrintObserver(DebugPrintSink see);
  DebugPrintObserver(const DebugPrintObserver&) = delete;
  DebugPrintObserver& operator=(const DebugPrintObserver&) = delete;
  /// In the reverse order of the constructions.
  ~DebugPrintObserver();

 private:
  DebugPrintSink previous_;
};

}  // namespace lidcam::host
