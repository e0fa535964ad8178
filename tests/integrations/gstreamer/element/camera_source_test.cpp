#include <gst/video/colorbalance.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "integrations/gstreamer/camera/control_properties.h"
#include "tests/driver/support/sanitizers.h"
#include "tests/integrations/gstreamer/support/source_harness.h"

namespace lidcam::gstreamer::test {
namespace {

class CameraSourceTest : public testing::Test {
 protected:
  CameraSourceTest() { InitGStreamer(); }

  OwnFolder folder_;
};

struct Size {
  int Width;
  int Height;
  const char* Caps;
};

constexpr std::array kSizes =
    std::to_array<Size>({{640, 480, "video/x-raw,width=640"},
                         {352, 288, "video/x-raw,width=352,framerate=15/1"},
                         {320, 240, "video/x-raw,height=240,framerate=20/1"},
                         {176, 144, "video/x-raw,width=176,height=144,framerate=7/1"},
                         {160, 120, "video/x-raw,format=YUY2,width=160,framerate=100/1"}});

TEST_F(CameraSourceTest, EachSizeIsNegotiatedAndItsFramesAreWhole) {
  for (const Size& size : kSizes) {
    const SourceHarness source("sim", size.Caps);
    const BufferPointer frame = source.Pull();
    ASSERT_NE(frame, nullptr) << size.Caps;
    EXPECT_EQ(gst_buffer_get_size(frame.get()),
              static_cast<std::size_t>(size.Width * size.Height * 2));
  }
}

TEST_F(CameraSourceTest, AnotherSizeIsNegotiatedWhileThePictureRuns) {
  const SourceHarness source("sim", kSizes[4].Caps);
  ASSERT_EQ(gst_buffer_get_size(source.Pull().get()), 160U * 120 * 2);
  source.Renegotiate(kSizes[0].Caps);
  BufferPointer frame = source.Pull();
  for (int before = 0; before < 100 && gst_buffer_get_size(frame.get()) != 640U * 480 * 2;
       ++before) {
    frame = source.Pull();
  }
  EXPECT_EQ(gst_buffer_get_size(frame.get()), 640U * 480 * 2);
  const CapsPointer caps(gst_pad_get_current_caps(source.Harness()->sinkpad));
  int width = 0;
  gst_structure_get_int(gst_caps_get_structure(caps.get(), 0), "width", &width);
  EXPECT_EQ(width, 640);
}

TEST_F(CameraSourceTest, CapsThatNoCameraHasAreAnError) {
  const SourceHarness source("sim", "video/x-raw,width=1280");
  const MessagePointer message = NextMessage(source.Element(), GST_MESSAGE_ERROR);
  ASSERT_NE(message, nullptr);
  GError* error = nullptr;
  gst_message_parse_error(message.get(), &error, nullptr);
  EXPECT_TRUE(g_error_matches(error, GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED)) << error->message;
  g_error_free(error);
}

TEST_F(CameraSourceTest, RunningTimesGrowAsTheFramesOwnTimesDo) {
  const SourceHarness source("sim", kSizes[4].Caps);
  GstClockTimeDiff offset = 0;
  GstClockTime last = 0;
  for (int number = 0; number < 20; ++number) {
    const BufferPointer frame = source.Pull();
    ASSERT_NE(frame, nullptr);
    const GstReferenceTimestampMeta* const meta =
        gst_buffer_get_reference_timestamp_meta(frame.get(), nullptr);
    ASSERT_NE(meta, nullptr);
    EXPECT_STREQ(gst_structure_get_name(gst_caps_get_structure(meta->reference, 0)),
                 "timestamp/x-lidcam-stream");
    const GstClockTime time = GST_BUFFER_PTS(frame.get());
    const GstClockTimeDiff difference = GST_CLOCK_DIFF(meta->timestamp, time);
    if (number == 0) offset = difference;
    EXPECT_EQ(difference, offset) << "frame " << number;
    EXPECT_TRUE(number == 0 || time > last);
    last = time;
  }
}

TEST_F(CameraSourceTest, LatencyIsTheFrameIntervalInTheLight) {
  const SourceHarness source("sim", kSizes[1].Caps);
  const BufferPointer frame = source.Pull();
  ASSERT_NE(frame, nullptr);
  EXPECT_GE(LatencyOf(source.Element()), 66'666'600U);
  EXPECT_EQ(GST_BUFFER_DURATION(frame.get()), 66'666'600U);
}

TEST_F(CameraSourceTest, LatencyIsAFifthOfASecondInTheDarkAndThePipelineIsTold) {
  const SourceHarness source("sim:1af0:0511,light=0.5lx@0s", kSizes[4].Caps);
  std::string state;
  while (state != "low") {
    ASSERT_NE(source.Pull(), nullptr);
    GstBus* const bus = gst_element_get_bus(source.Element());
    while (MessagePointer message{gst_bus_pop_filtered(bus, GST_MESSAGE_ELEMENT)}) {
      if (!gst_message_has_name(message.get(), "lidcam-light")) continue;
      state = gst_structure_get_string(gst_message_get_structure(message.get()), "state");
      if (state == "low") break;
    }
    gst_object_unref(bus);
  }
  EXPECT_EQ(LatencyOf(source.Element()), 200 * GST_MSECOND);
}

TEST_F(CameraSourceTest, AStepOfTheExposureIsTold) {
  const SourceHarness source("sim:1af0:0511,light=5lx@0s", kSizes[4].Caps);
  for (int number = 0; number < 8; ++number) ASSERT_NE(source.Pull(), nullptr);
  MessagePointer message = NextElementMessage(source.Element(), "lidcam-exposure");
  ASSERT_NE(message, nullptr);
  const GstStructure* const fields = gst_message_get_structure(message.get());
  for (const char* field : {"exposure", "coarse-gain", "fine-gain", "exposure-lines"}) {
    EXPECT_TRUE(gst_structure_has_field_typed(fields, field, G_TYPE_UINT)) << field;
  }
  EXPECT_TRUE(gst_structure_has_field_typed(fields, "auto-exposure", G_TYPE_BOOLEAN));
  EXPECT_TRUE(gst_structure_has_field_typed(fields, "running-time", G_TYPE_UINT64));
}

TEST_F(CameraSourceTest, EachControlIsSetWhileThePictureRuns) {
  const SourceHarness source("sim", kSizes[4].Caps);
  ASSERT_NE(source.Pull(), nullptr);
  for (const ControlProperty& property : ControlProperties()) {
    const int wanted = property.Default == property.Maximum ? property.Minimum : property.Maximum;
    GValue value = G_VALUE_INIT;
    GParamSpec* const spec =
        g_object_class_find_property(G_OBJECT_GET_CLASS(source.Element()), property.Property);
    ASSERT_NE(spec, nullptr) << property.Property;
    g_value_init(&value, spec->value_type);
    StoreControlValue(property, wanted, &value);
    g_object_set_property(G_OBJECT(source.Element()), property.Property, &value);
    g_value_reset(&value);
    g_object_get_property(G_OBJECT(source.Element()), property.Property, &value);
    EXPECT_EQ(ControlValueOf(property, &value), wanted) << property.Property;
    g_value_unset(&value);
  }
}

int MeanLuminance(GstBuffer* frame) {
  GstMapInfo map;
  gst_buffer_map(frame, &map, GST_MAP_READ);
  std::size_t sum = 0;
  for (std::size_t index = 0; index < map.size; index += 2) sum += map.data[index];
  const auto mean = static_cast<int>(sum / (map.size / 2));
  gst_buffer_unmap(frame, &map);
  return mean;
}

TEST_F(CameraSourceTest, AControlSetBeforeTheCameraIsOpenHoldsForItsFirstFrame) {
  const auto first = [](int brightness) {
    const SourceHarness source("sim", kSizes[4].Caps, [brightness](GstElement* element) {
      g_object_set(element, "brightness", brightness, nullptr);
      int closed = 0;
      g_object_get(element, "brightness", &closed, nullptr);
      EXPECT_EQ(closed, brightness);
    });
    int open = 0;
    g_object_get(source.Element(), "brightness", &open, nullptr);
    EXPECT_EQ(open, brightness);
    return MeanLuminance(source.Pull().get());
  };
  EXPECT_GT(first(60), first(-60) + 30);
}

TEST_F(CameraSourceTest, ListenersHearOfAControlThatAnotherOneHasChanged) {
  const SourceHarness source("sim", kSizes[4].Caps);
  std::atomic<int> count = 0;
  g_signal_connect(source.Element(), "notify::exposure",
                   G_CALLBACK(+[](GObject*, GParamSpec*, gpointer seen) {
                     ++*static_cast<std::atomic<int>*>(seen);
                   }),
                   &count);
  g_signal_connect(source.Element(), "notify::auto-exposure",
                   G_CALLBACK(+[](GObject*, GParamSpec*, gpointer seen) {
                     *static_cast<std::atomic<int>*>(seen) += 100;
                   }),
                   &count);
  g_object_set(source.Element(), "exposure", 30, nullptr);
  for (int frames = 0; frames < 50 && count < 100; ++frames) ASSERT_NE(source.Pull(), nullptr);
  // Exposure by hand turns the automatic one off.
  EXPECT_GE(count, 101);
}

TEST_F(CameraSourceTest, ColorBalanceHasTheFiveChannelsAndSetsThem) {
  const SourceHarness source("sim", kSizes[4].Caps);
  auto* const balance = GST_COLOR_BALANCE(source.Element());
  EXPECT_EQ(gst_color_balance_get_balance_type(balance), GST_COLOR_BALANCE_HARDWARE);
  std::vector<std::string> labels;
  for (const GList* each = gst_color_balance_list_channels(balance); each; each = each->next) {
    auto* const channel = GST_COLOR_BALANCE_CHANNEL(each->data);
    labels.emplace_back(channel->label);
    gst_color_balance_set_value(balance, channel, channel->max_value + 1000);
    EXPECT_EQ(gst_color_balance_get_value(balance, channel), channel->max_value);
  }
  EXPECT_EQ(labels, (std::vector<std::string>{"BRIGHTNESS", "CONTRAST", "SATURATION", "SHARPNESS",
                                              "GAMMA"}));
  int contrast = 0;
  g_object_get(source.Element(), "contrast", &contrast, nullptr);
  EXPECT_EQ(contrast, 16);
}

GstStateChangeReturn Ready(GstElement* element) {
  return gst_element_set_state(element, GST_STATE_READY);
}

TEST_F(CameraSourceTest, ACameraThatIsNotPluggedInIsNotFound) {
  const ElementPointer source = NewSource("usb:250-9");
  EXPECT_EQ(Ready(source.get()), GST_STATE_CHANGE_FAILURE);
  std::string text;
  EXPECT_EQ(NextError(source.get(), &text), GST_RESOURCE_ERROR_NOT_FOUND);
  EXPECT_NE(text.find("usb:250-9"), std::string::npos) << text;
  gst_element_set_state(source.get(), GST_STATE_NULL);
}

TEST_F(CameraSourceTest, AnAddressThatIsNoneIsToldWithItsReason) {
  const ElementPointer source = NewSource("sim:rubbish");
  EXPECT_EQ(Ready(source.get()), GST_STATE_CHANGE_FAILURE);
  std::string text;
  EXPECT_EQ(NextError(source.get(), &text), GST_RESOURCE_ERROR_SETTINGS);
  EXPECT_NE(text.find("rubbish"), std::string::npos) << text;
  gst_element_set_state(source.get(), GST_STATE_NULL);
}

TEST_F(CameraSourceTest, ACameraThatIsOpenIsInUseUntilItIsClosed) {
  const ElementPointer first = NewSource("sim");
  const ElementPointer second = NewSource("sim");
  ASSERT_EQ(Ready(first.get()), GST_STATE_CHANGE_SUCCESS);
  EXPECT_EQ(Ready(second.get()), GST_STATE_CHANGE_FAILURE);
  EXPECT_EQ(NextError(second.get()), GST_RESOURCE_ERROR_BUSY);
  gst_element_set_state(first.get(), GST_STATE_NULL);
  EXPECT_EQ(Ready(second.get()), GST_STATE_CHANGE_SUCCESS);
  gst_element_set_state(second.get(), GST_STATE_NULL);
}

TEST_F(CameraSourceTest, AnUnpluggedCameraIsAnErrorAtOnceIfItMayNotBeAway) {
  const SourceHarness source("sim", kSizes[4].Caps, [](GstElement* element) {
    g_object_set(element, "faults", "at 1s unplug", "replug-timeout", G_GUINT64_CONSTANT(0),
                 nullptr);
  });
  EXPECT_EQ(NextError(source.Element()), GST_RESOURCE_ERROR_READ);
}

GstClockTime RunningTimeNow(GstElement* element) {
  GstClock* const clock = gst_element_get_clock(element);
  const GstClockTime now = gst_clock_get_time(clock) - gst_element_get_base_time(element);
  gst_object_unref(clock);
  return now;
}

TEST_F(CameraSourceTest, TheStreamContinuesWithItsControlsWhenTheCameraIsPluggedInAgain) {
  const SourceHarness source("sim", kSizes[4].Caps, [](GstElement* element) {
    g_object_set(element, "faults", "at 1s unplug", "contrast", 14, nullptr);
  });
  EXPECT_NE(NextElementMessage(source.Element(), "lidcam-unplugged"), nullptr);
  const GstClockTime unplugged = RunningTimeNow(source.Element());
  EXPECT_NE(NextElementMessage(source.Element(), "lidcam-replugged"), nullptr);
  GstClockTime last = 0;
  bool isNewStreamMarked = false;
  for (int number = 0; number < 500 && last <= unplugged; ++number) {
    const BufferPointer frame = source.Pull();
    ASSERT_NE(frame, nullptr);
    EXPECT_GE(GST_BUFFER_PTS(frame.get()), last);
    last = GST_BUFFER_PTS(frame.get());
    if (GST_BUFFER_FLAG_IS_SET(frame.get(), GST_BUFFER_FLAG_DISCONT)) isNewStreamMarked = true;
  }
  EXPECT_GT(last, unplugged);
  EXPECT_TRUE(isNewStreamMarked);
  int contrast = 0;
  g_object_get(source.Element(), "contrast", &contrast, nullptr);
  EXPECT_EQ(contrast, 14);
}

TEST_F(CameraSourceTest, AStreamOfGivenLengthEnds) {
  const SourceHarness source("sim", kSizes[4].Caps, [](GstElement* element) {
    g_object_set(element, "num-buffers", 3, nullptr);
  });
  for (int number = 0; number < 3; ++number) ASSERT_NE(source.Pull(), nullptr);
  GstEvent* event = nullptr;
  do {
    if (event != nullptr) gst_event_unref(event);
    event = gst_harness_pull_event(source.Harness());
    ASSERT_NE(event, nullptr);
  } while (GST_EVENT_TYPE(event) != GST_EVENT_EOS);
  gst_event_unref(event);
  EXPECT_EQ(StatOf(source.Element(), "frames"), 3U);
}

TEST_F(CameraSourceTest, FramesAreBorrowedUntilTheCameraWouldLackBuffers) {
  const SourceHarness source("sim", kSizes[4].Caps);
  std::vector<BufferPointer> held;
  for (int number = 0; number < 20; ++number) {
    held.push_back(source.Pull());
    ASSERT_NE(held.back(), nullptr);
  }
  EXPECT_GE(StatOf(source.Element(), "copied"), 13U);
  const auto isBorrowed = [](const BufferPointer& frame) {
    return GST_MEMORY_IS_READONLY(gst_buffer_peek_memory(frame.get(), 0));
  };
  EXPECT_EQ(std::ranges::count_if(held, isBorrowed), 6);
  EXPECT_TRUE(isBorrowed(held.front()));
  held.clear();
  for (int number = 0; number < 30; ++number) {
    if (isBorrowed(source.Pull())) return;
  }
  FAIL() << "no frame is borrowed any more";
}

TEST_F(CameraSourceTest, ABorrowedFrameOutlivesTheElement) {
  BufferPointer frame;
  std::vector<std::uint8_t> before;
  const auto read = [&frame] {
    std::vector<std::uint8_t> bytes(gst_buffer_get_size(frame.get()));
    gst_buffer_extract(frame.get(), 0, bytes.data(), bytes.size());
    return bytes;
  };
  {
    const SourceHarness source("sim", kSizes[4].Caps);
    frame = source.Pull();
    before = read();
  }
  EXPECT_EQ(read(), before);
}

TEST_F(CameraSourceTest, APausedCameraSendsNothingAndThenPlaysOn) {
  const SourceHarness source("sim", kSizes[4].Caps);
  ASSERT_NE(source.Pull(), nullptr);
  EXPECT_EQ(gst_element_set_state(source.Element(), GST_STATE_PAUSED), GST_STATE_CHANGE_NO_PREROLL);
  while (GstBuffer* const waiting = gst_harness_try_pull(source.Harness()))
    gst_buffer_unref(waiting);
  gst_element_set_state(source.Element(), GST_STATE_PLAYING);
  EXPECT_NE(source.Pull(), nullptr);
}

/// GStreamer's objects that there are, as its tracer of leaks lists them.
std::vector<std::string> LiveObjects() {
  std::vector<std::string> objects;
  const GstLogFunction collect = [](GstDebugCategory*, GstDebugLevel, const gchar*, const gchar*,
                                    gint, GObject*, GstDebugMessage* message, gpointer list) {
    const std::string line = gst_debug_message_get(message);
    if (line.starts_with("object-alive")) {
      static_cast<std::vector<std::string>*>(list)->push_back(line);
    }
  };
  // In parentheses these are functions; the macros of the same names compare pointers of two kinds.
  (gst_debug_remove_log_function)(gst_debug_log_default);
  (gst_debug_add_log_function)(collect, &objects, nullptr);
  gst_debug_set_threshold_for_name("GST_TRACER", GST_LEVEL_TRACE);
  GList* const tracers = gst_tracing_get_active_tracers();
  g_signal_emit_by_name(tracers->data, "log-live-objects");
  g_list_free_full(tracers, gst_object_unref);
  gst_debug_unset_threshold_for_name("GST_TRACER");
  (gst_debug_remove_log_function)(collect);
  (gst_debug_add_log_function)(gst_debug_log_default, nullptr, nullptr);
  return objects;
}

TEST_F(CameraSourceTest, AThousandStateChangesLeaveNoObjectBehind) {
  // What GStreamer keeps for itself is there after the first.
  static_cast<void>(SourceHarness("sim", kSizes[4].Caps).Pull());
  const std::vector<std::string> before = LiveObjects();
  EXPECT_FALSE(before.empty());
  {
    const SourceHarness source("sim", kSizes[4].Caps);
    std::mt19937 random(20);
    constexpr std::array states{GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED,
                                GST_STATE_PLAYING};
    const int changes = lidcam::test::kIsSanitized ? 100 : 1000;
    for (int change = 0; change < changes; ++change) {
      const GstState state = states[random() % states.size()];
      ASSERT_NE(gst_element_set_state(source.Element(), state), GST_STATE_CHANGE_FAILURE) << change;
    }
    gst_element_set_state(source.Element(), GST_STATE_PLAYING);
    EXPECT_NE(source.Pull(), nullptr);
  }
  EXPECT_EQ(LiveObjects(), before);
}

}  // namespace
}  // namespace lidcam::gstreamer::test
