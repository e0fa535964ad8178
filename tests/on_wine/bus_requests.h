#pragma once

/// Requests of a test program in user mode to the simulated USB bus: to plug a camera in, to pull
/// it out, and to unload a driver that is no longer used. All requests are buffered and go to the
/// bus's own device, which user mode opens as "\\.\LidcamBus".

#if !defined(CTL_CODE)
#error "include the platform's headers first"
#endif

namespace lidcam::wine {

/// Plugs a camera in. Input: its options as text without a terminating zero, in the form of `lidcam
/// stream` ("" is the default camera). Fails with STATUS_DEVICE_BUSY while one is plugged in and
/// with STATUS_INVALID_PARAMETER for invalid options. Returns at once: the kernel starts the
/// driver.
inline constexpr ULONG kPlugIn =
    CTL_CODE(FILE_DEVICE_BUS_EXTENDER, 0x910, METHOD_BUFFERED, FILE_ANY_ACCESS);
/// Pulls the camera out. Returns once the removal has been reported to the kernel, which reports it
/// to the driver.
inline constexpr ULONG kPullOut =
    CTL_CODE(FILE_DEVICE_BUS_EXTENDER, 0x911, METHOD_BUFFERED, FILE_ANY_ACCESS);
/// Unloads a plug and play driver, which no service manager can stop. Input: the name of its
/// service as text without a terminating zero. Waits for the end of a camera's removal, and returns
/// once the driver's unload routine has run. Fails with STATUS_DEVICE_BUSY while a camera is
/// plugged in, or with the kernel's status.
inline constexpr ULONG kUnloadDriver =
    CTL_CODE(FILE_DEVICE_BUS_EXTENDER, 0x912, METHOD_BUFFERED, FILE_ANY_ACCESS);

}  // namespace lidcam::wine
