#include "integrations/gstreamer/element/source_stream.h"

#include <string>

#include "integrations/gstreamer/element/source_errors.h"
#include "integrations/gstreamer/element/source_state.h"

namespace lidcam::gstreamer {
namespace {

constexpr GstClockTime kUnit = 100;  ///< the camera's unit of time, in ns

GstCaps* GetCaps(GstBaseSrc* source, GstCaps* filter) {
  GstCaps* caps = StateOf(source).Session.With(
      [](lidcam_camera* camera) { return camera == nullptr ? nullptr : CapsOf(camera); });
  if (caps == nullptr) caps = CapsOfAnyCamera();
  if (filter == nullptr) return caps;
  GstCaps* const filtered = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
  gst_caps_unref(caps);
  return filtered;
}

GstCaps* Fixate(GstBaseSrc*, GstCaps* caps) {
  return FixedCaps(caps);
}

gboolean SetCaps(GstBaseSrc* source, GstCaps* caps) {
  const std::optional<StreamFormat> format = FormatOf(caps);
  if (!format) return FALSE;
  // The next frame is asked for in this format, which is when the stream starts anew.
  StateOf(source).Format = *format;
  return TRUE;
}

GstCaps* StreamTimeReference() {
  static GstCaps* const caps = gst_caps_new_empty_simple("timestamp/x-lidcam-stream");
  GST_MINI_OBJECT_FLAG_SET(caps, GST_MINI_OBJECT_FLAG_MAY_BE_LEAKED);
  return caps;
}

GstClockTime RunningTimeOf(GstElement* element, const lidcam_frame& frame) {
  GstClock* const clock = gst_element_get_clock(element);
  const GstClockTime time =
      StateOf(element).Times.RunningTime(frame, clock, gst_element_get_base_time(element));
  if (clock != nullptr) gst_object_unref(clock);
  return time;
}

void SetLatency(GstElement* element, SourceState& state) {
  if (state.Latency.exchange(state.Interval.Value()) == state.Interval.Value()) return;
  gst_element_post_message(element, gst_message_new_latency(GST_OBJECT(element)));
}

void BeginStream(SourceState& state) {
  state.Buffers.StartAnew();
  state.Times.StartAnew();
  state.Interval.StartAnew(state.Format.Interval);
  state.DropsOfStream = 0;
}

void CountDrops(SourceState& state, const lidcam_frame& frame) {
  const auto drops = static_cast<std::uint64_t>(frame.drop_count);
  if (drops > state.DropsOfStream) state.DropCount += drops - state.DropsOfStream;
  state.DropsOfStream = drops;
}

GstFlowReturn Deliver(GstElement* element, const lidcam_frame* frame, bool isNew,
                      GstBuffer** result) {
  SourceState& state = StateOf(element);
  if (isNew) BeginStream(state);
  state.IsRecorded = frame->monotonic_ns == 0;
  const GstClockTime time = RunningTimeOf(element, *frame);
  state.Interval.Observe(*frame);
  SetLatency(element, state);
  state.Exposure.Observe(element, *frame, time);
  CountDrops(state, *frame);
  ++state.FrameCount;

  const auto number = static_cast<std::uint64_t>(frame->picture_number);
  const GstClockTime streamTime = static_cast<GstClockTime>(frame->stream_time) * kUnit;
  const GstClockTime duration = static_cast<GstClockTime>(frame->duration) * kUnit;
  GstBuffer* const buffer = state.Buffers.Wrap(frame);
  if (buffer == nullptr) {
    PostError(element, LIDCAM_ERROR_NO_MEMORY, "no memory for a copy of a picture");
    return GST_FLOW_ERROR;
  }
  GST_BUFFER_PTS(buffer) = time;
  GST_BUFFER_DURATION(buffer) = duration;
  GST_BUFFER_OFFSET(buffer) = number;
  GST_BUFFER_OFFSET_END(buffer) = number + 1;
  if (isNew) GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
  gst_buffer_add_reference_timestamp_meta(buffer, StreamTimeReference(), streamTime, duration);
  *result = buffer;
  return GST_FLOW_OK;
}

/// @return GST_FLOW_OK if the camera is back
GstFlowReturn OutliveUnplug(GstElement* element, const std::string& text) {
  SourceState& state = StateOf(element);
  const std::int64_t limit = state.ReplugTimeout;
  if (limit != 0) {
    PostUnplugged(element, text);
    const lidcam_status status = state.Session.WaitForReturn(limit);
    if (status == LIDCAM_OK) {
      PostReplugged(element);
      return GST_FLOW_OK;
    }
    if (status == LIDCAM_END) return GST_FLOW_FLUSHING;
  }
  PostError(element, LIDCAM_ERROR_UNPLUGGED, text);
  return GST_FLOW_ERROR;
}

GstFlowReturn Create(GstPushSrc* source, GstBuffer** buffer) {
  GstElement* const element = GST_ELEMENT(source);
  SourceState& state = StateOf(source);
  for (;;) {
    const lidcam_frame* frame = nullptr;
    bool isNew = false;
    const lidcam_status status = state.Session.Next(state.Format, &frame, &isNew);
    if (status == LIDCAM_OK) return Deliver(element, frame, isNew, buffer);
    if (status == LIDCAM_END)
      return state.Session.IsInterrupted() ? GST_FLOW_FLUSHING : GST_FLOW_EOS;
    const std::string text = lidcam_error_text();
    if (status != LIDCAM_ERROR_UNPLUGGED) {
      PostError(element, status, text);
      return GST_FLOW_ERROR;
    }
    if (const GstFlowReturn flow = OutliveUnplug(element, text); flow != GST_FLOW_OK) return flow;
  }
}

gboolean Unlock(GstBaseSrc* source) {
  StateOf(source).Session.Interrupt();
  return TRUE;
}

gboolean UnlockStop(GstBaseSrc* source) {
  StateOf(source).Session.Resume();
  return TRUE;
}

/// A recording has a speed of its own, and is played at it.
void GetTimes(GstBaseSrc* source, GstBuffer* buffer, GstClockTime* start, GstClockTime* end) {
  const bool isPaced = StateOf(source).IsRecorded && GST_BUFFER_PTS_IS_VALID(buffer);
  *start = isPaced ? GST_BUFFER_PTS(buffer) : GST_CLOCK_TIME_NONE;
  *end = isPaced ? *start + GST_BUFFER_DURATION(buffer) : GST_CLOCK_TIME_NONE;
}

gboolean Query(GstBaseSrc* source, GstQuery* query) {
  if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY) {
    auto* const parent = static_cast<GstBaseSrcClass*>(g_type_class_peek(GST_TYPE_PUSH_SRC));
    return parent->query(source, query);
  }
  gst_query_set_latency(query, TRUE, StateOf(source).Latency, GST_CLOCK_TIME_NONE);
  return TRUE;
}

}  // namespace

void InstallStreamOperations(GstPushSrcClass* sourceClass) {
  GstBaseSrcClass* const base = GST_BASE_SRC_CLASS(sourceClass);
  base->get_caps = GetCaps;
  base->fixate = Fixate;
  base->set_caps = SetCaps;
  base->unlock = Unlock;
  base->unlock_stop = UnlockStop;
  base->get_times = GetTimes;
  base->query = Query;
  sourceClass->create = Create;
}

}  // namespace lidcam::gstreamer
