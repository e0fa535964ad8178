#include "integrations/pipewire/camera_node.h"

#include <spa/param/param.h>

#include <cerrno>
#include <cstring>
#include <utility>

#ifdef __clang__
// PipeWire's calls are macros of this kind.
#pragma clang diagnostic ignored "-Wgnu-statement-expression"
#endif

namespace lidcam::integrations::pipewire {
namespace {

/// Locks a loop's thread out.
class LoopLock {
 public:
  explicit LoopLock(pw_thread_loop* loop) : loop_(loop) { pw_thread_loop_lock(loop_); }
  LoopLock(const LoopLock&) = delete;
  LoopLock& operator=(const LoopLock&) = delete;
  ~LoopLock() { pw_thread_loop_unlock(loop_); }

 private:
  pw_thread_loop* const loop_;
};

[[noreturn]] void FailWithErrno(const std::string& what) {
  throw ShareError(what + ": " + std::strerror(errno));
}

// PipeWire (0.3.65) has no memory for an application's buffers before this process has answered. It knows the answer by
// a number, which counts the messages to this process, and takes any other answer about the node for it that has the
// same number: one to the session manager, say, whose numbers count its own messages. The application then gets
// buffers without memory and shows nothing. Numbers begin at zero, so those of processes that are about as old are
// alike: this process begins far above them.
constexpr int kMessagesAhead = 20'000;

void BeginAboveOtherNumbers(pw_core* core) {
  for (int message = 0; message < kMessagesAhead; ++message) pw_core_sync(core, PW_ID_CORE, 0);
}

pw_properties* NodeProperties(const CameraDescription& camera) {
  const std::string name = "lidcam." + camera.Unit;
  return pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture",
                           PW_KEY_MEDIA_ROLE, "Camera", PW_KEY_MEDIA_CLASS, "Video/Source",
                           PW_KEY_NODE_NAME, name.c_str(), PW_KEY_NODE_DESCRIPTION,
                           camera.Text.c_str(), PW_KEY_NODE_NICK, camera.Text.c_str(), nullptr);
}

}  // namespace

const pw_stream_events CameraNode::kStreamEvents = {
    .version = PW_VERSION_STREAM_EVENTS,
    .destroy = nullptr,
    .state_changed = OnStateChanged,
    .control_info = nullptr,
    .io_changed = nullptr,
    .param_changed = OnParamChanged,
    .add_buffer = OnBufferAdded,
    .remove_buffer = OnBufferRemoved,
    .process = nullptr,
    .drained = nullptr,
    .command = nullptr,
    .trigger_done = nullptr,
};

const pw_core_events CameraNode::kCoreEvents = {
    .version = PW_VERSION_CORE_EVENTS,
    .info = nullptr,
    .done = nullptr,
    .ping = nullptr,
    .error = OnCoreError,
    .remove_id = nullptr,
    .bound_id = nullptr,
    .add_mem = nullptr,
    .remove_mem = nullptr,
};

const pw_registry_events CameraNode::kRegistryEvents = {
    .version = PW_VERSION_REGISTRY_EVENTS,
    .global = OnObjectAdded,
    .global_remove = OnObjectRemoved,
};

void CameraNode::EndLoop::operator()(pw_thread_loop* loop) const {
  pw_thread_loop_stop(loop);
  pw_thread_loop_destroy(loop);
}

CameraNode::CameraNode(Options options)
    : options_(std::move(options)),
      clients_([this](std::uint32_t client, std::string_view interface) {
        objects_.SetInterface(client, interface);
      }) {
  loop_.reset(pw_thread_loop_new("lidcam", nullptr));
  if (!loop_) FailWithErrno("a thread for PipeWire cannot be started");
  camera_ = std::make_unique<SharedCamera>(
      SharedCamera::Options{.Address = options_.Camera.Address, .Tell = options_.Tell},
      options_.Camera.Controls, static_cast<PictureReceiver&>(*this));
  Connect();
  if (pw_thread_loop_start(loop_.get()) < 0)
    FailWithErrno("a thread for PipeWire cannot be started");
}

