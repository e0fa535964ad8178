#pragma once

#include <cstddef>
#include <cstdint>

#include "driver/core/base/shared_value.h"

namespace lidcam {

/// Result of a camera operation. 0 is success, -1 an unknown control code or a failed request
/// callback, 1 a refused register access of the frame path; file and registry operations give the
/// platform's own status words.
using Status = std::int32_t;

/// Signed count of 100 ns units, as the platform measures frame intervals and stream times.
using Time100ns = std::int64_t;

/// Number of a bridge or sensor register as it goes over the bus: 0xFF00 + n reaches register n.
using RegisterAddress = std::uint16_t;

/// The address of register `number`, of bridge and sensor alike.
constexpr RegisterAddress RegisterAddressOf(std::uint8_t number) {
  return static_cast<RegisterAddress>(0xFF00U + number);
}

/// The sensor behind the bridge. The numbers select set files, tables and branches everywhere;
/// 2 and 4 are not used.
enum SensorType : std::int32_t {
  SensorTypeVGA0408 = 1,  ///< also the value before and without identification
  SensorTypeReserved3 = 3,
  SensorTypeVGA7648 = 5,
  SensorTypeK82 = 6,  ///< 16-bit registers
  SensorTypeOV7660 = 7,
  SensorTypeOV7663 = 8,
  SensorTypeVGA0708 = 9,  ///< its exposure is steered by the host
  SensorTypeMi1318 = 10,  ///< 16-bit registers, 1280 by 1024
  SensorTypeOV7670 = 11,
};

/// Mains light whose flicker the exposure is matched to, as the `Flicker` control counts it.
enum FlickerSetting : std::int32_t {
  FlickerOff = 0,
  Flicker50Hz = 1,
  Flicker60Hz = 2,
};

/// Values of the `LED` control.
enum LedPolicy : std::int32_t {
  LedPolicyOn = 2,
  LedPolicyOff = 3,
  LedPolicyFollowLight = 4,  ///< lit while the light state is not normal
};

/// Size of the raw frames, as the record and the length table count it. No stream uses 3 and 5,
/// although the table has lengths for them.
enum RawMode : std::uint32_t {
  RawMode640x480 = 1,
  RawMode320x240 = 2,
  RawMode240x160 = 3,
  RawMode160x120 = 4,
  RawMode120x80 = 5,
  RawMode1280x1024 = 6,
};

/// Operating point of the camera in low light, as the record counts it.
enum LightState : std::uint32_t {
  LightStateNormal = 0,
  LightStateLowLight = 1,
  LightStateInitial = 2,
  LightStateDummy = 3,
};

/// Vendor control transfer. Blocks until it has finished.
///
/// @param transportContext  CameraTransport::TransportContext
/// @param request  request code, low 8 bits
/// @param index    wIndex, low 16 bits
/// @param value    wValue, low 16 bits
/// @param buffer   data stage; null when `*length` is 0
/// @param length   bytes of the data stage: 0 in every write, 1 in every read
/// @return 0, or nonzero (-1) on failure
/// @par Callable at passive level only
using VendorRequestFunction = Status (*)(void* transportContext, std::uint32_t request,
                                         std::uint32_t index, std::uint32_t value, void* buffer,
                                         std::uint32_t* length);

/// Restart of a running stream with exchanged width and height. Kept for the transport; the core
/// never calls it.
using StreamReconfigureFunction = Status (*)(void* transportContext, std::uint32_t* swap);

/// Called by a thread that is about to stop for good, see ReadBridgeRegister(): it no longer uses
/// the camera's record and the transport.
/// @par Callable at passive level only
using ThreadStopsFunction = void (*)(void* transportContext);

/// Passed by the device layer at creation: the core's only access to the USB.
struct CameraTransport {
  void* TransportContext;  ///< opaque first argument of the callbacks
  VendorRequestFunction WriteRequest;
  VendorRequestFunction ReadRequest;
  StreamReconfigureFunction StreamReconfigure;
  ThreadStopsFunction ThreadStops = nullptr;  ///< null: not called
};

/// Returned to the device layer at creation. All values follow from the length of the configuration
/// descriptor alone.
struct CameraCapabilities {
  std::uint32_t DeviceClass;            ///< 1; other than 1 to 3 fails the device's start
  std::uint32_t SpeedClass;             ///< 2 with the long configuration, else 1
  std::uint32_t AlternateSettingLimit;  ///< highest setting that an upward walk tries
  std::uint8_t SearchDownward;          ///< nonzero: after a refusal try narrower settings
  std::uint32_t TransferCount;          ///< isochronous transfers kept in flight
  std::uint32_t FormatListIndex;        ///< which of the two format lists the pin offers
  std::uint32_t FormatCount;            ///< formats of that list on offer
};

/// One register write of a set file, in the file's layout.
struct RegisterSetEntry {
  std::uint8_t Marker;    ///< kSensorEntryMarker or kBridgeEntryMarker; others are ignored
  std::uint8_t Register;  ///< address 0xFF00 + Register
  std::uint8_t Value;
};
static_assert(sizeof(RegisterSetEntry) == 3);

inline constexpr std::uint8_t kSensorEntryMarker = 0x33;
inline constexpr std::uint8_t kBridgeEntryMarker = 0x11;

/// Entries that a table has room for.
inline constexpr std::size_t kRegisterSetCapacity = 600;

/// One table of a register set file.
struct RegisterSetTable {
  std::uint32_t Present;  ///< 1 once a section of this type with content was read
  std::uint32_t Count;    ///< entries; may exceed the room when a file breaks the limit
  RegisterSetEntry Entries[kRegisterSetCapacity];
};

/// The stream that an application requests, taken by the device layer from the present video
/// format.
struct FormatRequest {
  std::int32_t Width;              ///< pixels
  std::int32_t Height;             ///< pixels
  std::uint32_t BitCount;          ///< bits per pixel
  std::uint32_t Compression;       ///< 0 for RGB24, the four characters otherwise
  std::uint32_t ImageSize;         ///< bytes
  std::uint32_t Spare;             ///< 0
  Time100ns AvgTimePerFrame;       ///< frame interval
  std::uint32_t AlternateSetting;  ///< setting obtained; filled after negotiation
};

/// The four characters "YUY2" and "I420" as a little-endian number, and the first word of the RGB24
/// media subtype.
inline constexpr std::uint32_t kFourccYuy2 = 0x32595559;
inline constexpr std::uint32_t kFourccI420 = 0x30323449;
inline constexpr std::uint32_t kFormatTagRgb24 = 0xE436EB7D;

/// The one record per camera.
///
/// It has no lock. A field that two contexts use is Shared, and its comment names the two:
///
/// - requests: property requests, which come through several handles at a time
/// - stream control: creation and destruction, changes of the pin's state, and recoveries; those that start
///   and end a stream hold the device's mutex
/// - power: changes of the device's power state
/// - frame path: the pin's processing. Where one stream follows another, the first pin's last frame and
///   the second one's first may meet
/// - frame thread: the assembly of frames; a stream's thread has ended before the next one's starts
///
/// All other fields are plain: written before the record is shared and then only read, or used by
/// one context. The record starts zeroed; values other than zero after creation are in
/// CreateCameraContext() and in the settings' defaults. Fields that this system writes and never
/// reads are kept for readers of a memory dump and stay in place.
struct CameraContext {
  void* TransportContext;
  char Signature[4];  ///< "INTE"; never checked
  VendorRequestFunction WriteRequest;
  VendorRequestFunction ReadRequest;
  StreamReconfigureFunction StreamReconfigure;
  ThreadStopsFunction ThreadStops;

