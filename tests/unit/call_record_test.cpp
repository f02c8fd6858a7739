#include "ClientComm/platform/call_record.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "ClientComm/platform/wire_format.h"
#include "tests/support/watch_record.h"

namespace {

using clientcomm::CallRecord;
using Descriptor = clientcomm::AppleEventDescriptor;

Descriptor text(const std::string& value) { return Descriptor::descriptorWithString(value); }

Descriptor callEvent(const Descriptor& arguments) {
  Descriptor call = Descriptor::listDescriptor();
  call.addItem() = text("Echo");
  call.addItem() = text("say:");
  call.addItem() = arguments;
  Descriptor event =
      Descriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kCallEventID, {}, -1, 0);
  event.setParamDescriptor(call, clientcomm::keyDirectObject);
  return event;
}

Descriptor listOf(const std::vector<std::string>& values) {
  Descriptor list = Descriptor::listDescriptor();
  for (const std::string& value : values) list.addItem() = text(value);
  return list;
}

Descriptor reply(const std::string& answer) {
  Descriptor event =
      Descriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kAnswerEventID, {}, -1, 0);
  event.setParamDescriptor(text(answer), clientcomm::keyDirectObject);
  return event;
}

support::WatchRecord recordOf(const CallRecord& record, std::uint32_t missed = 0) {
  return support::watchRecordIn(record.eventFor(missed));
}

TEST(CallRecord, HoldsTheFieldsOfAWatchedCall) {
  CallRecord record(callEvent(listOf({"hello", ""})), {4711, "com.example.host", true});
  record.finish(clientcomm::noErr, reply("HELLO"));
  const support::WatchRecord told = recordOf(record, 5);
  EXPECT_GT(told.time, 1'700'000'000'000'000);
  EXPECT_EQ(told.process, 4711);
  EXPECT_EQ(told.identifier.text, "com.example.host");
  EXPECT_EQ(told.wantsReply, 1);
  EXPECT_EQ(told.className.text, "Echo");
  EXPECT_EQ(told.selector.text, "say:");
  ASSERT_EQ(told.argumentCount, 2);
  EXPECT_EQ(told.arguments[0].text, "hello");
  EXPECT_EQ(told.arguments[1].text, "");
  EXPECT_EQ(told.status, 0);
  EXPECT_EQ(told.answer.text, "HELLO");
  EXPECT_GE(told.duration, 0);
  EXPECT_EQ(told.missed, 5);
}

TEST(CallRecord, OfACallThatIsRefusedUnreadHasNeitherCallerNorSelector) {
  CallRecord record({}, {4711, std::nullopt, false});
  record.finish(clientcomm::errAEEventNotPermitted, {});
  const support::WatchRecord told = recordOf(record);
  EXPECT_EQ(told.process, 4711);
  EXPECT_EQ(told.wantsReply, 0);
  EXPECT_EQ(told.argumentCount, 0);
  EXPECT_EQ(told.status, -1743);
  for (const auto& text : {told.identifier, told.className, told.selector, told.answer}) {
    EXPECT_EQ(text.text, std::nullopt);
  }
}

TEST(CallRecord, CutsLongTextsAndTellsTheirSize) {
  const std::string longest(256, 'a');
  CallRecord record(callEvent(listOf({longest, longest + "b"})), {1, longest + "cc", true});
  record.finish(clientcomm::noErr, reply(std::string(1 << 20, 'a')));
  const support::WatchRecord told = recordOf(record);
  const support::WatchedText texts[] = {told.arguments.at(0), told.arguments.at(1), told.identifier,
                                        told.answer};
  const std::int64_t sizes[] = {256, 257, 258, 1 << 20};
  for (std::size_t i = 0; i < std::size(texts); ++i) {
    EXPECT_EQ(texts[i].text, longest);
    EXPECT_EQ(texts[i].size, sizes[i]);
  }
}

TEST(CallRecord, CutsALongTextWithinAList) {
  const std::string longText(100000, 'a');
  Descriptor arguments = Descriptor::listDescriptor();
  arguments.addItem() = listOf({longText});
  CallRecord record(callEvent(arguments), {});
  record.finish(clientcomm::noErr, {});
  const support::WatchRecord told = recordOf(record);
  EXPECT_EQ(told.arguments.at(0).text, longText.substr(0, 256));
  EXPECT_EQ(told.arguments.at(0).size, 100000);
}

TEST(CallRecord, HoldsTheFirstArgumentsAndTheirNumber) {
  CallRecord record(callEvent(listOf({"1", "2", "3", "4", "5", "6", "7", "8", "9", "10"})), {});
  record.finish(clientcomm::noErr, {});
  const support::WatchRecord told = recordOf(record);
  EXPECT_EQ(told.argumentCount, 10);
  ASSERT_EQ(told.arguments.size(), 8U);
  EXPECT_EQ(told.arguments.back().text, "8");
}

TEST(CallRecord, TellsWhatIsNoTextAsNil) {
  Descriptor arguments = Descriptor::listDescriptor();
  arguments.addItem() = Descriptor(clientcomm::fourCharCode("blob"), std::string(1000, 'x'));
  arguments.addItem();
  CallRecord record(callEvent(arguments), {});
  record.finish(clientcomm::noErr, {});
  for (const auto& argument : recordOf(record).arguments) EXPECT_EQ(argument.text, std::nullopt);
}

}  // namespace
