// The asynchronous forms of the C interface.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ClientComm/clientcomm.h"
#include "tests/support/memory/memory_system.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using namespace std::chrono_literals;
using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr char kPage[] = "netErrorPagePath:version:";
constexpr clientcomm_text kA = CLIENTCOMM_TEXT("a");
constexpr clientcomm_text kB = CLIENTCOMM_TEXT("b");

/// What a program keeps for a query.
struct Asker {
  Strings told;
  int destroyed = 0;
  clientcomm_query* query = nullptr;
  std::function<void()> whenTold;

  void tell(clientcomm_status status, const std::string& value) {
    EXPECT_EQ(destroyed, 0);
    told.push_back(std::to_string(status) + " " + value);
    if (whenTold) whenTold();
  }
};

Asker& askerOf(void* context) { return *static_cast<Asker*>(context); }

void takeText(void* context, clientcomm_status status, clientcomm_text text) {
  askerOf(context).tell(status,
                        text.bytes == nullptr ? "nil" : std::string(text.bytes, text.length));
}

void takeFlag(void* context, clientcomm_status status, bool flag) {
  askerOf(context).tell(status, flag ? "yes" : "no");
}

void takeSuite(void* context, clientcomm_status status, clientcomm_text url, int32_t width,
               int32_t height) {
  const std::string text = url.bytes == nullptr ? "nil" : std::string(url.bytes, url.length);
  askerOf(context).tell(status, text + " " + std::to_string(width) + " " + std::to_string(height));
}

void destroy(void* context) { ++askerOf(context).destroyed; }

void passTime(std::chrono::milliseconds time) {
  support::MemorySystem::current().clock.advance(time);
}

clientcomm_status askPage(Asker& asker, int64_t limit = CLIENTCOMM_NO_LIMIT) {
  return clientcomm_network_error_page_async(limit, takeText, &asker, destroy, &asker.query);
}

class CAsync : public testing::Test {
 protected:
  CAsync() {
    EXPECT_EQ(clientcomm_start(), CLIENTCOMM_OK);
    recorder_.forget();
  }
  void TearDown() override { clientcomm_query_release(asker_.query); }

  RecordingTransport& recorder_ = RecordingTransport::install();
  Asker asker_;
};

// --- Every query ---

struct Form {
  const char* name;
  const char* selector;
  const char* reply;
  const char* value;
  const char* noValue;
  std::function<clientcomm_status(Asker&, int64_t limit)> ask;
};

void PrintTo(const Form& form, std::ostream* out) { *out << form.name; }

class CAsyncForm : public CAsync, public testing::WithParamInterface<Form> {
 protected:
  std::string withoutValue(clientcomm_status status) const {
    return std::to_string(status) + " " + GetParam().noValue;
  }
};

TEST_P(CAsyncForm, BringsTheAnswerOnTheLoop) {
  recorder_.setReply(GetParam().selector, GetParam().reply);
  ASSERT_EQ(GetParam().ask(asker_, CLIENTCOMM_NO_LIMIT), CLIENTCOMM_OK);
  EXPECT_EQ(recorder_.selectors(), Strings{GetParam().selector}) << "sent at once";
  EXPECT_EQ(asker_.told, Strings());
  passTime(1s);
  EXPECT_EQ(asker_.told, Strings{std::string("0 ") + GetParam().value});
  EXPECT_EQ(asker_.destroyed, 1);
}

TEST_P(CAsyncForm, BringsAStatusWithoutAValue) {
  recorder_.setStatus(-600);
  ASSERT_EQ(GetParam().ask(asker_, CLIENTCOMM_NO_LIMIT), CLIENTCOMM_OK);
  passTime(1s);
  EXPECT_EQ(asker_.told, Strings{withoutValue(CLIENTCOMM_NOT_RUNNING)});
}

TEST_P(CAsyncForm, EndsByItsLimit) {
  recorder_.hold(GetParam().selector);
  ASSERT_EQ(GetParam().ask(asker_, 2000), CLIENTCOMM_OK);
  passTime(1999ms);
  EXPECT_EQ(asker_.told, Strings());
  passTime(1ms);
  EXPECT_EQ(asker_.told, Strings{withoutValue(CLIENTCOMM_TIMED_OUT)});
}

