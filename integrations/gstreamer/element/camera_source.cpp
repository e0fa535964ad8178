#include "integrations/gstreamer/element/camera_source.h"

#include <gst/base/gstpushsrc.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "integrations/gstreamer/camera/control_properties.h"
#include "integrations/gstreamer/element/color_balance.h"
#include "integrations/gstreamer/element/source_errors.h"
#include "integrations/gstreamer/element/source_state.h"
#include "integrations/gstreamer/element/source_stream.h"

namespace lidcam::gstreamer {
namespace {

enum PropertyId : unsigned { kCamera = 1, kFaults, kReplugTimeout, kStats, kFirstControl };

struct CameraSource {
  GstPushSrc Parent;
  SourceState* State;
};

struct CameraSourceClass {
  GstPushSrcClass Parent;
};

gpointer ParentClass() {
  return g_type_class_peek(GST_TYPE_PUSH_SRC);
}

std::optional<std::string> TextOf(const GValue* value) {
  const char* const text = g_value_get_string(value);
  return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

const char* PointerTo(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

/// NONE waits for ever, as does a time beyond what the other side can count.
std::int64_t TimeoutOf(GstClockTime time) {
  constexpr auto most = static_cast<GstClockTime>(std::numeric_limits<std::int64_t>::max());
  return time > most ? -1 : static_cast<std::int64_t>(time);
}

GstStructure* StatsOf(SourceState& state) {
  return gst_structure_new("lidcam-stats", "frames", G_TYPE_UINT64, state.FrameCount.load(),
                           "dropped", G_TYPE_UINT64, state.DropCount.load(), "copied",
                           G_TYPE_UINT64, state.Buffers.CopyCount(), nullptr);
}

const ControlProperty& ControlOf(unsigned id) {
  return ControlProperties()[id - kFirstControl];
}

void SetControl(GstElement* element, const ControlProperty& property, const GValue* value) {
  const lidcam_status status =
      StateOf(element).Session.SetControl(property.Control, ControlValueOf(property, value));
  if (status >= 0) return;
  const std::string text = lidcam_error_text();
  GST_ELEMENT_WARNING(element, RESOURCE, SETTINGS, ("%s", text.c_str()), (nullptr));
}

void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  SourceState& state = StateOf(object);
  if (id >= kFirstControl && id < kFirstControl + ControlProperties().size()) {
    return SetControl(GST_ELEMENT(object), ControlOf(id), value);
  }
  switch (id) {
    case kCamera:
      GST_OBJECT_LOCK(object);
      state.Camera = TextOf(value);
      GST_OBJECT_UNLOCK(object);
      break;
    case kFaults:
      GST_OBJECT_LOCK(object);
      state.Faults = TextOf(value);
      GST_OBJECT_UNLOCK(object);
      break;
    case kReplugTimeout:
      state.ReplugTimeout = TimeoutOf(g_value_get_uint64(value));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  SourceState& state = StateOf(object);
  if (id >= kFirstControl && id < kFirstControl + ControlProperties().size()) {
    const ControlProperty& property = ControlOf(id);
    return StoreControlValue(
        property, state.Session.Control(property.Control).value_or(property.Default), value);
  }
  switch (id) {
    case kCamera:
      GST_OBJECT_LOCK(object);
      g_value_set_string(value, PointerTo(state.Camera));
      GST_OBJECT_UNLOCK(object);
      break;
    case kFaults:
      GST_OBJECT_LOCK(object);
      g_value_set_string(value, PointerTo(state.Faults));
      GST_OBJECT_UNLOCK(object);
      break;
    case kReplugTimeout:
      g_value_set_uint64(value, state.ReplugTimeout < 0
                                    ? GST_CLOCK_TIME_NONE
                                    : static_cast<GstClockTime>(state.ReplugTimeout));
      break;
    case kStats:
      g_value_take_boxed(value, StatsOf(state));
      break;
    default:
      G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
  }
}

bool OpenCamera(GstElement* element) {
  SourceState& state = StateOf(element);
  GST_OBJECT_LOCK(element);
  const std::optional<std::string> camera = state.Camera;
  const std::optional<std::string> faults = state.Faults;
  GST_OBJECT_UNLOCK(element);
  const lidcam_status status = state.Session.Open(PointerTo(camera), PointerTo(faults));
  if (status < 0) PostError(element, status, lidcam_error_text());
  return status >= 0;
}

GstStateChangeReturn ChangeState(GstElement* element, GstStateChange change) {
  if (change == GST_STATE_CHANGE_NULL_TO_READY && !OpenCamera(element)) {
    return GST_STATE_CHANGE_FAILURE;
  }
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS(ParentClass())->change_state(element, change);
  if (change == GST_STATE_CHANGE_READY_TO_NULL) StateOf(element).Session.Close();
  return result;
}

/// Runs on any thread: the control may have been set by another process.
void TellControl(const char* control, void* element) {
  const ControlProperty* const property = PropertyOfControl(control);
  if (property == nullptr) return;
  g_object_notify(G_OBJECT(element), property->Property);
  TellBalance(GST_ELEMENT(element), *property);
}

void Finalize(GObject* object) {
  SourceState& state = StateOf(object);
  FreeBalanceChannels(state.BalanceChannels);
  delete &state;
  G_OBJECT_CLASS(ParentClass())->finalize(object);
}

constexpr auto kReadWrite = static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
constexpr auto kUntilReady = static_cast<GParamFlags>(kReadWrite | GST_PARAM_MUTABLE_READY);

void InstallProperties(GObjectClass* object) {
  g_object_class_install_property(
      object, kCamera,
      g_param_spec_string(
          "camera", "Camera",
          "Address as of `lidcam --camera`: usb[:BUS-PORT][:VID:PID], "
          "sim[:VID:PID[,NAME=VALUE...]] or capture:FILE; if none, the one that is plugged "
          "in, otherwise the simulated one",
          nullptr, kUntilReady));
  g_object_class_install_property(
      object, kFaults,
      g_param_spec_string("faults", "Faults",
                          "Faults on the camera's bus, to test an application: 'at 2s unplug'",
                          nullptr, kUntilReady));
  g_object_class_install_property(
      object, kReplugTimeout,
      g_param_spec_uint64(
          "replug-timeout", "Replug timeout",
          "How long a camera that was unplugged may be away before that is an error, in ns; "
          "0 is at once",
          0, GST_CLOCK_TIME_NONE, GST_CLOCK_TIME_NONE,
          static_cast<GParamFlags>(kReadWrite | GST_PARAM_MUTABLE_PLAYING)));
  g_object_class_install_property(
      object, kStats,
      g_param_spec_boxed("stats", "Statistics",
                         "Frames passed on, times of the stream without one (in the dark most of "
                         "them), and frames "
                         "copied because too many were held",
                         GST_TYPE_STRUCTURE,
                         static_cast<GParamFlags>(G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
  InstallControlProperties(object, kFirstControl);
}

void InitClass(gpointer classPointer, gpointer) {
  auto* const objectClass = G_OBJECT_CLASS(classPointer);
  auto* const elementClass = GST_ELEMENT_CLASS(classPointer);
  objectClass->set_property = SetProperty;
  objectClass->get_property = GetProperty;
  objectClass->finalize = Finalize;
  elementClass->change_state = ChangeState;
  InstallProperties(objectClass);
  InstallStreamOperations(GST_PUSH_SRC_CLASS(classPointer));

  gst_element_class_set_static_metadata(
      elementClass, "lidcam notebook camera", "Source/Video/Hardware",
      "Frames of a USB 2.0 notebook camera, plugged in, simulated or recorded",
      "The lidcam developers");
  GstCaps* const caps = CapsOfAnyCamera();
  gst_element_class_add_pad_template(
      elementClass, gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
  gst_caps_unref(caps);
}

void InitInstance(GTypeInstance* instance, gpointer) {
  reinterpret_cast<CameraSource*>(instance)->State = new SourceState(TellControl, instance);
  StateOf(instance).BalanceChannels = NewBalanceChannels();
  GstBaseSrc* const source = GST_BASE_SRC(instance);
  gst_base_src_set_live(source, TRUE);
  gst_base_src_set_format(source, GST_FORMAT_TIME);
}

GType RegisterType() {
  const GTypeInfo info{.class_size = sizeof(CameraSourceClass),
                       .base_init = nullptr,
                       .base_finalize = nullptr,
                       .class_init = InitClass,
                       .class_finalize = nullptr,
                       .class_data = nullptr,
                       .instance_size = sizeof(CameraSource),
                       .n_preallocs = 0,
                       .instance_init = InitInstance,
                       .value_table = nullptr};
  const GType type =
      g_type_register_static(GST_TYPE_PUSH_SRC, "LidcamSrc", &info, static_cast<GTypeFlags>(0));
  AddColorBalance(type);
  return type;
}

}  // namespace

SourceState& StateOf(gpointer element) {
  return *static_cast<CameraSource*>(element)->State;
}

GType CameraSourceType() {
  static const GType type = RegisterType();
  return type;
}

void SetViewers(GstElement* source, std::vector<std::string> viewers) {
  reinterpret_cast<CameraSource*>(source)->State->Session.SetViewers(std::move(viewers));
}

}  // namespace lidcam::gstreamer
