#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPUpgradeByHelper.h"
#include "tests/support/helper_files.h"
#include "tests/support/recording_transport.h"

namespace {

using support::RecordingTransport;

using Strings = std::vector<std::string>;
using ErrorOrNone = std::optional<clientcomm::Error>;

constexpr char kUpgrade[] = "productUpgrade:versionID:";
constexpr char kReady[] = "productReadyToUpgrade:versionID:ready:";
constexpr char kCallBack[] = "productUpgradeCallBack::::";
constexpr char kIsAlive[] = "isAlive:prodeuctVersion:";

/// Keeps the errors that it is told, and answers where it was given an answer.
class Listener final : public TQHPProductUpgradeCallBackDelegate {
 public:
  void productWillUpgrade(const clientcomm::Error* error) override {
    errors.push_back(error == nullptr ? ErrorOrNone() : ErrorOrNone(*error));
    if (whenTold) whenTold();
  }

  std::vector<ErrorOrNone> errors;
  std::function<void()> whenTold;
};

/// A delegate without the optional method.
class DeafListener final : public TQHPProductUpgradeCallBackDelegate {
 public:
  bool respondsToSelector(std::string_view) const override { return false; }
  void productWillUpgrade(const clientcomm::Error*) override {
    ADD_FAILURE() << "not to be called";
  }
};

/// A delegate that implements nothing and says nothing about it.
class EmptyListener final : public TQHPProductUpgradeCallBackDelegate {};

/// A delegate that is gone when it has been told.
class PassingListener final : public TQHPProductUpgradeCallBackDelegate {
 public:
  void productWillUpgrade(const clientcomm::Error* /*error*/) override {
    TQHPUpgradeByHelper::share().setProductUpgradeDelegate(nullptr);
    delete this;
  }
};

class UpgradeTest : public testing::Test {
 protected:
  UpgradeTest() {
    controller_.setProductUpgradeDelegate(&listener_);
    recorder_.forget();
  }

  /// The helper's callback.
  support::Answer callBack(const std::string& code = "0", const std::string& description = "") {
    return recorder_.call("TQHPUpgradeByHelper", kCallBack, {"x", "y", code, description});
  }

