#include "ClientComm/platform/apple_event.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace {

using Descriptor = clientcomm::AppleEventDescriptor;

constexpr clientcomm::DescType kNull = 0x6e756c6c;          // 'null'
constexpr clientcomm::DescType kText = 0x75747874;          // 'utxt'
constexpr clientcomm::DescType kList = 0x6c697374;          // 'list'
constexpr clientcomm::DescType kEvent = 0x61657674;         // 'aevt'
constexpr clientcomm::DescType kBundle = 0x62756e64;        // 'bund'
constexpr clientcomm::DescType kNumber = 0x6c6f6e67;        // 'long'
constexpr clientcomm::DescType kFlag = 0x626f6f6c;          // 'bool'
constexpr clientcomm::DescType kSerialNumber = 0x70736e20;  // 'psn '

Descriptor text(const std::string& value) { return Descriptor::descriptorWithString(value); }

Descriptor number(std::int32_t value) {
  return {kNumber, std::string(reinterpret_cast<const char*>(&value), sizeof value)};
}

Descriptor listOf(const std::vector<std::string>& values) {
  Descriptor list = Descriptor::listDescriptor();
  for (const std::string& value : values) list.insertDescriptor(text(value), 0);
  return list;
}

std::vector<std::string> textsOf(const Descriptor& list) {
  std::vector<std::string> texts;
  for (std::size_t i = 1; i <= list.numberOfItems(); ++i) {
    texts.push_back(list.descriptorAtIndex(i)->stringValue().value_or("(nil)"));
  }
  return texts;
}

Descriptor someEvent() {
  return Descriptor::appleEvent(0x61657674, 0x63616c6c, {kBundle, "com.example.target"}, -1, 0);
}

TEST(AppleEvent, FourCharacterCodesAreReadFromTheLeft) {
  EXPECT_EQ(clientcomm::fourCharCode("aevt"), 0x61657674U);
  EXPECT_EQ(clientcomm::fourCharCode("psn "), 0x70736e20U);
  EXPECT_EQ(clientcomm::fourCharCode("\xFF\x01\x02\x03"), 0xFF010203U);
}

TEST(AppleEvent, ADescriptorIsNullUntilItIsAnythingElse) {
  const Descriptor null;
  EXPECT_EQ(null.descriptorType(), kNull);
  EXPECT_EQ(null.data(), "");
  EXPECT_EQ(null.stringValue(), std::nullopt);
  EXPECT_EQ(null.numberOfItems(), 0U);
}

TEST(AppleEvent, ATextDescriptorKeepsItsBytes) {
  for (const std::string& value :
       {std::string(), std::string("plain"), std::string("a\0b", 3), std::string("\xFF\xC3")}) {
    EXPECT_EQ(text(value).descriptorType(), kText);
    EXPECT_EQ(text(value).stringValue(), value);
  }
}

TEST(AppleEvent, NumbersAndFlagsReadAsText) {
  EXPECT_EQ(number(-12).stringValue(), "-12");
  EXPECT_EQ(Descriptor(kFlag, std::string(1, '\1')).stringValue(), "true");
  EXPECT_EQ(Descriptor(kFlag, std::string(1, '\0')).stringValue(), "false");
}

TEST(AppleEvent, NumbersAndFlagsOfAWrongSizeReadAsNil) {
  EXPECT_EQ(Descriptor(kNumber, "123").stringValue(), std::nullopt);
  EXPECT_EQ(Descriptor(kNumber, "").stringValue(), std::nullopt);
  EXPECT_EQ(Descriptor(kFlag, "").stringValue(), std::nullopt);
  EXPECT_EQ(Descriptor(kFlag, "ab").stringValue(), std::nullopt);
}

TEST(AppleEvent, WhatHasNoTextReadsAsNil) {
  EXPECT_EQ(Descriptor(kSerialNumber, "12345678").stringValue(), std::nullopt);
  EXPECT_EQ(listOf({}).stringValue(), std::nullopt);
  EXPECT_EQ(listOf({"a", "b"}).stringValue(), std::nullopt);
  EXPECT_EQ(someEvent().stringValue(), std::nullopt);
}

TEST(AppleEvent, AListOfOneTextReadsAsThatText) { EXPECT_EQ(listOf({"a"}).stringValue(), "a"); }

TEST(AppleEvent, CoercionToTheSameTypeIsTheDescriptorItself) {
  const auto same = Descriptor(kSerialNumber, "12345678").coerceToDescriptorType(kSerialNumber);
  ASSERT_TRUE(same);
  EXPECT_EQ(same->data(), "12345678");
}

TEST(AppleEvent, TextIsCoercedToNumbersFlagsAndIdentifiers) {
  EXPECT_EQ(text(" 42x").coerceToDescriptorType(kNumber)->stringValue(), "42");
  EXPECT_EQ(text("Yes").coerceToDescriptorType(kFlag)->stringValue(), "true");
  EXPECT_EQ(text("no").coerceToDescriptorType(kFlag)->stringValue(), "false");
  EXPECT_EQ(text("com.example").coerceToDescriptorType(kBundle)->data(), "com.example");
}

