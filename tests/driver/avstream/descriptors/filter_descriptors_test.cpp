#include "driver/avstream/descriptors/filter_descriptors.h"

#include <gtest/gtest.h>

#include <cstring>

#include "driver/avstream/properties/property_sets.h"
#include "tests/driver/avstream/descriptors/guid_text.h"

namespace lidcam::test {
namespace {

constexpr ULONG By(ULONG on32Bits, ULONG on64Bits) {
  return sizeof(void*) == 4 ? on32Bits : on64Bits;
}

// Entries that are only compared, and never called.
NTSTATUS NTAPI CreateFilter(PKSFILTER, PIRP) {
  return STATUS_SUCCESS;
}
NTSTATUS NTAPI CreatePin(PKSPIN, PIRP) {
  return STATUS_SUCCESS;
}
NTSTATUS NTAPI ProcessPin(PKSPIN) {
  return STATUS_SUCCESS;
}
NTSTATUS NTAPI SetPinFormat(PKSPIN, PKSDATAFORMAT, PKSMULTIPLE_ITEM, const KSDATARANGE*,
                            const KSATTRIBUTE_LIST*) {
  return STATUS_SUCCESS;
}
NTSTATUS NTAPI SetPinState(PKSPIN, KSSTATE, KSSTATE) {
  return STATUS_SUCCESS;
}
NTSTATUS NTAPI GetProperty(PIRP, PKSIDENTIFIER, PVOID) {
  return STATUS_SUCCESS;
}
NTSTATUS NTAPI SetProperty(PIRP, PKSIDENTIFIER, PVOID) {
  return STATUS_NOT_SUPPORTED;
}
NTSTATUS NTAPI AddEvent(PIRP, PKSEVENTDATA, KSEVENT_ENTRY*) {
  return STATUS_NOT_SUPPORTED;
}
NTSTATUS NTAPI Intersect(PVOID, PIRP, PKSP_PIN, PKSDATARANGE, PKSDATARANGE, ULONG, PVOID, PULONG) {
  return STATUS_SUCCESS;
}

constexpr KSDEVICE_DISPATCH kDeviceEntries{};
constexpr KSFILTER_DISPATCH kFilterEntries = FilterDispatchOf(CreateFilter);
constinit const CameraPropertySets kSets{GetProperty, SetProperty};
constexpr KSPIN_DISPATCH kPinDispatch =
    PinDispatchOf(CreatePin, ProcessPin, SetPinFormat, SetPinState);
constinit const PinAutomation kPinAutomation{GetProperty, AddEvent};

// Filled over old bytes, so that a field which is not written shows.
template <class Descriptor>
Descriptor OldBytes() {
  Descriptor descriptor;
  std::memset(&descriptor, 0xA5, sizeof(descriptor));
  return descriptor;
}

TEST(DeviceDescriptor, NamesNoFilterBecauseTheFactoryComesWithTheStart) {
  const KSDEVICE_DESCRIPTOR descriptor = DeviceDescriptorOf(kDeviceEntries);
  EXPECT_EQ(descriptor.Dispatch, &kDeviceEntries);
  EXPECT_EQ(descriptor.FilterDescriptorsCount, 0U);
  EXPECT_EQ(descriptor.FilterDescriptors, nullptr);
  EXPECT_EQ(descriptor.Version, 0x100U);
}

TEST(FilterDescriptor, OfTheFiltersEntriesOnlyCreateIsSet) {
  EXPECT_EQ(kFilterEntries.Create, &CreateFilter);
  EXPECT_EQ(kFilterEntries.Close, nullptr);
  EXPECT_EQ(kFilterEntries.Process, nullptr);
  EXPECT_EQ(kFilterEntries.Reset, nullptr);
}

TEST(FilterDescriptor, AutomationHasFourPropertySetsAndNeitherMethodsNorEvents) {
  const KSAUTOMATION_TABLE table = FilterAutomationOf(kSets.Sets);
  EXPECT_EQ(table.PropertySetsCount, 4U);
  EXPECT_EQ(table.PropertyItemSize, By(40, 72));
  EXPECT_EQ(table.PropertySets, kSets.Sets);
  EXPECT_EQ(table.MethodSetsCount, 0U);
  EXPECT_EQ(table.MethodItemSize, By(24, 40));
  EXPECT_EQ(table.MethodSets, nullptr);
  EXPECT_EQ(table.EventSetsCount, 0U);
  EXPECT_EQ(table.EventItemSize, By(24, 40));
  EXPECT_EQ(table.EventSets, nullptr);
}

TEST(FilterDescriptor, EveryFieldStandsAsTabled) {
  const KSAUTOMATION_TABLE automation = FilterAutomationOf(kSets.Sets);
  auto descriptor = OldBytes<KSFILTER_DESCRIPTOR>();
  FillFilterDescriptor(kFilterEntries, automation, descriptor);
  EXPECT_EQ(descriptor.Dispatch, &kFilterEntries);
  EXPECT_EQ(descriptor.AutomationTable, &automation);
  EXPECT_EQ(descriptor.Version, 0xFFFFFFFFU);
  EXPECT_EQ(descriptor.Flags, 0U);
  EXPECT_EQ(Text(*descriptor.ReferenceGuid), "86D5B265-6B04-4838-ADAE-9718707A7BDC");
  EXPECT_EQ(descriptor.PinDescriptorsCount, 0U);
  EXPECT_EQ(descriptor.PinDescriptorSize, By(80, 136));
  EXPECT_EQ(descriptor.PinDescriptors, nullptr);
  ASSERT_EQ(descriptor.CategoriesCount, 2U);
  EXPECT_EQ(Text(descriptor.Categories[0]), "6994AD05-93EF-11D0-A3CC-00A0C9223196");  // video
  EXPECT_EQ(Text(descriptor.Categories[1]), "65E8773D-8F56-11D0-A3B9-00A0C9223196");  // capture
  EXPECT_EQ(descriptor.NodeDescriptorSize, By(16, 24));
  EXPECT_EQ(descriptor.ComponentId, nullptr);
}

TEST(FilterDescriptor, AFilterHasNoNodesAndNoConnections) {
  const KSAUTOMATION_TABLE automation{};
  auto descriptor = OldBytes<KSFILTER_DESCRIPTOR>();
  FillFilterDescriptor(kFilterEntries, automation, descriptor);
  EXPECT_EQ(descriptor.NodeDescriptorsCount, 0U);
  EXPECT_EQ(descriptor.NodeDescriptors, nullptr);
  EXPECT_EQ(descriptor.ConnectionsCount, 0U);
  EXPECT_EQ(descriptor.Connections, nullptr);
}

TEST(PinDescriptor, ThePinBringsNeitherAClockNorAnAllocator) {
  EXPECT_EQ(kPinDispatch.Create, &CreatePin);
  EXPECT_EQ(kPinDispatch.Close, nullptr);
  EXPECT_EQ(kPinDispatch.Process, &ProcessPin);
  EXPECT_EQ(kPinDispatch.Reset, nullptr);
  EXPECT_EQ(kPinDispatch.SetDataFormat, &SetPinFormat);
  EXPECT_EQ(kPinDispatch.SetDeviceState, &SetPinState);
  EXPECT_EQ(kPinDispatch.Connect, nullptr);
  EXPECT_EQ(kPinDispatch.Disconnect, nullptr);
  EXPECT_EQ(kPinDispatch.Clock, nullptr);
  EXPECT_EQ(kPinDispatch.Allocator, nullptr);
}

TEST(PinDescriptor, AutomationHasOnePropertySetAndOneEventSet) {
  const KSAUTOMATION_TABLE& table = kPinAutomation.Table;
  EXPECT_EQ(table.PropertySetsCount, 1U);
  EXPECT_EQ(table.PropertyItemSize, By(40, 72));
  EXPECT_EQ(table.PropertySets, kPinAutomation.PropertySets);
  EXPECT_EQ(table.MethodSetsCount, 0U);
  EXPECT_EQ(table.MethodItemSize, By(24, 40));
  EXPECT_EQ(table.MethodSets, nullptr);
  EXPECT_EQ(table.EventSetsCount, 1U);
  EXPECT_EQ(table.EventItemSize, By(24, 40));
  EXPECT_EQ(table.EventSets, kPinAutomation.EventSets);
}

TEST(PinDescriptor, DroppedFramesCanBeReadAndNotSet) {
  const KSPROPERTY_SET& set = kPinAutomation.Table.PropertySets[0];
  EXPECT_EQ(Text(*set.Set), "C6E13344-30AC-11D0-A18C-00A0C9118956");
  ASSERT_EQ(set.PropertiesCount, 1U);
  EXPECT_EQ(set.FastIoCount, 0U);
  EXPECT_EQ(set.FastIoTable, nullptr);
  const KSPROPERTY_ITEM& item = set.PropertyItem[0];
  EXPECT_EQ(item.PropertyId, 0U);
  EXPECT_EQ(item.GetPropertyHandler, &GetProperty);
  EXPECT_EQ(item.MinProperty, 48U);
  EXPECT_EQ(item.MinData, 48U);
  EXPECT_EQ(item.SetPropertyHandler, nullptr);
  EXPECT_EQ(item.Values, nullptr);
  EXPECT_EQ(item.RelationsCount, 0U);
  EXPECT_EQ(item.Relations, nullptr);
  EXPECT_EQ(item.SupportHandler, nullptr);
  EXPECT_EQ(item.SerializedSize, 0U);
}

TEST(PinDescriptor, TheStillTriggerEventIsListedThoughItCannotBeEnabled) {
  const KSEVENT_SET& set = kPinAutomation.Table.EventSets[0];
  EXPECT_EQ(Text(*set.Set), "DB47DE20-F628-11D1-BA41-00A0C90D2B05");
  ASSERT_EQ(set.EventsCount, 1U);
  const KSEVENT_ITEM& item = set.EventItem[0];
  EXPECT_EQ(item.EventId, 0U);
  EXPECT_EQ(item.DataInput, By(16, 32));
  EXPECT_EQ(item.ExtraEntryData, 0U);
  EXPECT_EQ(item.AddHandler, &AddEvent);
  EXPECT_EQ(item.RemoveHandler, nullptr);
  EXPECT_EQ(item.SupportHandler, nullptr);
}

TEST(PinDescriptor, EveryFieldStandsAsTabled) {
  auto descriptor = OldBytes<KSPIN_DESCRIPTOR_EX>();
  FillPinDescriptor({&kPinDispatch, &kPinAutomation.Table, Intersect}, 0, 5, descriptor);
  EXPECT_EQ(descriptor.Dispatch, &kPinDispatch);
  EXPECT_EQ(descriptor.AutomationTable, &kPinAutomation.Table);

  const KSPIN_DESCRIPTOR& pin = descriptor.PinDescriptor;
  ASSERT_EQ(pin.InterfacesCount, 1U);
  EXPECT_EQ(Text(pin.Interfaces[0].Set), "1A8766A0-62CE-11CF-A5D6-28DB04C10000");
  EXPECT_EQ(pin.Interfaces[0].Id, 0U);
  EXPECT_EQ(pin.Interfaces[0].Flags, 0U);
  ASSERT_EQ(pin.MediumsCount, 1U);
  EXPECT_EQ(Text(pin.Mediums[0].Set), "4747B320-62CE-11CF-A5D6-28DB04C10000");
  EXPECT_EQ(pin.Mediums[0].Id, 0U);
  EXPECT_EQ(pin.Mediums[0].Flags, 0U);
  EXPECT_EQ(pin.DataRangesCount, 5U);
  EXPECT_EQ(pin.DataRanges, CameraFormatList[0]);
  EXPECT_EQ(static_cast<int>(pin.DataFlow), 2);
  EXPECT_EQ(static_cast<int>(pin.Communication), 3);
  EXPECT_EQ(Text(*pin.Category), "FB6C4281-0353-11D1-905F-0000C0CC16BA");
  EXPECT_EQ(Text(*pin.Name), "FB6C4281-0353-11D1-905F-0000C0CC16BA");
  EXPECT_EQ(pin.ConstrainedDataRangesCount, 5U);
  EXPECT_EQ(pin.ConstrainedDataRanges, CameraFormatList[0]);

  EXPECT_EQ(descriptor.Flags, 0x50011U);
  EXPECT_EQ(descriptor.InstancesPossible, 1U);
  EXPECT_EQ(descriptor.InstancesNecessary, 1U);
  EXPECT_EQ(descriptor.AllocatorFraming, &kPinFraming);
  EXPECT_EQ(descriptor.IntersectHandler, &Intersect);
}

TEST(PinDescriptor, TheSecondListIsOfferedWithItsOneFormat) {
  auto descriptor = OldBytes<KSPIN_DESCRIPTOR_EX>();
  FillPinDescriptor({}, 1, 1, descriptor);
  EXPECT_EQ(descriptor.PinDescriptor.DataRangesCount, 1U);
  EXPECT_EQ(descriptor.PinDescriptor.DataRanges, CameraFormatList[1]);
  EXPECT_EQ(descriptor.PinDescriptor.ConstrainedDataRangesCount, 1U);
  EXPECT_EQ(descriptor.PinDescriptor.ConstrainedDataRanges, CameraFormatList[1]);
}

TEST(PinDescriptor, WithoutUsbRecordsThePinOffersNoFormat) {
  auto descriptor = OldBytes<KSPIN_DESCRIPTOR_EX>();
  FillPinDescriptor({}, 0, 0, descriptor);
  EXPECT_EQ(descriptor.PinDescriptor.DataRangesCount, 0U);
  EXPECT_EQ(descriptor.PinDescriptor.ConstrainedDataRangesCount, 0U);
}

// All but the frames and the two ranges, which differ between the two forms.
void ExpectSharedFramingFields(const KSALLOCATOR_FRAMING_EX& framing) {
  EXPECT_EQ(framing.CountItems, 1U);
  EXPECT_EQ(framing.PinFlags, 0U);
  EXPECT_EQ(framing.OutputCompression.RatioNumerator, 1U);
  EXPECT_EQ(framing.OutputCompression.RatioDenominator, 1U);
  EXPECT_EQ(framing.OutputCompression.RatioConstantMargin, 0U);
  EXPECT_EQ(framing.PinWeight, 0U);
  const KS_FRAMING_ITEM& item = framing.FramingItem[0];
  EXPECT_EQ(Text(item.MemoryType), "4A6D5FC4-7895-11D1-B069-00A0C9062802");
  EXPECT_EQ(Text(item.BusType), "00000000-0000-0000-0000-000000000000");
  EXPECT_EQ(item.MemoryFlags, 0U);
  EXPECT_EQ(item.BusFlags, 0U);
  EXPECT_EQ(item.Flags, 0x80000002U);
  EXPECT_EQ(item.FileAlignment, 0U);
  EXPECT_EQ(item.MemoryTypeWeight, 0U);
  EXPECT_EQ(item.FramingRange.InPlaceWeight, 0U);
  EXPECT_EQ(item.FramingRange.NotInPlaceWeight, 0U);
}

void ExpectRange(const KS_FRAMING_RANGE& range, ULONG minimum, ULONG maximum, ULONG stepping) {
  EXPECT_EQ(range.MinFrameSize, minimum);
  EXPECT_EQ(range.MaxFrameSize, maximum);
  EXPECT_EQ(range.Stepping, stepping);
}

TEST(PinFraming, EveryFieldOfTheConstantFormStandsAsTabled) {
  ExpectSharedFramingFields(kPinFraming);
  EXPECT_EQ(kPinFraming.FramingItem[0].Frames, 2U);
  ExpectRange(kPinFraming.FramingItem[0].PhysicalRange, 0, 0xFFFFFFFF, 1);
  ExpectRange(kPinFraming.FramingItem[0].FramingRange.Range, 0x2000, 0x2000, 1);
}

class FittedFraming : public testing::TestWithParam<std::uint32_t> {};

TEST_P(FittedFraming, AConnectedPinReadsFiveFramesOfTheImageSizeAndTheConstantFormStaysTwo) {
  KSALLOCATOR_FRAMING_EX own = kPinFraming;
  FitFraming(GetParam(), own);
  ExpectSharedFramingFields(own);
  EXPECT_EQ(own.FramingItem[0].Frames, 5U);
  ExpectRange(own.FramingItem[0].PhysicalRange, GetParam(), GetParam(), 0);
  ExpectRange(own.FramingItem[0].FramingRange.Range, GetParam(), GetParam(), 0);
  EXPECT_EQ(kPinFraming.FramingItem[0].Frames, 2U);
}

INSTANTIATE_TEST_SUITE_P(ImageSizes, FittedFraming,
                         testing::Values(614400U, 202752U, 153600U, 50688U, 38400U));

}  // namespace
}  // namespace lidcam::test
