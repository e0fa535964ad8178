#include "tests/driver/frame/assembly/stream_prediction.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

namespace lidcam::test {
namespace {

/// A nonempty packet as a slice of the whole stream's bytes.
struct Slice {
  std::size_t Begin;
  std::size_t End;
  int SecondByte;  ///< of the packet; for a packet of one byte, the byte behind it in its buffer
};

/// All bytes of a stream end to end, where they were cut, and what happened between the cuts.
struct FlatStream {
  std::vector<std::uint8_t> Bytes;
  std::vector<Slice> Slices;
  std::vector<std::size_t> Starts;     ///< slices ahead of which the stream was started again
  std::vector<std::size_t> Settlings;  ///< slices ahead of which a settling was requested
};

FlatStream Flatten(const RecordedStream& stream) {
  FlatStream flat;
  for (const RecordedTransfer& transfer : stream.Transfers) {
    if (transfer.StreamStarted) flat.Starts.push_back(flat.Slices.size());
    if (transfer.SettlingWanted) flat.Settlings.push_back(flat.Slices.size());
    for (const TransferPacket& packet : transfer.Packets) {
      if (packet.Length == 0) continue;
      const auto from = transfer.Buffer.begin() + packet.Offset;
      const std::size_t begin = flat.Bytes.size();
      flat.Bytes.insert(flat.Bytes.end(), from, from + packet.Length);
      const int second = from + 1 < transfer.Buffer.end() ? from[1] : -1;
      flat.Slices.push_back({begin, flat.Bytes.size(), second});
    }
  }
  return flat;
}

/// Whether one of the sorted `places` lies behind `after` and not behind `upTo`.
bool HasPlaceWithin(const std::vector<std::size_t>& places, std::optional<std::size_t> after,
                    std::size_t upTo) {
  return std::any_of(places.begin(), places.end(), [&](std::size_t place) {
    return (!after || place > *after) && place <= upTo;
  });
}

/// The part from one start marker to the next, or to the stream's end.
struct Section {
  std::size_t Marker;        ///< slice of its start marker
  std::size_t Next;          ///< slice of the next, or the number of slices
  std::uint32_t BytesAhead;  ///< received since the marker before
  bool IsGood;               ///< BytesAhead are a frame
  bool IsSettling;           ///< its marker closed nothing
  bool IsStored;             ///< its packets are kept
  bool IsWhole;              ///< kept to the end: no stream start in between
  HandedFrame Frame;         ///< its bytes, as many as fit
};

class Prediction {
 public:
  explicit Prediction(const RecordedStream& stream) : stream_(stream), flat_(Flatten(stream)) {
    FindSections();
    for (Section& section : sections_) Store(section);
  }

  StreamOutcome Outcome() {
    for (std::size_t i = 0; i < sections_.size(); ++i) Close(i);
    AddCounters();
    return std::move(outcome_);
  }

 private:
  void FindSections() {
    const std::size_t count = flat_.Slices.size();
    for (std::size_t i = 0; i < count; ++i) {
      const Slice& slice = flat_.Slices[i];
      if (flat_.Bytes[slice.Begin] != 0xFF || slice.SecondByte != 0xD8) continue;
      if (!sections_.empty()) sections_.back().Next = i;
      sections_.push_back(Judge(i));
      sections_.back().Next = count;
    }
  }

  Section Judge(std::size_t marker) const {
    Section section{};
    section.Marker = marker;
    std::size_t ahead = flat_.Slices[marker].Begin;
    std::optional<std::size_t> before;
    if (sections_.empty()) {
      ahead += stream_.ReceivedFrameBytes;
    } else {
      before = sections_.back().Marker;
      ahead -= flat_.Slices[*before].Begin;
    }
    section.BytesAhead = static_cast<std::uint32_t>(ahead);
    section.IsGood = stream_.RawFrameSize >= 10 && ahead + 10 >= stream_.RawFrameSize &&
                     ahead <= std::size_t{stream_.RawFrameSize} + 10;
    section.IsSettling = HasPlaceWithin(flat_.Settlings, before, marker) ||
                         (!before && stream_.FrameSettleCount == 0);
    section.IsStored = section.IsGood && !section.IsSettling;
    return section;
  }