TEST(AppleEvent, AnythingButNullIsCoercedToAListOfItself) {
  EXPECT_EQ(textsOf(*text("a").coerceToDescriptorType(kList)), std::vector<std::string>{"a"});
  EXPECT_FALSE(Descriptor().coerceToDescriptorType(kList));
}

TEST(AppleEvent, NothingIsCoercedToASerialNumber) {
  EXPECT_FALSE(text("12345678").coerceToDescriptorType(kSerialNumber));
  EXPECT_FALSE(Descriptor().coerceToDescriptorType(kSerialNumber));
  EXPECT_FALSE(listOf({"12345678"}).coerceToDescriptorType(kSerialNumber));
}

TEST(AppleEvent, AListIsCountedFromOne) {
  const Descriptor list = listOf({"a", "b"});
  EXPECT_EQ(list.numberOfItems(), 2U);
  EXPECT_EQ(list.descriptorAtIndex(1)->stringValue(), "a");
  EXPECT_EQ(list.descriptorAtIndex(2)->stringValue(), "b");
  EXPECT_EQ(list.descriptorAtIndex(0), nullptr);
  EXPECT_EQ(list.descriptorAtIndex(3), nullptr);
}

Descriptor listOfTexts() {
  clientcomm::TextTable texts;
  texts.emplace_back("a");
  texts.emplace_back("b");
  return Descriptor::listOfTexts(std::move(texts));
}