  // The format in force.
  /// stream control | requests, frame path: as the application requested it; 800 stays 800 here
  Shared<std::int32_t> RequestedWidth;
  Shared<std::int32_t> RequestedHeight;  ///< stream control | frame path
  std::uint32_t RequestedBitCount;
  Shared<std::uint32_t> RequestedCompression;  ///< stream control | frame path
  std::uint32_t RequestedImageSize;            ///< bytes
  std::uint32_t RequestedSpare;
  Time100ns RequestedFrameInterval;
  std::uint32_t StreamAlternateSetting;  ///< setting given to the last stream start
  std::uint32_t FramePacketCount;        ///< nonempty packets since the last frame start
  /// frame thread | the application's process, which counts lost frames by it: frame start markers seen
  Shared<std::uint32_t> FrameStartCount;
  Time100ns FrameInterval;  ///< clamped
  /// stream control | requests: first word of the negotiated media subtype
  Shared<std::uint32_t> FormatTag;
  Shared<std::int32_t> CaptureWidth;   ///< stream control | requests: 640 for a request of 800
  Shared<std::int32_t> CaptureHeight;  ///< stream control | requests: 480 for a request of 800
  Shared<std::uint32_t> MaxAlternateSetting;  ///< stream control | requests: 7 or 3

  // Image controls, as the settings store loads them and the control codes change them.
  Shared<std::int32_t> Brightness;    ///< requests | stream control
  Shared<std::int32_t> Contrast;      ///< requests | stream control
  Shared<std::int32_t> Saturation;    ///< requests | stream control
  Shared<std::int32_t> Sharpness;     ///< requests | stream control
  Shared<std::int32_t> Gamma;         ///< requests | stream control
  Shared<std::int32_t> WhiteBalance;  ///< requests | stream control
  Shared<std::int32_t> BackLight;     ///< requests | stream control
  Shared<std::int32_t> ColorEnable;   ///< requests | stream control
  Shared<std::int32_t> Mirror;        ///< requests | stream control
  Shared<std::int32_t> Flicker;       ///< requests | frame path: a lidcam::FlickerSetting
  Shared<std::int32_t> Vertical;      ///< requests | stream control
  Shared<std::int32_t> Effect;        ///< requests | stream control
  Shared<std::uint32_t> LightState;   ///< requests, stream control | frame path
  Shared<std::int32_t> LDMode;    ///< requests | frame path: 1 holds the low-light register list
  Shared<std::int32_t> Exposure;  ///< requests | stream control: manual exposure, 1 to 100
  Shared<std::uint32_t> TriggerCopyA;  ///< requests | requests
  Shared<std::uint32_t> TriggerCopyB;  ///< requests | requests
  std::uint32_t MaxAlternateSettingCopy;
  std::uint32_t Rgain;  ///< saved, never written, never loaded
  std::uint32_t Ggain;
  std::uint32_t Bgain;
  Shared<std::uint32_t> StoredControl44;  ///< requests | requests
  Shared<std::uint32_t> StoredControl45;  ///< requests | requests
  Shared<std::uint32_t> StoredControl46;  ///< requests | requests
  std::uint32_t LightLimitLow;
  std::uint32_t LightLimitHigh;
  std::uint32_t LightLimitCeiling;
  Shared<std::uint32_t> AutoExposure;  ///< requests | frame path
  std::uint32_t WhiteBalanceAuto;      ///< saved and reported, never written, never loaded
  std::uint32_t StoredControl33;
  Shared<std::uint32_t> RawRegisterValue;    ///< requests | requests
  Shared<std::uint32_t> RawRegisterAddress;  ///< requests | requests
  /// requests | stream control: 1, 2, 4 or 8: low two bits of bridge register 0xFF0A
  Shared<std::int32_t> ClockDivider;
  Shared<std::uint32_t> RawSizeMode;      ///< stream control | frame path: a lidcam::RawMode, or 0
  Shared<std::int32_t> LED;               ///< requests | frame path: a lidcam::LedPolicy
  Shared<std::uint16_t> LightSwitchKind;  ///< requests | requests

