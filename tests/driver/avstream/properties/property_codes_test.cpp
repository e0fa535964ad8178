// Controls, the properties of clients for them, and their names on the command line.

#include "driver/avstream/properties/property_codes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "driver/core/control/control_codes.h"
#include "driver/core/settings/settings_store.h"

namespace lidcam::test {
namespace {

using ::testing::UnorderedElementsAre;

std::vector<std::uint32_t> CodesWithoutAControl(ControlCode PropertyCode::*direction) {
  std::vector<std::uint32_t> codes;
  for (const PropertyCodes& set : kPropertyCodes) {
    for (const PropertyCode& property : set.Codes) {
      const ControlCode code = property.*direction;
      if (code != kRefusedCode && FindControl(code) == nullptr) {
        codes.push_back(static_cast<std::uint32_t>(code));
      }
    }
  }
  return codes;
}

TEST(PropertyCodes, PanTiltZoomIrisFocusAndTwoSetsHaveNoControl) {
  EXPECT_THAT(CodesWithoutAControl(&PropertyCode::GetCode),
              UnorderedElementsAre(10, 10, 11, 16, 17));
  EXPECT_THAT(CodesWithoutAControl(&PropertyCode::SetCode),
              UnorderedElementsAre(10, 10, 11, 16, 17, 48, 48));
}

TEST(PropertyCodes, EveryControlWithANameHasAPropertyOfItsOwn) {
  std::set<std::pair<const GUID*, ULONG>> properties;
  for (const Control& control : kControls) {
    if (std::string(control.Name).empty()) continue;
    const PropertyName property = PropertyOf(control.Code);
    EXPECT_NE(property.Set, nullptr) << control.Name;
    EXPECT_TRUE(properties.insert({property.Set, property.Id}).second) << control.Name;
  }
  EXPECT_EQ(properties.size(), 14U);
  EXPECT_EQ(PropertyOf(ControlCode::WhiteBalance).Set, nullptr);
}

TEST(PropertyCodes, AControlThatIsStoredHasTheNameOfItsSettingButForTheBacklight) {
  for (const Control& control : kControls) {
    for (const LoadedSetting& setting : kLoadedSettings) {
      if (!(setting.Field == control.Field) || std::string(control.Name).empty()) continue;
      const std::u16string stored(setting.Name);
      const std::string name(stored.begin(), stored.end());
      EXPECT_EQ(name, control.Code == ControlCode::BackLight ? "BackLight" : control.Name);
    }
  }
}

TEST(ControlTable, HasEachCodeOnceAndInOrder) {
  std::uint32_t last = 0;
  for (const Control& control : kControls) {
    const auto code = static_cast<std::uint32_t>(control.Code);
    EXPECT_TRUE(code > last || &control == kControls) << code;
    last = code;
  }
  EXPECT_EQ(std::size(kControls), 28U);
}

}  // namespace
}  // namespace lidcam::test
