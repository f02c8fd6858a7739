#include "ClientComm/internal/misspelling.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace {

unsigned differences(const char* one, const char* other) {
  unsigned most = 0;
  while (!clientcomm::differAtMostBy(most, one, other)) ++most;
  return most;
}

std::optional<std::string> meant(const std::vector<const char*>& keys,
                                 const std::vector<std::string>& found) {
  clientcomm::PropertyListDictionary info;
  for (const std::string& key : found) info.emplace(key, "text");
  const std::string* const result = clientcomm::misspellingOf(keys, info);
  return result == nullptr ? std::nullopt : std::optional(*result);
}

TEST(Misspelling, CountsLettersThatDiffer) {
  EXPECT_EQ(differences("", ""), 0U);
  EXPECT_EQ(differences("", "abc"), 3U);
  EXPECT_EQ(differences("abc", "abd"), 1U);
  EXPECT_EQ(differences("abc", "ac"), 1U);
  EXPECT_EQ(differences("kitten", "sitting"), 3U);
}

TEST(Misspelling, DoesNotCountCaseAndSeparators) {
  EXPECT_EQ(differences("Helepr App name", "helepr_app-NAME"), 0U);
  EXPECT_EQ(differences("Ä", "ä"), 1U) << "only the case of ASCII letters is known";
}

TEST(Misspelling, FindsTheClosestKey) {
  EXPECT_EQ(meant({"Helepr App name", "Helper App name"}, {"CFBundleName", "Helpr App name"}),
            "Helpr App name");
  EXPECT_EQ(meant({"EnableAD"}, {"EnabelAD", "EnableAds", "EnableAd"}), "EnableAd");
}

TEST(Misspelling, LeavesOtherKeysAlone) {
  EXPECT_EQ(meant({"PID"}, {"PIN", "UID", "ID"}), std::nullopt) << "too short to tell";
  EXPECT_EQ(meant({"CFBundleVersion"}, {"CFBundleShortVersionString", "CFBundleIdentifier"}),
            std::nullopt);
  EXPECT_EQ(meant({"EnableAD"}, {"EnableAD"}), std::nullopt) << "it is the key itself";
  EXPECT_EQ(meant({"EnableAD"}, {std::string(1'000'000, 'E')}), std::nullopt);
  EXPECT_EQ(meant({"EnableAD"}, {}), std::nullopt);
}

}  // namespace
