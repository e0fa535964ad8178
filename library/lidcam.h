/// @file
/// liblidcam: the camera for applications, in C.
///
/// A camera is opened by the same address as `lidcam --camera` takes, streams pictures into buffers that the
/// application borrows, and has picture controls. Each open camera runs its driver on a thread of the library.
///
/// @code
/// lidcam_camera *camera = NULL;
/// const lidcam_frame *frame = NULL;
/// if (lidcam_open("sim", NULL, &camera) < 0) fail(lidcam_error_text());
/// if (lidcam_start(camera, NULL) < 0) fail(lidcam_error_text());
/// while (lidcam_next_frame(camera, 1000, &frame) == LIDCAM_OK) {
///   show(frame->data, frame->width, frame->height);
///   lidcam_frame_release(frame);
/// }
/// lidcam_close(camera);
/// @endcode
///
/// **Errors.** Functions return a ::lidcam_status: negative is an error, and then lidcam_error_text() names the
/// input and the reason. Outputs are not written on errors.
///
/// **Threads.** Every function may be called from any thread, also for one camera by several threads at once,
/// except lidcam_close(): no other call with that camera may be in progress or follow. Calls with one camera
/// take turns, and a call that waits for a frame does not hold up the others. Handlers run on the camera's
/// thread of the library: they should return soon, must not throw, and what they may call is said with
/// ::lidcam_frame_handler and ::lidcam_event_handler.
///
/// **Processes.** One process at a time has a camera open; `lidcam set`, `get`, `controls`, `still` and `status`
/// reach it there, if $XDG_RUNTIME_DIR is set. An open camera does not survive fork(): a child process may only
/// call exec. The library ignores no signals and installs no handlers.
///
/// **Compatibility.** Structures that the library fills grow at their end only, and are always handed out by
/// address. Structures that the application fills begin with their size, which the INIT macros set.
#ifndef LIDCAM_H
#define LIDCAM_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
/// Marks the functions of the library.
#define LIDCAM_API __attribute__((visibility("default")))
#else
#define LIDCAM_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/// Result of a call: negative is an error.
typedef enum lidcam_status {
  LIDCAM_OK = 0,
  LIDCAM_TIMEOUT = 1,  ///< the time limit is over, and nothing came
  LIDCAM_END = 2,      ///< no more frames: the stream was stopped, or the recording is over

  LIDCAM_ERROR_FAILED = -1,            ///< none of the reasons below
  LIDCAM_ERROR_INVALID_ARGUMENT = -2,  ///< an address, a name, a value or a size that there is not
  LIDCAM_ERROR_NOT_FOUND = -3,         ///< no such camera is plugged in, no such file
  LIDCAM_ERROR_IN_USE =
      -4,  ///< another process, or another handle of this one, has the camera open
  LIDCAM_ERROR_UNPLUGGED = -5,  ///< the camera is gone; close it, and open it again when it is back
  LIDCAM_ERROR_NO_PERMISSION = -6,  ///< the device file; the text names the command that helps
  LIDCAM_ERROR_WRONG_STATE = -7,    ///< such as a start of a stream that runs
  LIDCAM_ERROR_NO_MEMORY = -8
} lidcam_status;

/// The error of the calling thread's last call that failed: one line without a line end, which names the input
/// and the reason. Valid until the thread's next call of this library; empty before the first error.
LIDCAM_API const char* lidcam_error_text(void);

/// A short name of a status for messages: "unplugged"; "unknown status" for other numbers.
LIDCAM_API const char* lidcam_status_name(lidcam_status status);

/// "0.1.0". The text lives as long as the program.
LIDCAM_API const char* lidcam_version(void);

/// Receives the library's notices to the user, such as "the kernel's driver uvcvideo is detached": one line
/// without a line end, valid during the call. On any thread.
typedef void (*lidcam_notice_handler)(const char* line, void* user);

/// Where notices go: by default to standard error, with "lidcam: " in front. Null suppresses them.
/// At most one thread at a time; a call in progress on another thread may still go to the handler before.
LIDCAM_API void lidcam_set_notice_handler(lidcam_notice_handler handler, void* user);

// ------------------------------------------------------------------------------------------------ cameras

/// What a camera is.
typedef enum lidcam_camera_kind {
  LIDCAM_KIND_PLUGGED_IN = 0,
  LIDCAM_KIND_SIMULATED = 1,
  LIDCAM_KIND_RECORDING = 2  ///< a capture of the bus traffic
} lidcam_camera_kind;

