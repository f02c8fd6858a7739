#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include "ClientComm/platform/apple_event.h"
#include "ClientComm/platform/posix/apple_event_codec.h"
#include "ClientComm/platform/wire_format.h"

namespace {

using Descriptor = clientcomm::AppleEventDescriptor;

Descriptor text(std::size_t size) {
  return Descriptor::descriptorWithString(std::string(size, 'x'));
}

Descriptor event() {
  return Descriptor::appleEvent(clientcomm::kCallEventClass, clientcomm::kCallEventID,
                                {clientcomm::typeApplicationBundleID, "com.example.x"}, -1, 0);
}

Descriptor listOfNulls(std::size_t count) {
  Descriptor list = Descriptor::listDescriptor();
  list.reserveItems(count);
  for (std::size_t i = 0; i < count; ++i) list.insertDescriptor({}, 0);
  return list;
}

/// `levels` lists, one in the other.
Descriptor nestedLists(int levels) {
  Descriptor nested = Descriptor::listDescriptor();
  for (int i = 1; i < levels; ++i) {
    Descriptor outer = Descriptor::listDescriptor();
    outer.insertDescriptor(std::move(nested), 0);
    nested = std::move(outer);
  }
  return nested;
}

/// Whether a receiver takes the form that is written; regardless of what the sender thinks of it.
bool isTaken(const Descriptor& descriptor, std::size_t size) {
  std::string bytes(size, '\0');
  EXPECT_EQ(clientcomm::flattenTo(descriptor, bytes.data()), bytes.data() + size);
  return clientcomm::unflatten(bytes).has_value();
}

TEST(EventLimits, WhatIsWithinThemHasTheSizeThatIsWritten) {
  Descriptor full = event();
  full.setParamDescriptor(listOfNulls(3), clientcomm::keyDirectObject);
  full.setAttributeDescriptor(text(10), clientcomm::keyAddressAttr);
  // 8 and 14 of the event, 8 + 13 of the target, the attribute, and a list of three.
  const std::size_t size = 22 + 21 + (4 + 4 + 18) + (4 + 4 + 12 + 3 * 8);
  EXPECT_EQ(clientcomm::flattenedSize(full), size);
  EXPECT_TRUE(isTaken(full, size));
}

TEST(EventLimits, AsManyDescriptorsAsAReceiverTakesAreSentAndNotOneMore) {
  const std::size_t most = clientcomm::kMaximumDescriptors - 1;  // the list is one itself
  const Descriptor list = listOfNulls(most);
  EXPECT_EQ(clientcomm::flattenedSize(list), 12 + 8 * most);
  EXPECT_TRUE(isTaken(list, 12 + 8 * most));
  const Descriptor more = listOfNulls(most + 1);
  EXPECT_EQ(clientcomm::flattenedSize(more), std::nullopt);
  EXPECT_FALSE(isTaken(more, 12 + 8 * (most + 1)));
}

TEST(EventLimits, AsManyBytesAsAReceiverTakesAreSentAndNotOneMore) {
  const std::size_t most = clientcomm::kMaximumFlattenedSize - 8;
  EXPECT_EQ(clientcomm::flattenedSize(text(most)), clientcomm::kMaximumFlattenedSize);
  EXPECT_TRUE(isTaken(text(most), most + 8));
  EXPECT_EQ(clientcomm::flattenedSize(text(most + 1)), std::nullopt);
  EXPECT_FALSE(isTaken(text(most + 1), most + 9));
  Descriptor two = Descriptor::listDescriptor();
  two.insertDescriptor(text(most / 2), 0);
  two.insertDescriptor(text(most / 2), 0);
  EXPECT_EQ(clientcomm::flattenedSize(two), std::nullopt) << "each alone would do";
}

TEST(EventLimits, AsManyLevelsAsAReceiverTakesAreSentAndNotOneMore) {
  constexpr auto kMost = static_cast<std::size_t>(clientcomm::kMaximumNesting);
  EXPECT_EQ(clientcomm::flattenedSize(nestedLists(kMost)), 12 * kMost);
  EXPECT_TRUE(isTaken(nestedLists(kMost), 12 * kMost));
  EXPECT_EQ(clientcomm::flattenedSize(nestedLists(kMost + 1)), std::nullopt);
  EXPECT_FALSE(isTaken(nestedLists(kMost + 1), 12 * (kMost + 1)));
}

TEST(EventLimits, AsManyKeywordsAsAReceiverTakesAreSentAndNotOneMore) {
  Descriptor full = event();
  for (clientcomm::AEKeyword key = 1; key <= clientcomm::kMaximumKeywords; ++key) {
    full.setParamDescriptor({}, key);
    full.setAttributeDescriptor({}, key);
  }
  const std::size_t size = 22 + 21 + 2 * (4 + 12 * std::size_t{clientcomm::kMaximumKeywords});
  EXPECT_EQ(clientcomm::flattenedSize(full), size);
  EXPECT_TRUE(isTaken(full, size));
  for (const bool isParameter : {true, false}) {
    Descriptor more = full;
    if (isParameter) more.setParamDescriptor({}, 1000);
    if (!isParameter) more.setAttributeDescriptor({}, 1000);
    EXPECT_EQ(clientcomm::flattenedSize(more), std::nullopt);
    EXPECT_FALSE(isTaken(more, size + 12));
  }
}

}  // namespace
