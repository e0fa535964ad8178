#pragma once

#include <gst/check/gstharness.h>
#include <gst/gst.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace lidcam::gstreamer::test {

struct Unref {
  void operator()(GstBuffer* buffer) const { gst_buffer_unref(buffer); }
  void operator()(GstMessage* message) const { gst_message_unref(message); }
  void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
  void operator()(GstElement* element) const {
    gst_element_set_state(element, GST_STATE_NULL);
    // Messages that nobody has read refer to the element.
    GstBus* const bus = gst_element_get_bus(element);
    gst_bus_set_flushing(bus, TRUE);
    gst_object_unref(bus);
    gst_object_unref(element);
  }
};

using BufferPointer = std::unique_ptr<GstBuffer, Unref>;
using MessagePointer = std::unique_ptr<GstMessage, Unref>;
using CapsPointer = std::unique_ptr<GstCaps, Unref>;
using ElementPointer = std::unique_ptr<GstElement, Unref>;

/// A folder of its own for the camera's settings and for its exclusive use, while a test runs.
class OwnFolder {
 public:
  OwnFolder();
  OwnFolder(const OwnFolder&) = delete;
  OwnFolder& operator=(const OwnFolder&) = delete;
  ~OwnFolder();

 private:
  std::filesystem::path folder_;
};

/// GStreamer with the element known to this program, and no plugins of the machine's users.
void InitGStreamer();

/// An element with a bus, in NULL.
[[nodiscard]] ElementPointer NewSource(const std::string& camera);

/// The next message of these types, within a minute; null after that.
[[nodiscard]] MessagePointer NextMessage(GstElement* element, GstMessageType types);

/// The next element message of a name, within a minute; null after that.
[[nodiscard]] MessagePointer NextElementMessage(GstElement* element, const std::string& name);

/// The code of the next GST_RESOURCE_ERROR, with its text; -1 if there is none.
[[nodiscard]] int NextError(GstElement* element, std::string* text = nullptr);

[[nodiscard]] GstClockTime LatencyOf(GstElement* element);

[[nodiscard]] std::uint64_t StatOf(GstElement* element, const char* field);

/// A source that plays into a test's pad.
class SourceHarness {
 public:
  /// @param caps  what the pad takes; null: anything
  explicit SourceHarness(const std::string& camera, const char* caps = nullptr,
                         const std::function<void(GstElement*)>& prepare = {});
  SourceHarness(const SourceHarness&) = delete;
  SourceHarness& operator=(const SourceHarness&) = delete;
  ~SourceHarness() { gst_harness_teardown(harness_); }

  [[nodiscard]] GstElement* Element() const { return element_.get(); }
  [[nodiscard]] GstHarness* Harness() const { return harness_; }

  /// The next frame, within a minute; null after that.
  [[nodiscard]] BufferPointer Pull() const { return BufferPointer(gst_harness_pull(harness_)); }

  /// What the pad takes from now on.
  void Renegotiate(const char* caps) const;

 private:
  ElementPointer element_;
  GstHarness* harness_;
};

}  // namespace lidcam::gstreamer::test
