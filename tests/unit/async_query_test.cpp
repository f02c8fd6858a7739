#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPGetDataByHelper.h"
#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPUploadByHelper.h"
#include "ClientComm/async.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "tests/support/memory/memory_applications.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

using clientcomm::OptionalString;
using clientcomm::PendingQuery;

namespace {

using namespace std::chrono_literals;
using support::RecordingTransport;
using Strings = std::vector<std::string>;

constexpr char kClientID[] = "clientIDFormHelper";
constexpr char kPage[] = "netErrorPagePath:version:";

/// What a call-back got.
struct Outcome {
  OSErr status;
  std::string value;
};

bool operator==(const Outcome& one, const Outcome& other) {
  return one.status == other.status && one.value == other.value;
}

void PrintTo(const Outcome& outcome, std::ostream* out) {
  *out << outcome.status << " \"" << outcome.value << '"';
}

using Outcomes = std::vector<Outcome>;

std::string textOf(const std::string& value) { return value; }
std::string textOf(bool value) { return value ? "yes" : "no"; }
std::string textOf(const TQHPSuiteInfo& value) { return value.description(); }

/// Adds what it gets to `outcomes`; "none" is no value.
template <typename Value>
clientcomm::QueryCallback<Value> noteIn(Outcomes& outcomes) {
  return [&outcomes](OSErr status, const std::optional<Value>& value) {
    outcomes.push_back({status, value ? textOf(*value) : "none"});
  };
}

void passTime(std::chrono::milliseconds time) {
  support::MemorySystem::current().clock.advance(time);
}

// --- Every query ---

struct QueryForm {
  const char* name;
  const char* className;
  const char* selector;
  Strings arguments;
  const char* reply;
  const char* value;
  const char* valueOfEmptyReply;
  std::function<PendingQuery(Outcomes&, clientcomm::TimeLimit)> ask;
};

void PrintTo(const QueryForm& form, std::ostream* out) { *out << form.name; }

const Strings kProduct{"P100", "1.2.3"};
constexpr char kSuiteReply[] = "page.html###640###480";
constexpr char kSuiteValue[] = "url = page.html width = 640 height = 480";
constexpr char kNoSuite[] = "url = (null) width = 0 height = 0";
constexpr char kUpload[] = "TQHPUploadByHelper";

TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }
TQHPUploadByHelper& upload() { return TQHPUploadByHelper::share(); }

