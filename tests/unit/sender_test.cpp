#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPCustomerServiceByHelepr.h"
#include "ClientComm/TQHPGetDataByHelper.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPUpgradeByHelper.h"
#include "ClientComm/TQHPUploadByHelper.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using Arguments = std::vector<std::string>;
using OptionalArguments = std::vector<clientcomm::OptionalString>;
using clientcomm::AppleEventDescriptor;
using clientcomm::OptionalString;
using support::RecordedCall;
using support::RecordingTransport;

// 'utxt', 'list', 'bund', 'aevt' and '----'.
constexpr clientcomm::DescType kText = 0x75747874;
constexpr clientcomm::DescType kList = 0x6c697374;
constexpr clientcomm::DescType kBundleID = 0x62756e64;
constexpr clientcomm::DescType kEvent = 0x61657674;
constexpr clientcomm::AEKeyword kDirectParameter = 0x2D2D2D2D;

void writeHostInfoNaming(const std::string& helper) {
  auto info = support::defaultHostInfo();
  info.insert_or_assign("Helper Bundle indentifiter", helper);
  support::writeHostInfo(info);
}

class SenderTest : public testing::Test {
 protected:
  SenderTest() { writeHostInfoNaming("com.example.testhelper"); }

  /// The event of a call to `target`.
  AppleEventDescriptor eventTo(const OptionalString& target, const Arguments& arguments = {}) {
    sender().sendEvnet(target, "SomeClass", "some:selector:", arguments);
    return recorder_.last().event;
  }

  static TQHPAppleEventSender& sender() { return TQHPAppleEventSender::share(); }

  RecordingTransport& recorder_ = RecordingTransport::install();
};

void expectText(const AppleEventDescriptor* descriptor, const std::string& text) {
  ASSERT_NE(descriptor, nullptr);
  EXPECT_EQ(descriptor->descriptorType(), kText);
  EXPECT_EQ(descriptor->data(), text);
}

// --- The event, field by field ---

TEST_F(SenderTest, AnEventHasTheClassIDAndNumbersOfACall) {
  const AppleEventDescriptor event = eventTo("com.example.x");
  EXPECT_EQ(event.descriptorType(), kEvent);
  EXPECT_EQ(event.eventClass(), 0x61657674U) << "'aevt'";
  EXPECT_EQ(event.eventID(), 0x63616c6cU) << "'call'";
  EXPECT_EQ(event.returnID(), -1);
  EXPECT_EQ(event.transactionID(), 0);
}

TEST_F(SenderTest, TheTargetIsTheBytesOfTheBundleIdentifier) {
  const AppleEventDescriptor event = eventTo("com.example.twentyab");
  EXPECT_EQ(event.target().descriptorType(), kBundleID);
  EXPECT_EQ(event.target().data(), "com.example.twentyab");
  EXPECT_EQ(event.target().data().size(), 20U) << "no terminating zero";
}

TEST_F(SenderTest, TheTargetsLengthIsTheIdentifiersCharacterCount) {
  EXPECT_EQ(eventTo("com.\xC3\xA9x").target().data(), "com.\xC3\xA9") << "6 characters in 7 bytes";
  EXPECT_EQ(eventTo("\xF0\x9F\x98\x80.ab").target().data(), "\xF0\x9F\x98\x80.")
      << "a character beyond the first 65,536 counts twice: 5 units in 7 bytes";
}

TEST_F(SenderTest, ANilTargetIsAnAddressWithoutData) {
  recorder_.setStatus(-600);
  EXPECT_EQ(sender().sendEvnet(std::nullopt, "C", "s", {}), -600);
  EXPECT_EQ(recorder_.last().event.target().descriptorType(), kBundleID);
  EXPECT_EQ(recorder_.last().event.target().data(), "");
}

TEST_F(SenderTest, AnEventHasOneParameterAndNoAttribute) {
  const AppleEventDescriptor event = eventTo("com.example.x", {"a"});
  ASSERT_EQ(event.parameters().size(), 1U);
  EXPECT_EQ(event.parameters().front().first, kDirectParameter);
  EXPECT_TRUE(event.attributes().empty());
}

TEST_F(SenderTest, TheParameterListsClassSelectorAndArguments) {
  const AppleEventDescriptor event = eventTo("com.example.x", {"first", "second"});
  const AppleEventDescriptor& call = *event.paramDescriptorForKeyword(kDirectParameter);
  EXPECT_EQ(call.descriptorType(), kList);
  ASSERT_EQ(call.numberOfItems(), 3U);
  expectText(call.descriptorAtIndex(1), "SomeClass");
  expectText(call.descriptorAtIndex(2), "some:selector:");
  const AppleEventDescriptor& arguments = *call.descriptorAtIndex(3);
  EXPECT_EQ(arguments.descriptorType(), kList);
  ASSERT_EQ(arguments.numberOfItems(), 2U);
  expectText(arguments.descriptorAtIndex(1), "first");
  expectText(arguments.descriptorAtIndex(2), "second");
}

