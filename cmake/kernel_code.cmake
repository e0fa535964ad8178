# Flags for freestanding C++ in a Windows kernel image: no exceptions, no run-time type information,
# no guarded statics, no run-time start-up. One interface target carries them.
add_library(lidcam_kernel_code INTERFACE)
target_compile_options(lidcam_kernel_code INTERFACE
  -ffreestanding -fno-exceptions -fno-rtti -fno-threadsafe-statics -fno-use-cxa-atexit
  -fno-strict-aliasing -fno-common -fno-ident -ffunction-sections -fdata-sections
  -fno-tree-loop-distribute-patterns -mno-stack-arg-probe -fstack-protector-strong
  -fcf-protection=none -fno-omit-frame-pointer -fshort-wchar
  # Functions and lines for the symbols beside the package: the image itself is stripped.
  -g1 "-fdebug-prefix-map=${PROJECT_SOURCE_DIR}/=" "-fdebug-prefix-map=${PROJECT_BINARY_DIR}=."
  # The processor block that the platform's headers read is at a small offset of a segment.
  --param=min-pagesize=0
  -Werror=frame-larger-than=1024 -Werror=vla)
target_compile_definitions(lidcam_kernel_code INTERFACE
  _WIN32_WINNT=0x0601 NTDDI_VERSION=0x06010000 _KERNEL_MODE=1)
if(LIDCAM_KERNEL_ARCHITECTURE STREQUAL x64)
  target_compile_options(lidcam_kernel_code INTERFACE -mno-red-zone -mno-sse3 -mno-avx)
else()
  # Callers keep the stack aligned to 4 bytes only, and floating-point and vector registers belong
  # to user mode in the 32-bit kernel. Targets with the property LIDCAM_SAVES_REGISTERS run only
  # after those have been saved.
  set(saves_registers $<BOOL:$<TARGET_PROPERTY:LIDCAM_SAVES_REGISTERS>>)
  target_compile_options(lidcam_kernel_code INTERFACE
    -march=i686
    $<IF:${saves_registers},-msse2,-mgeneral-regs-only> $<${saves_registers}:-mfpmath=sse>
    -mincoming-stack-boundary=2 -mpreferred-stack-boundary=2
    -fno-asynchronous-unwind-tables)
endif()

# The platform's headers cause some of our warnings: they are included as system headers.
find_path(LIDCAM_KERNEL_HEADERS ntddk.h
  PATHS "/usr/${LIDCAM_KERNEL_TRIPLE}/include/ddk" REQUIRED NO_DEFAULT_PATH)
target_include_directories(lidcam_kernel_code SYSTEM INTERFACE "${LIDCAM_KERNEL_HEADERS}")

# The streaming header of mingw-w64 lacks the calling convention of the platform's callback types,
# which matters on x86: a corrected copy precedes the original.
file(READ "/usr/${LIDCAM_KERNEL_TRIPLE}/include/ks.h" streaming_header)
string(REGEX REPLACE "\\([ ]*\\*[ ]*PFN" "(NTAPI *PFN" streaming_header "${streaming_header}")
file(CONFIGURE OUTPUT "${CMAKE_BINARY_DIR}/kernel_headers/ks.h" CONTENT "${streaming_header}" @ONLY)
target_include_directories(lidcam_kernel_code SYSTEM BEFORE INTERFACE
  "${CMAKE_BINARY_DIR}/kernel_headers")