TEST_P(CAsyncForm, RefusesANegativeLimit) {
  EXPECT_EQ(GetParam().ask(asker_, -1), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(asker_.query, nullptr);
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_EQ(asker_.destroyed, 0) << "the context stays the program's";
}

const Form kForms[] = {
    {"ClientID", "clientIDFormHelper", "C-1", "C-1", "nil",
     [](Asker& asker, int64_t limit) {
       return clientcomm_ask_client_id_async(limit, takeText, &asker, destroy, &asker.query);
     }},
    {"CollectStatus", "productCollectStatus:version:", "1", "yes", "no",
     [](Asker& asker, int64_t limit) {
       return clientcomm_collect_status_async(limit, takeFlag, &asker, destroy, &asker.query);
     }},
    {"Suite", "regSuiteInfo:version:", "page.html###640###480", "page.html 640 480", "nil 0 0",
     [](Asker& asker, int64_t limit) {
       return clientcomm_register_suite_async(limit, takeSuite, &asker, destroy, &asker.query);
     }},
    {"UnSuite", "unRegSuiteInfo:version:", "other.html###1###2", "other.html 1 2", "nil 0 0",
     [](Asker& asker, int64_t limit) {
       return clientcomm_unregister_suite_async(limit, takeSuite, &asker, destroy, &asker.query);
     }},
    {"Page", kPage, "/page", "/page", "nil", askPage},
    {"Any", "b", "text", "text", "nil",
     [](Asker& asker, int64_t limit) {
       return clientcomm_ask_async(kA, kA, kB, &kB, 1, limit, takeText, &asker, destroy,
                                   &asker.query);
     }},
};

INSTANTIATE_TEST_SUITE_P(All, CAsyncForm, testing::ValuesIn(kForms),
                         [](const auto& instance) { return std::string(instance.param.name); });

// --- The handle and the call-back ---

TEST_F(CAsync, AnAnswerWithoutTextHasNoValue) {
  ASSERT_EQ(askPage(asker_), CLIENTCOMM_OK);
  passTime(1s);
  EXPECT_EQ(asker_.told, Strings{std::to_string(CLIENTCOMM_NO_VALUE) + " nil"});
}

TEST_F(CAsync, ReleasedTheQueryIsGivenUpAndItsContextDestroyed) {
  recorder_.setReply(kPage, "/page");
  ASSERT_EQ(askPage(asker_), CLIENTCOMM_OK);
  clientcomm_query* const query = asker_.query;
  EXPECT_EQ(clientcomm_query_release(query), CLIENTCOMM_OK);
  EXPECT_EQ(asker_.destroyed, 1);
  EXPECT_EQ(clientcomm_query_release(query), CLIENTCOMM_STALE_HANDLE);
  passTime(1s);
  EXPECT_EQ(asker_.told, Strings());
  EXPECT_EQ(asker_.destroyed, 1);
}

TEST_F(CAsync, MayBeReleasedByItsCallBack) {
  asker_.whenTold = [this] {
    EXPECT_EQ(clientcomm_query_release(asker_.query), CLIENTCOMM_OK);
    EXPECT_EQ(asker_.destroyed, 0) << "not while the call-back runs";
  };
  ASSERT_EQ(askPage(asker_), CLIENTCOMM_OK);
  passTime(1s);
  EXPECT_EQ(asker_.told.size(), 1U);
  EXPECT_EQ(asker_.destroyed, 1);
}

TEST_F(CAsync, WithoutAHandleItGoesOnToItsEnd) {
  recorder_.setReply(kPage, "/page");
  EXPECT_EQ(
      clientcomm_network_error_page_async(CLIENTCOMM_NO_LIMIT, takeText, &asker_, destroy, nullptr),
      CLIENTCOMM_OK);
  passTime(1s);
  EXPECT_EQ(asker_.told, Strings{"0 /page"});
  EXPECT_EQ(asker_.destroyed, 1);
}

TEST_F(CAsync, WithoutALimitItTakesAsLongAsTheHelperDoes) {
  recorder_.hold(kPage);
  ASSERT_EQ(askPage(asker_), CLIENTCOMM_OK);
  support::MemorySystem::current().clock.sleep(std::chrono::hours(24 * 1000));
  passTime(1s);
  EXPECT_EQ(asker_.told, Strings());
  recorder_.release(kPage);
  passTime(1s);
  EXPECT_EQ(asker_.told.size(), 1U);
}

TEST_F(CAsync, TheCallBackMayAskAgain) {
  Asker second;
  asker_.whenTold = [&second] { EXPECT_EQ(askPage(second), CLIENTCOMM_OK); };
  ASSERT_EQ(askPage(asker_), CLIENTCOMM_OK);
  passTime(1s);
  EXPECT_EQ(second.told.size(), 1U);
  EXPECT_EQ(clientcomm_query_release(second.query), CLIENTCOMM_OK);
}

TEST_F(CAsync, AnExceptionEndsWithTheCallBack) {
  asker_.whenTold = [] { throw std::runtime_error("of a program in C++"); };
  ASSERT_EQ(askPage(asker_), CLIENTCOMM_OK);
  passTime(1s);
  EXPECT_EQ(asker_.told.size(), 1U);
  EXPECT_EQ(asker_.destroyed, 1);
}

TEST_F(CAsync, RefusesNullAndWhatCannotBeCarried) {
  EXPECT_EQ(
      clientcomm_network_error_page_async(CLIENTCOMM_NO_LIMIT, nullptr, &asker_, destroy, nullptr),
      CLIENTCOMM_BAD_ARGUMENT);
  const auto ask = [this](clientcomm_text application, const clientcomm_text* arguments,
                          std::size_t count) {
    return clientcomm_ask_async(application, kA, kB, arguments, count, CLIENTCOMM_NO_LIMIT,
                                takeText, &asker_, destroy, &asker_.query);
  };
  EXPECT_EQ(ask({nullptr, 0}, nullptr, 0), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(ask(kA, nullptr, 1), CLIENTCOMM_BAD_ARGUMENT);
  EXPECT_EQ(ask(kA, nullptr, std::numeric_limits<std::size_t>::max()), CLIENTCOMM_TOO_LARGE);
  EXPECT_EQ(clientcomm_query_release(nullptr), CLIENTCOMM_OK);
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_EQ(asker_.destroyed, 0);
}

TEST_F(CAsync, OnAnotherThreadNothingIsDone) {
  clientcomm_status asked = CLIENTCOMM_OK;
  clientcomm_status started = CLIENTCOMM_OK;
  std::thread other([&] {
    asked = askPage(asker_);
    started = clientcomm_start_async(nullptr, &asker_, destroy);
  });
  other.join();
  EXPECT_EQ(asked, CLIENTCOMM_WRONG_THREAD);
  EXPECT_EQ(started, CLIENTCOMM_WRONG_THREAD);
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_EQ(asker_.destroyed, 0);
}

// --- The start-up ---

class CAsyncStart : public testing::Test {
 protected:
  clientcomm_status start() {
    return clientcomm_start_async(
        [](void* context, clientcomm_status status) { askerOf(context).tell(status, "started"); },
        &asker_, destroy);
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  Asker asker_;
};

TEST_F(CAsyncStart, AQueryBeforeItIsRefused) {
  EXPECT_EQ(askPage(asker_), CLIENTCOMM_NOT_STARTED);
  EXPECT_EQ(asker_.destroyed, 0);
  EXPECT_EQ(asker_.query, nullptr);
}

TEST_F(CAsyncStart, TellsOnceOnTheLoopThatItIsOver) {
  ASSERT_EQ(start(), CLIENTCOMM_OK);
  EXPECT_EQ(asker_.told, Strings());
  passTime(1min);
  EXPECT_EQ(asker_.told.size(), 1U);
  EXPECT_EQ(asker_.destroyed, 1);
}

TEST_F(CAsyncStart, NeedsNoCallBackAndServesFromThenOn) {
  ASSERT_EQ(clientcomm_start_async(nullptr, nullptr, nullptr), CLIENTCOMM_OK);
  recorder_.forget();
  EXPECT_EQ(askPage(asker_), CLIENTCOMM_OK);
  EXPECT_EQ(recorder_.countOf(kPage), 1);
  EXPECT_EQ(clientcomm_query_release(asker_.query), CLIENTCOMM_OK);
}

}  // namespace
