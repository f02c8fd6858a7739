#include <gtest/gtest.h>

#include <string>
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

}  // namespace
