// The parts of the sample helper, each in the test's own process.

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "ClientComm/platform/user_defaults.h"
#include "examples/helper/console.h"
#include "examples/helper/customer_service.h"
#include "examples/helper/data_query.h"
#include "examples/helper/database.h"
#include "examples/helper/helper_control.h"
#include "examples/helper/journal.h"
#include "examples/helper/outbox.h"
#include "examples/helper/preferences.h"
#include "examples/helper/text.h"
#include "examples/helper/upgrade_service.h"
#include "examples/helper/upload_service.h"
#include "examples/helper/usage_archive.h"
#include "examples/helper/usage_store.h"
#include "examples/helper/wire_classes.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using support::sandbox;

std::string folder(const std::string& name) { return sandbox() + "/" + name; }

sample::UsageRecord counter(const std::string& key) {
  return {"P1", "1.0", sample::kCommonCounter, "Launch", key, ""};
}

// The counters of `records`, as key and count.
std::map<std::string, int> countsOf(const json& records) {
  std::map<std::string, int> counts;
  for (const json& entry : records.at("counters")) {
    counts[entry.at("key").get<std::string>()] += entry.at("count").get<int>();
  }
  return counts;
}

std::vector<std::string> entriesOf(const std::string& path) {
  std::vector<std::string> names;
  if (!fs::exists(path)) return names;
  for (const auto& entry : fs::directory_iterator(path)) names.push_back(entry.path().filename());
  return names;
}

// --- Database ---

TEST(SampleDatabase, KeepsAsideAFileThatIsNoDatabaseAndBeginsANewOne) {
  const std::string path = folder("Some.db");
  support::writeFile(path, "this was a database once, but is not any more, for whatever reason");
  sample::Database database(path, "CREATE TABLE IF NOT EXISTS t (x)");
  sample::Statement(database, "INSERT INTO t (x) VALUES (1)").run();
  int asideCount = 0;
  for (const auto& entry : fs::directory_iterator(sandbox())) {
    if (!entry.path().filename().string().starts_with("Some.db.corrupt-")) continue;
    ++asideCount;
    EXPECT_TRUE(support::readFile(entry.path()).starts_with("this was a database once"));
  }
  EXPECT_EQ(asideCount, 1);
}

TEST(SampleDatabase, TakesBackWhatWasNotCommitted) {
  sample::Database database(folder("Some.db"), "CREATE TABLE IF NOT EXISTS t (x)");
  {
    const sample::Transaction transaction(database);
    sample::Statement(database, "INSERT INTO t (x) VALUES (1)").run();
  }
  sample::Statement query(database, "SELECT count(*) FROM t");
  ASSERT_TRUE(query.step());
  EXPECT_EQ(query.number(0), 0);
}

TEST(SampleDatabase, KeepsTextsWithNulAndBytesThatAreNoUtf8) {
  sample::Database database(folder("Some.db"), "CREATE TABLE IF NOT EXISTS t (x)");
  for (const std::string& text : {std::string("a\0b", 3), std::string("\xFF\xFE"), std::string()}) {
    sample::Statement(database, "INSERT INTO t (x) VALUES (?1)").bind(1, text).run();
    sample::Statement query(database, "SELECT x FROM t WHERE x = ?1");
    query.bind(1, text);
    ASSERT_TRUE(query.step());
    EXPECT_EQ(query.text(0), text);
  }
}

TEST(SampleDatabase, FailsWhereItCannotBeMade) {
  EXPECT_THROW(sample::Database(folder("nowhere/Some.db"), ""), sample::DatabaseError);
}

// --- Usage data ---

TEST(SampleUsage, CountersAddUpByProductVersionTypeTargetAndKey) {
  sample::UsageStore store(folder("usage"));
  store.add(counter("a"));
  store.add(counter("a"));
  for (const sample::UsageRecord& other :
       {sample::UsageRecord{"P2", "1.0", sample::kCommonCounter, "Launch", "a", ""},
        sample::UsageRecord{"P1", "2.0", sample::kCommonCounter, "Launch", "a", ""},
        sample::UsageRecord{"P1", "1.0", sample::kAutoCreatedCounter, "Launch", "a", ""},
        sample::UsageRecord{"P1", "1.0", sample::kCommonCounter, "Menu", "a", ""}, counter("b")}) {
    store.add(other);
  }
  const json counters = store.collected().at("counters");
  EXPECT_EQ(counters.size(), 6U);
  const json twice = {{"productID", "P1"},  {"version", "1.0"}, {"type", 3},
                      {"target", "Launch"}, {"key", "a"},       {"count", 2}};
  EXPECT_NE(std::find(counters.begin(), counters.end(), twice), counters.end());
}