CameraNode::~CameraNode() {
  {
    const LoopLock lock(loop_.get());
    // The end of the stream changes its state once more, when the camera isn't there any more.
    spa_hook_remove(&streamHook_);
    spa_hook_remove(&registryHook_);
    spa_hook_remove(&coreHook_);
    clients_.Clear();
  }
  // Its thread takes the loop's lock.
  camera_.reset();
  pw_thread_loop_stop(loop_.get());
}

void CameraNode::Connect() {
  context_.reset(pw_context_new(pw_thread_loop_get_loop(loop_.get()),
                                pw_properties_new(PW_KEY_APP_NAME, "lidcam", nullptr), 0));
  if (!context_) FailWithErrno("PipeWire cannot be used");
  core_.reset(pw_context_connect(context_.get(), nullptr, 0));
  if (!core_) FailWithErrno("PipeWire cannot be reached (does it run, as this user?)");
  BeginAboveOtherNumbers(core_.get());
  pw_core_add_listener(core_.get(), &coreHook_, &kCoreEvents, this);
  registry_.reset(pw_core_get_registry(core_.get(), PW_VERSION_REGISTRY, 0));
  if (!registry_) FailWithErrno("PipeWire's objects cannot be watched");
  pw_registry_add_listener(registry_.get(), &registryHook_, &kRegistryEvents, this);
  stream_.reset(
      pw_stream_new(core_.get(), options_.Camera.Text.c_str(), NodeProperties(options_.Camera)));
  if (!stream_) FailWithErrno("a PipeWire node cannot be made");
  pw_stream_add_listener(stream_.get(), &streamHook_, &kStreamEvents, this);
  offered_ = options_.Camera.Sizes;
  Pods pods = FormatPods(offered_);
  pods.Add(ControlDescriptions(options_.Camera.Controls));
  pods.Add(ControlValues(options_.Camera.Controls));
  std::vector<const spa_pod*> addresses = pods.Addresses();
  const int result = pw_stream_connect(
      stream_.get(), PW_DIRECTION_OUTPUT, PW_ID_ANY,
      static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_ALLOC_BUFFERS),
      addresses.data(), static_cast<std::uint32_t>(addresses.size()));
  if (result < 0) {
    throw ShareError(std::string("PipeWire takes no camera: ") + std::strerror(-result));
  }
}

std::string CameraNode::EndReason() const {
  const LoopLock lock(loop_.get());
  return endReason_;
}

void CameraNode::OnCoreError(void* user, std::uint32_t id, int, int result, const char* message) {
  // Of other objects: an application's link that failed, say.
  if (id != PW_ID_CORE || result != -EPIPE) return;
  static_cast<CameraNode*>(user)->End(std::string("PipeWire has ended: ") + message);
}

void CameraNode::OnObjectAdded(void* user, std::uint32_t id, std::uint32_t, const char* type,
                               std::uint32_t, const spa_dict* properties) {
  auto& self = *static_cast<CameraNode*>(user);
  self.objects_.Add(id, type, properties);
  self.clients_.Add(self.registry_.get(), id, type);
  self.TellOfLookers();
}

void CameraNode::OnObjectRemoved(void* user, std::uint32_t id) {
  auto& self = *static_cast<CameraNode*>(user);
  self.objects_.Remove(id);
  self.clients_.Remove(id);
  self.TellOfLookers();
}

void CameraNode::TellOfLookers() {
  std::vector<std::string> lookers =
      objects_.LookersAt(stream_ ? pw_stream_get_node_id(stream_.get()) : PW_ID_ANY);
  if (lookers == lookers_) return;
  lookers_ = std::move(lookers);
  std::string names;
  for (const std::string& looker : lookers_) names += (names.empty() ? "" : ", ") + looker;
  std::vector<std::string> viewers;
  for (const std::string& looker : lookers_) viewers.push_back("PipeWire: " + looker);
  camera_->SetViewers(std::move(viewers));
  options_.Tell((names.empty() ? "nobody" : names) + " looks through PipeWire");
}