TEST_F(SenderTest, WithoutArgumentsTheThirdItemIsAnEmptyList) {
  const AppleEventDescriptor event = eventTo("com.example.x");
  const AppleEventDescriptor& call = *event.paramDescriptorForKeyword(kDirectParameter);
  ASSERT_EQ(call.numberOfItems(), 3U);
  EXPECT_EQ(call.descriptorAtIndex(3)->descriptorType(), kList);
  EXPECT_EQ(call.descriptorAtIndex(3)->numberOfItems(), 0U);
}

TEST_F(SenderTest, ArgumentsKeepTheirOrderAndTheirBytes) {
  Arguments arguments;
  for (int i = 0; i < 300; ++i) arguments.push_back(std::to_string(i));
  arguments.push_back("");
  arguments.push_back(std::string("a\0b", 3));
  arguments.push_back("not UTF-8: \xFF\xFE");
  arguments.push_back(std::string(1 << 20, 'x'));
  eventTo("com.example.x", arguments);
  EXPECT_EQ(recorder_.last().arguments, arguments);
}

// --- The four ways of sending ---

TEST_F(SenderTest, ASendWithoutAResultHandsOverAndReturns) {
  sender().sendEvnet(OptionalString("com.example.x"), "C", "s", {});
  EXPECT_EQ(recorder_.last().sendMode, 1);
  EXPECT_EQ(recorder_.last().timeOut, -1);
}

TEST_F(SenderTest, ASendWithAResultWaitsWithoutLimit) {
  OptionalString result;
  sender().sendEvnet(OptionalString("com.example.x"), "C", "s", {}, &result);
  EXPECT_EQ(recorder_.last().sendMode, 3);
  EXPECT_EQ(recorder_.last().timeOut, -2);
}

TEST_F(SenderTest, TheShortSendsAlwaysTargetTheHelper) {
  OptionalString result;
  for (const char* className : {"TQHPHelperControl", "com.example.other", ""}) {
    sender().sendEvnet(className, "s", Arguments{"a"});
    EXPECT_EQ(recorder_.last().target, "com.example.testhelper");
    EXPECT_EQ(recorder_.last().className, className);
    EXPECT_EQ(recorder_.last().sendMode, 1);
    EXPECT_EQ(recorder_.last().timeOut, -1);
    sender().sendEvnet(className, "s", Arguments{"a"}, &result);
    EXPECT_EQ(recorder_.last().target, "com.example.testhelper");
    EXPECT_EQ(recorder_.last().arguments, Arguments{"a"});
    EXPECT_EQ(recorder_.last().sendMode, 3);
    EXPECT_EQ(recorder_.last().timeOut, -2);
  }
}

TEST_F(SenderTest, TheHelpersIdentifierIsReadOnce) {
  sender();
  writeHostInfoNaming("com.example.otherhelper");
  sender().sendEvnet("C", "s", {});
  EXPECT_EQ(recorder_.last().target, "com.example.testhelper");
}

TEST_F(SenderTest, AHostThatNamesNoHelperSendsToNobody) {
  auto info = support::defaultHostInfo();
  info.erase("Helper Bundle indentifiter");
  info.insert_or_assign("Helper Bundle Identifier",
                        "com.example.testhelper");  // no other spelling is looked up
  support::writeHostInfo(info);
  sender().sendEvnet("C", "s", {});
  EXPECT_EQ(recorder_.last().target, "");
}

TEST_F(SenderTest, EverySendBuildsAnEventOfItsOwn) {
  sender().sendEvnet("C", "first", Arguments{"1"});
  sender().sendEvnet("C", "second", Arguments{"2"});
  ASSERT_EQ(recorder_.calls().size(), 2U);
  EXPECT_EQ(recorder_.calls()[0].selector, "first");
  EXPECT_EQ(recorder_.calls()[0].arguments, Arguments{"1"});
  EXPECT_EQ(recorder_.calls()[1].selector, "second");
}

// --- Statuses and results ---

