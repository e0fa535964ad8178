#include "viewer/live/page.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace lidcam::viewer {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

/// A connection whose other end reads nothing, or has read everything.
class Link final : public PageLink {
 public:
  void SendText(std::string text) override { Texts.push_back(json::parse(text)); }
  void SendPicture(std::string, std::shared_ptr<SharedPicture> picture) override {
    Pictures.push_back(picture->Raw().Number);
  }
  [[nodiscard]] std::size_t PendingBytes() const override { return Pending; }
  void Close() override { IsClosed = true; }

  std::vector<json> Texts{};
  std::vector<std::int64_t> Pictures{};
  std::size_t Pending = 0;
  bool IsClosed = false;
};

/// A page of a server whose camera is never opened: its executor runs nothing.
class PageTest : public testing::Test {
 protected:
  PageTest() { page_->Enter(); }
  ~PageTest() override { page_->Leave(); }

  static Hub::Options OneCamera() {
    Hub::Options options;
    app::SessionOptions session;
    session.Choice.Camera = "usb:99-9";  // there is none
    options.Cameras.push_back({.Session = session, .State = StateOf(session.Choice.Camera)});
    return options;
  }

  void Say(const json& message) { EXPECT_TRUE(page_->Receive(message.dump())); }

  std::shared_ptr<SharedPicture> PictureOf(std::int64_t number) {
    constexpr app::PictureSize kSize{16, 8};
    std::vector<std::uint8_t> yuy2(kSize.Yuy2Bytes());
    for (std::size_t i = 0; i < yuy2.size(); ++i)
      yuy2[i] = static_cast<std::uint8_t>(i + static_cast<std::size_t>(number));
    return std::make_shared<SharedPicture>(
        std::make_shared<const Picture>(Picture{.Yuy2 = yuy2, .Size = kSize, .Number = number}),
        encoder_);
  }

  void Offer(std::int64_t number) { page_->Offer(0, PictureOf(number)); }

  /// The last text's error; empty if it is none.
  [[nodiscard]] std::string Error() const {
    return link_.Texts.back().value("error", std::string());
  }

  JpegEncoder encoder_;
  Link link_;
  Hub hub_{OneCamera(), [](const std::function<void()>&) {}};
  std::shared_ptr<Page> page_ = std::make_shared<Page>(hub_, link_);
};

TEST_F(PageTest, IsGreetedWithTheCameras) {
  const json& hello = link_.Texts.front()["hello"];
  EXPECT_EQ(hello["cameras"].size(), 1U);
  EXPECT_EQ(hello["cameras"][0]["kind"], "plugged-in");
  EXPECT_EQ(hello["cameras"][0]["state"], "off");
  EXPECT_EQ(link_.Texts.back()["viewers"], 1);
}

TEST_F(PageTest, GetsNoPictureBeforeItWantsOne) {
  Offer(1);
  EXPECT_FALSE(page_->Wants(0));
  EXPECT_THAT(link_.Pictures, IsEmpty());
}

TEST_F(PageTest, ThatShowsNothingGetsTwoPictures) {
  Say({{"do", "watch"}, {"cameras", {0}}});
  for (int number = 1; number <= 10; ++number) Offer(number);
  EXPECT_THAT(link_.Pictures, ElementsAre(1, 2));
}

// Not the oldest that waits, but the newest.
TEST_F(PageTest, ThatHasShownAPictureGetsTheNewestAtOnce) {
  Say({{"do", "watch"}, {"cameras", {0}}});
  for (int number = 1; number <= 5; ++number) Offer(number);
  Say({{"do", "shown"}, {"camera", 0}, {"number", 1}});
  EXPECT_THAT(link_.Pictures, ElementsAre(1, 2, 5));
  Say({{"do", "shown"}, {"camera", 0}, {"number", 5}});
  Offer(6);
  Offer(7);
  Offer(8);
  EXPECT_THAT(link_.Pictures, ElementsAre(1, 2, 5, 6, 7));
}