/// A camera that can be opened.
typedef struct lidcam_camera_info {
  const char* address;      ///< for lidcam_open(): "usb:1-2.3:1af0:0511", "sim:1af0:0511"
  const char* description;  ///< for a person: "Notebook camera 1af0:0511 (usb 1-2.3)"
  const char* unit;         ///< unique on this machine and stable: "usb-1-2.3", "1af0-0511-seed1"
  lidcam_camera_kind kind;
  uint16_t vendor_id;
  uint16_t product_id;
  const char*
      in_use_by;  ///< "process 1234 (lidcam stream)", "kernel driver uvcvideo"; empty if it is free
  /// "process 1234 through PipeWire" while `lidcam share` gives it to applications, which then find it there; empty
  /// otherwise
  const char* shared_by;
  /// Why no picture of it can be streamed, whatever its sensor: "its frame size is not known"; empty if there is no
  /// known reason
  const char* obstacle;
} lidcam_camera_info;

/// Lists the cameras that are plugged in, then the simulated ones.
///
/// @param[out] cameras  array of `*count` addresses, with a null behind the last; freed with
///                      lidcam_cameras_free()
/// @param[out] count    may be null
LIDCAM_API lidcam_status lidcam_cameras_list(const lidcam_camera_info* const** cameras,
                                             size_t* count);

/// Frees a list; null is allowed.
LIDCAM_API void lidcam_cameras_free(const lidcam_camera_info* const* cameras);

/// Called when cameras were plugged in or unplugged, or `lidcam share` has begun or ended with one, on a thread of the
/// library. It may call everything except lidcam_watch_end().
typedef void (*lidcam_cameras_handler)(void* user);

/// A watch for cameras that come and go.
typedef struct lidcam_watch lidcam_watch;

/// Calls `handler` after each change of the plugged-in cameras and of the shared ones, until lidcam_watch_end().
LIDCAM_API lidcam_status lidcam_watch_cameras(lidcam_cameras_handler handler, void* user,
                                              lidcam_watch** watch);

/// Ends a watch: the handler is not called any more when this returns. Null is allowed.
LIDCAM_API void lidcam_watch_end(lidcam_watch* watch);

// ------------------------------------------------------------------------------------------------ opening

/// An open camera.
typedef struct lidcam_camera lidcam_camera;

/// How a camera is opened.
typedef struct lidcam_open_options {
  size_t struct_size;  ///< set by LIDCAM_OPEN_OPTIONS_INIT
  /// Waits this long for a camera that another process has open; negative: for ever.
  int32_t wait_milliseconds;
  /// Light on a simulated scene as `--light` takes it: "300lx@0s,5lx@4s"; null: that of the address.
  const char* light;
  /// Faults on the camera's bus as `--faults` takes them: a script, a file or seed=N. To test an application:
  /// "at 2s unplug". Null: none.
  const char* faults;
} lidcam_open_options;

/// The options by default.
#define LIDCAM_OPEN_OPTIONS_INIT \
  { sizeof(lidcam_open_options), 0, NULL, NULL }

/// Opens a camera and starts its driver. Takes up to a few seconds.
///
/// @param address  as `--camera` takes it: "usb[:BUS-PORT][:VID:PID]", "sim[:VID:PID[,NAME=VALUE...]]",
///                 "capture:FILE". Null or empty: the one that is plugged in, otherwise the simulated one
/// @param options  null: all as by default
/// @param[out] camera  closed with lidcam_close()
LIDCAM_API lidcam_status lidcam_open(const char* address, const lidcam_open_options* options,
                                     lidcam_camera** camera);

/// Stops the stream, if one runs, and closes the camera. Frames that are still borrowed stay valid. Null is
/// allowed. Not from a handler of this camera.
LIDCAM_API void lidcam_close(lidcam_camera* camera);

/// What the camera is; valid until it is closed.
LIDCAM_API const lidcam_camera_info* lidcam_camera_get_info(const lidcam_camera* camera);

/// The name of its sensor: "VGA0708"; valid until it is closed.
LIDCAM_API const char* lidcam_camera_sensor(const lidcam_camera* camera);

/// Says who looks at the camera, and through which way, for `lidcam status` in other processes:
/// "PipeWire: firefox (1234)".
///
/// @param viewers  array of texts with a null behind the last; null: nobody
LIDCAM_API lidcam_status lidcam_set_viewers(lidcam_camera* camera, const char* const* viewers);

// ----------------------------------------------------------------------------------------------- streaming

/// How pixels lie in memory.
typedef enum lidcam_pixels {
  LIDCAM_PIXELS_YUY2 = 0  ///< Y0 U Y1 V, 2 bytes a pixel, BT.601, rows without padding
} lidcam_pixels;

/// A format that a stream can have.
typedef struct lidcam_format {
  lidcam_pixels pixels;
  uint32_t width;
  uint32_t height;
  uint32_t image_bytes;
  /// Frame intervals that the camera names for the size, 100 ns each, shortest first.
  const int64_t* intervals;
  size_t interval_count;
  int64_t shortest_interval;  ///< 100 ns; any between these two may be asked for
  int64_t longest_interval;
} lidcam_format;

