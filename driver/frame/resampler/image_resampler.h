#pragma once

#include <cstdint>

#include "driver/frame/resampler/jobs/image_types.h"
#include "driver/frame/resampler/jobs/scale_job.h"
#include "platform/kernel.h"

namespace lidcam {

/// Scales a whole frame to a stream's size.
///
/// Saves the thread's floating-point state around its work. No state of its own: calls may run at
/// the same time, each on its own buffers.
///
/// @param destination  rows of destinationWidth pixels without padding. An odd last YUY2 pixel is
///                     left unwritten.
/// @param source       rows of sourceWidth pixels without padding; YUY2 needs an even width
/// @param yuy2         nonzero: packed YUY2, 2 bytes a pixel; 0: 3 bytes a pixel
/// @return 1 when scaled; 0 when not, with the destination left as it was
_IRQL_requires_max_(DISPATCH_LEVEL)
std::uint32_t ResampleFrame(std::uint8_t* destination, const std::uint8_t* source,
                            std::int32_t sourceWidth, std::int32_t sourceHeight,
                            std::int32_t destinationWidth, std::int32_t destinationHeight,
                            std::uint32_t yuy2);

/// Scales a region of a packed YUY2 picture. Luma and chroma have a sample grid each, and the ends
/// of source and output grids coincide.
///
/// A region starts at `source` + 4 * region.X bytes, twice as far right as its pixels: callers
/// scale from column 0. A read that would leave the source's rows (`sourceStep` times the height)
/// gets the nearest byte instead.
///
/// An output that the factors make larger than `destinationSize` is cut to that size; a smaller one
/// stays smaller. Sources below 4 by 2 pixels are scaled by nearest neighbour.
///
/// @param sourceStep       bytes from row to row; a row has no more bytes than that
/// @param destinationStep  bytes from row to row; what a row holds beyond that is not written
/// @param xFactor,yFactor  output pixels per source pixel, above 0; infinity is a large number
/// @return a ResizeStatus; the destination is touched with ResizeDone only. A step that is not
///         above 0 is a bad size, found after all other arguments.
/// @par With the floating-point state saved
_IRQL_requires_max_(DISPATCH_LEVEL)
ResizeStatus ResizeYuy2(const std::uint8_t* source, ImageSize sourceSize, std::int32_t sourceStep,
                        ImageRegion region, std::uint8_t* destination, std::int32_t destinationStep,
                        ImageSize destinationSize, double xFactor, double yFactor,
                        std::int32_t interpolation);

/// Scales a region of a picture of three interleaved planes, one byte each. As ResizeYuy2(), but
/// for any width, and with the region where its pixels are.
ResizeStatus ResizeRgb24(const std::uint8_t* source, ImageSize sourceSize, std::int32_t sourceStep,
                         ImageRegion region, std::uint8_t* destination,
                         std::int32_t destinationStep, ImageSize destinationSize, double xFactor,
                         double yFactor, std::int32_t interpolation);

}  // namespace lidcam
