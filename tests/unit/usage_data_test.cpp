#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPUploadByHelper.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/file_tree.h"
#include "ClientComm/platform/user_defaults.h"
#include "tests/support/helper_files.h"
#include "tests/support/recording_transport.h"
#include "tests/support/test_sandbox.h"

namespace {

using clientcomm::OptionalString;
using clientcomm::PropertyListValue;
using support::RecordingTransport;

using Strings = std::vector<std::string>;

constexpr char kCollect[] = "collectData:version:collectionType:target:keyID:value:";
constexpr char kDirectUpload[] = "directUploadData:version:";
constexpr char kStatus[] = "productCollectStatus:version:";
constexpr char kSetStatus[] = "setProductCollectStatus:version:status:";

class UsageDataTest : public testing::Test {
 protected:
  void expectSent(const char* selector, const Strings& arguments) {
    ASSERT_EQ(recorder_.selectors(), Strings{selector});
    EXPECT_EQ(recorder_.last().className, "TQHPUploadByHelper");
    EXPECT_EQ(recorder_.last().arguments, arguments);
    recorder_.forget();
  }

  RecordingTransport& recorder_ = RecordingTransport::install();
  TQHPHelperCommunicate& controller_ = TQHPHelperCommunicate::share();
};

// --- Records ---

TEST_F(UsageDataTest, ACommonCounterIsOfTypeThreeWithoutAValue) {
  EXPECT_EQ(controller_.commIncreaseDataCollect("Launch", "k1"), 0);
  expectSent(kCollect, {"P100", "1.2.3", "3", "Launch", "k1", ""});
}

TEST_F(UsageDataTest, AnAutomaticallyCreatedCounterIsOfTypeFourWithoutAValue) {
  EXPECT_EQ(controller_.autoCreatedIncreaseDataCollect("Launch", "k1"), 0);
  expectSent(kCollect, {"P100", "1.2.3", "4", "Launch", "k1", ""});
}

TEST_F(UsageDataTest, ACustomStringIsOfTypeFiveWithoutAKey) {
  EXPECT_EQ(controller_.customStringDataCollect("Theme", "Dark"), 0);
  expectSent(kCollect, {"P100", "1.2.3", "5", "Theme", "", "Dark"});
}

TEST_F(UsageDataTest, NilTargetsKeysAndValuesAreSentAsEmptyStrings) {
  controller_.commIncreaseDataCollect(std::nullopt, std::nullopt);
  expectSent(kCollect, {"P100", "1.2.3", "3", "", "", ""});
  controller_.autoCreatedIncreaseDataCollect(std::nullopt, std::nullopt);
  expectSent(kCollect, {"P100", "1.2.3", "4", "", "", ""});
  controller_.customStringDataCollect(std::nullopt, std::nullopt);
  expectSent(kCollect, {"P100", "1.2.3", "5", "", "", ""});
}

TEST_F(UsageDataTest, TheProxySendsItsArgumentsInOrderAndNilAsAnEmptyString) {
  TQHPUploadByHelper& proxy = TQHPUploadByHelper::share();
  proxy.collectData("a", "b", 4, "c", "d", "e");
  expectSent(kCollect, {"a", "b", "4", "c", "d", "e"});
  proxy.collectData(std::nullopt, std::nullopt, 3, std::nullopt, std::nullopt, std::nullopt);
  expectSent(kCollect, {"", "", "3", "", "", ""});
}

TEST_F(UsageDataTest, ACollectionTypeThatIsNoneIsSentAsAnEmptyString) {
  for (const int type : {0, 1, 2, 6, -3}) {
    TQHPUploadByHelper::share().collectData("p", "v", type, "t", "k", "");
    expectSent(kCollect, {"p", "v", "", "t", "k", ""});
  }
}

TEST_F(UsageDataTest, RecordsAreSentWithoutWaitingAndWithoutRestartingTheHelper) {
  support::writeHelperPreferences({{"TQHPServerClosed", true}});
  recorder_.setStatus(-600);
  EXPECT_EQ(controller_.commIncreaseDataCollect("t", "k"), -600);
  EXPECT_EQ(recorder_.last().sendMode, 1);
  EXPECT_EQ(recorder_.calls().size(), 1U);
  EXPECT_EQ(controller_.customStringDataCollect("t", "v"), -600);
  EXPECT_EQ(controller_.directUploadData(), -600);
  EXPECT_EQ(controller_.setProductCollectStatus(true), -600);
  EXPECT_EQ(recorder_.calls().size(), 4U);
}

TEST_F(UsageDataTest, ADirectUploadCarriesTheIdentityAlone) {
  EXPECT_EQ(controller_.directUploadData(), 0);
  expectSent(kDirectUpload, {"P100", "1.2.3"});
}

// --- The product ID that records are filed under ---

TEST_F(UsageDataTest, RecordsGoOutUnderTheProductIDThatWasSet) {
  controller_.setCollectDataPID("D7");
  EXPECT_EQ(controller_.collectDataPID(), "D7");
  controller_.commIncreaseDataCollect("t", "k");
  expectSent(kCollect, {"D7", "1.2.3", "3", "t", "k", ""});
  controller_.autoCreatedIncreaseDataCollect("t", "k");
  expectSent(kCollect, {"D7", "1.2.3", "4", "t", "k", ""});
  controller_.customStringDataCollect("t", "v");
  expectSent(kCollect, {"D7", "1.2.3", "5", "t", "", "v"});
  controller_.directUploadData();
  expectSent(kDirectUpload, {"D7", "1.2.3"});
}

TEST_F(UsageDataTest, TheProductIDThatWasSetIsStoredAtOnce) {
  controller_.setCollectDataPID("D7");
  EXPECT_EQ(support::hostDefaults().at("DataCollectPID"), PropertyListValue("D7"));
}

TEST_F(UsageDataTest, WithoutAProductIDOfTheirOwnRecordsGoOutUnderTheFirstStarts) {
  clientcomm::UserDefaults::standardUserDefaults().setObject(PropertyListValue(false),
                                                             "IsFirstStart");
  clientcomm::UserDefaults::standardUserDefaults().setObject(PropertyListValue("P001"),
                                                             "FirstStartPID");
  EXPECT_EQ(controller_.collectDataPID(), "P001");
  controller_.commIncreaseDataCollect("t", "k");
  expectSent(kCollect, {"P001", "1.2.3", "3", "t", "k", ""});
}

TEST_F(UsageDataTest, AnEmptyProductIDCountsAsNone) {
  controller_.setCollectDataPID("");
  EXPECT_EQ(support::hostDefaults().at("DataCollectPID"), PropertyListValue(""))
      << "it is stored as it was given";
  EXPECT_EQ(controller_.collectDataPID(), "P100");
}

TEST_F(UsageDataTest, ANilProductIDRemovesTheOneThatWasSet) {
  controller_.setCollectDataPID("D7");
  controller_.setCollectDataPID(std::nullopt);
  EXPECT_FALSE(support::hostDefaults().contains("DataCollectPID"));
  EXPECT_EQ(controller_.collectDataPID(), "P100");
}

TEST_F(UsageDataTest, AProductIDThatIsNoTextCountsAsNone) {
  clientcomm::UserDefaults::standardUserDefaults().setObject(PropertyListValue(7),
                                                             "DataCollectPID");
  EXPECT_EQ(controller_.collectDataPID(), "P100");
}

// --- The collect status ---

TEST_F(UsageDataTest, TheCollectStatusIsSetUnderTheProductsOwnID) {
  controller_.setCollectDataPID("D7");
  EXPECT_EQ(controller_.setProductCollectStatus(true), 0);
  expectSent(kSetStatus, {"P100", "1.2.3", "1"});
  EXPECT_EQ(controller_.setProductCollectStatus(false), 0);
  expectSent(kSetStatus, {"P100", "1.2.3", "0"});
}

TEST_F(UsageDataTest, TheCollectStatusIsAskedForUnderTheProductsOwnID) {
  controller_.setCollectDataPID("D7");
  controller_.productCollectStatus();
  EXPECT_EQ(recorder_.last().sendMode, 3);
  EXPECT_EQ(recorder_.last().timeOut, -2);
  expectSent(kStatus, {"P100", "1.2.3"});
}

TEST_F(UsageDataTest, TheCollectStatusIsYesForOneAlone) {
  recorder_.setReply(kStatus, "1");
  EXPECT_TRUE(controller_.productCollectStatus());
  for (const char* reply : {"0", "", "true", " 1", "1 ", "01", "+1", "11", "YES"}) {
    recorder_.setReply(kStatus, reply);
    EXPECT_FALSE(controller_.productCollectStatus()) << '"' << reply << '"';
  }
}

TEST_F(UsageDataTest, TheCollectStatusIsNoWithoutAnAnswer) {
  EXPECT_FALSE(controller_.productCollectStatus()) << "a reply without text";
  recorder_.setReply(kStatus, "1");
  recorder_.setStatus(-600);
  EXPECT_FALSE(controller_.productCollectStatus()) << "no reply";
}

// --- The data-collection directory ---

class DataCollectionPathTest : public UsageDataTest {
 protected:
  static OptionalString recordedPath() {
    return clientcomm::UserDefaults::standardUserDefaults().stringForKey("DataCollectPath");
  }