/// The formats of a camera, largest first.
///
/// @param[out] formats  array of `*count` addresses with a null behind the last, valid until the camera is
///                      closed
/// @param[out] count    may be null
LIDCAM_API lidcam_status lidcam_formats_list(lidcam_camera* camera,
                                             const lidcam_format* const** formats, size_t* count);

/// The exposure loop's registers: Normal for a bright scene, LowLight for a dark one, Dummy between the two
/// while it tries LowLight, Initial before the first frame.
typedef enum lidcam_light_state {
  LIDCAM_LIGHT_NORMAL = 0,
  LIDCAM_LIGHT_LOW = 1,
  LIDCAM_LIGHT_INITIAL = 2,
  LIDCAM_LIGHT_DUMMY = 3
} lidcam_light_state;

/// A picture, borrowed from the camera.
typedef struct lidcam_frame {
  const uint8_t* data;
  size_t size;  ///< bytes
  lidcam_pixels pixels;
  uint32_t width;
  uint32_t height;
  uint32_t stride;  ///< bytes from row to row

  int64_t stream_time;   ///< when the picture was complete: 100 ns since the stream began to run
  int64_t monotonic_ns;  ///< the same on CLOCK_MONOTONIC; 0 for a recording, whose time is its own
  int64_t duration;  ///< 100 ns, the stream's frame interval; in the dark frames come less often
  int64_t picture_number;  ///< place among the frames that the stream's time has
  /// Frames behind the stream's first one that the camera has sent and the application has not got. A time at which a
  /// camera sends none, as in the dark, counts in `picture_number` only.
  int64_t drop_count;

  // The exposure loop when the picture was taken over from the driver.
  int32_t auto_exposure;  ///< 1: the camera exposes by itself
  uint32_t exposure;      ///< flicker periods of the mains; 0 until the loop's first step
  uint32_t coarse_gain;   ///< as the sensor's register holds it
  uint32_t fine_gain;     ///< as the sensor's register holds it
  uint32_t exposure_lines;
  lidcam_light_state light_state;
} lidcam_frame;

/// Receives a frame on the camera's thread; the frame is released with lidcam_frame_release(), in the handler
/// or later. It may call everything except lidcam_start(), lidcam_stop(), lidcam_take_still(), lidcam_next_frame()
/// and lidcam_close() with its camera, which fail with ::LIDCAM_ERROR_WRONG_STATE there.
typedef void (*lidcam_frame_handler)(lidcam_camera* camera, const lidcam_frame* frame, void* user);

/// What a stream is like.
typedef struct lidcam_stream_options {
  size_t struct_size;  ///< set by LIDCAM_STREAM_OPTIONS_INIT
  uint32_t width;
  uint32_t height;
  int64_t frame_interval;  ///< 100 ns; 0: the camera's usual one, 30 frames a second
  /// Buffers of the stream, 0 for 6, at most 64. Frames that the application has not released are among them;
  /// without a free buffer frames are dropped, and counted. A recording waits instead.
  uint32_t buffers;
  lidcam_frame_handler handler;  ///< null: frames are taken with lidcam_next_frame()
  void* user;                    ///< for the handler
  /// Memory for the buffers, such as memory that is shared with another process: `buffers` parts of equal size,
  /// each with room for a picture, which the camera fills where they are. It stays valid until the stream has
  /// stopped and all of its frames have been released. Null: the library's own.
  uint8_t* memory;
  size_t
      memory_size;  ///< bytes; the size of a part is this divided by `buffers`, which then isn't 0
} lidcam_stream_options;

/// The options by default: 640x480, 30 frames a second, frames by lidcam_next_frame().
#define LIDCAM_STREAM_OPTIONS_INIT \
  { sizeof(lidcam_stream_options), 640, 480, 0, 0, NULL, NULL, NULL, 0 }

/// Starts a stream. A camera has one at a time. A recording that is over is closed and opened again to be played
/// again.
///
/// @param options  null: 640x480, 30 frames a second
LIDCAM_API lidcam_status lidcam_start(lidcam_camera* camera, const lidcam_stream_options* options);

/// Stops the stream; without one nothing happens. Waiting frames are dropped, borrowed ones stay valid, and
/// calls that wait for one return ::LIDCAM_END.
LIDCAM_API lidcam_status lidcam_stop(lidcam_camera* camera);

/// Waits for the next frame. Frames come in order, each once, to one of the threads that wait.
///
/// @param timeout_milliseconds  0 does not wait, negative waits for ever. In the dark some cameras send a
///                              frame every 200 ms; the first one takes up to a second
/// @param[out] frame  released with lidcam_frame_release()
/// @return ::LIDCAM_OK, ::LIDCAM_TIMEOUT, ::LIDCAM_END, or ::LIDCAM_ERROR_UNPLUGGED once all frames have been
///         taken that came before
LIDCAM_API lidcam_status lidcam_next_frame(lidcam_camera* camera, int32_t timeout_milliseconds,
                                           const lidcam_frame** frame);

