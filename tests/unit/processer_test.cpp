#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/platform/apple_event_manager.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "tests/support/allocation_count.h"
#include "tests/support/memory/memory_applications.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;
using support::RecordingTransport;

constexpr clientcomm::DescType kText = 0x75747874;              // 'utxt'
constexpr clientcomm::DescType kSerialNumber = 0x70736e20;      // 'psn '
constexpr clientcomm::AEKeyword kAddress = 0x61646472;          // 'addr'
constexpr clientcomm::AEKeyword kDirectParameter = 0x2D2D2D2D;  // '----'

// More arguments than are read as one descriptor each.
constexpr std::size_t kMany = 100;

int instancesMade = 0;
int instancesGone = 0;
std::vector<std::string> received;
std::function<OptionalString()> whenAsked;

/// What a helper would define: a class of its own, callable by name.
class Recorder : public TQHPAppEventBase {
 public:
  Recorder() { ++instancesMade; }
  ~Recorder() override { ++instancesGone; }

  static const clientcomm::Class& staticClass() {
    using clientcomm::method;
    static const auto* const cls =
        new clientcomm::Class("Recorder", clientcomm::makeShared<Recorder>,
                              {method<&Recorder::nothing>("nothing"),
                               method<&Recorder::two>("two::"),
                               method<&Recorder::three>("three:::"),
                               method<&Recorder::status>("status:"),
                               method<&Recorder::ask>("ask"),
                               {"many", kMany, joined}});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }

  OSErr nothing() {
    received.emplace_back("nothing");
    return 0;
  }
  OptionalString two(const OptionalString& a, const OptionalString& b) {
    received.push_back(a.value_or("(nil)") + "|" + b.value_or("(nil)"));
    return received.back();
  }
  OptionalString three(const OptionalString& a, const OptionalString& b, const OptionalString& c) {
    received.push_back(a.value_or("(nil)") + "|" + b.value_or("(nil)") + "|" + c.value_or("(nil)"));
    return received.back();
  }
  OSErr status(const OptionalString& text) { return text == "0" ? OSErr{0} : OSErr{-600}; }
  OptionalString ask() { return whenAsked(); }
  static OptionalString joined(clientcomm::Object& /*receiver*/,
                               std::span<const OptionalString> arguments) {
    if (whenAsked) whenAsked();
    std::string all;
    for (const OptionalString& argument : arguments) all += argument.value_or("(nil)") + "|";
    return all;
  }

  static const BundleIDSet& callers() { return bundleIDSet(); }
};

/// Registered, but no object of the family that takes calls.
class Stranger : public clientcomm::Object {
 public:
  Stranger() { ++instancesMade; }
  static const clientcomm::Class& staticClass() {
    static const auto* const cls =
        new clientcomm::Class("Stranger", clientcomm::makeShared<Stranger>, {});
    return *cls;
  }
  const clientcomm::Class& isa() const override { return staticClass(); }
};

class ProcesserTest : public testing::Test {
 protected:
  void SetUp() override {
    instancesMade = 0;
    instancesGone = 0;
    received.clear();
    whenAsked = nullptr;
    clientcomm::registerClass(Recorder::staticClass());
    clientcomm::registerClass(Stranger::staticClass());
    TQHPAppleEventProcesser::share();
  }

  OptionalString call(const std::string& selector, const std::vector<std::string>& arguments = {}) {
    return recorder_.call("Recorder", selector, arguments).text;
  }

  /// Delivers a call of `nothing` with `address` as the sender's.
  OptionalString callFrom(AppleEventDescriptor address) {
    AppleEventDescriptor event = support::callEvent("Recorder", "two::", {"a", "b"});
    event.setAttributeDescriptor(std::move(address), kAddress);
    return recorder_.deliver(event).text;
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
};

// --- Routing ---

TEST_F(ProcesserTest, ItsCreationOpensTheProcessToCalls) {
  EXPECT_TRUE(recorder_.isReceiving());
  EXPECT_EQ(processer, &TQHPAppleEventProcesser::share());
}

TEST_F(ProcesserTest, ARegisteredObjectReceivesTheCallsOfItsClass) {
  Recorder mine;
  TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(mine, "Recorder");
  EXPECT_EQ(call("two::", {"a", "b"}), "a|b");
  EXPECT_EQ(instancesMade, 1) << "no new object was made";
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("Recorder"), &mine);
  TQHPAppleEventProcesser::share().removeObjectforKeyToMapTable("Recorder");
}

