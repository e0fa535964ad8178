#include "platform/host/nt/verifier/address_map.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "base/split_mix.h"

namespace lidcam::host {
namespace {

TEST(AddressMap, HasNoRecordOfAnUnknownAddress) {
  AddressMap<int> records;
  const int object = 0;
  EXPECT_EQ(records.Find(&object), nullptr);
  EXPECT_EQ(records.Find(nullptr), nullptr);
  EXPECT_FALSE(records.Erase(&object));
}

TEST(AddressMap, ForgetsARecordThatWasFoundBefore) {
  AddressMap<int> records;
  const int object = 0;
  records.At(&object) = 1;
  ASSERT_NE(records.Find(&object), nullptr);
  EXPECT_TRUE(records.Erase(&object));
  EXPECT_EQ(records.Find(&object), nullptr);
}

// More addresses than are found again without a search.
TEST(AddressMap, AgreesWithAMapOverRandomOperations) {
  std::vector<long long> objects(2000);
  base::SplitMix random(7);
  AddressMap<int> records;
  std::map<const void*, int> model;
  for (int i = 0; i < 100'000; ++i) {
    const void* const object = &objects.at(random.Next() % objects.size());
    switch (random.Next() % 8) {
      case 0:
      case 1:
        model[object] = records.At(object) = i;
        break;
      case 2:
        ASSERT_EQ(records.Erase(object), model.erase(object) != 0);
        break;
      case 3: {
        const auto from = records.From(object);
        const auto wanted = model.lower_bound(object);
        ASSERT_EQ(from == records.end(), wanted == model.end());
        if (wanted == model.end()) break;
        ASSERT_EQ(from->first, wanted->first);
        records.Erase(from);
        model.erase(wanted);
        break;
      }
      default: {
        const int* const found = records.Find(object);
        const auto wanted = model.find(object);
        ASSERT_EQ(found != nullptr, wanted != model.end());
        if (found != nullptr) {
          ASSERT_EQ(*found, wanted->second);
        }
      }
    }
  }
  const auto isOdd = [](int value) { return value % 2 != 0; };
  records.EraseIf(isOdd);
  std::erase_if(model, [&](const auto& entry) { return isOdd(entry.second); });
  for (const long long& object : objects) {
    ASSERT_EQ(records.Find(&object) != nullptr, model.contains(&object));
  }
}

}  // namespace
}  // namespace lidcam::host
