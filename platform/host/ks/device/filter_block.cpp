#include "platform/host/ks/device/filter_factory.h"
#include "platform/host/ks/device/ks_objects.h"

namespace lidcam::host {

void ReferenceFilter(FilterBlock& filter) {
  InterlockedIncrement(&filter.References);
}

void ReleaseFilter(FilterBlock& filter) {
  if (InterlockedDecrement(&filter.References) != 0) return;
  DestroyObjectBag(filter.Items);
  while (IsListEmpty(&filter.PinFactories) == FALSE) {
    ExFreePool(CONTAINING_RECORD(RemoveHeadList(&filter.PinFactories), PinFactoryBlock, Link));
  }
  FilterFactoryBlock& factory = *filter.Factory;
  ExFreePool(&filter);
  ReleaseFactory(factory);
}

PinFactoryBlock* FindPinFactory(FilterBlock& filter, ULONG pinId) {
  LIST_ENTRY* const end = &filter.PinFactories;
  for (LIST_ENTRY* link = end->Flink; link != end; link = link->Flink) {
    auto* const factory = CONTAINING_RECORD(link, PinFactoryBlock, Link);
    if (factory->Id == pinId) return factory;
  }
  return nullptr;
}

}  // namespace lidcam::host