TEST(AppleEvent, AListOfTextsReadsAsOneOfDescriptors) {
  const Descriptor list = listOfTexts();
  EXPECT_EQ(list.descriptorType(), kList);
  EXPECT_EQ(list.numberOfItems(), 2U);
  const Descriptor copy = list;
  ASSERT_NE(list.descriptorAtIndex(2), nullptr);
  EXPECT_EQ(list.descriptorAtIndex(2)->descriptorType(), kText);
  EXPECT_EQ(list.descriptorAtIndex(3), nullptr);
  EXPECT_EQ(textsOf(list), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(textsOf(copy), (std::vector<std::string>{"a", "b"}));
}

TEST(AppleEvent, AListOfTextsTakesFurtherItems) {
  Descriptor list = listOfTexts();
  list.insertDescriptor(text("c"), 0);
  EXPECT_EQ(textsOf(list), (std::vector<std::string>{"a", "b", "c"}));
  list = listOfTexts();
  list.addItem() = text("d");
  EXPECT_EQ(textsOf(list), (std::vector<std::string>{"a", "b", "d"}));
}

TEST(AppleEvent, AListOfTextsIsNoEvent) {
  Descriptor list = listOfTexts();
  list.setParamDescriptor(text("x"), 0x2d2d2d2d);
  list.setAttributeDescriptor(text("x"), 0x2d2d2d2d);
  EXPECT_TRUE(list.parameters().empty());
  EXPECT_TRUE(list.attributes().empty());
  EXPECT_EQ(list.eventClass(), 0U);
  EXPECT_EQ(list.target().descriptorType(), kNull);
  EXPECT_EQ(textsOf(list), (std::vector<std::string>{"a", "b"}));
}

TEST(AppleEvent, AnEventThatWasMovedFromTakesNoParameters) {
  Descriptor event = someEvent();
  const Descriptor moved = std::move(event);
  event.setParamDescriptor(text("x"), 0x2d2d2d2d);  // NOLINT(bugprone-use-after-move)
  EXPECT_TRUE(event.parameters().empty());
  EXPECT_TRUE(moved.parameters().empty());
}

TEST(AppleEvent, AListOfOneTextIsThatTextAlsoWithoutItsDescriptor) {
  clientcomm::TextTable texts;
  texts.emplace_back("a");
  EXPECT_EQ(Descriptor::listOfTexts(std::move(texts)).stringValue(), "a");
}

TEST(AppleEvent, TheTextsOfAListAreTaken) {
  clientcomm::TextTable expected;
  expected.emplace_back("a");
  expected.emplace_back("b");
  EXPECT_EQ(listOfTexts().takeTexts(), expected);
  EXPECT_EQ(listOf({"a", "b"}).takeTexts(), expected);
  EXPECT_TRUE(text("a").takeTexts().empty());
  Descriptor mixed = listOf({"a"});
  mixed.insertDescriptor(number(7), 0);
  mixed.insertDescriptor({}, 0);
  expected[1] = "7";
  expected.emplace_back(std::nullopt);
  EXPECT_EQ(mixed.takeTexts(), expected);
}

TEST(AppleEvent, EveryItemOfAListCanBeChangedInPlace) {
  Descriptor list = listOf({"a", "b"});
  for (std::size_t i = 1; i <= list.numberOfItems(); ++i) {
    Descriptor* const item = list.descriptorAtIndex(i);
    ASSERT_NE(item, nullptr) << i;
    *item = text("changed");
  }
  EXPECT_EQ(textsOf(list), (std::vector<std::string>{"changed", "changed"}));
  EXPECT_EQ(list.descriptorAtIndex(0), nullptr);
  EXPECT_EQ(list.descriptorAtIndex(3), nullptr);
}

TEST(AppleEvent, AnItemPutWhereOneIsReplacesIt) {
  Descriptor list = listOf({"a", "b"});
  list.insertDescriptor(text("c"), 1);
  EXPECT_EQ(textsOf(list), (std::vector<std::string>{"c", "b"}));
}

TEST(AppleEvent, AnItemPutBeyondTheLastIsAppended) {
  Descriptor list = listOf({"a"});
  list.insertDescriptor(text("b"), 2);
  list.insertDescriptor(text("c"), 9);
  list.insertDescriptor(text("d"), 0);
  EXPECT_EQ(textsOf(list), (std::vector<std::string>{"a", "b", "c", "d"}));
}

TEST(AppleEvent, ANullDescriptorBecomesAListByItsFirstItem) {
  Descriptor descriptor;
  descriptor.insertDescriptor(text("a"), 1);
  EXPECT_EQ(descriptor.descriptorType(), kList);
  EXPECT_EQ(textsOf(descriptor), std::vector<std::string>{"a"});
}

TEST(AppleEvent, ATextTakesNoItems) {
  Descriptor descriptor = text("a");
  descriptor.insertDescriptor(text("b"), 1);
  EXPECT_EQ(descriptor.numberOfItems(), 0U);
  EXPECT_EQ(descriptor.stringValue(), "a");
}

TEST(AppleEvent, AnEventHoldsItsClassIdTargetAndNumbers) {
  const Descriptor event = someEvent();
  EXPECT_EQ(event.descriptorType(), kEvent);
  EXPECT_EQ(event.eventClass(), 0x61657674U);
  EXPECT_EQ(event.eventID(), 0x63616c6cU);
  EXPECT_EQ(event.target().descriptorType(), kBundle);
  EXPECT_EQ(event.target().data(), "com.example.target");
  EXPECT_EQ(event.returnID(), -1);
  EXPECT_EQ(event.transactionID(), 0);
  EXPECT_TRUE(event.parameters().empty());
  EXPECT_TRUE(event.attributes().empty());
}

TEST(AppleEvent, ParametersAndAttributesAreSetByKeywordApartFromEachOther) {
  Descriptor event = someEvent();
  event.setParamDescriptor(text("p"), 0x2D2D2D2D);
  event.setAttributeDescriptor(text("a"), 0x2D2D2D2D);
  EXPECT_EQ(event.paramDescriptorForKeyword(0x2D2D2D2D)->stringValue(), "p");
  EXPECT_EQ(event.attributeDescriptorForKeyword(0x2D2D2D2D)->stringValue(), "a");
  EXPECT_EQ(event.paramDescriptorForKeyword(0x61646472), nullptr);
}

TEST(AppleEvent, SettingAKeywordAgainReplacesItsValue) {
  Descriptor event = someEvent();
  event.setParamDescriptor(text("1"), 0x2D2D2D2D);
  event.setParamDescriptor(text("2"), 0x6b657932);
  event.setParamDescriptor(text("3"), 0x2D2D2D2D);
  ASSERT_EQ(event.parameters().size(), 2U);
  EXPECT_EQ(event.parameters()[0].second.stringValue(), "3");
  EXPECT_EQ(event.parameters()[1].first, 0x6b657932U);
}

TEST(AppleEvent, WhatIsNoEventHasNoneOfItsParts) {
  Descriptor descriptor = text("a");
  descriptor.setParamDescriptor(text("p"), 0x2D2D2D2D);
  descriptor.setAttributeDescriptor(text("p"), 0x2D2D2D2D);
  EXPECT_TRUE(descriptor.parameters().empty());
  EXPECT_TRUE(descriptor.attributes().empty());
  EXPECT_EQ(descriptor.eventClass(), 0U);
  EXPECT_EQ(descriptor.eventID(), 0U);
  EXPECT_EQ(descriptor.returnID(), 0);
  EXPECT_EQ(descriptor.transactionID(), 0);
  EXPECT_EQ(descriptor.target().descriptorType(), kNull);
}

TEST(AppleEvent, ACopyIsIndependentOfItsOriginal) {
  Descriptor event = someEvent();
  event.setParamDescriptor(listOf({"a"}), 0x2D2D2D2D);
  Descriptor copy = event;
  copy.setParamDescriptor(text("changed"), 0x2D2D2D2D);
  copy.setAttributeDescriptor(text("new"), 0x61646472);
  EXPECT_EQ(textsOf(*event.paramDescriptorForKeyword(0x2D2D2D2D)), std::vector<std::string>{"a"});
  EXPECT_TRUE(event.attributes().empty());
}

TEST(AppleEvent, ADescriptorCanBeAssignedToItselfAndMoved) {
  Descriptor event = someEvent();
  const Descriptor& alias = event;
  event = alias;
  EXPECT_EQ(event.target().data(), "com.example.target");
  const Descriptor moved = std::move(event);
  EXPECT_EQ(moved.eventID(), 0x63616c6cU);
}

}  // namespace