  void expectIgnored() {
    ASSERT_EQ(recorder_.calls().size(), 1U);
    EXPECT_EQ(recorder_.last().className, "TQHPUpgradeByHelper");
    EXPECT_EQ(recorder_.last().selector, kReady);
    EXPECT_EQ(recorder_.last().arguments, (Strings{"", "", "ignore"}));
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperCommunicate& controller_ = TQHPHelperCommunicate::share();
  Listener listener_;
};

// --- Asking for an upgrade ---

TEST_F(UpgradeTest, AnUpgradeMakesSureFirstThatTheHelperRuns) {
  EXPECT_EQ(controller_.productUpgrade(), 0);
  EXPECT_EQ(recorder_.calls().front().selector, kIsAlive);
  EXPECT_EQ(recorder_.last().selector, kUpgrade);
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", "1.2.3"}));
}

TEST_F(UpgradeTest, AnUpgradeReturnsItsOwnSendsStatus) {
  recorder_.setStatus(kUpgrade, -1712);
  EXPECT_EQ(controller_.productUpgrade(), -1712);
}

TEST_F(UpgradeTest, AnUpgradeWithoutAHelperReturnsTheRestartsStatusAndIsNotSent) {
  recorder_.setStatus(-600);
  EXPECT_EQ(controller_.productUpgrade(), 1);
  EXPECT_EQ(recorder_.countOf(kUpgrade), 0);
}

TEST_F(UpgradeTest, AnUpgradeToAClosedServerReturnsTenAndSendsNothing) {
  support::writeHelperPreferences({{"TQHPServerClosed", true}});
  EXPECT_EQ(controller_.productUpgrade(), 10);
  EXPECT_TRUE(recorder_.calls().empty());
}

// --- Answering ---

TEST_F(UpgradeTest, AnAnswerIsSentAsOneOrZero) {
  EXPECT_EQ(controller_.productReadyToUpgrade(true), 0);
  EXPECT_EQ(recorder_.last().selector, kReady);
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", "1.2.3", "1"}));
  EXPECT_EQ(controller_.productReadyToUpgrade(false), 0);
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", "1.2.3", "0"}));
}

TEST_F(UpgradeTest, AnAnswerNeverRestartsTheHelper) {
  support::writeHelperPreferences({{"TQHPServerClosed", true}});
  recorder_.setStatus(-600);
  EXPECT_EQ(controller_.productReadyToUpgrade(true), -600);
  EXPECT_EQ(recorder_.selectors(), Strings{kReady});
}

// --- The callback ---

TEST_F(UpgradeTest, TheVeryFirstCallbackReachesTheDelegate) {
  const support::Answer answer = callBack();
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_EQ(listener_.errors.size(), 1U);
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(UpgradeTest, ACodeOfZeroIsNoError) {
  callBack("0", "described all the same");
  ASSERT_EQ(listener_.errors.size(), 1U);
  EXPECT_FALSE(listener_.errors[0]);
}

TEST_F(UpgradeTest, ACodeThatIsNoNumberIsNoError) {
  callBack("none", "d");
  ASSERT_EQ(listener_.errors.size(), 1U);
  EXPECT_FALSE(listener_.errors[0]);
}

TEST_F(UpgradeTest, AnyOtherCodeIsAnErrorWithTheDescription) {
  callBack("12", "x");
  ASSERT_EQ(listener_.errors.size(), 1U);
  ASSERT_TRUE(listener_.errors[0]);
  EXPECT_EQ(listener_.errors[0]->domain, "HelperCommunicateErrorDomain");
  EXPECT_EQ(listener_.errors[0]->code, 12);
  EXPECT_EQ(listener_.errors[0]->userInfo,
            (std::map<std::string, std::string>{{"HelperCommunicateErrorDescription", "x"}}));
}

TEST_F(UpgradeTest, ANegativeCodeIsAnError) {
  callBack("-3", "x");
  ASSERT_EQ(listener_.errors.size(), 1U);
  ASSERT_TRUE(listener_.errors[0]);
  EXPECT_EQ(listener_.errors[0]->code, -3);
}

TEST_F(UpgradeTest, ASecondCallbackBeforeTheAnswerIsIgnored) {
  callBack();
  EXPECT_EQ(callBack("7", "second").text, std::nullopt);
  EXPECT_EQ(listener_.errors.size(), 1U) << "the delegate hears the first alone";
  expectIgnored();
}

TEST_F(UpgradeTest, EveryCallbackBeforeTheAnswerIsIgnored) {
  callBack();
  for (int i = 0; i < 3; ++i) {
    recorder_.forget();
    callBack();
    expectIgnored();
  }
  EXPECT_EQ(listener_.errors.size(), 1U);
}

TEST_F(UpgradeTest, TheIgnoringAnswersStatusIsTheCallbacks) {
  TQHPUpgradeByHelper& proxy = TQHPUpgradeByHelper::share();
  EXPECT_EQ(proxy.productUpgradeCallBack("", "", "0", ""), 0);
  recorder_.setStatus(-600);
  EXPECT_EQ(proxy.productUpgradeCallBack("", "", "0", ""), -600);
  EXPECT_EQ(callBack().text, std::nullopt) << "a status is no text for the caller";
}

TEST_F(UpgradeTest, AfterTheAnswerTheNextCallbackReachesTheDelegate) {
  callBack();
  controller_.productReadyToUpgrade(false);
  callBack();
  EXPECT_EQ(listener_.errors.size(), 2U);
}

TEST_F(UpgradeTest, AFailedAnswerIsAnAnswerToo) {
  callBack();
  recorder_.setStatus(-600);
  EXPECT_EQ(controller_.productReadyToUpgrade(true), -600);
  callBack();
  EXPECT_EQ(listener_.errors.size(), 2U);
}

TEST_F(UpgradeTest, TheDelegateMayAnswerWhileItIsBeingTold) {
  listener_.whenTold = [this] { controller_.productReadyToUpgrade(true); };
  callBack();
  EXPECT_EQ(recorder_.last().arguments, (Strings{"P100", "1.2.3", "1"}));
  callBack();
  EXPECT_EQ(listener_.errors.size(), 2U) << "the answer was not lost";
}

TEST_F(UpgradeTest, TheDelegateMayDestroyItselfWhileItIsBeingTold) {
  controller_.setProductUpgradeDelegate(new PassingListener);
  callBack();
  EXPECT_EQ(TQHPUpgradeByHelper::share().productUpgradeDelegate(), nullptr);
  controller_.productReadyToUpgrade(true);
  controller_.setProductUpgradeDelegate(&listener_);
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
}

TEST_F(UpgradeTest, ACallbackThatArrivesWhileTheDelegateIsBeingToldIsIgnored) {
  listener_.whenTold = [this] { callBack(); };
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
  expectIgnored();
}

TEST_F(UpgradeTest, AskingForAnUpgradeIsNoAnswer) {
  callBack();
  controller_.productUpgrade();
  recorder_.forget();
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
  expectIgnored();
}

TEST_F(UpgradeTest, WithoutADelegateCallbacksAreDroppedAndTheNextIsHeard) {
  controller_.setProductUpgradeDelegate(nullptr);
  callBack();
  callBack("5", "d");
  EXPECT_TRUE(recorder_.calls().empty()) << "nothing is owed, nothing is ignored";
  controller_.setProductUpgradeDelegate(&listener_);
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
}

TEST_F(UpgradeTest, ADelegateWithoutTheMethodIsNotCalledAndOwesNothing) {
  DeafListener deaf;
  controller_.setProductUpgradeDelegate(&deaf);
  callBack();
  callBack("5", "d");
  EXPECT_TRUE(recorder_.calls().empty());
  controller_.setProductUpgradeDelegate(&listener_);
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
}

TEST_F(UpgradeTest, ADelegateThatImplementsNothingOwesNothing) {
  EmptyListener empty;
  controller_.setProductUpgradeDelegate(&empty);
  callBack();
  callBack("5", "d");
  callBack();
  EXPECT_TRUE(recorder_.calls().empty()) << "no callback is refused";
  controller_.setProductUpgradeDelegate(&listener_);
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
  recorder_.forget();
  callBack();
  expectIgnored();
}

TEST_F(UpgradeTest, ACallbackToADelegateThatImplementsNothingLeavesAnEarlierQuestionOpen) {
  EmptyListener empty;
  listener_.whenTold = [&] {
    controller_.productReadyToUpgrade(true);
    controller_.setProductUpgradeDelegate(&empty);
    callBack();
    controller_.setProductUpgradeDelegate(&listener_);
    listener_.whenTold = nullptr;
    callBack();
  };
  callBack();
  EXPECT_EQ(listener_.errors.size(), 2U);
  recorder_.forget();
  callBack();
  expectIgnored();
}

TEST_F(UpgradeTest, TheDelegateMayDestroyTheProxyThatTellsIt) {
  auto* const second = new TQHPUpgradeByHelper;
  second->setProductUpgradeDelegate(&listener_);
  listener_.whenTold = [second] { delete second; };
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
  const TQHPAppleEventProcesser& table = TQHPAppleEventProcesser::share();
  EXPECT_EQ(table.objectForKey("TQHPUpgradeByHelper"), nullptr);
}

TEST_F(UpgradeTest, ACodeWithoutADescriptionTellsTheDelegateNothingAndOwesNothing) {
  EXPECT_EQ(recorder_.call("TQHPUpgradeByHelper", kCallBack, {"x", "y", "12"}).text, std::nullopt);
  EXPECT_TRUE(listener_.errors.empty());
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
}

TEST_F(UpgradeTest, ACallbackWithTooManyArgumentsIsNotInvoked) {
  recorder_.call("TQHPUpgradeByHelper", kCallBack, {"x", "y", "0", "", "more"});
  EXPECT_TRUE(listener_.errors.empty());
}

// --- The delegate and the registration ---

TEST_F(UpgradeTest, TheDelegateIsReadBackByEitherName) {
  EXPECT_EQ(controller_.getProductUpgradeDelegate(), &listener_);
  EXPECT_EQ(TQHPUpgradeByHelper::share().productUpgradeDelegate(), &listener_);
  EXPECT_EQ(TQHPUpgradeByHelper::share().getProductUpgradeDelegate(), &listener_);
  controller_.setProductUpgradeDelegate(nullptr);
  EXPECT_EQ(controller_.getProductUpgradeDelegate(), nullptr);
}

TEST_F(UpgradeTest, ADelegateAnswersItsMethodUnlessItSaysOtherwise) {
  const TQHPProductUpgradeCallBackDelegate& delegate = listener_;
  EXPECT_TRUE(delegate.respondsToSelector("productWillUpgrade:"));
  EXPECT_FALSE(delegate.respondsToSelector("productWillUpgrade"));
}

TEST_F(UpgradeTest, TheEndOfAnEarlierProxyLeavesTheEntryOfTheLater) {
  auto second = std::make_unique<TQHPUpgradeByHelper>();
  TQHPUpgradeByHelper third;
  second.reset();
  const TQHPAppleEventProcesser& table = TQHPAppleEventProcesser::share();
  EXPECT_EQ(table.objectForKey("TQHPUpgradeByHelper"), &third);
}

TEST_F(UpgradeTest, TheEndOfTheLastProxyRemovesItsEntry) {
  { const TQHPUpgradeByHelper second; }
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("TQHPUpgradeByHelper"), nullptr);
}

/// Nothing has made the proxy yet when these begin.
class EarlyUpgradeTest : public testing::Test {
 protected:
  void callBack() { recorder_.call("TQHPUpgradeByHelper", kCallBack, {"", "", "0", ""}); }

  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperCommunicate& controller_ = TQHPHelperCommunicate::share();
  Listener listener_;
};

TEST_F(EarlyUpgradeTest, ACallbackBeforeTheProxyExistsReachesNoDelegate) {
  callBack();
  const TQHPAppleEventProcesser& table = TQHPAppleEventProcesser::share();
  EXPECT_NE(table.objectForKey("TQHPUpgradeByHelper"), nullptr) << "one was made for the call";
  EXPECT_TRUE(recorder_.calls().empty());
}

TEST_F(EarlyUpgradeTest, TheProxyMadeLaterTakesTheCallbacksOver) {
  callBack();
  controller_.setProductUpgradeDelegate(&listener_);
  const TQHPAppleEventProcesser& table = TQHPAppleEventProcesser::share();
  EXPECT_EQ(table.objectForKey("TQHPUpgradeByHelper"), &TQHPUpgradeByHelper::share());
  callBack();
  EXPECT_EQ(listener_.errors.size(), 1U);
  callBack();
  EXPECT_EQ(recorder_.last().arguments, (Strings{"", "", "ignore"}));
}

}  // namespace
