#include "driver/avstream/descriptors/filter_descriptors.h"

namespace lidcam {
namespace {

// The camera's own name for its filter.
constexpr GUID kFilterReference =
    GuidOf(0x86D5B265, 0x6B04, 0x4838, 0xAD, 0xAE, 0x97, 0x18, 0x70, 0x7A, 0x7B, 0xDC);

constexpr GUID kFilterCategories[] = {GuidOf(STATIC_KSCATEGORY_VIDEO),
                                      GuidOf(STATIC_KSCATEGORY_CAPTURE)};

constexpr GUID kPinCategory = GuidOf(STATIC_PINNAME_VIDEO_CAPTURE);
constexpr GUID kVideoInfoSpecifier = GuidOf(STATIC_KSDATAFORMAT_SPECIFIER_VIDEOINFO);

constexpr KSIDENTIFIER FirstOf(const GUID& set) {
  KSIDENTIFIER identifier{};
  identifier.Set = set;
  identifier.Id = 0;
  identifier.Flags = 0;
  return identifier;
}

constexpr KSPIN_INTERFACE kPinInterfaces[] = {FirstOf(GuidOf(STATIC_KSINTERFACESETID_Standard))};
constexpr KSPIN_MEDIUM kPinMediums[] = {FirstOf(GuidOf(STATIC_KSMEDIUMSETID_Standard))};

constexpr ULONG kPinFlags =
    KSPIN_FLAG_DISPATCH_LEVEL_PROCESSING | KSPIN_FLAG_DO_NOT_INITIATE_PROCESSING |
    KSPIN_FLAG_PROCESS_IN_RUN_STATE_ONLY | KSPIN_FLAG_USE_STANDARD_TRANSPORT;

constexpr ULONG kYuy2Code = 0x32595559;  // "YUY2"
constexpr WORD kBitsPerPixel = 16;

// The frame rates that a format claims. The actual ones depend on the stream mode.
constexpr LONG kSlowestRate = 1;  // frames a second
constexpr LONG kUsualRate = 30;
constexpr LONG kFastestRate = 100;
constexpr LONGLONG kShortestInterval = 100'000;    // 100 ns
constexpr LONGLONG kUsualInterval = 333'333;       // 100 ns
constexpr LONGLONG kLongestInterval = 10'000'000;  // 100 ns

constexpr KSDATARANGE Yuy2Range(ULONG imageSize) {
  KSDATARANGE range{};
  range.FormatSize = sizeof(KS_DATARANGE_VIDEO);
  range.Flags = 0;
  range.SampleSize = imageSize;
  range.Reserved = 0;
  range.MajorFormat = GuidOf(STATIC_KSDATAFORMAT_TYPE_VIDEO);
  range.SubFormat = kYuy2Subtype;
  range.Specifier = kVideoInfoSpecifier;
  return range;
}

// A format is one size: nothing is cropped or scaled inside it.
constexpr KS_VIDEO_STREAM_CONFIG_CAPS OneSize(LONG width, LONG height) {
  const LONG bitsPerFrame = width * height * kBitsPerPixel;
  KS_VIDEO_STREAM_CONFIG_CAPS caps{};
  caps.guid = kVideoInfoSpecifier;
  caps.InputSize = {width, height};
  caps.MinCroppingSize = {width, height};
  caps.MaxCroppingSize = {width, height};
  caps.CropGranularityX = 1;
  caps.CropGranularityY = 1;
  caps.CropAlignX = 1;
  caps.CropAlignY = 1;
  caps.MinOutputSize = {width, height};
  caps.MaxOutputSize = {width, height};
  caps.OutputGranularityX = 1;
  caps.OutputGranularityY = 1;
  caps.MinFrameInterval = kShortestInterval;
  caps.MaxFrameInterval = kLongestInterval;
  caps.MinBitsPerSecond = bitsPerFrame * kSlowestRate;
  caps.MaxBitsPerSecond = bitsPerFrame * kFastestRate;
  return caps;
}

constexpr KS_VIDEOINFOHEADER Yuy2Header(LONG width, LONG height, ULONG imageSize) {
  KS_VIDEOINFOHEADER header{};
  header.dwBitRate = imageSize * 8 * kUsualRate;
  header.AvgTimePerFrame = kUsualInterval;
  header.bmiHeader.biSize = sizeof(KS_BITMAPINFOHEADER);
  header.bmiHeader.biWidth = width;
  header.bmiHeader.biHeight = height;
  header.bmiHeader.biPlanes = 1;
  header.bmiHeader.biBitCount = kBitsPerPixel;
  header.bmiHeader.biCompression = kYuy2Code;
  header.bmiHeader.biSizeImage = imageSize;
  return header;
}

constexpr KS_DATARANGE_VIDEO Yuy2Format(LONG width, LONG height) {
  const ULONG imageSize = static_cast<ULONG>(width * height) * kBitsPerPixel / 8;
  KS_DATARANGE_VIDEO format{};
  format.DataRange = Yuy2Range(imageSize);
  format.bFixedSizeSamples = 1;
  // Set although nothing is compressed over time: the intersection compares the word, and existing
  // clients of this camera have it set.
  format.bTemporalCompression = 1;
  format.StreamDescriptionFlags = KS_VIDEOSTREAM_CAPTURE;
  format.ConfigCaps = OneSize(width, height);
  format.VideoInfoHeader = Yuy2Header(width, height, imageSize);
  return format;
}

constexpr KS_DATARANGE_VIDEO kVgaFormat = Yuy2Format(640, 480);
constexpr KS_DATARANGE_VIDEO kCifFormat = Yuy2Format(352, 288);
constexpr KS_DATARANGE_VIDEO kQvgaFormat = Yuy2Format(320, 240);
constexpr KS_DATARANGE_VIDEO kQcifFormat = Yuy2Format(176, 144);
constexpr KS_DATARANGE_VIDEO kQqvgaFormat = Yuy2Format(160, 120);

// The platform declares the lists as writable and writes nothing.
constexpr PKSDATARANGE RangeOf(const KS_DATARANGE_VIDEO& format) {
  return const_cast<PKSDATARANGE>(&format.DataRange);
}

constexpr PKSDATARANGE kFiveFormats[17] = {RangeOf(kVgaFormat), RangeOf(kCifFormat),
                                           RangeOf(kQvgaFormat), RangeOf(kQcifFormat),
                                           RangeOf(kQqvgaFormat)};
constexpr PKSDATARANGE kVgaOnly[] = {RangeOf(kVgaFormat)};

constexpr ULONG kBuffers = 5;

}  // namespace

constinit const PKSDATARANGE* const CameraFormatList[2] = {kFiveFormats, kVgaOnly};

constinit const KSALLOCATOR_FRAMING_EX kPinFraming = {
    1,          // CountItems
    0,          // PinFlags
    {1, 1, 0},  // OutputCompression: none
    0,          // PinWeight
    {{
        GuidOf(STATIC_KSMEMORY_TYPE_KERNEL_NONPAGED),
        {},  // BusType
        0,   // MemoryFlags
        0,   // BusFlags
        KSALLOCATOR_REQUIREMENTF_SYSTEM_MEMORY | KSALLOCATOR_REQUIREMENTF_PREFERENCES_ONLY,
        2,                           // Frames
        0,                           // FileAlignment
        0,                           // MemoryTypeWeight
        {0, 0xFFFFFFFF, 1},          // PhysicalRange
        {{0x2000, 0x2000, 1}, 0, 0}  // FramingRange
    }}};

void FillFilterDescriptor(const KSFILTER_DISPATCH& dispatch, const KSAUTOMATION_TABLE& automation,
                          KSFILTER_DESCRIPTOR& descriptor) {
  descriptor.Dispatch = &dispatch;
  descriptor.AutomationTable = &automation;
  descriptor.Version = KSFILTER_DESCRIPTOR_VERSION;
  descriptor.Flags = 0;
  descriptor.ReferenceGuid = &kFilterReference;
  descriptor.PinDescriptorsCount = 0;
  descriptor.PinDescriptorSize = sizeof(KSPIN_DESCRIPTOR_EX);
  descriptor.PinDescriptors = nullptr;
  descriptor.CategoriesCount = 2;
  descriptor.Categories = kFilterCategories;
  descriptor.NodeDescriptorsCount = 0;
  descriptor.NodeDescriptorSize = sizeof(KSNODE_DESCRIPTOR);
  descriptor.NodeDescriptors = nullptr;
  descriptor.ConnectionsCount = 0;
  descriptor.Connections = nullptr;
  descriptor.ComponentId = nullptr;
}

void FitFraming(std::uint32_t imageSize, KSALLOCATOR_FRAMING_EX& framing) {
  KS_FRAMING_ITEM& item = framing.FramingItem[0];
  item.Frames = kBuffers;
  item.PhysicalRange = {imageSize, imageSize, 0};
  item.FramingRange.Range = {imageSize, imageSize, 0};
}

void FillPinDescriptor(const PinEntries& entries, std::int32_t formatList, std::int32_t formatCount,
                       KSPIN_DESCRIPTOR_EX& descriptor) {
  const PKSDATARANGE* const formats = CameraFormatList[formatList];
  const auto count = static_cast<ULONG>(formatCount);
  descriptor.Dispatch = entries.Dispatch;
  descriptor.AutomationTable = entries.AutomationTable;
  KSPIN_DESCRIPTOR& pin = descriptor.PinDescriptor;
  pin.InterfacesCount = 1;
  pin.Interfaces = kPinInterfaces;
  pin.MediumsCount = 1;
  pin.Mediums = kPinMediums;
  pin.DataRangesCount = count;
  pin.DataRanges = formats;
  pin.DataFlow = KSPIN_DATAFLOW_OUT;
  pin.Communication = KSPIN_COMMUNICATION_BOTH;
  pin.Category = &kPinCategory;
  pin.Name = &kPinCategory;
  pin.ConstrainedDataRangesCount = count;
  pin.ConstrainedDataRanges = const_cast<PKSDATARANGE*>(formats);
  descriptor.Flags = kPinFlags;
  descriptor.InstancesPossible = 1;
  descriptor.InstancesNecessary = 1;
  descriptor.AllocatorFraming = &kPinFraming;
  descriptor.IntersectHandler = entries.IntersectHandler;
}

}  // namespace lidcam
