#pragma once

#include <pipewire/pipewire.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "integrations/camera/camera_description.h"
#include "integrations/camera/shared_camera.h"
#include "integrations/pipewire/client_watch.h"
#include "integrations/pipewire/looker_table.h"
#include "integrations/pipewire/picture_buffers.h"
#include "integrations/pipewire/pods.h"

namespace lidcam::integrations::pipewire {

/// A camera as a node of PipeWire, of class Video/Source.
///
/// Its name is the same whenever the camera is shared. It stays while the camera is unplugged, since applications
/// don't notice that a node has gone. The size of the first looker holds while anybody looks, and is the only one
/// offered then; nobody's picture changes its size.
class CameraNode : private PictureReceiver {
 public:
  struct Options {
    CameraDescription Camera;
    std::function<void(const std::string& line)> Tell;  ///< on any thread, one at a time
  };

  /// Connects to PipeWire and offers the camera.
  ///
  /// @throws ShareError if PipeWire can't be reached
  explicit CameraNode(Options options);
  CameraNode(const CameraNode&) = delete;
  CameraNode& operator=(const CameraNode&) = delete;
  ~CameraNode() override;

  /// Why the node is not there any more, in a line; empty while it is. Callable from any thread.
  [[nodiscard]] std::string EndReason() const;

 private:
  struct EndLoop {
    void operator()(pw_thread_loop* loop) const;
  };
  struct DestroyContext {
    void operator()(pw_context* context) const { pw_context_destroy(context); }
  };
  struct Disconnect {
    void operator()(pw_core* core) const { pw_core_disconnect(core); }
  };
  struct DestroyRegistry {
    void operator()(pw_registry* registry) const {
      pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    }
  };
  struct DestroyStream {
    void operator()(pw_stream* stream) const { pw_stream_destroy(stream); }
  };

  static const pw_stream_events kStreamEvents;
  static const pw_core_events kCoreEvents;
  static const pw_registry_events kRegistryEvents;
  static void OnCoreError(void* user, std::uint32_t id, int sequence, int result,
                          const char* message);
  static void OnObjectAdded(void* user, std::uint32_t id, std::uint32_t permissions,
                            const char* type, std::uint32_t version, const spa_dict* properties);
  static void OnObjectRemoved(void* user, std::uint32_t id);
  static void OnStateChanged(void* user, pw_stream_state before, pw_stream_state now,
                             const char* error);
  static void OnBufferAdded(void* user, pw_buffer* buffer);
  static void OnBufferRemoved(void* user, pw_buffer* buffer);
  static void OnParamChanged(void* user, std::uint32_t id, const spa_pod* param);

  void Connect();
  void ChangeFormat(const spa_pod* format);
  void ChangeState(pw_stream_state state, const char* error);
  void TellOfLookers();
  void Offer(const std::vector<PictureSize>& sizes);
  void Update(const Pods& pods);
  void End(const std::string& reason);

  void TakePicture(const StreamShape& shape, Picture& picture) override;
  void LacksPictures() override;
  void ControlsChanged() override;

  const Options options_;
  // Destroyed in the opposite order, with the loop stopped.
  std::unique_ptr<pw_thread_loop, EndLoop> loop_;
  std::unique_ptr<pw_context, DestroyContext> context_;
  std::unique_ptr<pw_core, Disconnect> core_;
  std::unique_ptr<pw_registry, DestroyRegistry> registry_;
  std::unique_ptr<pw_stream, DestroyStream> stream_;
  spa_hook coreHook_{};
  spa_hook registryHook_{};
  spa_hook streamHook_{};
  // Of the loop's thread.
  std::optional<StreamShape> format_;
  std::vector<PictureSize> offered_;
  std::unique_ptr<PictureBuffers> buffers_;  ///< of the newest format
  bool isStreaming_ = false;
  LookerTable objects_;
  ClientWatch clients_;
  std::vector<std::string> lookers_;
  std::string endReason_;

  std::unique_ptr<SharedCamera> camera_;
};

}  // namespace lidcam::integrations::pipewire