  // Held by the two register paths around a pair of transfers.
  Shared<std::uint32_t> AppRegisterBusy;     ///< requests, stream control | frame path
  Shared<std::uint32_t> DriverRegisterBusy;  ///< requests, stream control | frame path

  Shared<std::int32_t> LightTransitionCount;  ///< requests, stream control | frame path
  Shared<std::int32_t> LightBrightCount;      ///< requests, stream control | frame path
  Shared<std::uint32_t> StillRequestValue;    ///< requests | frame path
  Shared<std::uint32_t> StillRequested;       ///< requests | frame path: 1 arms a still
  std::uint32_t ReceivedFrameBytes;           ///< bytes since the last frame start, stored or not
  /// stream control | frame thread: expected bytes of a raw frame
  Shared<std::uint32_t> RawFrameSize;
  Shared<std::uint32_t> ClearOnReadValue;  ///< requests | requests
  std::uint8_t NegotiationMark;
  Shared<std::uint8_t> Streaming;  ///< stream control | requests
  std::uint16_t PowerOn;
  void* SpareBlock;  ///< nothing is stored there
  std::uint32_t TriggerBase;
  Shared<std::uint32_t> TriggerFlagA;  ///< requests | requests
  Shared<std::uint32_t> TriggerFlagB;  ///< requests | requests
  void* WorkerThread;                  ///< waitable object; nothing creates one
  Shared<std::uint8_t> WorkerRunning;  ///< stream control | worker, which nothing creates
  std::int32_t SensorType;             ///< a lidcam::SensorType
  std::uint8_t SensorDH10;             ///< 1: taken for an OV7660 by elimination
  RegisterSetTable SetupRegisters;
  RegisterSetTable NormalRegisters;
  RegisterSetTable LowLightRegisters;