TEST(SampleUsage, TextsAreKeptOneByOne) {
  sample::UsageStore store(folder("usage"));
  for (const char* value : {"dark", "light", "dark"}) {
    store.add({"P1", "1.0", sample::kCustomText, "Theme", "", value});
  }
  const json texts = store.collected().at("texts");
  ASSERT_EQ(texts.size(), 3U);
  EXPECT_EQ(texts[2].at("value"), "dark");
}

TEST(SampleUsage, WhatIsCountedAfterABatchWasOpenedIsNotInIt) {
  sample::UsageStore store(folder("usage"));
  store.add(counter("a"));
  store.openBatch("P1");
  store.add(counter("a"));
  store.add(counter("b"));
  std::vector<json> sent;
  store.sendOpenBatches(
      [&](const sample::UsageBatch&, const json& content) { sent.push_back(content); });
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(countsOf(sent[0]), (std::map<std::string, int>{{"a", 1}}));
  EXPECT_EQ(countsOf(store.collected()), (std::map<std::string, int>{{"a", 1}, {"b", 1}}));
}

TEST(SampleUsage, ABatchHoldsOneProductOnly) {
  sample::UsageStore store(folder("usage"));
  store.add(counter("a"));
  store.add({"P2", "1.0", sample::kCommonCounter, "Launch", "a", ""});
  store.openBatch("P1");
  store.sendOpenBatches(
      [](const sample::UsageBatch& batch, const json&) { EXPECT_EQ(batch.productID, "P1"); });
  const json left = store.collected().at("counters");
  ASSERT_EQ(left.size(), 1U);
  EXPECT_EQ(left[0].at("productID"), "P2");
}

TEST(SampleUsage, ABatchCutShortIsSentAgainUnderItsNameWithTheSameContent) {
  std::string name;
  json content;
  {
    sample::UsageStore store(folder("usage"));
    store.add(counter("a"));
    store.openBatch("P1");
    EXPECT_THROW(store.sendOpenBatches([&](const sample::UsageBatch& batch, const json& first) {
      name = batch.name;
      content = first;
      throw std::runtime_error("the end, after the file was written");
    }),
                 std::runtime_error);
  }
  sample::UsageStore store(folder("usage"));
  int count = 0;
  const auto write = [&](const sample::UsageBatch& batch, const json& second) {
    ++count;
    EXPECT_EQ(batch.name, name);
    EXPECT_EQ(second, content);
  };
  store.sendOpenBatches(write);
  store.sendOpenBatches(write);
  EXPECT_EQ(count, 1);
}

TEST(SampleUsage, NothingCollectedMakesNoBatch) {
  sample::UsageStore store(folder("usage"));
  store.openBatch("P1");
  store.sendOpenBatches([](const sample::UsageBatch&, const json&) { FAIL() << "a batch"; });
}

class SampleUsageArchive : public testing::Test {
 protected:
  // Records a folder in the settings of a host, as the library does for it.
  static void nameFolder(const std::string& path) {
    clientcomm::UserDefaults settings("com.example.some");
    settings.setObject(path, "DataCollectPath");
    ASSERT_TRUE(settings.synchronize());
  }

  sample::Journal journal_{folder("own")};
  sample::UsageArchive archive_{journal_, folder("own/Usage"), folder("own/Outbox")};
};

TEST_F(SampleUsageArchive, RecordsGoToTheFolderThatTheHostNamed) {
  nameFolder(folder("host data"));
  archive_.add("com.example.some", counter("a"));
  EXPECT_EQ(countsOf(archive_.collected().at(folder("host data"))).at("a"), 1);
  EXPECT_TRUE(fs::exists(folder("host data/Usage.db")));
}

TEST_F(SampleUsageArchive, RecordsOfAHostWithoutAFolderGoToTheHelpersOwn) {
  archive_.add("com.example.some", counter("a"));
  EXPECT_EQ(countsOf(archive_.collected().at(folder("own/Usage"))).at("a"), 1);
}

TEST_F(SampleUsageArchive, AFolderThatCannotBeUsedIsReplacedByTheHelpersOwn) {
  support::writeFile(folder("a file"), "");
  for (const std::string& path : {folder("a file/below"), std::string("relative"), std::string()}) {
    nameFolder(path);
    archive_.add("com.example.some", counter("a"));
  }
  EXPECT_EQ(countsOf(archive_.collected().at(folder("own/Usage"))).at("a"), 3);
}

