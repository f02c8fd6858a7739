#include "ClientComm/platform/portable/localization.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ClientComm/platform/bundle.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::Bundle;
using clientcomm::matchingLocalizations;
using clientcomm::userLanguages;
using Names = std::vector<std::string>;

struct Environment {
  const char* language = nullptr;
  const char* lcAll = nullptr;
  const char* lcMessages = nullptr;
  const char* lang = nullptr;
};

void apply(const Environment& environment) {
  const std::pair<const char*, const char*> variables[] = {{"LANGUAGE", environment.language},
                                                           {"LC_ALL", environment.lcAll},
                                                           {"LC_MESSAGES", environment.lcMessages},
                                                           {"LANG", environment.lang}};
  for (const auto& [name, value] : variables) {
    if (value == nullptr) {
      unsetenv(name);
    } else {
      setenv(name, value, 1);
    }
  }
}

Names languagesOf(const Environment& environment) {
  apply(environment);
  return userLanguages();
}

TEST(UserLanguages, AreThoseOfTheFirstLocaleVariableThatIsSet) {
  EXPECT_EQ(languagesOf({nullptr, "fr_FR.UTF-8", "de_DE", "ja_JP"}), Names{"fr_FR"});
  EXPECT_EQ(languagesOf({nullptr, "", "de_DE.UTF-8", "ja_JP"}), Names{"de_DE"});
  EXPECT_EQ(languagesOf({nullptr, nullptr, nullptr, "ja_JP.eucJP"}), Names{"ja_JP"});
  EXPECT_EQ(languagesOf({}), Names{});
}

TEST(UserLanguages, BeginWithTheListInLanguage) {
  EXPECT_EQ(languagesOf({"sv:de_AT:en", nullptr, nullptr, "ja_JP.UTF-8"}),
            (Names{"sv", "de_AT", "en", "ja_JP"}));
  EXPECT_EQ(languagesOf({":fr::fr:", nullptr, nullptr, "fr"}), Names{"fr"}) << "each one once";
}

TEST(UserLanguages, LeaveOutThePortableLocaleAndCharacterSets) {
  EXPECT_EQ(languagesOf({nullptr, "C", "de_DE", nullptr}), Names{});
  EXPECT_EQ(languagesOf({nullptr, nullptr, nullptr, "C.UTF-8"}), Names{});
  EXPECT_EQ(languagesOf({"POSIX:it", nullptr, nullptr, "POSIX"}), Names{"it"});
  EXPECT_EQ(languagesOf({nullptr, nullptr, nullptr, "sr_RS.UTF-8@latin"}), Names{"sr_RS@latin"});
  EXPECT_EQ(languagesOf({nullptr, nullptr, nullptr, "de_DE@euro"}), Names{"de_DE@euro"});
}

TEST(Localizations, AreThoseOfTheUsersLanguagesInTheirOrder) {
  EXPECT_EQ(matchingLocalizations({"de", "en", "fr", "ja"}, {"fr_FR", "en_US"}),
            (Names{"fr", "en"}));
  EXPECT_EQ(matchingLocalizations({"de", "en"}, {"ja"}), Names{});
  EXPECT_EQ(matchingLocalizations({}, {"ja"}), Names{});
  EXPECT_EQ(matchingLocalizations({"Base", "en"}, {"en"}), Names{"en"});
}

TEST(Localizations, AreFoundUnderTheNamesFromBeforeLanguageCodes) {
  EXPECT_EQ(matchingLocalizations({"English", "German", "Japanese"}, {"ja_JP", "de"}),
            (Names{"Japanese", "German"}));
  const std::pair<const char*, const char*> names[] = {
      {"English", "en_US"}, {"French", "fr"},   {"German", "de_CH"},     {"Italian", "it"},
      {"Spanish", "es_MX"}, {"Dutch", "nl_BE"}, {"Portuguese", "pt_BR"}, {"Swedish", "sv"},
      {"Korean", "ko_KR"},  {"Danish", "da"},   {"Norwegian", "nb_NO"},  {"no", "nb_NO"},
      {"nb", "no"},         {"Finnish", "fi"},  {"he", "iw_IL"}};
  for (const auto& [folder, language] : names) {
    EXPECT_EQ(matchingLocalizations({"xx", folder}, {language}), Names{folder}) << language;
  }
}

TEST(Localizations, AreTheClosestFirst) {
  EXPECT_EQ(matchingLocalizations({"pt", "pt_PT", "pt-BR"}, {"pt_BR"}),
            (Names{"pt-BR", "pt", "pt_PT"}));
  EXPECT_EQ(matchingLocalizations({"en_GB", "en"}, {"en_US"}), (Names{"en", "en_GB"}));
  EXPECT_EQ(matchingLocalizations({"en_GB"}, {"en_US"}), Names{"en_GB"}) << "better than none";
  EXPECT_EQ(matchingLocalizations({"en_GB", "en"}, {"en"}), (Names{"en", "en_GB"}));
}

TEST(Localizations, PreferTheFolderNamedAsTheLanguageToASynonym) {
  EXPECT_EQ(matchingLocalizations({"English", "en"}, {"en"}), (Names{"en", "English"}));
  EXPECT_EQ(matchingLocalizations({"English", "en"}, {"en_US"}), (Names{"en", "English"}));
  EXPECT_EQ(matchingLocalizations({"English", "en"}, {"English"}), (Names{"English", "en"}));
  EXPECT_EQ(matchingLocalizations({"Norwegian", "nb", "no"}, {"no_NO"}),
            (Names{"no", "nb", "Norwegian"}));
  EXPECT_EQ(matchingLocalizations({"he", "iw"}, {"iw_IL"}), (Names{"iw", "he"}));
  EXPECT_EQ(matchingLocalizations({"en", "English", "en_US"}, {"en_US"}),
            (Names{"en_US", "en", "English"}))
      << "the region counts first";
}