TEST_F(ProcesserTest, ALaterRegistrationReplacesTheEarlier) {
  Recorder first;
  Recorder second;
  TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(first, "Recorder");
  TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(second, "Recorder");
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("Recorder"), &second);
  TQHPAppleEventProcesser::share().removeObjectforKeyToMapTable("Recorder");
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("Recorder"), nullptr);
}

TEST_F(ProcesserTest, AClassWithoutAnObjectGetsOneOnTheFirstCallAndKeepsIt) {
  EXPECT_EQ(instancesMade, 0);
  EXPECT_EQ(call("two::", {"1", "2"}), "1|2");
  clientcomm::Object* const made = TQHPAppleEventProcesser::share().objectForKey("Recorder");
  EXPECT_EQ(call("two::", {"3", "4"}), "3|4");
  EXPECT_EQ(instancesMade, 1);
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("Recorder"), made);
}

TEST_F(ProcesserTest, AnObjectMadeForACallLivesOnWhenAnotherTakesItsPlace) {
  Recorder other;
  whenAsked = [&other]() -> OptionalString {
    TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(other, "Recorder");
    return "replaced";
  };
  EXPECT_EQ(call("ask"), "replaced");
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("Recorder"), &other);
  EXPECT_EQ(call("two::", {"a", "b"}), "a|b");
}

TEST_F(ProcesserTest, AnObjectMadeForACallLivesOnWhenOneOfAnotherClassIsMade) {
  call("nothing");
  recorder_.call("Stranger", "nothing");
  EXPECT_EQ(instancesMade, 2);
  EXPECT_EQ(instancesGone, 0);
}

// --- Objects that end ---

TEST_F(ProcesserTest, AnObjectThatIsDestroyedTakesItsEntriesWithIt) {
  TQHPAppleEventProcesser& table = TQHPAppleEventProcesser::share();
  {
    Recorder mine;
    table.setObjectforKeyToMapTable(mine, "Recorder");
    table.setObjectforKeyToMapTable(mine, "Another name");
  }
  EXPECT_EQ(table.objectForKey("Recorder"), nullptr);
  EXPECT_EQ(table.objectForKey("Another name"), nullptr);
  EXPECT_EQ(call("two::", {"a", "b"}), "a|b") << "another one is made for the call";
  EXPECT_EQ(instancesMade, 2);
}

TEST_F(ProcesserTest, AnObjectThatIsDestroyedLeavesTheEntryOfTheOneThatReplacedIt) {
  TQHPAppleEventProcesser& table = TQHPAppleEventProcesser::share();
  Recorder later;
  {
    Recorder earlier;
    table.setObjectforKeyToMapTable(earlier, "Recorder");
    table.setObjectforKeyToMapTable(later, "Recorder");
  }
  EXPECT_EQ(table.objectForKey("Recorder"), &later);
}

TEST_F(ProcesserTest, AnObjectOutsideTheFamilyTakesItsEntriesWithItToo) {
  {
    Stranger stranger;
    TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(stranger, "Stranger");
  }
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("Stranger"), nullptr);
  EXPECT_EQ(recorder_.call("Stranger", "nothing").status, 0);
}

TEST_F(ProcesserTest, AnObjectThatIsDestroyedTakesItsEntriesOfEveryProcessor) {
  TQHPAppleEventProcesser other;
  {
    Recorder mine;
    other.setObjectforKeyToMapTable(mine, "Recorder");
  }
  EXPECT_EQ(other.objectForKey("Recorder"), nullptr);
}

TEST_F(ProcesserTest, AnObjectMayDestroyItselfWhileItIsCalled) {
  auto* const mine = new Recorder;
  TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(*mine, "Recorder");
  whenAsked = [mine]() -> OptionalString {
    delete mine;
    return "gone";
  };
  EXPECT_EQ(call("ask"), "gone");
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("Recorder"), nullptr);
  EXPECT_EQ(call("two::", {"a", "b"}), "a|b");
  EXPECT_EQ(instancesMade, 2);
}

