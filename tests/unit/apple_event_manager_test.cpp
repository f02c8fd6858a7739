#include "ClientComm/platform/apple_event_manager.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <stdexcept>

#include "tests/support/recording_transport.h"

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::AppleEventManager;
using clientcomm::OSErr;

constexpr clientcomm::AEEventClass kClass = 0x61657674;  // 'aevt'
constexpr clientcomm::AEEventID kCall = 0x63616c6c;      // 'call'
constexpr clientcomm::AEEventID kOther = 0x6f746872;     // 'othr'

AppleEventDescriptor eventWithID(clientcomm::AEEventID identifier) {
  return AppleEventDescriptor::appleEvent(kClass, identifier, {}, -1, 0);
}

OSErr dispatch(clientcomm::AEEventID identifier) {
  AppleEventDescriptor reply;
  return AppleEventManager::sharedAppleEventManager().dispatchRawAppleEvent(eventWithID(identifier),
                                                                            reply);
}

/// Fails in the way that a carrier must not.
class ThrowingTransport : public clientcomm::AppleEventTransport {
 public:
  explicit ThrowingTransport(bool isOutOfMemory) : isOutOfMemory_(isOutOfMemory) {}
  OSErr send(const AppleEventDescriptor&, AppleEventDescriptor&, clientcomm::AESendMode,
             std::int32_t) override {
    if (isOutOfMemory_) throw std::bad_alloc();
    throw std::runtime_error("carrier failed");
  }
  std::unique_ptr<clientcomm::PendingReply> query(AppleEventDescriptor, ReplyHandler) override {
    if (isOutOfMemory_) throw std::bad_alloc();
    throw std::runtime_error("carrier failed");
  }
  OSErr startReceiving(Receiver) override { return clientcomm::noErr; }
  void stopReceiving() override {}

 private:
  bool isOutOfMemory_;
};

class AppleEventManagerTest : public testing::Test {
 protected:
  AppleEventManager& manager_ = AppleEventManager::sharedAppleEventManager();
  support::RecordingTransport& recorder_ = support::RecordingTransport::install();

  void setHandlerWithStatus(OSErr status, clientcomm::AEEventID identifier = kCall) {
    manager_.setEventHandler(
        [status](const AppleEventDescriptor&, AppleEventDescriptor&) { return status; }, kClass,
        identifier);
  }
};

TEST_F(AppleEventManagerTest, TheApplicationIsOpenToEventsWhileItHasAHandler) {
  EXPECT_FALSE(recorder_.isReceiving());
  setHandlerWithStatus(0, kCall);
  EXPECT_TRUE(recorder_.isReceiving());
  setHandlerWithStatus(0, kOther);
  manager_.removeEventHandler(kClass, kCall);
  EXPECT_TRUE(recorder_.isReceiving());
  manager_.removeEventHandler(kClass, kOther);
  EXPECT_FALSE(recorder_.isReceiving());
}

TEST_F(AppleEventManagerTest, RemovingAHandlerThatIsNotThereDoesNothing) {
  manager_.removeEventHandler(kClass, kCall);
  setHandlerWithStatus(0, kOther);
  manager_.removeEventHandler(kClass, kCall);
  EXPECT_TRUE(recorder_.isReceiving());
}

TEST_F(AppleEventManagerTest, AnotherTransportReceivesWhatTheOldOneDid) {
  setHandlerWithStatus(-5);
  support::RecordingTransport& next = support::RecordingTransport::install();
  EXPECT_TRUE(next.isReceiving());
  EXPECT_EQ(next.deliver(eventWithID(kCall)).status, -5);
}

TEST_F(AppleEventManagerTest, ATransportPutInPlaceOfAClosedOneStaysClosed) {
  EXPECT_FALSE(support::RecordingTransport::install().isReceiving());
}

TEST_F(AppleEventManagerTest, AnEventGoesToTheHandlerOfItsClassAndID) {
  setHandlerWithStatus(-1, kCall);
  setHandlerWithStatus(-2, kOther);
  EXPECT_EQ(dispatch(kCall), -1);
  EXPECT_EQ(dispatch(kOther), -2);
}

TEST_F(AppleEventManagerTest, AnEventWithoutAHandlerIsNotHandled) {
  EXPECT_EQ(dispatch(kCall), -1708);
}

TEST_F(AppleEventManagerTest, ALaterHandlerReplacesTheEarlier) {
  setHandlerWithStatus(-1);
  setHandlerWithStatus(-2);
  EXPECT_EQ(dispatch(kCall), -2);
}

TEST_F(AppleEventManagerTest, AHandlerMayRemoveItself) {
  const auto alive = std::make_shared<int>(7);
  manager_.setEventHandler(
      [this, alive](const AppleEventDescriptor&, AppleEventDescriptor&) {
        manager_.removeEventHandler(kClass, kCall);
        return static_cast<OSErr>(*alive);
      },
      kClass, kCall);
  EXPECT_EQ(dispatch(kCall), 7);
  EXPECT_EQ(dispatch(kCall), -1708);
}

TEST_F(AppleEventManagerTest, WhatAHandlerThrowsBecomesAStatus) {
  manager_.setEventHandler(
      [](const AppleEventDescriptor&, AppleEventDescriptor&) -> OSErr {
        throw std::runtime_error("handler failed");
      },
      kClass, kCall);
  EXPECT_EQ(dispatch(kCall), -1708);
  manager_.setEventHandler(
      [](const AppleEventDescriptor&, AppleEventDescriptor&) -> OSErr { throw std::bad_alloc(); },
      kClass, kCall);
  EXPECT_EQ(dispatch(kCall), -108);
}

TEST_F(AppleEventManagerTest, OnlyWellFormedRequestsReachTheTransport) {
  AppleEventDescriptor reply;
  const AppleEventDescriptor event = support::callEvent("C", "s", {});
  EXPECT_EQ(clientcomm::AESendMessage(AppleEventDescriptor(), reply, 1, -1), -50);
  EXPECT_EQ(
      clientcomm::AESendMessage(AppleEventDescriptor::descriptorWithString("x"), reply, 1, -1),
      -50);
  EXPECT_EQ(clientcomm::AESendMessage(event, reply, 0, -1), -50);
  EXPECT_EQ(clientcomm::AESendMessage(event, reply, 2, -1), -50);
  EXPECT_EQ(clientcomm::AESendMessage(event, reply, 1, -3), -50);
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_EQ(clientcomm::AESendMessage(event, reply, 1, -1), 0);
  EXPECT_EQ(recorder_.calls().size(), 1U);
}

TEST_F(AppleEventManagerTest, TheTransportsStatusComesBackUnchanged) {
  AppleEventDescriptor reply;
  for (const OSErr status : {OSErr{-600}, OSErr{-1712}, OSErr{1}, OSErr{-32768}}) {
    recorder_.setStatus(status);
    EXPECT_EQ(clientcomm::AESendMessage(support::callEvent("C", "s", {}), reply, 1, -1), status);
  }
}

TEST_F(AppleEventManagerTest, WhatATransportThrowsBecomesAStatus) {
  AppleEventDescriptor reply;
  manager_.setTransport(std::make_unique<ThrowingTransport>(true));
  EXPECT_EQ(clientcomm::AESendMessage(support::callEvent("C", "s", {}), reply, 3, -2), -108);
  manager_.setTransport(std::make_unique<ThrowingTransport>(false));
  EXPECT_EQ(clientcomm::AESendMessage(support::callEvent("C", "s", {}), reply, 3, -2), -609);
}

}  // namespace