TEST_F(PageTest, AnAcknowledgementOfAPictureThatWasNotSentGivesNone) {
  Say({{"do", "watch"}, {"cameras", {0}}});
  for (int number = 1; number <= 5; ++number) Offer(number);
  Say({{"do", "shown"}, {"camera", 0}, {"number", 4}});
  EXPECT_THAT(link_.Pictures, ElementsAre(1, 2));
}

TEST_F(PageTest, ThatIsHiddenGetsNone) {
  Say({{"do", "watch"}, {"cameras", {0}}});
  Offer(1);
  Say({{"do", "watch"}, {"cameras", json::array()}});
  EXPECT_FALSE(page_->Wants(0));
  Offer(2);
  EXPECT_THAT(link_.Pictures, ElementsAre(1));
}

// The others stay as they are.
TEST_F(PageTest, ThatNamesACameraThatThereIsNotWatchesOnAsBefore) {
  Say({{"do", "watch"}, {"cameras", {0}}});
  Offer(1);
  Offer(2);
  Say({{"do", "watch"}, {"cameras", {0, 5}}});
  EXPECT_TRUE(page_->Wants(0));
  Offer(3);
  EXPECT_THAT(link_.Pictures, ElementsAre(1, 2));
}

TEST_F(PageTest, ReadsTheTrueValuesOfThePictureThatItShows) {
  Say({{"do", "watch"}, {"cameras", {0}}});
  Offer(1);
  Offer(2);
  Say({{"do", "pixels"},
       {"id", 7},
       {"camera", 0},
       {"number", 1},
       {"x", 1},
       {"y", 0},
       {"width", 2},
       {"height", 2}});
  // Byte i of the picture is i + 1; a row has 32.
  const json expected = {{"answer", 7},
                         {"number", 1},
                         {"y", {3, 5, 35, 37}},
                         {"u", {2, 6, 34, 38}},
                         {"v", {4, 8, 36, 40}}};
  EXPECT_EQ(link_.Texts.back(), expected);
  Say({{"do", "pixels"},
       {"id", 8},
       {"camera", 0},
       {"x", 15},
       {"y", 7},
       {"width", 1},
       {"height", 1}});
  EXPECT_EQ(link_.Texts.back()["number"], 2);
}

TEST_F(PageTest, PixelsOutsideOfThePictureAreRefused) {
  Say({{"do", "watch"}, {"cameras", {0}}});
  Offer(1);
  const json outside[] = {
      {{"x", 15}, {"y", 0}, {"width", 2}, {"height", 1}},
      {{"x", -1}, {"y", 0}, {"width", 1}, {"height", 1}},
      {{"x", 0}, {"y", 8}, {"width", 1}, {"height", 1}},
      {{"x", 0}, {"y", 0}, {"width", 0}, {"height", 1}},
      {{"x", 2147483647}, {"y", 0}, {"width", 2147483647}, {"height", 1}},
      {{"x", 0}, {"y", 0}, {"width", 16}, {"height", -2147483647}},
  };
  for (json message : outside) {
    message.update({{"do", "pixels"}, {"id", 1}, {"camera", 0}});
    Say(message);
    EXPECT_NE(Error(), "") << message.dump();
  }
}