TEST_F(SenderTest, TheStatusComesBackUnchanged) {
  OptionalString result;
  for (const OSErr status : {OSErr{0}, OSErr{1}, OSErr{10}, OSErr{-600}, OSErr{-609}, OSErr{-1712},
                             OSErr{32767}, OSErr{-32768}}) {
    recorder_.setStatus(status);
    EXPECT_EQ(sender().sendEvnet("C", "s", {}), status);
    EXPECT_EQ(sender().sendEvnet("C", "s", {}, &result), status);
  }
}

TEST_F(SenderTest, AFailedSendIsNotRepeated) {
  recorder_.setStatus(-600);
  sender().sendEvnet("C", "s", {});
  EXPECT_EQ(recorder_.calls().size(), 1U);
}

TEST_F(SenderTest, TheReplysTextIsTheResult) {
  OptionalString result;
  for (const std::string& text : {std::string("answer"), std::string(), std::string("a\0b", 3)}) {
    recorder_.setReply("s", text);
    EXPECT_EQ(sender().sendEvnet("C", "s", {}, &result), 0);
    EXPECT_EQ(result, text);
  }
}

TEST_F(SenderTest, AReplyWithoutADirectParameterIsANilResult) {
  OptionalString result = "old";
  EXPECT_EQ(sender().sendEvnet("C", "s", {}, &result), 0);
  EXPECT_EQ(result, std::nullopt);
}

TEST_F(SenderTest, AFailedSendHasANilResult) {
  OptionalString result = "old";
  recorder_.setReply("s", "answer");
  recorder_.setStatus(-609);
  EXPECT_EQ(sender().sendEvnet("C", "s", {}, &result), -609);
  EXPECT_EQ(result, std::nullopt);
}

TEST_F(SenderTest, AResultThatNobodyWantsIsNoError) {
  recorder_.setReply("s", "answer");
  EXPECT_EQ(sender().sendEvnet("C", "s", {}, nullptr), 0);
}

// --- The calls of all services ---

enum class Kind { kCommand, kQuery };

struct Service {
  const char* className;
  const char* selector;
  std::size_t argumentCount;
  Kind kind;
  std::function<void(const OptionalArguments&)> call;
};

std::ostream& operator<<(std::ostream& stream, const Service& service) {
  return stream << service.className << ' ' << service.selector;
}

const Service kServices[] = {
    {"TQHPHelperControl", "isAlive:prodeuctVersion:", 2, Kind::kCommand,
     [](const auto& a) { TQHPHelperControl::share().isAlive(a[0], a[1]); }},
    {"TQHPHelperControl", "hide:prodeuctVersion:", 2, Kind::kCommand,
     [](const auto& a) { TQHPHelperControl::share().hide(a[0], a[1]); }},
    {"TQHPHelperControl", "show:prodeuctVersion:", 2, Kind::kCommand,
     [](const auto& a) { TQHPHelperControl::share().show(a[0], a[1]); }},
    {"TQHPHelperControl", "exitHelper:productVersion:", 2, Kind::kCommand,
     [](const auto& a) { TQHPHelperControl::share().exitHelper(a[0], a[1]); }},
    {"TQHPHelperControl", "stop:prodeuctVersion:", 2, Kind::kCommand,
     [](const auto& a) { TQHPHelperControl::share().stop(a[0], a[1]); }},
    {"TQHPHelperControl", "start:prodeuctVersion:", 2, Kind::kCommand,
     [](const auto& a) { TQHPHelperControl::share().start(a[0], a[1]); }},
    {"TQHPGetDataByHelper", "clientIDFormHelper", 0, Kind::kQuery,
     [](const auto&) { TQHPGetDataByHelper::share().clientIDFormHelper(); }},
    {"TQHPUpgradeByHelper", "productUpgrade:versionID:", 2, Kind::kCommand,
     [](const auto& a) { TQHPUpgradeByHelper::share().productUpgrade(a[0], a[1]); }},
    {"TQHPUpgradeByHelper", "productReadyToUpgrade:versionID:ready:", 3, Kind::kCommand,
     [](const auto& a) { TQHPUpgradeByHelper::share().productReadyToUpgrade(a[0], a[1], a[2]); }},
    {"TQHPUploadByHelper", "uploadLog:versionID:email:filePath:title:description:", 6,
     Kind::kCommand,
     [](const auto& a) {
       TQHPUploadByHelper::share().uploadLog(a[0], a[1], a[2], a[3], a[4], a[5]);
     }},
    {"TQHPUploadByHelper", "uploadUserFile:versionID:email:filePath:title:description:", 6,
     Kind::kCommand,
     [](const auto& a) {
       TQHPUploadByHelper::share().uploadUserFile(a[0], a[1], a[2], a[3], a[4], a[5]);
     }},
    {"TQHPUploadByHelper", "uploadProductFile:versionID:email:filePath:title:description:", 6,
     Kind::kCommand,
     [](const auto& a) {
       TQHPUploadByHelper::share().uploadProductFile(a[0], a[1], a[2], a[3], a[4], a[5]);
     }},
    {"TQHPCustomerServiceByHelepr", "checkForHeleprMessage:versionID:", 2, Kind::kCommand,
     [](const auto& a) { TQHPCustomerServiceByHelepr::share().checkForHeleprMessage(a[0], a[1]); }},
    {"TQHPCustomerServiceByHelepr", "customerService:versionID:email:attachment:", 4,
     Kind::kCommand,
     [](const auto& a) {
       TQHPCustomerServiceByHelepr::share().customerService(a[0], a[1], a[2], a[3]);
     }},
    {"TQHPUploadByHelper", "directUploadData:version:", 2, Kind::kCommand,
     [](const auto& a) { TQHPUploadByHelper::share().directUploadData(a[0], a[1]); }},
    {"TQHPUploadByHelper", "setProductCollectStatus:version:status:", 3, Kind::kCommand,
     [](const auto& a) { TQHPUploadByHelper::share().setProductCollectStatus(a[0], a[1], a[2]); }},
    {"TQHPUploadByHelper", "productCollectStatus:version:", 2, Kind::kQuery,
     [](const auto& a) { TQHPUploadByHelper::share().productCollectStatus(a[0], a[1]); }},
    {"TQHPUploadByHelper", "regSuiteInfo:version:", 2, Kind::kQuery,
     [](const auto& a) { TQHPUploadByHelper::share().regSuiteInfo(a[0], a[1]); }},
    {"TQHPUploadByHelper", "unRegSuiteInfo:version:", 2, Kind::kQuery,
     [](const auto& a) { TQHPUploadByHelper::share().unRegSuiteInfo(a[0], a[1]); }},
    {"TQHPUploadByHelper", "netErrorPagePath:version:", 2, Kind::kQuery,
     [](const auto& a) { TQHPUploadByHelper::share().netErrorPagePath(a[0], a[1]); }},
};