  const std::string base_ = support::sandbox() + "/collected/here";
  const std::string data_ = base_ + "/Log/Data";
};

TEST_F(DataCollectionPathTest, IsMadeWithTheFoldersAboveItAndRecorded) {
  controller_.initDataCollectionPath(base_);
  EXPECT_TRUE(support::isFolder(data_));
  EXPECT_EQ(recordedPath(), data_);
}

TEST_F(DataCollectionPathTest, IsWrittenToTheUserDefaultsWithTheNextSynchronisation) {
  controller_.initDataCollectionPath(base_);
  EXPECT_FALSE(support::hostDefaults().contains("DataCollectPath"));
  clientcomm::UserDefaults::standardUserDefaults().synchronize();
  EXPECT_EQ(support::hostDefaults().at("DataCollectPath"), PropertyListValue(data_));
}

TEST_F(DataCollectionPathTest, ABaseWithATrailingSlashGivesTheSamePath) {
  controller_.initDataCollectionPath(base_ + "/");
  EXPECT_EQ(recordedPath(), data_);
}

TEST_F(DataCollectionPathTest, AnExistingLogFolderIsUsed) {
  support::writeFile(base_ + "/Log/old.log", "kept");
  controller_.initDataCollectionPath(base_);
  EXPECT_TRUE(support::isFolder(data_));
  EXPECT_EQ(support::readFile(base_ + "/Log/old.log"), "kept");
}

TEST_F(DataCollectionPathTest, ASecondTimeLeavesTheRecordAndMakesNothing) {
  controller_.initDataCollectionPath(base_);
  clientcomm::UserDefaults::standardUserDefaults().setObject(PropertyListValue("/moved"),
                                                             "DataCollectPath");
  controller_.initDataCollectionPath(base_);
  EXPECT_EQ(recordedPath(), "/moved");
}

TEST_F(DataCollectionPathTest, AFileInItsPlaceIsLeftAndNothingIsRecorded) {
  support::writeFile(data_, "a file");
  controller_.initDataCollectionPath(base_);
  EXPECT_EQ(support::readFile(data_), "a file");
  EXPECT_EQ(recordedPath(), std::nullopt);
}

TEST_F(DataCollectionPathTest, IsRecordedAlsoWhereItCannotBeMade) {
  support::writeFile(base_ + "/Log", "a file where the folder should be");
  controller_.initDataCollectionPath(base_);
  EXPECT_EQ(recordedPath(), data_);
  EXPECT_FALSE(clientcomm::fileExistsAtPath(data_));
}

TEST_F(DataCollectionPathTest, ARelativeBaseIsRefused) {
  clientcomm::createDirectoryAtPath(base_);
  for (const char* base : {"", ".", "here", "./here", "../here", "~", "~/here"}) {
    controller_.initDataCollectionPath(base);
    EXPECT_EQ(recordedPath(), std::nullopt) << base;
  }
  EXPECT_TRUE(clientcomm::contentsOfDirectoryAtPath(base_).empty());
}

TEST_F(DataCollectionPathTest, ANilBaseIsNothingToMake) {
  controller_.initDataCollectionPath(std::nullopt);
  EXPECT_EQ(recordedPath(), std::nullopt);
}

}  // namespace