  void Store(Section& section) const {
    if (!section.IsStored) return;
    section.IsWhole = !HasPlaceWithin(flat_.Starts, section.Marker, section.Next);
    HandedFrame& frame = section.Frame;
    for (std::size_t i = section.Marker; i < section.Next; ++i) {
      if (i > section.Marker && HasPlaceWithin(flat_.Starts, section.Marker, i)) return;
      const Slice& slice = flat_.Slices[i];
      const std::size_t length = slice.End - slice.Begin;
      const bool fits = frame.Stored.size() + length <= stream_.RawBufferSize;
      if (fits || i == section.Marker) frame.Size += static_cast<std::uint32_t>(length);
      if (!fits) continue;
      const auto from = flat_.Bytes.begin() + static_cast<std::ptrdiff_t>(slice.Begin);
      frame.Stored.insert(frame.Stored.end(), from, from + static_cast<std::ptrdiff_t>(length));
    }
  }

  /// Whether the marker of section `index` finishes a frame that can be shown.
  [[nodiscard]] bool Finishes(std::size_t index) const {
    return index > 0 && !sections_[index].IsSettling && sections_[index - 1].IsStored &&
           sections_[index - 1].IsWhole;
  }

  void Close(std::size_t index) {
    const Section& section = sections_[index];
    if (!section.IsGood) {
      outcome_.Events.push_back("ReceivedRawFrameBuffer = " + std::to_string(section.BytesAhead));
      outcome_.Events.push_back("Correct RawFrameBuffer = " + std::to_string(stream_.RawFrameSize));
    }
    if (Finishes(index)) Hand(sections_[index - 1].Frame);
  }

  void Hand(HandedFrame frame) {
    if (stream_.Busy[finished_++ % stream_.Busy.size()]) {
      outcome_.Events.emplace_back("busy");
      return;
    }
    frame.Half = outcome_.Frames.size() % 2 == 0 ? 1 : 0;
    outcome_.Events.push_back("publish");
    if (stream_.Running) outcome_.Events.push_back("wake");
    outcome_.Frames.push_back(std::move(frame));
  }

  void AddCounters() {
    const std::size_t slices = flat_.Slices.size();
    const std::size_t from = sections_.empty() ? 0 : sections_.back().Marker;
    outcome_.FrameStartCount = static_cast<std::uint32_t>(sections_.size());
    outcome_.FramePacketCount = static_cast<std::uint32_t>(slices - from);
    const std::size_t begin = slices == 0 ? 0 : flat_.Slices[from].Begin;
    outcome_.ReceivedFrameBytes = static_cast<std::uint32_t>(flat_.Bytes.size() - begin);
    if (sections_.empty()) outcome_.ReceivedFrameBytes += stream_.ReceivedFrameBytes;
    outcome_.FrameSettleCount = SettleCountAtEnd();
    outcome_.DiscardFrame =
        sections_.empty() || !sections_.back().IsStored || !sections_.back().IsWhole;
    for (std::size_t i = 0; i < sections_.size(); ++i) {
      if (Finishes(i)) outcome_.FillOffset = 0;
      if (!sections_[i].IsStored) continue;
      outcome_.FillOffset = static_cast<std::uint32_t>(sections_[i].Frame.Stored.size());
      outcome_.FillFrameBytes = sections_[i].Frame.Size;
    }
  }

  [[nodiscard]] std::uint32_t SettleCountAtEnd() const {
    const std::size_t asked = flat_.Settlings.empty() ? 0 : flat_.Settlings.back();
    const auto markers = std::count_if(sections_.begin(), sections_.end(),
                                       [asked](const Section& s) { return s.Marker >= asked; });
    const bool wasAsked = !flat_.Settlings.empty() || stream_.FrameSettleCount == 0;
    if (!wasAsked) return markers > 0 ? 5 : stream_.FrameSettleCount;
    return markers == 0 ? 0 : (markers == 1 ? 4 : 5);
  }

  const RecordedStream& stream_;
  FlatStream flat_;
  std::vector<Section> sections_;
  std::size_t finished_ = 0;
  StreamOutcome outcome_;
};

}  // namespace

StreamOutcome PredictStream(const RecordedStream& stream) {
  return Prediction(stream).Outcome();
}

}  // namespace lidcam::test