TEST_F(ProcesserTest, AnUnknownClassYieldsNilAndMakesNothing) {
  const support::Answer answer = recorder_.call("NoSuchClass", "nothing");
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("NoSuchClass"), nullptr);
  EXPECT_EQ(recorder_.call("", "nothing").text, std::nullopt);
  EXPECT_EQ(recorder_.call("recorder", "nothing").text, std::nullopt) << "letter for letter";
  EXPECT_EQ(instancesMade, 0);
}

TEST_F(ProcesserTest, AnUnknownSelectorYieldsNilWithoutAnError) {
  const support::Answer answer = recorder_.call("Recorder", "unknown:", {"a"});
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_TRUE(received.empty());
}

TEST_F(ProcesserTest, AnObjectOutsideTheFamilyTakesNoCalls) {
  const support::Answer answer = recorder_.call("Stranger", "nothing");
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_EQ(recorder_.call("Stranger", "nothing").text, std::nullopt);
  EXPECT_EQ(instancesMade, 1) << "it is kept all the same";
}

// --- Arguments and results ---

TEST_F(ProcesserTest, WithoutArgumentsASelectorWithoutParametersIsInvoked) {
  call("nothing");
  EXPECT_EQ(received, std::vector<std::string>{"nothing"});
}

TEST_F(ProcesserTest, TwoArgumentsReachTheirParametersInOrder) {
  EXPECT_EQ(call("two::", {"first", "second"}), "first|second");
}

// How often memory is allocated for a call with `count` arguments, from its bytes to its method.
std::uint64_t allocationsForACallOf(std::size_t count) {
  const std::vector<std::string> texts(count, "longer than what a string holds in place");
  const AppleEventDescriptor call = support::callEvent("Recorder", "two::", texts);
  std::string bytes(clientcomm::flattenedSize(call).value(), '\0');
  clientcomm::flattenTo(call, bytes.data());
  AppleEventDescriptor reply;
  const std::uint64_t before = support::allocationCount();
  auto event = clientcomm::unflatten(bytes);
  clientcomm::AppleEventManager::sharedAppleEventManager().dispatchRawAppleEvent(*std::move(event),
                                                                                 reply);
  return support::allocationCount() - before;
}

TEST_F(ProcesserTest, MemoryIsAllocatedOnceForEachArgument) {
  allocationsForACallOf(200);  // what is made for the first call, and kept
  EXPECT_EQ(allocationsForACallOf(200) - allocationsForACallOf(100), 100);
}

TEST_F(ProcesserTest, MoreArgumentsThanTheSelectorTakesInvokeNothing) {
  EXPECT_EQ(call("three:::", {"1", "2", "3", "4"}), std::nullopt);
  EXPECT_TRUE(received.empty());
}

TEST_F(ProcesserTest, FewerArgumentsThanTheSelectorTakesLeaveTheRestNil) {
  EXPECT_EQ(call("three:::", {"1", "2"}), "1|2|(nil)");
}

TEST_F(ProcesserTest, AStatusReadsAsANilResult) {
  const support::Answer answer = recorder_.call("Recorder", "status:", {"0"});
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_TRUE(answer.reply.parameters().empty());
  EXPECT_EQ(call("status:", {"1"}), std::nullopt) << "whatever its value";
}

TEST_F(ProcesserTest, TextComesBackAsTheRepliesDirectParameterAlone) {
  const support::Answer answer = recorder_.call("Recorder", "two::", {"a", "b"});
  ASSERT_EQ(answer.reply.parameters().size(), 1U);
  EXPECT_EQ(answer.reply.parameters().front().first, kDirectParameter);
  EXPECT_EQ(answer.reply.parameters().front().second.descriptorType(), kText);
  EXPECT_TRUE(answer.reply.attributes().empty());
}

TEST_F(ProcesserTest, EmptyTextIsNotNil) {
  whenAsked = [] { return OptionalString(""); };
  EXPECT_EQ(call("ask"), "");
}

// --- The form of the event ---

/// A call event whose direct parameter is `call`, from this process.
AppleEventDescriptor eventWithParameter(AppleEventDescriptor call) {
  AppleEventDescriptor event = AppleEventDescriptor::appleEvent(0x61657674, 0x63616c6c, {}, -1, 0);
  event.setParamDescriptor(std::move(call), kDirectParameter);
  event.setAttributeDescriptor(support::addressOfProcess(getpid()), kAddress);
  return event;
}