class ServiceCallTest : public testing::TestWithParam<Service> {
 protected:
  ServiceCallTest() { writeHostInfoNaming("com.example.testhelper"); }

  /// The call that the service sends for `arguments`.
  RecordedCall callWith(const OptionalArguments& arguments) {
    recorder_.forget();
    GetParam().call(arguments);
    EXPECT_EQ(recorder_.calls().size(), 1U);
    return recorder_.last();
  }

  static OptionalArguments distinctArguments() {
    OptionalArguments arguments;
    for (std::size_t i = 0; i < GetParam().argumentCount; ++i) {
      arguments.emplace_back("argument " + std::to_string(i));
    }
    return arguments;
  }

  static Arguments withoutNil(const OptionalArguments& arguments) {
    Arguments texts;
    for (const OptionalString& argument : arguments) texts.push_back(argument.value_or(""));
    return texts;
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
};

TEST_P(ServiceCallTest, CarriesItsClassItsSelectorAndItsArgumentsInOrder) {
  const RecordedCall call = callWith(distinctArguments());
  EXPECT_EQ(call.target, "com.example.testhelper");
  EXPECT_EQ(call.className, GetParam().className);
  EXPECT_EQ(call.selector, GetParam().selector);
  EXPECT_EQ(call.arguments, withoutNil(distinctArguments()));
}

TEST_P(ServiceCallTest, CarriesNilInAnyPositionAsAnEmptyString) {
  for (std::size_t position = 0; position < GetParam().argumentCount; ++position) {
    OptionalArguments arguments = distinctArguments();
    arguments[position] = std::nullopt;
    EXPECT_EQ(callWith(arguments).arguments, withoutNil(arguments));
  }
  const OptionalArguments nils(GetParam().argumentCount);
  EXPECT_EQ(callWith(nils).arguments, Arguments(GetParam().argumentCount, ""));
}

TEST_P(ServiceCallTest, WaitsOnlyWhereThereIsAResult) {
  const RecordedCall call = callWith(distinctArguments());
  EXPECT_EQ(call.sendMode, GetParam().kind == Kind::kQuery ? 3 : 1);
  EXPECT_EQ(call.timeOut, GetParam().kind == Kind::kQuery ? -2 : -1);
}

std::string nameOfService(const testing::TestParamInfo<Service>& info) {
  std::string name = info.param.selector;
  std::erase(name, ':');
  return name;
}

INSTANTIATE_TEST_SUITE_P(All, ServiceCallTest, testing::ValuesIn(kServices), nameOfService);

}  // namespace
