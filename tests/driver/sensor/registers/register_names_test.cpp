// docs/hardware.md and the driver's register names list the same registers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/base/pattern.h"

namespace lidcam::test {
namespace {

std::string ReadText(const std::string& path) {
  std::ifstream file(std::string(LIDCAM_SOURCE_ROOT) + "/" + path);
  EXPECT_TRUE(file.is_open()) << path;
  return {std::istreambuf_iterator<char>(file), {}};
}

// The text between two headings or lines.
std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
  const std::size_t from = text.find(begin);
  const std::size_t to = text.find(end, from + begin.size());
  EXPECT_NE(from, std::string::npos) << begin;
  EXPECT_NE(to, std::string::npos) << end;
  return text.substr(from, to - from);
}

std::vector<std::string> AddressesIn(const std::string& text, const std::string& pattern) {
  std::vector<std::string> found;
  for (const PatternMatch& address : MatchesOf(text, pattern)) found.push_back(address.Group);
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

// "0xFF31 to 0xFF3F" counts by its first; a register of unknown use has no name.
std::vector<std::string> DocumentedIn(const std::string& section, std::size_t column) {
  std::vector<std::string> found;
  for (std::size_t begin = 0; begin < section.size();) {
    const std::size_t end = std::min(section.find('\n', begin), section.size());
    const std::string line = section.substr(begin, end - begin);
    begin = end + 1;
    const std::vector<PatternMatch> cells = MatchesOf(line, R"(\|([^|]*))");
    if (cells.size() <= column + 1 || cells[column + 1].Group.starts_with(" open")) continue;
    for (const PatternMatch& address : MatchesOf(cells[column].Group, "(to )?0xFF[0-9A-F]{2}")) {
      if (!address.Text.starts_with("to ")) found.push_back(address.Text);
    }
  }
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

constexpr char kNames[] = "driver/sensor/registers/register_names.h";
constexpr char kEnumerator[] = R"(\w+ = (0xFF[0-9A-F]{2}),)";

TEST(RegisterNames, AreThoseOfTheBridgeRegistersThatTheHardwaresDescriptionKnows) {
  const std::string names =
      Between(ReadText(kNames), "namespace BridgeRegister", "}  // namespace BridgeRegister");
  const std::string section =
      Between(ReadText("docs/hardware.md"), "## Bridge registers", "## Sensor registers");
  EXPECT_EQ(AddressesIn(names, kEnumerator), DocumentedIn(section, 0));
}

TEST(RegisterNames, AreThoseOfTheSensorRegistersThatTheHardwaresDescriptionKnows) {
  const std::string names =
      Between(ReadText(kNames), "namespace SensorRegister", "}  // namespace SensorRegister");
  const std::string section =
      Between(ReadText("docs/hardware.md"), "## Sensor registers", "## 16-bit sensors");
  EXPECT_EQ(AddressesIn(names, kEnumerator), DocumentedIn(section, 1));
}

}  // namespace
}  // namespace lidcam::test
