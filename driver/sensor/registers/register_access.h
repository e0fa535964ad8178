#pragma once

#include <cstdint>

#include "driver/core/record/camera_context.h"
#include "platform/kernel.h"

namespace lidcam {

/// Result of a frame-path access that met an application access: nothing was sent.
inline constexpr Status kRegisterAccessRefused = 1;

/// Which chip a register belongs to.
enum class Chip : std::uint8_t { Bridge = 0, Sensor = 1 };

/// The path of a register access: the application's primitives wait, those of the frame path
/// refuse.
enum class RegisterPath : std::uint32_t { Frame = 0, Application = 1 };

// Every access is a pair of vendor requests: a write of the select register 0xFFFF, which sets the
// meaning of the next request, then the request itself. `address` is 0xFF00 + n for register n of
// bridge and sensor alike; of `value` the low 8 bits are sent. The result is that of the second
// transfer: 0, or what the request callback returned. A failed select is not noticed.

/// Writes a bridge register on the application path.
///
/// Spins, without a limit, while the frame path holds the bus. On success the shadows follow.
/// @par It blocks for two control transfers
_IRQL_requires_max_(PASSIVE_LEVEL)
Status WriteBridgeRegister(CameraContext& context, RegisterAddress address, std::uint32_t value);

/// Writes a sensor register on the application path; as WriteBridgeRegister().
Status WriteSensorRegister(CameraContext& context, RegisterAddress address, std::uint32_t value);

/// Writes a bridge register on the frame path, which must never wait.
///
/// @return kRegisterAccessRefused, with nothing sent, while the application path holds the bus
Status DriverWriteBridgeRegister(CameraContext& context, RegisterAddress address,
                                 std::uint32_t value);

/// Writes a sensor register on the frame path; as DriverWriteBridgeRegister().
Status DriverWriteSensorRegister(CameraContext& context, RegisterAddress address,
                                 std::uint32_t value);

/// Reads a bridge register on the application path.
///
/// Reads the frame path's busy flag once: a read that meets a frame-path access in progress stops
/// there for good. It reports that to the transport (CameraContext::ThreadStops) and no longer uses
/// the record; whatever else its thread holds stays held.
/// @param result  keeps what it held if the read fails
Status ReadBridgeRegister(CameraContext& context, RegisterAddress address, std::uint8_t& result);

/// Reads a bridge register on the frame path.
///
/// @return kRegisterAccessRefused, with nothing sent, while the application path holds the bus
Status DriverReadBridgeRegister(CameraContext& context, RegisterAddress address,
                                std::uint8_t& result);

/// Reads a sensor register. Takes no part in the exclusion of the two paths.
Status ReadSensorRegister(CameraContext& context, RegisterAddress address, std::uint8_t& result);

/// Sends one write request of 16-bit value and address under whatever select is in force.
Status RawWriteRegister(CameraContext& context, std::uint16_t address, std::uint16_t value);

/// Sends one read request of a 16-bit address under whatever select is in force.
Status RawReadRegister(CameraContext& context, std::uint16_t address, std::uint8_t& result);

/// Brings the shadow copies up to date after a successful write.
void UpdateShadowRegister(CameraContext& context, RegisterAddress address, std::uint8_t value,
                          Chip chip);

/// Fills the shadows from the chips at bring-up.
///
/// A failed read leaves the byte of the read before it (0 at first), which is then stored.
/// @return the status of the last read made, and only that one
Status ReadShadowRegisters(CameraContext& context);

}  // namespace lidcam
