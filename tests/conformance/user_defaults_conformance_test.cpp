#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/support/helper_files.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::PropertyListDictionary;
using clientcomm::PropertyListValue;
using clientcomm::UserDefaults;

constexpr char kDomain[] = "com.example.settings";

class UserDefaultsConformance : public testing::Test {
 protected:
  static PropertyListDictionary inFile() {
    return clientcomm::dictionaryWithContentsOfFile(support::preferencesPath(kDomain))
        .value_or(PropertyListDictionary());
  }
  static void writeToFile(const PropertyListDictionary& values) {
    support::writeFile(support::preferencesPath(kDomain), clientcomm::xmlPropertyList(values));
  }

  UserDefaults defaults_{kDomain};
};

TEST_F(UserDefaultsConformance, ReadWhatWasSetBeforeItIsWritten) {
  writeToFile({{"key", "old"}});
  EXPECT_EQ(defaults_.stringForKey("key"), "old");
  defaults_.setObject(PropertyListValue("new"), "key");
  EXPECT_EQ(defaults_.stringForKey("key"), "new");
  defaults_.setObject(std::nullopt, "key");
  EXPECT_EQ(defaults_.objectForKey("key"), std::nullopt);
}

TEST_F(UserDefaultsConformance, KeepTheKeysThatAnotherProcessWrites) {
  defaults_.setObject(PropertyListValue(1), "mine");
  writeToFile({{"theirs", 2}});
  EXPECT_TRUE(defaults_.synchronize());
  EXPECT_EQ(inFile(), (PropertyListDictionary{{"mine", 1}, {"theirs", 2}}));
}

TEST_F(UserDefaultsConformance, AreWrittenByTheRunLoop) {
  defaults_.setObject(PropertyListValue(true), "key");
  EXPECT_TRUE(support::runLoopUntil([] { return inFile().contains("key"); }));
}

TEST_F(UserDefaultsConformance, KeepACorruptFileAside) {
  const std::string path = support::preferencesPath(kDomain);
  support::writeFile(path, "<plist><dict>");
  EXPECT_EQ(defaults_.persistentDomainForName(kDomain), std::nullopt);
  defaults_.setObject(PropertyListValue(1), "key");
  EXPECT_TRUE(defaults_.synchronize());
  EXPECT_EQ(support::readFile(path + ".corrupt-1"), "<plist><dict>");
  EXPECT_EQ(inFile(), (PropertyListDictionary{{"key", 1}}));
}

TEST_F(UserDefaultsConformance, ReadTheSettingsOfAnotherApplication) {
  UserDefaults other("com.example.other");
  writeToFile({{"key", "value"}});
  EXPECT_EQ(other.persistentDomainForName(kDomain), (PropertyListDictionary{{"key", "value"}}));
  EXPECT_EQ(other.persistentDomainForName("com.example.none"), std::nullopt);
}

}  // namespace
