#include "serve/rtsp/camera_media.h"

#include <array>
#include <span>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace lidcam::serve::rtsp {
namespace {

/// An element that encodes, and how it is used: a picture a packet, without delay, and a whole picture at least
/// each second, so that a new viewer soon sees one.
struct Encoder {
  const char* Element;
  const char* Description;
};

constexpr std::array kH264Encoders = std::to_array<Encoder>(
    {{"x264enc", "x264enc tune=zerolatency speed-preset=veryfast bitrate=2000 key-int-max=30"},
     {"openh264enc",
      "openh264enc usage-type=camera complexity=low rate-control=bitrate bitrate=2000000 "
      "gop-size=30"}});
constexpr std::array kJpegEncoders = std::to_array<Encoder>({{"jpegenc", "jpegenc quality=85"}});

bool IsThere(const char* element) {
  GstElementFactory* const factory = gst_element_factory_find(element);
  if (factory == nullptr) return false;
  gst_object_unref(factory);
  return true;
}

const char* FirstOf(std::span<const Encoder> encoders, const char* advice) {
  for (const Encoder& encoder : encoders) {
    if (IsThere(encoder.Element)) return encoder.Description;
  }
  throw std::runtime_error(advice);
}

void Require(const char* element, const char* package) {
  if (IsThere(element)) return;
  throw std::runtime_error(std::string("GStreamer has no ") + element + ": install " + package);
}

std::string EncodingOf(Codec codec) {
  if (codec == Codec::MotionJpeg) {
    Require("rtpjpegpay", "gstreamer1.0-plugins-good");
    return FirstOf(kJpegEncoders, "GStreamer has no jpegenc: install gstreamer1.0-plugins-good") +
           std::string(" ! rtpjpegpay name=pay0 pt=26");
  }
  Require("rtph264pay", "gstreamer1.0-plugins-good");
  Require("h264parse", "gstreamer1.0-plugins-bad");
  return FirstOf(kH264Encoders,
                 "GStreamer has no H.264 encoder: install gstreamer1.0-plugins-ugly or "
                 "gstreamer1.0-plugins-bad, or send --codec mjpeg") +
         std::string(" ! h264parse config-interval=-1 ! rtph264pay name=pay0 pt=96");
}

std::string PipelineOf(const CameraMedia& media) {
  Require("videoconvert", "gstreamer1.0-plugins-base");
  // An encoder that is too slow drops pictures before it encodes them.
  return "( lidcamsrc name=camera ! video/x-raw,width=" + std::to_string(media.Width) +
         ",height=" + std::to_string(media.Height) +
         " ! queue leaky=downstream max-size-buffers=2 ! videoconvert ! video/x-raw,format=I420 "
         "! " +
         EncodingOf(media.Encoding) + " )";
}

/// What the callbacks of a factory and its media need.
struct Context {
  CameraMedia Media;
  rtsp::Tell Tell;
  MediaCount Count;
  rtsp::Viewers Viewers;
};

using SharedContext = std::shared_ptr<const Context>;

constexpr const char* kContext = "lidcam-context";

const Context& ContextOf(GstRTSPMedia* media) {
  return **static_cast<const SharedContext*>(g_object_get_data(G_OBJECT(media), kContext));
}

// ------------------------------------------------------------- media that tells what happens to its camera

void TellProblem(GstRTSPMedia* media, GstMessage* message) {
  GError* error = nullptr;
  const bool isError = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
  if (isError) {
    gst_message_parse_error(message, &error, nullptr);
  } else {
    gst_message_parse_warning(message, &error, nullptr);
  }
  ContextOf(media).Tell(std::string(isError ? "" : "warning: ") + error->message);
  g_error_free(error);
}

GstRTSPMediaClass* MediaParent() {
  return static_cast<GstRTSPMediaClass*>(g_type_class_peek(GST_TYPE_RTSP_MEDIA));
}

gboolean HandleMessage(GstRTSPMedia* media, GstMessage* message) {
  switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_ERROR:
    case GST_MESSAGE_WARNING:
      TellProblem(media, message);
      break;
    case GST_MESSAGE_ELEMENT:
      if (gst_message_has_name(message, "lidcam-replugged")) {
        ContextOf(media).Tell("the camera is plugged in again");
      }
      break;
    default:
      break;
  }
  return MediaParent()->handle_message(media, message);
}

void InitMediaClass(gpointer mediaClass, gpointer) {
  static_cast<GstRTSPMediaClass*>(mediaClass)->handle_message = HandleMessage;
}

GType MediaType() {
  static const GType type = g_type_register_static_simple(
      GST_TYPE_RTSP_MEDIA, "LidcamRtspMedia", sizeof(GstRTSPMediaClass), InitMediaClass,
      sizeof(GstRTSPMedia), nullptr, static_cast<GTypeFlags>(0));
  return type;
}

void EndMedia(gpointer contextPointer) {
  auto* const context = static_cast<SharedContext*>(contextPointer);
  --*(*context)->Count;
  (*context)->Viewers->SetCamera(nullptr);
  delete context;
}

/// The address is not a part of the pipeline's text, in which some characters have a meaning.
void ConfigureMedia(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer contextPointer) {
  const SharedContext& context = *static_cast<const SharedContext*>(contextPointer);
  ++*context->Count;
  g_object_set_data_full(G_OBJECT(media), kContext, new SharedContext(context), EndMedia);
  GstElement* const pipeline = gst_rtsp_media_get_element(media);
  GstElement* const camera = gst_bin_get_by_name(GST_BIN(pipeline), "camera");
  g_object_set(camera, "camera", context->Media.Camera.c_str(), "faults",
               context->Media.Faults ? context->Media.Faults->c_str() : nullptr, nullptr);
  context->Viewers->SetCamera(camera);
  gst_object_unref(camera);
  gst_object_unref(pipeline);
}

}  // namespace

GstRTSPMediaFactory* NewCameraFactory(const CameraMedia& media, const Tell& tell,
                                      const MediaCount& count, const Viewers& viewers) {
  const std::string pipeline = PipelineOf(media);
  GstRTSPMediaFactory* const factory = gst_rtsp_media_factory_new();
  gst_rtsp_media_factory_set_launch(factory, pipeline.c_str());
  gst_rtsp_media_factory_set_media_gtype(factory, MediaType());
  gst_rtsp_media_factory_set_shared(factory, TRUE);
  // Within the viewer's connection: no port is open but the one that is named, and nothing is lost on the way.
  gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_TCP);
  gst_rtsp_media_factory_add_role(factory, kViewerRole, GST_RTSP_PERM_MEDIA_FACTORY_ACCESS,
                                  G_TYPE_BOOLEAN, TRUE, GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT,
                                  G_TYPE_BOOLEAN, TRUE, nullptr);
  auto* const context =
      new SharedContext(std::make_shared<const Context>(Context{media, tell, count, viewers}));
  g_signal_connect_data(
      factory, "media-configure", G_CALLBACK(ConfigureMedia), context,
      [](gpointer data, GClosure*) { delete static_cast<SharedContext*>(data); },
      static_cast<GConnectFlags>(0));
  return factory;
}

}  // namespace lidcam::serve::rtsp