/// Gives a borrowed frame back, also after lidcam_stop() and lidcam_close(). Null is allowed.
LIDCAM_API void lidcam_frame_release(const lidcam_frame* frame);

// -------------------------------------------------------------------------------------------------- events

/// What an event tells.
typedef enum lidcam_event_kind {
  LIDCAM_EVENT_UNPLUGGED =
      1,  ///< the camera is gone: all that can be done with it is lidcam_close()
  LIDCAM_EVENT_REPLUGGED = 2,  ///< it is plugged in again: close it, and open `address`
  LIDCAM_EVENT_CONTROL = 3,    ///< a control has another value, whichever process has changed it
  LIDCAM_EVENT_STREAM_FAILED =
      4,                  ///< the stream broke off; `text` says why. It can be started again
  LIDCAM_EVENT_LIGHT = 5  ///< another light state: `value` is a ::lidcam_light_state
} lidcam_event_kind;

/// What happened to a camera.
typedef struct lidcam_event {
  lidcam_event_kind kind;
  const char* address;  ///< of the camera; after a replug the one to open, possibly at another port
  const char* control;  ///< name; empty for other events
  int32_t value;        ///< of the control or of the light state
  const char* text;     ///< for a person
} lidcam_event;

/// Receives an event, which is valid during the call, on the camera's thread. What it may call is as with
/// ::lidcam_frame_handler.
typedef void (*lidcam_event_handler)(lidcam_camera* camera, const lidcam_event* event, void* user);

/// Sets the receiver of a camera's events; null for none. Events that happened before are not repeated, except
/// that a camera which is gone already reports it at once. The handler before is not called any more when this
/// returns, unless it is called by a handler itself.
LIDCAM_API lidcam_status lidcam_set_event_handler(lidcam_camera* camera,
                                                  lidcam_event_handler handler, void* user);

// ------------------------------------------------------------------------------------------------ controls

/// What a control is.
enum lidcam_control_flags {
  LIDCAM_CONTROL_SWITCH = 1,  ///< two values, 0 and 1
  LIDCAM_CONTROL_MENU = 2,    ///< each value means something of its own: see `description`
  LIDCAM_CONTROL_NO_EFFECT =
      4  ///< this camera's sensor is not programmed for it: the value is kept only
};

/// A picture control.
typedef struct lidcam_control {
  const char* name;         ///< "Brightness", as `lidcam controls` shows it
  const char* description;  ///< one line
  int32_t minimum;
  int32_t maximum;
  int32_t step;
  int32_t default_value;
  uint32_t flags;  ///< ::lidcam_control_flags
} lidcam_control;

/// The controls of a camera.
///
/// @param[out] controls  array of `*count` addresses with a null behind the last, valid until the camera is
///                       closed
/// @param[out] count     may be null
LIDCAM_API lidcam_status lidcam_controls_list(lidcam_camera* camera,
                                              const lidcam_control* const** controls,
                                              size_t* count);

/// Reads a control's value from the driver.
///
/// @param name  without regard to case
LIDCAM_API lidcam_status lidcam_control_get(lidcam_camera* camera, const char* name,
                                            int32_t* value);

/// Sets a control. The value holds while the camera is open: lidcam_control_save() keeps it.
///
/// @return ::LIDCAM_ERROR_INVALID_ARGUMENT also for a value that the camera does not take; it then keeps its own
LIDCAM_API lidcam_status lidcam_control_set(lidcam_camera* camera, const char* name, int32_t value);

/// Sets a control to its default.
LIDCAM_API lidcam_status lidcam_control_reset(lidcam_camera* camera, const char* name);

/// Stores a control's present value in the user's settings, with which this camera begins from then on.
LIDCAM_API lidcam_status lidcam_control_save(lidcam_camera* camera, const char* name);

// --------------------------------------------------------------------------------------------------- still

/// A still picture. It has the size that the camera sends, whatever the stream's is; its last two pixels are
/// marks of the driver.
typedef struct lidcam_still {
  const uint8_t* data;
  size_t size;
  lidcam_pixels pixels;
  uint32_t width;
  uint32_t height;
  uint32_t stride;
} lidcam_still;

/// Takes a still: of the running stream its next frame; without one a stream is run until the exposure has
/// settled, 30 frames.
///
/// @param[out] still  freed with lidcam_still_release()
LIDCAM_API lidcam_status lidcam_take_still(lidcam_camera* camera, const lidcam_still** still);

/// Frees a still; null is allowed.
LIDCAM_API void lidcam_still_release(const lidcam_still* still);

#ifdef __cplusplus
}
#endif

#endif