TEST_F(SampleUsageArchive, AFolderRemovedMeanwhileIsMadeAgain) {
  nameFolder(folder("host data"));
  archive_.add("com.example.some", counter("a"));
  fs::remove_all(folder("host data"));
  archive_.add("com.example.some", counter("b"));
  EXPECT_EQ(countsOf(archive_.collected().at(folder("host data"))),
            (std::map<std::string, int>{{"b", 1}}));
  EXPECT_TRUE(fs::exists(folder("host data/Usage.db")));
}

TEST_F(SampleUsageArchive, WhatALaterRunFindsOpenLeavesOnce) {
  nameFolder(folder("host data"));
  archive_.add("com.example.some", counter("a"));
  sample::UsageStore(folder("host data")).openBatch("P1");
  archive_.finishOpenBatches();
  archive_.finishOpenBatches();
  archive_.upload("P1");
  const auto files = entriesOf(folder("own/Outbox"));
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(countsOf(json::parse(support::readFile(folder("own/Outbox/" + files[0])))),
            (std::map<std::string, int>{{"a", 1}}));
}

TEST_F(SampleUsageArchive, AnOutboxThatCannotBeWrittenKeepsTheRecordsForTheNextUpload) {
  archive_.add("com.example.some", counter("a"));
  support::writeFile(folder("own/Outbox"), "in the way");
  archive_.upload("P1");
  fs::remove(folder("own/Outbox"));
  archive_.upload("P1");
  EXPECT_EQ(entriesOf(folder("own/Outbox")).size(), 1U);
}

// --- Outbox ---

class SampleOutbox : public testing::Test {
 protected:
  void take(const std::string& path) {
    sample::Delivery delivery;
    delivery.kind = "log";
    delivery.bundleID = "com.example.some";
    delivery.productID = "P1";
    delivery.path = path;
    outbox_.take(delivery);
  }

  // The only delivery in the outbox, when all work is done.
  json deliver(const std::string& path) {
    take(path);
    EXPECT_TRUE(support::runLoopUntil([this] { return journal_.openDeliveries().empty(); }));
    const auto names = entriesOf(outbox_.folder());
    if (names.size() != 1) return {};
    content_ = outbox_.folder() + "/" + names[0] + "/content";
    return json::parse(support::readFile(outbox_.folder() + "/" + names[0] + "/record.json"));
  }

  sample::Journal journal_{folder("own")};
  sample::Outbox outbox_{journal_, folder("own/Outbox")};
  std::string content_;
};

TEST_F(SampleOutbox, AFileIsCopiedWholeWithItsChecksum) {
  const std::string bytes(3'000'001, 'x');
  support::writeFile(folder("file"), bytes);
  const json record = deliver(folder("file"));
  EXPECT_EQ(record.at("size"), bytes.size());
  EXPECT_EQ(record.at("sha256"),
            "a3ccf84896e3e6d1185dee335e2f32266f86bd958bdc51fff840792fd520e351");
  EXPECT_EQ(support::readFile(content_), bytes);
}

TEST_F(SampleOutbox, ALargeFileIsCopiedInPiecesSoThatNoCallWaitsForItsEnd) {
  constexpr std::uintmax_t kSize = 5 << 20;
  support::writeFile(folder("file"), std::string(kSize, 'x'));
  take(folder("file"));
  const std::string name = journal_.openDeliveries().at(0).name;
  const std::string partial = outbox_.folder() + "/.partial-" + name + "/content";
  std::uintmax_t copied = 0;
  int pieces = 0;
  for (; copied < kSize; ++pieces) {
    ASSERT_TRUE(outbox_.work());
    const std::uintmax_t now = fs::file_size(partial);
    EXPECT_GT(now, copied);
    EXPECT_LE(now - copied, 1U << 20);
    copied = now;
  }
  EXPECT_EQ(pieces, 5);
  EXPECT_FALSE(fs::exists(outbox_.folder() + "/" + name));
}

TEST_F(SampleOutbox, AFileOfFourGiBIsCopiedLikeAnyOther) {
  support::writeFile(folder("file"), "");
  fs::resize_file(folder("file"), std::uintmax_t{1} << 32U);  // a hole, which takes no room
  take(folder("file"));
  const std::string name = journal_.openDeliveries().at(0).name;
  for (std::uintmax_t pieces = 1; pieces <= 3; ++pieces) {
    ASSERT_TRUE(outbox_.work());
    EXPECT_EQ(fs::file_size(outbox_.folder() + "/.partial-" + name + "/content"), pieces << 20U);
  }
}