void CameraNode::OnStateChanged(void* user, pw_stream_state, pw_stream_state now,
                                const char* error) {
  static_cast<CameraNode*>(user)->ChangeState(now, error);
}

void CameraNode::OnParamChanged(void* user, std::uint32_t id, const spa_pod* param) {
  auto& self = *static_cast<CameraNode*>(user);
  if (id == SPA_PARAM_Format) self.ChangeFormat(param);
  if (id != SPA_PARAM_Props || param == nullptr) return;
  for (const NewValue& value : ReadNewValues(param, self.options_.Camera.Controls)) {
    self.camera_->SetControl(value.Name, value.Value);
  }
}

// PipeWire negotiates anew whenever a viewer comes or goes. The memory of pictures of one size stays, and with it the
// camera's stream.
void CameraNode::ChangeFormat(const spa_pod* format) {
  format_ = format != nullptr ? ReadFormat(format) : std::nullopt;
  if (!format_) return;
  const std::size_t bytes = BytesOf(*format_);
  try {
    if (!buffers_ || buffers_->PictureBytes() != bytes) {
      buffers_ = std::make_unique<PictureBuffers>(bytes);
    }
  } catch (const ShareError& error) {
    return End(error.what());
  }
  Update(BufferPods(*format_, PictureBuffers::kMost));
}

void CameraNode::OnBufferAdded(void* user, pw_buffer* buffer) {
  static_cast<CameraNode*>(user)->buffers_->Add(*buffer);
}

void CameraNode::OnBufferRemoved(void* user, pw_buffer* buffer) {
  static_cast<CameraNode*>(user)->buffers_->Remove(*buffer);
}

void CameraNode::ChangeState(pw_stream_state state, const char* error) {
  if (state == PW_STREAM_STATE_ERROR) {
    return End(std::string("PipeWire has ended the camera's node: ") +
               (error != nullptr ? error : "no reason given"));
  }
  const bool isStreaming = state == PW_STREAM_STATE_STREAMING && format_;
  if (isStreaming == isStreaming_) return;
  isStreaming_ = isStreaming;
  if (isStreaming) {
    camera_->Show(*format_, buffers_->Memory());
    // Formats that change make PipeWire negotiate with the looker again, which takes its buffers away: pw-v4l2 can't tell
    // its program so, whose next call then fails.
    if (objects_.IsSeenByV4l2(pw_stream_get_node_id(stream_.get()))) return;
    Offer({{.Width = format_->Width, .Height = format_->Height}});
  } else {
    camera_->Hide();
    Offer(options_.Camera.Sizes);
  }
}

void CameraNode::Offer(const std::vector<PictureSize>& sizes) {
  if (sizes == offered_) return;
  offered_ = sizes;
  Update(FormatPods(sizes));
}

void CameraNode::Update(const Pods& pods) {
  std::vector<const spa_pod*> addresses = pods.Addresses();
  pw_stream_update_params(stream_.get(), addresses.data(),
                          static_cast<std::uint32_t>(addresses.size()));
}

void CameraNode::End(const std::string& reason) {
  if (endReason_.empty()) endReason_ = reason;
}

void CameraNode::TakePicture(const StreamShape& shape, Picture& picture) {
  const LoopLock lock(loop_.get());
  if (!isStreaming_ || format_ != shape) return;
  buffers_->Show(stream_.get(), picture);
  pw_stream_trigger_process(stream_.get());
}

void CameraNode::LacksPictures() {
  const LoopLock lock(loop_.get());
  if (isStreaming_) buffers_->Reclaim(stream_.get());
}

void CameraNode::ControlsChanged() {
  const LoopLock lock(loop_.get());
  if (stream_) Update(ControlValues(camera_->Controls()));
}

}  // namespace lidcam::integrations::pipewire