  // Last values known to be in the chips, for read-modify-write steps.
  Shared<std::uint8_t> ShadowFF0D;  ///< requests | frame path
  Shared<std::uint8_t> ShadowFF26;  ///< requests | frame path
  Shared<std::uint8_t> ShadowFF42;  ///< requests | frame path
  Shared<std::uint8_t> ShadowFF64;  ///< requests | frame path
  /// requests | frame path: bridge 0xFF68: lines in half a mains cycle
  Shared<std::uint8_t> FlickerBandStep;
  Shared<std::uint8_t> ShadowSensor0CVGA0408;  ///< requests | frame path
  Shared<std::uint8_t> ShadowSensor0C;         ///< requests | frame path
  Shared<std::uint8_t> ShadowSensor12;         ///< requests | frame path
  Shared<std::uint8_t> ShadowSensor75;         ///< requests | frame path
  Shared<std::uint8_t> UserSharpness;          ///< requests | frame path
  Shared<std::uint8_t> UserSaturation;         ///< requests | frame path
  Shared<std::uint8_t> UserSaturation2;        ///< requests | stream control

  std::uint32_t LongConfigDescriptor;  ///< nonzero: eight alternate settings
  /// stream control | work in the background: destruction waits until it is 0
  Shared<std::int32_t> PendingWork;
  void* WorkBufferA;
  void* WorkBufferB;
  void* WorkBufferC;
  std::uint8_t WorkBuffersPresent;
  std::uint8_t WorkBuffersReady;
  Shared<void*> LastDestination;    ///< frame path | frame path
  Shared<void*> LastRawFrame;       ///< frame path | frame path
  Shared<std::uint8_t> WideLow;     ///< requests | stream control
  Shared<std::uint8_t> WideHigh;    ///< requests | stream control
  Shared<std::uint8_t> BridgeMode;  ///< stream control | power: copy of bridge 0xFF0A for a resume
  /// frame path | frame thread: 0 requests a settling discard
  Shared<std::uint32_t> FrameSettleCount;
  Shared<std::uint16_t> CommitCount;     ///< frame path | frame path
  Shared<std::uint32_t> CommitExposure;  ///< frame path | frame path
};

}  // namespace lidcam