AppleEventDescriptor listOf(std::vector<AppleEventDescriptor> items) {
  AppleEventDescriptor list = AppleEventDescriptor::listDescriptor();
  for (AppleEventDescriptor& item : items) list.insertDescriptor(std::move(item), 0);
  return list;
}

AppleEventDescriptor text(const std::string& value) {
  return AppleEventDescriptor::descriptorWithString(value);
}

TEST_F(ProcesserTest, AnEventWithoutADirectParameterYieldsNil) {
  AppleEventDescriptor event = AppleEventDescriptor::appleEvent(0x61657674, 0x63616c6c, {}, -1, 0);
  event.setAttributeDescriptor(support::addressOfProcess(getpid()), kAddress);
  const support::Answer answer = recorder_.deliver(event);
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_EQ(instancesMade, 0);
}

TEST_F(ProcesserTest, ACallOfTwoItemsIsACallWithoutArguments) {
  recorder_.deliver(eventWithParameter(listOf({text("Recorder"), text("nothing")})));
  EXPECT_EQ(received, std::vector<std::string>{"nothing"});
}

TEST_F(ProcesserTest, ADirectParameterThatIsNoCallYieldsNil) {
  for (const AppleEventDescriptor& parameter :
       {text("Recorder"), listOf({}), listOf({text("Recorder")}),
        listOf({AppleEventDescriptor(), text("nothing")}),
        listOf({text("Recorder"), AppleEventDescriptor(kSerialNumber, "12345678")})}) {
    const support::Answer answer = recorder_.deliver(eventWithParameter(parameter));
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.text, std::nullopt);
  }
  EXPECT_TRUE(received.empty());
}

TEST_F(ProcesserTest, ArgumentsAreReadThroughTheTextCoercion) {
  const std::int32_t number = -5;
  const AppleEventDescriptor arguments =
      listOf({AppleEventDescriptor(
                  0x6c6f6e67, std::string(reinterpret_cast<const char*>(&number), sizeof number)),
              AppleEventDescriptor()});
  EXPECT_EQ(
      recorder_.deliver(eventWithParameter(listOf({text("Recorder"), text("two::"), arguments})))
          .text,
      "-5|(nil)");
}

// What is received of `event` after it was flattened.
AppleEventDescriptor unflattened(const AppleEventDescriptor& event) {
  std::string bytes(clientcomm::flattenedSize(event).value(), '\0');
  clientcomm::flattenTo(event, bytes.data());
  return clientcomm::unflatten(bytes).value();
}

/// `kMany` arguments that are of this call only, and how they are joined.
struct ManyArguments {
  explicit ManyArguments(const std::string& prefix) {
    for (std::size_t i = 0; i < kMany; ++i) {
      texts.push_back(prefix + " and a number to make it long: " + std::to_string(i));
      joined += texts.back() + "|";
    }
  }

  AppleEventDescriptor call() const {
    AppleEventDescriptor event = unflattened(support::callEvent("Recorder", "many", texts));
    event.setAttributeDescriptor(support::addressOfProcess(getpid()), kAddress);
    return event;
  }

  std::vector<std::string> texts;
  std::string joined;
};

TEST_F(ProcesserTest, ManyArgumentsReachTheirMethodInOrder) {
  const ManyArguments first("first");
  const ManyArguments second("second");
  EXPECT_EQ(recorder_.deliver(first.call()).text, first.joined);
  EXPECT_EQ(recorder_.deliver(second.call()).text, second.joined);
}

TEST_F(ProcesserTest, ManyArgumentsAreKeptWhileAnotherCallIsServed) {
  const ManyArguments outer("outer");
  const ManyArguments inner("inner");
  whenAsked = [&] {
    whenAsked = nullptr;
    EXPECT_EQ(recorder_.deliver(inner.call()).text, inner.joined);
    return std::nullopt;
  };
  EXPECT_EQ(recorder_.deliver(outer.call()).text, outer.joined);
}

TEST_F(ProcesserTest, ManyArgumentsOfSeveralTypesAreReadThroughTheTextCoercion) {
  const std::int32_t number = 7;
  AppleEventDescriptor list = listOf(std::vector(kMany - 1, text("a")));
  list.insertDescriptor({0x6c6f6e67, std::string(reinterpret_cast<const char*>(&number), 4)}, 0);
  const AppleEventDescriptor event =
      unflattened(eventWithParameter(listOf({text("Recorder"), text("many"), std::move(list)})));
  std::string joined;
  for (std::size_t i = 1; i < kMany; ++i) joined += "a|";
  EXPECT_EQ(recorder_.deliver(event).text, joined + "7|");
}

