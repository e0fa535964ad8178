#include "integrations/pipewire/looker_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pipewire/pipewire.h>

#include <initializer_list>
#include <string_view>
#include <vector>

namespace lidcam::integrations::pipewire {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::uint32_t kCamera = 36;

class LookerTableTest : public ::testing::Test {
 protected:
  void Add(std::uint32_t id, std::string_view type, std::vector<spa_dict_item> items) {
    const spa_dict properties = {
        .flags = 0, .n_items = static_cast<std::uint32_t>(items.size()), .items = items.data()};
    table_.Add(id, type, &properties);
  }

  void AddProgram(std::uint32_t client, std::uint32_t node, const char* name,
                  const char* clientText, const char* process) {
    Add(client, PW_TYPE_INTERFACE_Client,
        {{.key = "application.name", .value = name},
         {.key = "pipewire.sec.pid", .value = process}});
    Add(node, PW_TYPE_INTERFACE_Node,
        {{.key = "client.id", .value = clientText}, {.key = "node.name", .value = "input"}});
  }

  void AddLink(std::uint32_t id, const char* source, const char* target) {
    Add(id, PW_TYPE_INTERFACE_Link,
        {{.key = "link.output.node", .value = source},
         {.key = "link.input.node", .value = target}});
  }

  LookerTable table_;
};

TEST_F(LookerTableTest, ProgramsThatAreLinkedToTheCameraAreNamedUntilTheyAreNot) {
  AddProgram(40, 41, "obs", "40", "77");
  AddProgram(50, 51, "firefox", "50", "88");
  AddLink(60, "36", "41");
  AddLink(61, "36", "51");
  EXPECT_THAT(table_.LookersAt(kCamera), ElementsAre("firefox (88)", "obs (77)"));
  table_.Remove(60);
  EXPECT_THAT(table_.LookersAt(kCamera), ElementsAre("firefox (88)"));
}

TEST_F(LookerTableTest, ProgramsThatLookAtOthersAreNotNamed) {
  AddProgram(40, 41, "obs", "40", "77");
  AddLink(60, "35", "41");
  EXPECT_THAT(table_.LookersAt(kCamera), IsEmpty());
}

TEST_F(LookerTableTest, AProgramWithoutAClientHasTheNameOfItsNode) {
  AddLink(60, "36", "41");
  EXPECT_THAT(table_.LookersAt(kCamera), ElementsAre("a program"));
  Add(41, PW_TYPE_INTERFACE_Node, {{.key = "node.name", .value = "input"}});
  EXPECT_THAT(table_.LookersAt(kCamera), ElementsAre("input"));
}

TEST_F(LookerTableTest, TheCameraIsSeenByV4l2WhileAProgramOfThatInterfaceLooks) {
  AddProgram(40, 41, "ffmpeg", "40", "77");
  AddProgram(50, 51, "obs", "50", "88");
  table_.SetInterface(40, "v4l2");
  AddLink(60, "35", "41");
  AddLink(61, "36", "51");
  EXPECT_FALSE(table_.IsSeenByV4l2(kCamera));
  AddLink(62, "36", "41");
  EXPECT_TRUE(table_.IsSeenByV4l2(kCamera));
  table_.Remove(62);
  EXPECT_FALSE(table_.IsSeenByV4l2(kCamera));
}

TEST_F(LookerTableTest, AProgramThatUsesAnotherInterfaceDoesNotSeeItByV4l2) {
  AddProgram(40, 41, "recorder", "40", "77");
  table_.SetInterface(40, "pulse");
  AddLink(60, "36", "41");
  EXPECT_FALSE(table_.IsSeenByV4l2(kCamera));
}

TEST_F(LookerTableTest, ObjectsWithoutPropertiesAreNoLookers) {
  table_.Add(60, PW_TYPE_INTERFACE_Link, nullptr);
  table_.Add(61, "PipeWire:Interface:Factory", nullptr);
  EXPECT_THAT(table_.LookersAt(kCamera), IsEmpty());
}

}  // namespace
}  // namespace lidcam::integrations::pipewire
