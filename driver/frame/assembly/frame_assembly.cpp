#include "driver/frame/assembly/frame_assembly.h"

#include "driver/core/base/camera_trace.h"
#include "driver/frame/assembly/packet_walk.h"
#include "platform/kernel.h"

namespace lidcam {

void PlaceRawBuffers(FrameAssembly& assembly, std::uint8_t* block, std::uint32_t size) {
  NT_ASSERT(block != nullptr && size != 0);
  assembly.RawBuffers = block;
  assembly.ReadyBuffer = block;
  assembly.FillBuffer = block + size;
  assembly.FillOffset = 0;
  assembly.RawBufferSize = size;
}

void PublishRawFrame(PublishedFrame& published, std::uint8_t* buffer, std::uint32_t size) {
  published.PublishedRawFrame = buffer;
  published.PublishedRawFrameSize = size;
}

std::uint8_t* GetRawFrame(const PublishedFrame& published, std::uint32_t& size) {
  std::uint8_t* const buffer = published.PublishedRawFrame;
  size = published.PublishedRawFrameSize;
  return buffer;
}

void BeginAssembly(FrameAssembly& assembly) {
  assembly.BadFrameEnd = 0;
  assembly.DiscardFrame = 1;
}

void PublishFrame(FrameAssembly& assembly, const CameraContext* camera) {
  const FrameSink& sink = assembly.Sink;
  if (sink.IsProcessing(sink.Context) != 0) {
    TraceCamera(camera, "frame busy bytes=%u", assembly.FillFrameBytes);
  } else {
    NT_ASSERT(assembly.FillBuffer != assembly.ReadyBuffer);
    std::uint8_t* const finished = assembly.FillBuffer;
    assembly.FillBuffer = assembly.ReadyBuffer;
    assembly.ReadyBuffer = finished;
    TraceCamera(camera, "frame published bytes=%u", assembly.FillFrameBytes);
    sink.PublishRawFrame(sink.Context, finished, assembly.FillFrameBytes);
    if (sink.StreamRunning(sink.Context) != 0) sink.WakeConsumer(sink.Context);
  }
  assembly.FillOffset = 0;
}

void AssemblePacket(FrameAssembly& assembly, CameraContext& context, const std::uint8_t* data,
                    std::uint32_t length) {
  PacketWalk<> walk(assembly, context);
  walk.Take(data, length);
  walk.Flush();
}

void AssembleTransfer(FrameAssembly& assembly, CameraContext& context, const std::uint8_t* buffer,
                      std::uint32_t bufferSize, const TransferPacket* packets,
                      std::uint32_t count) {
  PacketWalk<> walk(assembly, context);
  TakeTransfer(walk, buffer, bufferSize, packets, count);
}

}  // namespace lidcam