// --- The caller ---

TEST_F(ProcesserTest, ACallerWithoutAnAddressIsNotServed) {
  EXPECT_EQ(recorder_.deliver(support::callEvent("Recorder", "two::", {"a", "b"})).text,
            std::nullopt);
  EXPECT_TRUE(received.empty());
  EXPECT_TRUE(Recorder::callers().empty());
}

TEST_F(ProcesserTest, ACallerWithAMalformedAddressIsNotServed) {
  EXPECT_EQ(callFrom({}), std::nullopt);
  EXPECT_EQ(callFrom({kSerialNumber, ""}), std::nullopt);
  const std::string own = support::addressOfProcess(getpid()).data();
  EXPECT_EQ(callFrom({kSerialNumber, own.substr(0, 7)}), std::nullopt);
  EXPECT_EQ(callFrom({kSerialNumber, own + '\0'}), std::nullopt);
  EXPECT_EQ(callFrom({kText, own}), std::nullopt);
  EXPECT_EQ(callFrom({0x62756e64, "com.example.testhost"}), std::nullopt)
      << "not on the message's own word";
  EXPECT_TRUE(received.empty());
}

TEST_F(ProcesserTest, ACallerThatIsNoRunningApplicationIsNotServed) {
  EXPECT_EQ(callFrom({kSerialNumber, std::string(8, '\0')}), std::nullopt);
  EXPECT_EQ(callFrom({kSerialNumber, std::string(8, '\xFF')}), std::nullopt);
  EXPECT_TRUE(received.empty());
}

TEST_F(ProcesserTest, ACallerWhoseBundleHasNoIdentifierIsNotServed) {
  const std::string path = support::makeApplication("Nameless", "com.example.x");
  support::writeFile(path + "/Contents/Info.plist",
                     clientcomm::xmlPropertyList({{"CFBundleExecutable", "Nameless"}}));
  const support::MemoryApplication nameless(path);
  EXPECT_EQ(recorder_.call("Recorder", "two::", {"a", "b"}, nameless.pid()).text, std::nullopt);
  EXPECT_TRUE(received.empty());
}

TEST_F(ProcesserTest, TheCallersIdentifierIsNotedOnce) {
  call("nothing");
  EXPECT_EQ(Recorder::callers().size(), 1U);
  EXPECT_TRUE(Recorder::callers().contains("com.example.testhost"));
  call("nothing");
  EXPECT_EQ(Recorder::callers().size(), 1U);
}

TEST_F(ProcesserTest, EveryDistinctCallerIsNoted) {
  const support::MemoryApplication other(support::makeApplication("Other", "com.example.other"));
  call("nothing");
  EXPECT_EQ(recorder_.call("Recorder", "two::", {"a", "b"}, other.pid()).text, "a|b");
  EXPECT_EQ(Recorder::callers().size(), 2U);
  EXPECT_TRUE(Recorder::callers().contains("com.example.other"));
}

TEST_F(ProcesserTest, TheCallerIsNotedAlsoForASelectorThatIsUnknown) {
  call("unknown");
  EXPECT_TRUE(Recorder::callers().contains("com.example.testhost"));
}

TEST_F(ProcesserTest, TheCallerIsNotedAlsoForACallWithoutASelector) {
  const support::Answer answer = recorder_.deliver(eventWithParameter(listOf({text("Recorder")})));
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_TRUE(Recorder::callers().contains("com.example.testhost"));
  EXPECT_TRUE(received.empty());
}

// --- Exceptions ---

TEST_F(ProcesserTest, WhatAMethodRaisesIsANilResultAndTheObjectStays) {
  whenAsked = []() -> OptionalString { throw std::runtime_error("failed"); };
  const support::Answer answer = recorder_.call("Recorder", "ask");
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.text, std::nullopt);
  EXPECT_EQ(call("two::", {"a", "b"}), "a|b");
  EXPECT_EQ(instancesMade, 1);
}

TEST_F(ProcesserTest, WhatAMethodRaisesNeedNotBeAnException) {
  whenAsked = []() -> OptionalString { throw 42; };
  EXPECT_EQ(call("ask"), std::nullopt);
  EXPECT_EQ(call("two::", {"a", "b"}), "a|b") << "the lock was let go";
}