TEST(Localizations, AreMatchedWhateverTheCaseAndTheSeparator) {
  EXPECT_EQ(matchingLocalizations({"PT-br"}, {"pt_BR"}), Names{"PT-br"});
  EXPECT_EQ(matchingLocalizations({"zh_hans"}, {"zh-Hans"}), Names{"zh_hans"});
  EXPECT_EQ(matchingLocalizations({"ENGLISH"}, {"en"}), Names{"ENGLISH"});
}

TEST(Localizations, TellTheTwoWaysOfWritingChinese) {
  const Names folders = {"zh-Hans", "zh-Hant"};
  for (const char* language : {"zh_CN", "zh_SG", "zh", "zh-Hans", "zh_Hans_CN"}) {
    EXPECT_EQ(matchingLocalizations(folders, {language}), Names{"zh-Hans"}) << language;
  }
  for (const char* language : {"zh_TW", "zh_HK", "zh_MO", "zh-Hant", "zh_Hant_HK"}) {
    EXPECT_EQ(matchingLocalizations(folders, {language}), Names{"zh-Hant"}) << language;
  }
  EXPECT_EQ(matchingLocalizations({"zh_TW", "zh_CN"}, {"zh_CN"}), Names{"zh_CN"});
  EXPECT_EQ(matchingLocalizations({"zh_TW"}, {"zh_HK"}), Names{"zh_TW"});
  EXPECT_EQ(matchingLocalizations({"zh_TW"}, {"zh_CN"}), Names{});
  EXPECT_EQ(matchingLocalizations({"zh_HK", "zh-Hant", "zh_TW"}, {"zh_HK"}),
            (Names{"zh_HK", "zh-Hant", "zh_TW"}));
}

TEST(Localizations, TellScriptsNamedInALocalesModifier) {
  EXPECT_EQ(matchingLocalizations({"sr-Cyrl", "sr-Latn"}, {"sr_RS@latin"}), Names{"sr-Latn"});
  EXPECT_EQ(matchingLocalizations({"sr"}, {"sr_RS@latin"}), Names{"sr"});
  EXPECT_EQ(matchingLocalizations({"de"}, {"de_DE@euro"}), Names{"de"});
}

TEST(Localizations, SurviveNamesThatAreNone) {
  const Names odd = {
      "", "_", "-", "@", "@latin", "a_", "_a", "en__US", std::string(10'000, '-'), "\xFF\xFE"};
  for (const std::string& name : odd) {
    matchingLocalizations(odd, {name});
    apply({name.c_str(), nullptr, nullptr, name.c_str()});
    userLanguages();
  }
  EXPECT_EQ(matchingLocalizations({"en__US"}, {"en_US"}), Names{"en__US"});
}

// --- Of a bundle ---

class BundleLocalizations : public testing::Test {
 protected:
  const std::string bundle_ = support::sandbox() + "/" +
                              testing::UnitTest::GetInstance()->current_test_info()->name() +
                              ".app";

  void addFolders(const Names& names) const {
    for (const std::string& name : names) {
      support::writeFile(bundle_ + "/Contents/Resources/" + name + ".lproj/x", "");
    }
  }
  void setDevelopmentRegion(const char* region) const {
    support::writeFile(bundle_ + "/Contents/Info.plist",
                       clientcomm::xmlPropertyList({{"CFBundleDevelopmentRegion", region}}));
  }
  Names preferred(const char* language) const {
    apply({nullptr, nullptr, nullptr, language});
    return Bundle(bundle_).preferredLocalizations();
  }
};

TEST_F(BundleLocalizations, AreNamedAsTheirFolders) {
  addFolders({"English", "zh_CN", "de"});
  EXPECT_EQ(preferred("zh_CN.UTF-8"), Names{"zh_CN"});
  EXPECT_EQ(preferred("en_US.UTF-8"), Names{"English"});
}

TEST_F(BundleLocalizations, FallBackToTheDevelopmentRegion) {
  addFolders({"German", "fr"});
  setDevelopmentRegion("de");
  EXPECT_EQ(preferred("ja_JP"), Names{"German"}) << "under the name of its folder";
  EXPECT_EQ(preferred("C"), Names{"German"});
  setDevelopmentRegion("sv");
  EXPECT_EQ(preferred("ja_JP"), Names{"sv"});
}

TEST_F(BundleLocalizations, FallBackToEnglishWithoutADevelopmentRegion) {
  addFolders({"English", "fr"});
  EXPECT_EQ(preferred("ja_JP"), Names{"English"});
  setDevelopmentRegion("");
  EXPECT_EQ(preferred("ja_JP"), Names{"English"});
}

TEST_F(BundleLocalizations, AreNeverEmpty) {
  EXPECT_EQ(preferred("ja_JP"), Names{"en"}) << "there is no bundle at all";
  setDevelopmentRegion("Japanese");
  EXPECT_EQ(preferred("fr_FR"), Names{"Japanese"}) << "there is no localisation folder";
}

}  // namespace
