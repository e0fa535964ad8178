#pragma once

#include <cstdint>

#include "driver/core/base/shared_value.h"
#include "driver/core/record/camera_context.h"

namespace lidcam {

/// The assembler's interface to the consumer of its frames. All four are called on the frame
/// thread, once per finished frame at most.
struct FrameSink {
  void* Context;  ///< first argument of the four
  /// Nonzero while the consumer reads a raw frame.
  std::uint8_t (*IsProcessing)(void* context);
  /// Stores the finished frame where the consumer fetches it.
  void (*PublishRawFrame)(void* context, std::uint8_t* buffer, std::uint32_t size);
  /// Nonzero while the stream runs: decides whether the consumer is woken.
  std::uint8_t (*StreamRunning)(void* context);
  /// Schedules the consumer, and returns.
  void (*WakeConsumer)(void* context);
};

/// Assembly state of one stream.
///
/// The frame thread alone works on it once packets come. Stream control fills it before that, and
/// sets the two shared flags at a start, when the thread may still hold a transfer of the run
/// before.
struct FrameAssembly {
  FrameSink Sink;
  Shared<std::uint8_t> DiscardFrame;  ///< stream control | frame thread: packets are not stored
  /// stream control | frame thread: the frame end just seen was a bad one; lives for one packet
  Shared<std::uint8_t> BadFrameEnd;
  std::uint8_t ForcePublish;     ///< the next frame end is published in any state
  std::uint8_t* RawBuffers;      ///< one block of two raw buffers
  std::uint8_t* ReadyBuffer;     ///< the raw buffer last handed out; at first the first half
  std::uint8_t* FillBuffer;      ///< the raw buffer being filled; at first the second half
  std::uint32_t FillOffset;      ///< next write position in FillBuffer, at most RawBufferSize
  std::uint32_t RawBufferSize;   ///< capacity of one raw buffer, bytes
  std::uint32_t FillFrameBytes;  ///< size reported with the frame
};

/// One packet of a completed isochronous transfer.
struct TransferPacket {
  std::uint32_t Offset;  ///< into the transfer's buffer
  std::uint32_t Length;
};

/// The pair through which a finished raw frame reaches its consumer: plain stores and loads,
/// without a fence, so that a reader may see the pointer of one frame with the size of another.
struct PublishedFrame {
  Shared<std::uint8_t*> PublishedRawFrame;      ///< frame thread | frame path
  Shared<std::uint32_t> PublishedRawFrameSize;  ///< frame thread | frame path
};

/// Stores a frame, buffer first. Null and 0 withdraw the frame published before, so that no stream
/// shows the last frame of the previous one.
/// @par Callable on any thread
void PublishRawFrame(PublishedFrame& published, std::uint8_t* buffer, std::uint32_t size);

/// Fetches the frame last published, or null. The frame stays published: the next call gets it
/// again until another takes its place.
/// @par Callable on any thread
std::uint8_t* GetRawFrame(const PublishedFrame& published, std::uint32_t& size);

/// Gives the assembly its two raw buffers: the first half of `block` is the one last handed out, the
/// second half is filled first, from its begin.
///
/// @param block  2 * `size` bytes, owned by the caller
/// @param size   capacity of one raw buffer, bytes
/// @par Callable while no packets come
void PlaceRawBuffers(FrameAssembly& assembly, std::uint8_t* block, std::uint32_t size);

/// Prepares for a stream's packets: those before the first frame start are the rest of a cut frame.
///
/// The byte count of the camera record is kept: the first start marker of a stream measures the
/// bytes of the previous stream, and is bad unless they happen to be a whole frame.
void BeginAssembly(FrameAssembly& assembly);

/// Hands the finished frame over and wakes the consumer.
///
/// While the consumer reads, the frame stays in FillBuffer and is overwritten by the next one: the
/// consumer's older frame is unchanged. Between that test and the swap the consumer may begin to
/// read; it then gets a frame torn by the packets of the next one.
///
/// @param camera  whose frame it is, for the trace
/// @par Callable on the frame thread only
void PublishFrame(FrameAssembly& assembly, const CameraContext* camera);

/// Takes one packet: stores it, drops it, or finishes a frame with it.
///
/// A frame's size is known only when the next one starts and its bytes lie in the buffer. A frame
/// of a wrong size is therefore published as it is, and the frame after it is thrown away whole. A
/// packet that does not fit the raw buffer is dropped and later ones that fit are stored.
///
/// @param data  as ParseRawPacket() requires it
/// @par Callable on the frame thread only; neither allocates nor locks
void AssemblePacket(FrameAssembly& assembly, CameraContext& context, const std::uint8_t* data,
                    std::uint32_t length);

/// Walks the packets of one completed transfer in order. Only a packet's length counts: its status
/// on the bus is ignored.
///
/// @param buffer      the transfer's data
/// @param bufferSize  bytes at `buffer`; a packet that reaches beyond them counts as empty
/// @par Callable on the frame thread only
void AssembleTransfer(FrameAssembly& assembly, CameraContext& context, const std::uint8_t* buffer,
                      std::uint32_t bufferSize, const TransferPacket* packets, std::uint32_t count);

}  // namespace lidcam
