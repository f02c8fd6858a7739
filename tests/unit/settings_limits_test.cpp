#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/strings_file.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListUID;
using clientcomm::PropertyListValue;
using clientcomm::UserDefaults;

constexpr int kDeepest = 128;  // of the values within a property list's top one

// Arrays around `leaf`, which is then nested `depth` deep in a dictionary that holds the outermost.
PropertyListValue nested(PropertyListValue leaf, int depth) {
  for (int i = 1; i < depth; ++i) {
    PropertyListValue::Array array;
    array.push_back(std::move(leaf));
    leaf = PropertyListValue(std::move(array));
  }
  return leaf;
}

TEST(SettingsLimits, AValueNestedToTheLimitIsReadAgain) {
  for (const PropertyListValue& leaf :
       {PropertyListValue("text"), PropertyListValue(7), PropertyListValue(PropertyListUID{7}),
        PropertyListValue(PropertyListUID{UINT64_MAX})}) {
    const PropertyListDictionary dictionary = {{"key", nested(leaf, kDeepest)}};
    EXPECT_EQ(clientcomm::propertyListFromBytes(clientcomm::xmlPropertyList(dictionary)),
              dictionary);
  }
}

TEST(SettingsLimits, ASettingMayBeCalledAsTheKeyOfAReference) {
  const PropertyListDictionary dictionary = {{"CF$UID", 7}};
  EXPECT_EQ(clientcomm::propertyListFromBytes(clientcomm::xmlPropertyList(dictionary)), dictionary);
}

TEST(SettingsLimits, AStringsTableIsReadAsDeepAsItIsWritten) {
  const auto read = [](int depth) {
    return clientcomm::propertyListFromBytes(
        clientcomm::descriptionInStringsFileFormat({{"key", nested("text", depth)}}));
  };
  EXPECT_TRUE(read(kDeepest));
  EXPECT_FALSE(read(kDeepest + 1));
}

TEST(SettingsLimits, AFileIsNotWrittenThatCouldNotBeReadAgain) {
  const std::string path = support::sandbox() + "/list.plist";
  const PropertyListDictionary before = {{"key", "value"}};
  ASSERT_TRUE(clientcomm::writeDictionaryToFile(before, path));
  EXPECT_FALSE(clientcomm::writeDictionaryToFile({{"key", nested("text", kDeepest + 1)}}, path));
  EXPECT_FALSE(clientcomm::writeDictionaryToFile({{"key", std::string(17 << 20, 'x')}}, path));
  EXPECT_EQ(clientcomm::dictionaryWithContentsOfFile(path), before);
  EXPECT_TRUE(clientcomm::writeDictionaryToFile({{"key", nested("text", kDeepest)}}, path));
  EXPECT_TRUE(clientcomm::dictionaryWithContentsOfFile(path));
}

TEST(SettingsLimits, ASettingThatCouldNotBeReadAgainDoesNotCostTheOthers) {
  UserDefaults defaults("com.example.limits");
  defaults.setObject("value", "key");
  ASSERT_TRUE(defaults.synchronize());
  defaults.setObject(nested("text", kDeepest + 1), "deep");
  EXPECT_FALSE(defaults.synchronize());
  EXPECT_EQ(UserDefaults("com.example.limits").stringForKey("key"), "value");
  defaults.setObject(std::nullopt, "deep");
  defaults.setObject("another", "more");
  EXPECT_TRUE(defaults.synchronize());
  EXPECT_EQ(defaults.persistentDomainForName("com.example.limits"),
            (PropertyListDictionary{{"key", "value"}, {"more", "another"}}));
}

}  // namespace