TEST_F(PageTest, RequestsThatCannotBeCarriedOutAreAnsweredByAnError) {
  const json requests[] = {
      {{"do", "nothing"}},
      {{"do", "watch"}},
      {{"do", "watch"}, {"cameras", {1}}},
      {{"do", "watch"}, {"cameras", {"0"}}},
      {{"do", "watch"}, {"cameras", {-1}}},
      {{"do", "shown"}, {"camera", 0}},
      {{"do", "shown"}, {"camera", 2}, {"number", 1}},
      {{"do", "clock"}},
      {{"do", "set"}, {"camera", 0}, {"name", 5}, {"value", 1}},
      {{"do", "set"}, {"camera", 0}, {"name", "Contrast"}},
      {{"do", "size"}, {"camera", 0}, {"width", 641}, {"height", 480}},
      {{"do", "pixels"}, {"camera", 0}, {"x", 0}, {"y", 0}, {"width", 1}, {"height", 1}},
      {{"do", "record"}, {"camera", 0}, {"form", "exe"}},
      {{"do", "stop"}, {"camera", 0}, {"recording", 1}},
      {{"do", "register"}, {"camera", 0}, {"chip", "other"}, {"address", 65290}},
      {{"do", "register"}, {"camera", 0}, {"chip", "bridge"}, {"address", 65535}},
      {{"do", "register"}, {"camera", 0}, {"chip", "bridge"}, {"address", 10}},
      {{"do", "register"}, {"camera", 0}, {"chip", "bridge"}, {"address", 65290}, {"value", 256}},
      {{"do", "trace"}, {"camera", 0}},
      {{"do", "simulate"}, {"camera", 0}, {"light", 300}},
      {{"do", "seek"}, {"camera", 0}, {"seconds", 1}},
  };
  for (json message : requests) {
    message["id"] = "this one";
    Say(message);
    EXPECT_EQ(link_.Texts.back().value("answer", std::string()), "this one") << message.dump();
    EXPECT_NE(Error(), "") << message.dump();
  }
}

TEST_F(PageTest, WhatIsNoMessageEndsTheConnection) {
  for (const char* const text :
       {"", "x", "[]", "{}", "1", "null", "{\"do\":1}", "{\"do\":\"watch\"", "\xFF\xFE"}) {
    EXPECT_FALSE(page_->Receive(text)) << text;
  }
  EXPECT_FALSE(page_->Receive(std::string(60000, '[')));
}

TEST_F(PageTest, ThatIsBehindMissesWhatPasses) {
  const std::size_t before = link_.Texts.size();
  page_->TellPassing("{\"loop\":1}");
  EXPECT_EQ(link_.Texts.size(), before + 1);
  link_.Pending = Page::kMuchPending;
  page_->TellPassing("{\"loop\":2}");
  EXPECT_EQ(link_.Texts.size(), before + 1);
  page_->Tell("{\"camera\":1}");
  EXPECT_EQ(link_.Texts.size(), before + 2);
  EXPECT_FALSE(link_.IsClosed);
}

TEST_F(PageTest, ThatReadsNothingAtAllIsClosed) {
  link_.Pending = Page::kMostPending + 1;
  page_->Tell("{\"camera\":1}");
  EXPECT_TRUE(link_.IsClosed);
}

TEST_F(PageTest, ThatAsksWithoutReadingTheAnswersIsClosed) {
  const json questions[] = {{{"do", "clock"}, {"sent", 1}},
                            {{"do", "watch"}, {"id", 1}, {"cameras", {0}}},
                            {{"do", "nothing"}, {"id", 2}}};
  for (const json& question : questions) {
    link_.Pending = 0;
    link_.IsClosed = false;
    Say(question);
    EXPECT_FALSE(link_.IsClosed) << question.dump();
    link_.Pending = Page::kMostPending + 1;
    const std::size_t before = link_.Texts.size();
    Say(question);
    EXPECT_TRUE(link_.IsClosed) << question.dump();
    EXPECT_EQ(link_.Texts.size(), before) << question.dump();
  }
}

TEST_F(PageTest, TheTraceIsForThoseWhoAsk) {
  EXPECT_FALSE(page_->WantsTrace(0));
  Say({{"do", "trace"}, {"camera", 0}, {"on", true}});
  EXPECT_TRUE(page_->WantsTrace(0));
  Say({{"do", "trace"}, {"camera", 0}, {"on", false}});
  EXPECT_FALSE(page_->WantsTrace(0));
}

TEST_F(PageTest, TheClockIsAnsweredByTheMachines) {
  const double before = MonotonicSeconds() * 1000;
  Say({{"do", "clock"}, {"sent", 12.5}});
  const json clock = link_.Texts.back()["clock"];
  EXPECT_EQ(clock["sent"], 12.5);
  EXPECT_GE(clock["server"].get<double>(), before);
  EXPECT_LE(clock["server"].get<double>(), MonotonicSeconds() * 1000);
}

}  // namespace
}  // namespace lidcam::viewer
