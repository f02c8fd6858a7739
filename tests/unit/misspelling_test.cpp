#include "tools/clientcomm/check/spelling.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using clientcomm::tool::differences;
using clientcomm::tool::misspellingOf;

std::optional<std::string> meant(std::vector<std::string_view> keys,
                                 const std::vector<std::string>& found) {
  return misspellingOf(keys, found);
}

TEST(Spelling, CountsLettersThatDiffer) {
  EXPECT_EQ(differences("", ""), 0U);
  EXPECT_EQ(differences("", "abc"), 3U);
  EXPECT_EQ(differences("abc", "abd"), 1U);
  EXPECT_EQ(differences("abc", "ac"), 1U);
  EXPECT_EQ(differences("kitten", "sitting"), 3U);
}

TEST(Spelling, DoesNotCountCaseAndSeparators) {
  EXPECT_EQ(differences("Helepr App name", "helepr_app-NAME"), 0U);
  EXPECT_EQ(differences("Ä", "ä"), 1U) << "only the case of ASCII letters is known";
}

TEST(Spelling, FindsTheClosestKey) {
  EXPECT_EQ(meant({"Helepr App name", "Helper App name"}, {"CFBundleName", "Helpr App name"}),
            "Helpr App name");
  EXPECT_EQ(meant({"EnableAD"}, {"EnabelAD", "EnableAds", "EnableAd"}), "EnableAd");
}

TEST(Spelling, LeavesOtherKeysAlone) {
  EXPECT_EQ(meant({"PID"}, {"PIN", "UID", "ID"}), std::nullopt) << "too short to tell";
  EXPECT_EQ(meant({"CFBundleVersion"}, {"CFBundleShortVersionString", "CFBundleIdentifier"}),
            std::nullopt);
  EXPECT_EQ(meant({"EnableAD"}, {"EnableAD"}), std::nullopt) << "it is the key itself";
  EXPECT_EQ(meant({"EnableAD"}, {std::string(1'000'000, 'E')}), std::nullopt);
  EXPECT_EQ(meant({"EnableAD"}, {}), std::nullopt);
}

}  // namespace