const QueryForm kForms[] = {
    {"Sender",
     "Class",
     "ask:",
     {"a"},
     "text",
     "text",
     "none",
     [](Outcomes& outcomes, auto limit) {
       const std::string arguments[] = {"a"};
       return TQHPAppleEventSender::share().sendEvnetAsync("Class", "ask:", arguments,
                                                           noteIn<std::string>(outcomes), limit);
     }},
    {"ClientIDOfProxy",
     "TQHPGetDataByHelper",
     kClientID,
     {},
     "id",
     "id",
     "none",
     [](Outcomes& outcomes, auto limit) {
       return TQHPGetDataByHelper::share().clientIDFormHelperAsync(noteIn<std::string>(outcomes),
                                                                   limit);
     }},
    {"ClientID",
     "TQHPGetDataByHelper",
     kClientID,
     {},
     "id",
     "id",
     "none",
     [](Outcomes& outcomes, auto limit) {
       return controller().clientIDFormHelperAsync(noteIn<std::string>(outcomes), limit);
     }},
    {"CollectStatusOfProxy",
     kUpload,
     "productCollectStatus:version:",
     {"a", ""},
     "1",
     "1",
     "none",
     [](Outcomes& outcomes, auto limit) {
       return upload().productCollectStatusAsync("a", std::nullopt, noteIn<std::string>(outcomes),
                                                 limit);
     }},
    {"CollectStatus", kUpload, "productCollectStatus:version:", kProduct, "1", "yes", "no",
     [](Outcomes& outcomes, auto limit) {
       return controller().productCollectStatusAsync(noteIn<bool>(outcomes), limit);
     }},
    {"CollectStatusOfFacade", kUpload, "productCollectStatus:version:", kProduct, "0", "no", "no",
     [](Outcomes& outcomes, auto limit) {
       return TQHPHelper::share().productCollectStatusAsync(noteIn<bool>(outcomes), limit);
     }},
    {"SuiteOfProxy",
     kUpload,
     "regSuiteInfo:version:",
     {"", "b"},
     "text",
     "text",
     "none",
     [](Outcomes& outcomes, auto limit) {
       return upload().regSuiteInfoAsync(std::nullopt, "b", noteIn<std::string>(outcomes), limit);
     }},
    {"Suite", kUpload, "regSuiteInfo:version:", kProduct, kSuiteReply, kSuiteValue, kNoSuite,
     [](Outcomes& outcomes, auto limit) {
       return controller().regSuiteInfoAsync(noteIn<TQHPSuiteInfo>(outcomes), limit);
     }},
    {"SuiteOfFacade", kUpload, "regSuiteInfo:version:", kProduct, "u",
     "url = u width = 0 height = 0", kNoSuite,
     [](Outcomes& outcomes, auto limit) {
       return TQHPHelper::share().regSuiteInfoAsync(noteIn<TQHPSuiteInfo>(outcomes), limit);
     }},
    {"UnSuiteOfProxy",
     kUpload,
     "unRegSuiteInfo:version:",
     {"a", "b"},
     "text",
     "text",
     "none",
     [](Outcomes& outcomes, auto limit) {
       return upload().unRegSuiteInfoAsync("a", "b", noteIn<std::string>(outcomes), limit);
     }},
    {"UnSuite", kUpload, "unRegSuiteInfo:version:", kProduct, kSuiteReply, kSuiteValue, kNoSuite,
     [](Outcomes& outcomes, auto limit) {
       return controller().unRegSuiteInfoAsync(noteIn<TQHPSuiteInfo>(outcomes), limit);
     }},
    {"UnSuiteOfFacade", kUpload, "unRegSuiteInfo:version:", kProduct, kSuiteReply, kSuiteValue,
     kNoSuite,
     [](Outcomes& outcomes, auto limit) {
       return TQHPHelper::share().unRegSuiteInfoAsync(noteIn<TQHPSuiteInfo>(outcomes), limit);
     }},
    {"PageOfProxy",
     kUpload,
     kPage,
     {"a", "b"},
     "/p",
     "/p",
     "none",
     [](Outcomes& outcomes, auto limit) {
       return upload().netErrorPagePathAsync("a", "b", noteIn<std::string>(outcomes), limit);
     }},
    {"Page", kUpload, kPage, kProduct, "/p", "/p", "none",
     [](Outcomes& outcomes, auto limit) {
       return controller().netErrorPagePathAsync(noteIn<std::string>(outcomes), limit);
     }},
    {"PageOfFacade", kUpload, kPage, kProduct, "/p", "/p", "none",
     [](Outcomes& outcomes, auto limit) {
       return TQHPHelper::share().netErrorPagePathAsync(noteIn<std::string>(outcomes), limit);
     }},
};

class AsyncForm : public testing::TestWithParam<QueryForm> {
 protected:
  AsyncForm() {
    TQHPHelper::share();
    recorder_.forget();
  }

