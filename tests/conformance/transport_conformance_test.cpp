#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/process_manager.h"
#include "ClientComm/platform/wire_format.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::AppleEventManager;

/// This application takes events, and sends them to itself.
class TransportConformance : public testing::Test {
 protected:
  static OSErr send(const std::string& text, const std::string& target = "com.example.testhost") {
    return TQHPAppleEventSender::share().sendEvnet(target, "Class", text, {});
  }

  void open() {
    AppleEventManager::sharedAppleEventManager().setEventHandler(
        [this](AppleEventDescriptor event, AppleEventDescriptor&) {
          events_.push_back(std::move(event));
          return clientcomm::noErr;
        },
        clientcomm::kCallEventClass, clientcomm::kCallEventID);
  }

  ~TransportConformance() override {
    AppleEventManager::sharedAppleEventManager().removeEventHandler(clientcomm::kCallEventClass,
                                                                    clientcomm::kCallEventID);
  }

  std::vector<AppleEventDescriptor> events_;
};

TEST_F(TransportConformance, FindsNoApplicationThatTakesNoEvents) {
  EXPECT_EQ(send("text", "com.example.none"), clientcomm::procNotFound);
  EXPECT_EQ(send("text"), clientcomm::procNotFound) << "it is not open yet";
}

TEST_F(TransportConformance, HandsEventsOverInTheirOrderOnTheRunLoop) {
  open();
  for (const char* text : {"1", "2", "3"}) EXPECT_EQ(send(text), clientcomm::noErr);
  EXPECT_TRUE(events_.empty()) << "not before the loop runs";
  ASSERT_TRUE(support::runLoopUntil([this] { return events_.size() == 3; }));
  for (std::size_t i = 0; i < 3; ++i) {
    const auto* const call = events_[i].paramDescriptorForKeyword(clientcomm::keyDirectObject);
    ASSERT_NE(call, nullptr);
    EXPECT_EQ(call->descriptorAtIndex(2)->stringValue(), std::to_string(i + 1));
  }
}

TEST_F(TransportConformance, GivesAnEventTheSendersAddress) {
  open();
  ASSERT_EQ(send("text"), clientcomm::noErr);
  ASSERT_TRUE(support::runLoopUntil([this] { return !events_.empty(); }));
  const auto* const address =
      events_.front().attributeDescriptorForKeyword(clientcomm::keyAddressAttr);
  ASSERT_NE(address, nullptr);
  EXPECT_EQ(address->descriptorType(), clientcomm::typeProcessSerialNumber);
}

TEST_F(TransportConformance, RefusesWhatCannotBeCarried) {
  open();
  EXPECT_EQ(send(std::string(clientcomm::kMaximumFlattenedSize, 'x')), clientcomm::memFullErr);
}

// --- Queries ---

/// Queries to this application itself, which answers with the text of the selector.
class QueryConformance : public testing::Test {
 protected:
  QueryConformance() {
    AppleEventManager::sharedAppleEventManager().setEventHandler(
        [this](AppleEventDescriptor event, AppleEventDescriptor& reply) {
          auto* const call = event.paramDescriptorForKeyword(clientcomm::keyDirectObject);
          asked_.push_back(call->descriptorAtIndex(2)->stringValue().value_or("none"));
          reply.setParamDescriptor(std::move(*call->descriptorAtIndex(2)),
                                   clientcomm::keyDirectObject);
          return clientcomm::noErr;
        },
        clientcomm::kCallEventClass, clientcomm::kCallEventID);
  }
  ~QueryConformance() override {
    AppleEventManager::sharedAppleEventManager().removeEventHandler(clientcomm::kCallEventClass,
                                                                    clientcomm::kCallEventID);
  }

  clientcomm::PendingQuery ask(const std::string& text,
                               const std::string& target = "com.example.testhost") {
    return TQHPAppleEventSender::share().sendEvnetAsync(
        target, "Class", text, {}, [this](OSErr status, const clientcomm::OptionalString& answer) {
          outcomes_.push_back(answer.value_or("none") + " " + std::to_string(status));
        });
  }

  bool runUntilOver(const clientcomm::PendingQuery& query) {
    return support::runLoopUntil([&] { return !query.isPending(); });
  }

  using Outcomes = std::vector<std::string>;
  Outcomes outcomes_;
  std::vector<std::string> asked_;  ///< In the order in which the target was asked.
};

TEST_F(QueryConformance, IsAnsweredOnTheRunLoop) {
  const auto query = ask("text");
  EXPECT_EQ(outcomes_, Outcomes()) << "not before the loop runs";
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, Outcomes{"text 0"});
}

TEST_F(QueryConformance, ReachTheTargetInTheirOrder) {
  const auto first = ask("1");
  const auto second = ask("2");
  ASSERT_TRUE(runUntilOver(first));
  ASSERT_TRUE(runUntilOver(second));
  EXPECT_EQ(asked_, (Outcomes{"1", "2"}));
}

TEST_F(QueryConformance, FailsOnTheRunLoopToo) {
  const auto query = ask("text", "com.example.none");
  EXPECT_EQ(outcomes_, Outcomes()) << "not before the loop runs";
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, Outcomes{"none -600"});
}

TEST_F(QueryConformance, CannotCarryWhatNoEventCarries) {
  const auto query = ask(std::string(clientcomm::kMaximumFlattenedSize, 'x'));
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, Outcomes{"none -108"});
}

TEST_F(QueryConformance, CancelledOneIsNotAnswered) {
  ask("cancelled").cancel();
  const auto query = ask("other");
  ASSERT_TRUE(runUntilOver(query));
  EXPECT_EQ(outcomes_, Outcomes{"other 0"});
}

TEST_F(QueryConformance, HandlerMayDestroyThePendingReply) {
  std::unique_ptr<clientcomm::PendingReply> reply;
  bool isCalled = false;
  reply = AppleEventManager::sharedAppleEventManager().transport().query(
      AppleEventDescriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kCallEventID,
                                       {clientcomm::typeApplicationBundleID, "com.example.none"},
                                       clientcomm::kAutoGenerateReturnID,
                                       clientcomm::kAnyTransactionID),
      [&](OSErr, const AppleEventDescriptor&) {
        reply.reset();
        isCalled = true;
      });
  EXPECT_TRUE(support::runLoopUntil([&] { return isCalled; }));
}

}  // namespace