TEST_F(ProcesserTest, AClassWhoseInstancesCannotBeMadeYieldsNil) {
  static const clientcomm::Class none(
      "None", []() -> std::shared_ptr<clientcomm::Object> { return nullptr; }, {});
  static const clientcomm::Class failing(
      "Failing",
      []() -> std::shared_ptr<clientcomm::Object> { throw std::runtime_error("cannot be made"); },
      {});
  clientcomm::registerClass(none);
  clientcomm::registerClass(failing);
  EXPECT_EQ(recorder_.call("None", "nothing").text, std::nullopt);
  EXPECT_EQ(recorder_.call("Failing", "nothing").text, std::nullopt);
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("None"), nullptr);
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("Failing"), nullptr);
}

TEST_F(ProcesserTest, ACallMayArriveWhileAnotherIsServed) {
  whenAsked = [this] { return call("two::", {"in", "side"}); };
  EXPECT_EQ(call("ask"), "in|side");
}

// --- The handler ---

TEST_F(ProcesserTest, UnRegistClosesTheProcessToCallsAndRegistOpensItAgain) {
  TQHPAppleEventProcesser::share().unRegist();
  EXPECT_FALSE(recorder_.isReceiving());
  TQHPAppleEventProcesser::share().regist();
  EXPECT_EQ(call("two::", {"a", "b"}), "a|b");
}

TEST_F(ProcesserTest, AnotherProcessorReplacesTheHandlerAndRemovesItAtItsEnd) {
  {
    Recorder mine;
    TQHPAppleEventProcesser other;
    other.setObjectforKeyToMapTable(mine, "Only here");
    EXPECT_EQ(recorder_.call("Only here", "two::", {"a", "b"}).text, "a|b");
  }
  EXPECT_FALSE(recorder_.isReceiving());
  EXPECT_EQ(processer, &TQHPAppleEventProcesser::share());
}

// --- A process that has the receiving half and the sender alone, as a helper has ---

TEST_F(ProcesserTest, TheHostsClassesAreNotCallableInAProcessThatIsNoHost) {
  TQHPAppleEventSender::share().sendEvnet("Some", "call", {});
  recorder_.forget();
  for (const char* className :
       {"TQHPHelper", "TQHPHelperCommunicate", "TQHPHelperControl", "TQHPUpgradeByHelper",
        "TQHPUploadByHelper", "TQHPCustomerServiceByHelepr", "TQHPGetDataByHelper"}) {
    for (const char* selector :
         {"startHelper", "share", "start:prodeuctVersion:", "saveEnableADToPlistFile",
          "clientIDFormHelper", "extractHelper", "launchHelepr", "synthesizeUserDefault"}) {
      EXPECT_EQ(recorder_.call(className, selector).text, std::nullopt);
    }
    EXPECT_EQ(clientcomm::classNamed(className), nullptr) << className;
    EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey(className), nullptr) << className;
  }
  EXPECT_TRUE(recorder_.calls().empty()) << "nothing was sent";
  EXPECT_FALSE(clientcomm::fileExistsAtPath(support::sandbox() + "/install"))
      << "nothing was installed";
  EXPECT_TRUE(clientcomm::contentsOfDirectoryAtPath(support::sandbox() + "/config").empty())
      << "nothing was recorded";
}

TEST_F(ProcesserTest, ACallForTheControllerMakesNone) {
  TQHPHelperControl::share();
  for (const char* selector : {"startHelper", "extractHelper", "launchHelepr"}) {
    EXPECT_EQ(recorder_.call("TQHPHelperCommunicate", selector).text, std::nullopt);
  }
  EXPECT_TRUE(recorder_.calls().empty());
  EXPECT_FALSE(clientcomm::fileExistsAtPath(support::sandbox() + "/install"));
}

TEST_F(ProcesserTest, ACallForTheControllerReachesTheOneThatIsThere) {
  TQHPHelperCommunicate& controller = TQHPHelperCommunicate::share();
  EXPECT_EQ(recorder_.call("TQHPHelperCommunicate", "firstStartPID").text, "P100");
  EXPECT_EQ(TQHPAppleEventProcesser::share().objectForKey("TQHPHelperCommunicate"), &controller);
}

}  // namespace
