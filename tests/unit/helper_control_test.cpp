#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperControl.h"
#include "tests/support/recording_transport.h"

using clientcomm::OptionalString;

namespace {

using support::RecordingTransport;

struct Notice {
  std::string name;
  bool isOpen = false;
  std::optional<clientcomm::Error> error;
};

/// Keeps what it hears; answers the selectors that it was given.
class Listener final : public TQHPHelperControlCallBackDelegate {
 public:
  using Selectors = std::set<std::string, std::less<>>;

  Listener() : Listener(Selectors{"willHelperExit", "didCheckServerOpen::"}) {}
  explicit Listener(Selectors selectors) : selectors_(std::move(selectors)) {}

  bool respondsToSelector(std::string_view selector) const override {
    return selectors_.contains(selector);
  }
  void willHelperExit() override { notices.push_back({"willHelperExit", false, {}}); }
  void didCheckServerOpen(bool isOpen, const clientcomm::Error* error) override {
    notices.push_back({"didCheckServerOpen::", isOpen, {}});
    if (error != nullptr) notices.back().error = *error;
  }

  std::vector<Notice> notices;

 private:
  Selectors selectors_;
};

class HelperControlTest : public testing::Test {
 protected:
  HelperControlTest() { control_.setHelperCtrlDelegate(&listener_); }

  OptionalString notify(const std::string& selector, const std::vector<std::string>& arguments) {
    return recorder_.call("TQHPHelperControl", selector, arguments).text;
  }
  OptionalString checkServerOpen(const std::vector<std::string>& arguments) {
    return notify("checkServerOpenCallBack::::", arguments);
  }
  Notice onlyNotice() {
    EXPECT_EQ(listener_.notices.size(), 1U);
    return listener_.notices.empty() ? Notice() : listener_.notices.front();
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperControl& control_ = TQHPHelperControl::share();
  Listener listener_;
};

// --- Commands; their remote names and arguments are tested with the sender ---

TEST_F(HelperControlTest, ANilVersionIsSentAsAnEmptyString) {
  control_.isAlive("P100", std::nullopt);
  EXPECT_EQ(recorder_.last().arguments, (std::vector<std::string>{"P100", ""}));
}

TEST_F(HelperControlTest, EveryCommandReturnsTheSendsStatusUnchanged) {
  for (const OSErr status : {OSErr{0}, OSErr{-600}, OSErr{-1712}, OSErr{10}}) {
    recorder_.setStatus(status);
    EXPECT_EQ(control_.isAlive("p", "v"), status);
    EXPECT_EQ(control_.hide("p", "v"), status);
    EXPECT_EQ(control_.show("p", "v"), status);
    EXPECT_EQ(control_.exitHelper("p", "v"), status);
    EXPECT_EQ(control_.stop("p", "v"), status);
    EXPECT_EQ(control_.start("p", "v"), status);
  }
}

// --- Registration ---

TEST_F(HelperControlTest, ItsCreationOpensTheProcessToNotices) {
  EXPECT_TRUE(recorder_.isReceiving());
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("TQHPHelperControl"), &control_);
}

TEST_F(HelperControlTest, NoticesReachTheOneThatWasMadeLast) {
  Listener latest;
  TQHPHelperControl second;
  second.setHelperCtrlDelegate(&latest);
  notify("helperExitNotify:", {""});
  EXPECT_EQ(latest.notices.size(), 1U);
  EXPECT_TRUE(listener_.notices.empty());
}

TEST_F(HelperControlTest, TheEndOfTheLastRemovesItsEntry) {
  { const TQHPHelperControl second; }
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("TQHPHelperControl"), nullptr);
}

TEST_F(HelperControlTest, TheEndOfAnEarlierOneLeavesTheEntryOfTheLater) {
  auto second = std::make_unique<TQHPHelperControl>();
  TQHPHelperControl third;
  second.reset();
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("TQHPHelperControl"), &third);
}

TEST_F(HelperControlTest, TheDelegateIsReadBackAsItWasSet) {
  EXPECT_EQ(control_.helperCtrlDelegate(), &listener_);
  control_.setHelperCtrlDelegate(nullptr);
  EXPECT_EQ(control_.helperCtrlDelegate(), nullptr);
}

// --- The notice of the helper's exit ---

TEST_F(HelperControlTest, TheExitNoticeReachesTheDelegate) {
  EXPECT_EQ(notify("helperExitNotify:", {"anything"}), std::nullopt);
  EXPECT_EQ(onlyNotice().name, "willHelperExit");
}

TEST_F(HelperControlTest, TheExitNoticeNeedsNoArgument) {
  notify("helperExitNotify:", {});
  EXPECT_EQ(onlyNotice().name, "willHelperExit");
}