TEST_F(SampleOutbox, AnEmptyFileIsDeliveredAsSuch) {
  support::writeFile(folder("file"), "");
  const json record = deliver(folder("file"));
  EXPECT_EQ(record.at("size"), 0);
  EXPECT_EQ(record.at("sha256"),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_TRUE(fs::exists(content_));
}

TEST_F(SampleOutbox, APathThatIsNoFileGivesARecordWithAnError) {
  mkfifo(folder("pipe").c_str(), 0600);
  fs::create_directory(folder("directory"));
  const std::string paths[] = {folder("missing"), folder("pipe"), folder("directory"), "relative",
                               folder(std::string("a\0b", 3))};
  for (const std::string& path : paths) {
    const json record = deliver(path);
    ASSERT_FALSE(record.is_null()) << path;
    EXPECT_FALSE(record.at("error").get<std::string>().empty()) << path;
    EXPECT_FALSE(record.contains("sha256")) << path;
    EXPECT_FALSE(fs::exists(content_)) << path;
    fs::remove_all(outbox_.folder());
  }
}

TEST_F(SampleOutbox, APathThatIsNoUtf8IsOpenedByItsBytes) {
  const std::string path = folder("caf\xE9.log");
  support::writeFile(path, "bytes");
  const json record = deliver(path);
  EXPECT_EQ(support::readFile(content_), "bytes");
  EXPECT_EQ(record.at("pathBytes"), sample::hexadecimal(path));
}

TEST_F(SampleOutbox, ADeliveryThatStandsInTheOutboxIsNotMadeAgain) {
  support::writeFile(folder("file"), "new bytes");
  take(folder("file"));
  const std::string finished = outbox_.folder() + "/" + journal_.openDeliveries().at(0).name;
  support::writeFile(finished + "/record.json", "{}");
  EXPECT_TRUE(support::runLoopUntil([this] { return journal_.openDeliveries().empty(); }));
  EXPECT_EQ(support::readFile(finished + "/record.json"), "{}");
  EXPECT_FALSE(fs::exists(finished + "/content"));
}

TEST_F(SampleOutbox, ALaterRunMakesWhatAnEarlierOneLeftAndClearsHalfMadeFolders) {
  support::writeFile(folder("file"), "bytes");
  take(folder("file"));
  outbox_.suspend();
  support::writeFile(outbox_.folder() + "/.partial-log-old/content", "half");
  sample::Outbox later(journal_, outbox_.folder());
  later.resume();
  EXPECT_TRUE(support::runLoopUntil([this] { return journal_.openDeliveries().empty(); }));
  const auto names = entriesOf(outbox_.folder());
  ASSERT_EQ(names.size(), 1U);
  EXPECT_EQ(support::readFile(outbox_.folder() + "/" + names[0] + "/content"), "bytes");
}

// --- What the helper remembers ---

TEST(SamplePreferences, TheClientIDIsMadeOnceAndIsTheSameForTheNextRun) {
  const auto first = sample::Preferences().clientID();
  ASSERT_TRUE(first);
  EXPECT_TRUE(g_uuid_string_is_valid(first->c_str()));
  EXPECT_EQ(sample::Preferences().clientID(), first);
  const auto stored = clientcomm::UserDefaults("com.example.testhost").objectForKey("ClientID");
  ASSERT_TRUE(stored);
  EXPECT_EQ(stored->stringValue(), first);
}

TEST(SamplePreferences, AProductIsKeptOncePerHostWithItsLatestVersion) {
  sample::Preferences preferences;
  preferences.addProduct({"P1", "1.0", "com.example.a"});
  preferences.addProduct({"P1", "2.0", "com.example.a"});
  preferences.addProduct({"P1", "1.0", "com.example.b"});
  const std::vector<sample::Product> expected = {{"P1", "2.0", "com.example.a"},
                                                 {"P1", "1.0", "com.example.b"}};
  EXPECT_EQ(preferences.products(), expected);
  preferences.removeProduct("P1", "com.example.a");
  EXPECT_EQ(preferences.products().size(), 1U);
}

TEST(SamplePreferences, TextThatXmlCannotHoldDoesNotSpoilTheFile) {
  sample::Preferences preferences;
  preferences.addProduct({std::string("a\0\x01\xFF", 4), "\x1B[0m", "com.example.a"});
  preferences.setShown(true);
  clientcomm::UserDefaults fresh("com.example.testhost");
  ASSERT_TRUE(fresh.objectForKey("Products"));
  EXPECT_TRUE(fresh.objectForKey("Shown")->boolValue());
  preferences.removeProduct(std::string("a\0\x01\xFF", 4), "com.example.a");
  EXPECT_TRUE(preferences.products().empty());
}

TEST(SamplePreferences, DataIsCollectedUntilItIsSwitchedOff) {
  sample::Preferences preferences;
  EXPECT_TRUE(preferences.isCollecting("P1"));
  preferences.setCollecting("P1", false);
  EXPECT_FALSE(preferences.isCollecting("P1"));
  EXPECT_TRUE(preferences.isCollecting("P2"));
}

TEST(SampleJournal, IgnoreRefusesTheLatestOfferAndAnyOtherAnswersTheEarliest) {
  sample::Journal journal(folder("own"));
  sample::UpgradeOffer offer;
  offer.bundleID = "com.example.a";
  offer.outcome = sample::kOfferOpen;
  const auto first = journal.noteOffer(offer);
  const auto second = journal.noteOffer(offer);
  EXPECT_EQ(journal.openOffer("com.example.a", "1"), first);
  EXPECT_EQ(journal.openOffer("com.example.a", "ignore"), second);
  EXPECT_EQ(journal.openOffer("com.example.b", "1"), std::nullopt);
  journal.setOutcome(first, "ready");
  EXPECT_EQ(journal.openOffer("com.example.a", "0"), second);
}

TEST(SampleText, FileNamesOfDifferentTextsDifferAndHoldNoSlash) {
  for (const std::string& text :
       {std::string("../x"), std::string("a/b"), std::string("a\0b", 3)}) {
    const std::string name = sample::fileNameFor(text);
    EXPECT_EQ(name.find('/'), std::string::npos);
    EXPECT_EQ(name.find('\0'), std::string::npos);
  }
  EXPECT_NE(sample::fileNameFor("a/b"), sample::fileNameFor("a_b"));
  EXPECT_EQ(sample::fileNameFor("SAMPLE-100"), "SAMPLE-100");
}

// --- The classes on the wire ---

void expectMethod(const char* className, const char* selector, std::size_t argumentCount) {
  const clientcomm::Class* const found = clientcomm::classNamed(className);
  ASSERT_NE(found, nullptr) << className;
  const clientcomm::Method* const method = found->methodForSelector(selector);
  ASSERT_NE(method, nullptr) << className << " " << selector;
  EXPECT_EQ(method->argumentCount, argumentCount) << className << " " << selector;
}

TEST(SampleWireClasses, EveryCallThatHostsMakeIsAnswered) {
  sample::registerWireClasses();
  for (const char* selector :
       {"isAlive:prodeuctVersion:", "start:prodeuctVersion:", "stop:prodeuctVersion:",
        "show:prodeuctVersion:", "hide:prodeuctVersion:", "exitHelper:productVersion:"}) {
    expectMethod("TQHPHelperControl", selector, 2);
  }
  expectMethod("TQHPGetDataByHelper", "clientIDFormHelper", 0);
  expectMethod("TQHPUpgradeByHelper", "productUpgrade:versionID:", 2);
  expectMethod("TQHPUpgradeByHelper", "productReadyToUpgrade:versionID:ready:", 3);
  for (const char* selector : {"uploadLog:versionID:email:filePath:title:description:",
                               "uploadUserFile:versionID:email:filePath:title:description:",
                               "uploadProductFile:versionID:email:filePath:title:description:",
                               "collectData:version:collectionType:target:keyID:value:"}) {
    expectMethod("TQHPUploadByHelper", selector, 6);
  }
  for (const char* selector :
       {"directUploadData:version:", "productCollectStatus:version:", "regSuiteInfo:version:",
        "unRegSuiteInfo:version:", "netErrorPagePath:version:"}) {
    expectMethod("TQHPUploadByHelper", selector, 2);
  }
  expectMethod("TQHPUploadByHelper", "setProductCollectStatus:version:status:", 3);
  expectMethod("TQHPCustomerServiceByHelepr", "checkForHeleprMessage:versionID:", 2);
  expectMethod("TQHPCustomerServiceByHelepr", "customerService:versionID:email:attachment:", 4);
}

TEST(SampleWireClasses, NothingOfTheLibrarysHostSideCanBeCalled) {
  sample::registerWireClasses();
  for (const char* name : {"TQHPHelper", "TQHPHelperCommunicate", "TQHPAppleEventSender",
                           "TQHPAppleEventProcesser", "TQHPAppEventBase", "TQHPProcessList"}) {
    EXPECT_EQ(clientcomm::classNamed(name), nullptr) << name;
  }
  EXPECT_EQ(clientcomm::classNamed("TQHPHelperControl"), &sample::HelperControl::wireClass());
  EXPECT_EQ(clientcomm::classNamed("TQHPUpgradeByHelper"), &sample::UpgradeService::wireClass());
  EXPECT_EQ(clientcomm::classNamed("TQHPHelperControl")->methodForSelector("helperExitNotify:"),
            nullptr);
}

}  // namespace