  PendingQuery ask(clientcomm::TimeLimit limit = std::nullopt) {
    return GetParam().ask(outcomes_, limit);
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  Outcomes outcomes_;
};

TEST_P(AsyncForm, SendsWhatTheFormThatBlocksSendsAndBringsItsAnswerOnTheLoop) {
  recorder_.setReply(GetParam().selector, GetParam().reply);
  const PendingQuery query = ask();
  ASSERT_EQ(recorder_.selectors(), Strings{GetParam().selector}) << "sent at once";
  EXPECT_EQ(recorder_.last().className, GetParam().className);
  EXPECT_EQ(recorder_.last().arguments, GetParam().arguments);
  EXPECT_EQ(recorder_.last().target, support::helperIdentifier());
  EXPECT_TRUE(query.isPending());
  EXPECT_EQ(outcomes_, Outcomes());
  passTime(1s);
  EXPECT_EQ(outcomes_, (Outcomes{{0, GetParam().value}}));
  EXPECT_FALSE(query.isPending());
}

TEST_P(AsyncForm, AnAnswerWithoutTextReadsAsInTheFormThatBlocks) {
  const PendingQuery query = ask();
  passTime(1s);
  EXPECT_EQ(outcomes_, (Outcomes{{0, GetParam().valueOfEmptyReply}}));
}

TEST_P(AsyncForm, AStatusComesWithoutAValue) {
  recorder_.setReply(GetParam().selector, GetParam().reply);
  recorder_.setStatus(-600);
  const PendingQuery query = ask();
  passTime(1s);
  EXPECT_EQ(outcomes_, (Outcomes{{-600, "none"}}));
}

TEST_P(AsyncForm, EndsByItsTimeLimitWithoutAValue) {
  recorder_.hold(GetParam().selector);
  const PendingQuery query = ask(2s);
  passTime(1999ms);
  EXPECT_EQ(outcomes_, Outcomes());
  passTime(1ms);
  EXPECT_EQ(outcomes_, (Outcomes{{-1712, "none"}}));
  recorder_.release(GetParam().selector);
  passTime(10s);
  EXPECT_EQ(outcomes_.size(), 1U) << "the answer comes too late";
}

INSTANTIATE_TEST_SUITE_P(All, AsyncForm, testing::ValuesIn(kForms),
                         [](const auto& instance) { return std::string(instance.param.name); });

// --- The handle and the call-back ---

class AsyncQueryTest : public testing::Test {
 protected:
  PendingQuery askForPage(clientcomm::TimeLimit limit = std::nullopt) {
    return controller_.netErrorPagePathAsync(noteIn<std::string>(outcomes_), limit);
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperCommunicate& controller_ = TQHPHelperCommunicate::share();
  Outcomes outcomes_;
};

TEST_F(AsyncQueryTest, WaitsForAsLongAsItTakesWithoutALimit) {
  recorder_.hold(kPage);
  recorder_.setReply(kPage, "/p");
  const PendingQuery query = askForPage();
  passTime(1min);
  EXPECT_TRUE(query.isPending());
  recorder_.release(kPage);
  passTime(1s);
  EXPECT_EQ(outcomes_, (Outcomes{{0, "/p"}}));
}

TEST_F(AsyncQueryTest, ALimitOfNoTimeHasPassedWhenTheLoopRuns) {
  recorder_.hold(kPage);
  for (const auto limit : {0ms, -5ms, std::chrono::milliseconds::min()}) {
    outcomes_.clear();
    const PendingQuery query = askForPage(limit);
    EXPECT_EQ(outcomes_, Outcomes()) << "not within the call";
    passTime(1ms);
    EXPECT_EQ(outcomes_, (Outcomes{{-1712, "none"}}));
  }
}

TEST_F(AsyncQueryTest, ALimitOfAnySizeIsTaken) {
  recorder_.setReply(kPage, "/p");
  const PendingQuery query = askForPage(std::chrono::milliseconds::max());
  passTime(1s);
  EXPECT_EQ(outcomes_, (Outcomes{{0, "/p"}}));
}

TEST_F(AsyncQueryTest, CancelledQueryIsNotAnsweredHoweverOftenItIsCancelled) {
  PendingQuery query = askForPage();
  query.cancel();
  query.cancel();
  EXPECT_FALSE(query.isPending());
  passTime(10s);
  EXPECT_EQ(outcomes_, Outcomes());
  query.cancel();
}

TEST_F(AsyncQueryTest, HandleCancelsWhenItIsDestroyedOrTakesAnother) {
  { const PendingQuery query = askForPage(); }
  PendingQuery query = controller_.clientIDFormHelperAsync(noteIn<std::string>(outcomes_));
  query = askForPage();
  PendingQuery& same = query;
  query = std::move(same);
  passTime(10s);
  EXPECT_EQ(outcomes_, (Outcomes{{0, "none"}})) << "the last one's only";
}

TEST_F(AsyncQueryTest, MovedHandleStillCancels) {
  PendingQuery first = askForPage();
  PendingQuery second = std::move(first);
  EXPECT_FALSE(first.isPending());  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(second.isPending());
  first.cancel();
  EXPECT_TRUE(second.isPending());
  second.cancel();
  passTime(10s);
  EXPECT_EQ(outcomes_, Outcomes());
}

TEST_F(AsyncQueryTest, DetachedQueryGoesOnWithoutItsHandle) {
  recorder_.setReply(kPage, "/p");
  PendingQuery query = askForPage(1min);
  query.detach();
  query.detach();
  EXPECT_FALSE(query.isPending());
  query.cancel();
  passTime(1s);
  EXPECT_EQ(outcomes_, (Outcomes{{0, "/p"}}));
}

TEST_F(AsyncQueryTest, HandleOfNoQueryDoesNothing) {
  PendingQuery none;
  EXPECT_FALSE(none.isPending());
  none.cancel();
  none.detach();
}

TEST_F(AsyncQueryTest, CallBackMayDestroyItsHandleOrCancelIt) {
  for (const bool isDestroyed : {true, false}) {
    std::optional<PendingQuery> query;
    int calls = 0;
    query = controller_.netErrorPagePathAsync([&](OSErr, const OptionalString&) {
      ++calls;
      EXPECT_FALSE(query->isPending());
      isDestroyed ? query.reset() : query->cancel();
    });
    passTime(1s);
    EXPECT_EQ(calls, 1);
  }
}

TEST_F(AsyncQueryTest, CallBackOfATimeOutMayDestroyItsHandle) {
  recorder_.hold(kPage);
  std::optional<PendingQuery> query;
  query =
      controller_.netErrorPagePathAsync([&](OSErr, const OptionalString&) { query.reset(); }, 1s);
  passTime(2s);
  EXPECT_FALSE(query.has_value());
}

TEST_F(AsyncQueryTest, CallBackMayAskAgainAndCancelOthers) {
  PendingQuery other = controller_.clientIDFormHelperAsync(noteIn<std::string>(outcomes_));
  recorder_.hold(kClientID);
  recorder_.setReply(kPage, "/p");
  PendingQuery query;
  query = controller_.netErrorPagePathAsync([&](OSErr, const OptionalString&) {
    other.cancel();
    query = askForPage();
  });
  passTime(1s);
  EXPECT_EQ(outcomes_, (Outcomes{{0, "/p"}}));
}

TEST_F(AsyncQueryTest, CallBackThatHoldsItsOwnHandleIsDestroyedByACancel) {
  auto handle = std::make_shared<PendingQuery>();
  const std::weak_ptr<PendingQuery> life = handle;
  *handle = controller_.netErrorPagePathAsync([handle](OSErr, const OptionalString&) {});
  PendingQuery& query = *handle;
  handle.reset();
  query.cancel();
  EXPECT_TRUE(life.expired());
}

TEST_F(AsyncQueryTest, CallBackIsDestroyedOnceTheQueryIsOver) {
  const auto token = std::make_shared<int>();
  const auto ask = [&] {
    return controller_.netErrorPagePathAsync([token](OSErr, const OptionalString&) {});
  };
  PendingQuery cancelled = ask();
  PendingQuery answered = ask();
  cancelled.cancel();
  passTime(1s);
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_FALSE(answered.isPending());
}

TEST_F(AsyncQueryTest, ExceptionOfACallBackEndsAtTheLibrary) {
  const PendingQuery failing = controller_.netErrorPagePathAsync(
      [](OSErr, const OptionalString&) { throw std::runtime_error("the host's own"); });
  const PendingQuery other = askForPage();
  passTime(1s);
  EXPECT_FALSE(failing.isPending());
  EXPECT_EQ(outcomes_.size(), 1U);
}

TEST_F(AsyncQueryTest, WithoutACallBackTheQueryIsSentAllTheSame) {
  const PendingQuery page = controller_.netErrorPagePathAsync(nullptr);
  const PendingQuery suite = controller_.regSuiteInfoAsync(nullptr);
  const PendingQuery clientID = controller_.clientIDFormHelperAsync(nullptr);
  EXPECT_EQ(recorder_.calls().size(), 3U);
  passTime(1s);
  EXPECT_FALSE(page.isPending());
}

TEST_F(AsyncQueryTest, LoopThatNeverRunsBringsNoAnswerAndNoHarm) {
  {
    const PendingQuery query = askForPage(1s);
    EXPECT_TRUE(query.isPending());
  }
  EXPECT_EQ(outcomes_, Outcomes());
}

TEST_F(AsyncQueryTest, HandleMayOutliveTheLibrarysObjects) {
  PendingQuery query = askForPage(1min);
  clientcomm::AppleEventManager::sharedAppleEventManager().setTransport(
      clientcomm::makeSystemTransport());
  query.cancel();
  EXPECT_FALSE(query.isPending());
}

TEST_F(AsyncQueryTest, CommandsAreSentWhileAQueryIsPending) {
  recorder_.hold(kPage);
  const PendingQuery query = askForPage();
  EXPECT_EQ(controller_.stopHelper(), 0);
  EXPECT_EQ(recorder_.last().selector, "stop:prodeuctVersion:");
}

// --- The client ID that is kept ---

TEST_F(AsyncQueryTest, ClientIDIsKeptWhenItComes) {
  recorder_.setReply(kClientID, "first");
  controller_.clientIDFormHelper();
  recorder_.setReply(kClientID, "second");
  const PendingQuery query = controller_.clientIDFormHelperAsync(
      [&](OSErr, const OptionalString& clientID) { EXPECT_EQ(controller_.clientID(), clientID); });
  EXPECT_EQ(controller_.clientID(), "first");
  passTime(1s);
  EXPECT_EQ(controller_.clientID(), "second");
}

TEST_F(AsyncQueryTest, ClientIDIsNilAfterAFailureAndStaysAfterACancel) {
  recorder_.setReply(kClientID, "first");
  controller_.clientIDFormHelper();
  controller_.clientIDFormHelperAsync(nullptr).cancel();
  EXPECT_EQ(controller_.clientID(), "first");
  recorder_.setStatus(-609);
  const PendingQuery query = controller_.clientIDFormHelperAsync(nullptr);
  passTime(1s);
  EXPECT_EQ(controller_.clientID(), std::nullopt);
}

}  // namespace