TEST_F(HelperControlTest, ANoticeWithTooManyArgumentsIsNotInvoked) {
  notify("helperExitNotify:", {"a", "b"});
  checkServerOpen({"a", "1", "0", "", "more"});
  EXPECT_TRUE(listener_.notices.empty());
}

TEST_F(HelperControlTest, WithoutADelegateNoticesAreDropped) {
  control_.setHelperCtrlDelegate(nullptr);
  EXPECT_EQ(control_.helperExitNotify(""), 0);
  EXPECT_EQ(control_.checkServerOpenCallBack("", "1", "5", "d"), 0);
}

TEST_F(HelperControlTest, ADelegateIsNotCalledForWhatItDoesNotAnswer) {
  Listener deaf{Listener::Selectors()};
  control_.setHelperCtrlDelegate(&deaf);
  EXPECT_EQ(control_.helperExitNotify(""), 0);
  EXPECT_EQ(control_.checkServerOpenCallBack("", "1", "5", std::nullopt), 0)
      << "no error is built, so none is raised";
  EXPECT_TRUE(deaf.notices.empty());
}

TEST_F(HelperControlTest, EachNoticeIsAskedForByItsOwnSelector) {
  Listener hearsExit{Listener::Selectors{"willHelperExit"}};
  control_.setHelperCtrlDelegate(&hearsExit);
  control_.checkServerOpenCallBack("", "1", "0", "");
  control_.helperExitNotify("");
  ASSERT_EQ(hearsExit.notices.size(), 1U);
  EXPECT_EQ(hearsExit.notices[0].name, "willHelperExit");
}

TEST_F(HelperControlTest, TheControllerAnswersBothNotices) {
  const TQHPHelperControlCallBackDelegate& controller = TQHPHelperCommunicate::share();
  EXPECT_TRUE(controller.respondsToSelector("willHelperExit"));
  EXPECT_TRUE(controller.respondsToSelector("didCheckServerOpen::"));
  EXPECT_FALSE(controller.respondsToSelector("didCheckServerOpen:"));
}

// --- The notice of the server check ---

TEST_F(HelperControlTest, AnOpenServerWithCodeZeroIsYesAndNoError) {
  EXPECT_EQ(checkServerOpen({"anything", "1", "0", ""}), std::nullopt);
  EXPECT_EQ(onlyNotice().name, "didCheckServerOpen::");
  EXPECT_TRUE(onlyNotice().isOpen);
  EXPECT_FALSE(onlyNotice().error);
}

TEST_F(HelperControlTest, AClosedServerWithACodeIsNoAndAnError) {
  checkServerOpen({"anything", "0", "-3", "no route"});
  EXPECT_FALSE(onlyNotice().isOpen);
  ASSERT_TRUE(onlyNotice().error);
  EXPECT_EQ(onlyNotice().error->domain, "HelperCommunicateErrorDomain");
  EXPECT_EQ(onlyNotice().error->code, -3);
  EXPECT_EQ(
      onlyNotice().error->userInfo,
      (std::map<std::string, std::string>{{"HelperCommunicateErrorDescription", "no route"}}));
}

TEST_F(HelperControlTest, TheOpenFlagIsReadLeniently) {
  for (const char* yes : {"1", "Y", "yes", "true", "T", " 7", "+01", "-1"}) {
    listener_.notices.clear();
    checkServerOpen({"", yes, "0", ""});
    EXPECT_TRUE(onlyNotice().isOpen) << yes;
  }
  for (const char* no : {"0", "", "N", "false", "open", "00"}) {
    listener_.notices.clear();
    checkServerOpen({"", no, "0", ""});
    EXPECT_FALSE(onlyNotice().isOpen) << no;
  }
}

TEST_F(HelperControlTest, ACodeThatIsNoNumberIsNoError) {
  checkServerOpen({"", "1", "none", "described"});
  EXPECT_FALSE(onlyNotice().error);
}

TEST_F(HelperControlTest, AMissingDescriptionMattersOnlyWithACode) {
  EXPECT_EQ(checkServerOpen({"", "1", "5"}), std::nullopt);
  EXPECT_TRUE(listener_.notices.empty()) << "no error can be made of a code alone";
  checkServerOpen({"", "1", "0"});
  EXPECT_EQ(onlyNotice().name, "didCheckServerOpen::");
  EXPECT_FALSE(onlyNotice().error);
}

TEST_F(HelperControlTest, AMissingFlagReadsAsClosed) {
  checkServerOpen({""});
  EXPECT_FALSE(onlyNotice().isOpen);
  EXPECT_FALSE(onlyNotice().error);
}

}  // namespace
