#pragma once

/// What a test program in user mode asks of the simulated USB bus: to plug a camera in and to pull it,
/// and to unload the driver that nothing needs any more. All requests are buffered and go to the bus's
/// own device, which user mode knows as "\\.\LidcamBus".

#if !defined(CTL_CODE)
#error "include the platform's headers first"
#endif

namespace lidcam::wine {

/// Plugs a camera in. Input: its options as text without a zero at the end, as `lidcam stream` takes
/// them ("" is the default camera). Fails with STATUS_DEVICE_BUSY while one is plugged in and with
/// STATUS_INVALID_PARAMETER for options that are none. Returns at once: the kernel starts the driver.
inline constexpr ULONG kPlugIn =
    CTL_CODE(FILE_DEVICE_BUS_EXTENDER, 0x910, METHOD_BUFFERED, FILE_ANY_ACCESS);
/// Pulls the camera out: its driver is told of the removal. Returns once the kernel has been told.
inline constexpr ULONG kPullOut =
    CTL_CODE(FILE_DEVICE_BUS_EXTENDER, 0x911, METHOD_BUFFERED, FILE_ANY_ACCESS);
/// Unloads a driver of plug and play's own, which no service manager knows how to stop. Input: the name
/// of its service as text without a zero at the end. Waits for the end of a camera's removal, and
/// returns once the driver's unload routine has run. Fails with STATUS_DEVICE_BUSY while a camera is
/// plugged in, and as the kernel does.
inline constexpr ULONG kUnloadDriver =
    CTL_CODE(FILE_DEVICE_BUS_EXTENDER, 0x912, METHOD_BUFFERED, FILE_ANY_ACCESS);

}  // namespace lidcam::wine
