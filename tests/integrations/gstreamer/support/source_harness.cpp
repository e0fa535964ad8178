#include "tests/integrations/gstreamer/support/source_harness.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "integrations/gstreamer/element/registration.h"

// GLib keeps what it allocates while it is loaded, which only the slow unwinder sees: GLib has no frame pointers.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:_dl_init\n";
}
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "fast_unwind_on_malloc=0";
}

namespace lidcam::gstreamer::test {
namespace {

constexpr GstClockTime kPatience = GST_SECOND * 60;

}  // namespace

OwnFolder::OwnFolder() {
  std::string name = std::filesystem::temp_directory_path() / "lidcam-gstreamer-XXXXXX";
  folder_ = mkdtemp(name.data());
  setenv("LIDCAM_HOME", (folder_ / "home").c_str(), 1);
  setenv("XDG_RUNTIME_DIR", folder_.c_str(), 1);
}

OwnFolder::~OwnFolder() {
  std::filesystem::remove_all(folder_);
}

void InitGStreamer() {
  static const bool isReady = [] {
    setenv("GST_TRACERS", "leaks", 1);
    gst_init(nullptr, nullptr);
    return RegisterElements(nullptr);
  }();
  ASSERT_TRUE(isReady);
}

ElementPointer NewSource(const std::string& camera) {
  ElementPointer element(
      GST_ELEMENT(gst_object_ref_sink(gst_element_factory_make("lidcamsrc", nullptr))));
  g_object_set(element.get(), "camera", camera.c_str(), nullptr);
  GstBus* const bus = gst_bus_new();
  gst_element_set_bus(element.get(), bus);
  gst_object_unref(bus);
  return element;
}

MessagePointer NextMessage(GstElement* element, GstMessageType types) {
  GstBus* const bus = gst_element_get_bus(element);
  MessagePointer message(gst_bus_timed_pop_filtered(bus, kPatience, types));
  gst_object_unref(bus);
  return message;
}

MessagePointer NextElementMessage(GstElement* element, const std::string& name) {
  for (;;) {
    MessagePointer message = NextMessage(element, GST_MESSAGE_ELEMENT);
    if (message == nullptr || gst_message_has_name(message.get(), name.c_str())) return message;
  }
}

int NextError(GstElement* element, std::string* text) {
  const MessagePointer message = NextMessage(element, GST_MESSAGE_ERROR);
  if (message == nullptr) return -1;
  GError* error = nullptr;
  gst_message_parse_error(message.get(), &error, nullptr);
  const int code = error->domain == GST_RESOURCE_ERROR ? error->code : -1;
  if (text != nullptr) *text = error->message;
  g_error_free(error);
  return code;
}

GstClockTime LatencyOf(GstElement* element) {
  GstQuery* const query = gst_query_new_latency();
  gboolean isLive = FALSE;
  GstClockTime least = GST_CLOCK_TIME_NONE;
  GstClockTime most = 0;
  EXPECT_TRUE(gst_element_query(element, query));
  gst_query_parse_latency(query, &isLive, &least, &most);
  gst_query_unref(query);
  EXPECT_TRUE(isLive);
  EXPECT_EQ(most, GST_CLOCK_TIME_NONE);
  return least;
}

std::uint64_t StatOf(GstElement* element, const char* field) {
  GstStructure* stats = nullptr;
  g_object_get(element, "stats", &stats, nullptr);
  guint64 value = 0;
  EXPECT_TRUE(gst_structure_get_uint64(stats, field, &value)) << field;
  gst_structure_free(stats);
  return value;
}

SourceHarness::SourceHarness(const std::string& camera, const char* caps,
                             const std::function<void(GstElement*)>& prepare)
    : element_(NewSource(camera)) {
  if (prepare) prepare(element_.get());
  harness_ = gst_harness_new_with_element(element_.get(), nullptr, "src");
  gst_harness_use_systemclock(harness_);
  if (caps != nullptr) gst_harness_set_sink_caps_str(harness_, caps);
  gst_harness_play(harness_);
}

void SourceHarness::Renegotiate(const char* caps) const {
  gst_harness_set_sink_caps_str(harness_, caps);
  gst_pad_push_event(harness_->sinkpad, gst_event_new_reconfigure());
}

}  // namespace lidcam::gstreamer::test
