// The services of the sample helper, as real processes.

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "ClientComm/TQHPCustomerServiceByHelepr.h"
#include "ClientComm/TQHPGetDataByHelper.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPUpgradeByHelper.h"
#include "ClientComm/TQHPUploadByHelper.h"
#include "tests/integration/sample_helper_fixture.h"
#include "tests/support/peer_build.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using support::sandbox;

constexpr const char kVersion[] = "1.2.3";

// --- The helper's life, as one host sees it ---

class Listener final : public TQHPHelperControlCallBackDelegate {
 public:
  void willHelperExit() override { ++exits; }
  void didCheckServerOpen(bool isOpen, const clientcomm::Error* error) override {
    checks.emplace_back(isOpen, error == nullptr ? 0 : error->code);
  }

  int exits = 0;
  std::vector<std::pair<bool, std::int64_t>> checks;
};

class HelperLife : public SampleHelperFixture {
 protected:
  void SetUp() override {
    SampleHelperFixture::SetUp();
    TQHPHelperControl::share().setHelperCtrlDelegate(&listener_);
    startHelper();
  }
  void TearDown() override { TQHPHelperControl::share().setHelperCtrlDelegate(nullptr); }

  static Json products() { return state().at("products"); }

  Listener listener_;
};

TEST_F(HelperLife, StartAndStopNoteTheProductOfTheHostThatCalls) {
  EXPECT_EQ(TQHPHelperControl::share().start("P100", kVersion), 0);
  const Json expected = {
      {"productID", "P100"}, {"version", kVersion}, {"bundleIdentifier", "com.example.testhost"}};
  EXPECT_EQ(products(), Json::array({expected}));
  EXPECT_EQ(TQHPHelperControl::share().stop("P100", kVersion), 0);
  EXPECT_EQ(products(), Json::array());
}

TEST_F(HelperLife, AProductIsStillKnownAfterTheHelperWasKilled) {
  TQHPHelperControl::share().start("P100", kVersion);
  TQHPHelperControl::share().show("P100", kVersion);
  const Json before = state();
  killHelper();
  startHelper();
  const Json after = state();
  for (const char* key : {"products", "clientID", "isShown"}) EXPECT_EQ(after[key], before[key]);
  EXPECT_NE(after["pid"], before["pid"]);
}

TEST_F(HelperLife, TheClientIDIsTheSameAtEveryQuery) {
  const auto first = TQHPGetDataByHelper::share().clientIDFormHelper();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->size(), 36U);
  EXPECT_EQ(TQHPGetDataByHelper::share().clientIDFormHelper(), first);
}

TEST_F(HelperLife, TheExitCommandIsAnnouncedToTheHostsAndEndsTheHelper) {
  TQHPHelperControl::share().start("P100", kVersion);
  EXPECT_EQ(TQHPHelperControl::share().exitHelper("P100", kVersion), 0);
  EXPECT_EQ(waitForHelper(), 0);
  EXPECT_TRUE(support::runLoopUntil([this] { return listener_.exits == 1; }));
  EXPECT_EQ(TQHPHelperControl::share().isAlive("P100", kVersion), clientcomm::procNotFound);
}

TEST_F(HelperLife, SigtermIsAnnouncedToTheHostsAndEndsTheHelperCleanly) {
  TQHPHelperControl::share().start("P100", kVersion);
  state();
  EXPECT_EQ(endHelper(), 0);
  EXPECT_TRUE(support::runLoopUntil([this] { return listener_.exits == 1; }));
}

TEST_F(HelperLife, WhatWasHandedOverBeforeTheExitCommandIsStillCarriedOut) {
  TQHPUploadByHelper& proxy = TQHPUploadByHelper::share();
  for (int i = 0; i < 200; ++i) ASSERT_EQ(proxy.collectData("P100", kVersion, 3, "T", "k", ""), 0);
  ASSERT_EQ(TQHPHelperControl::share().exitHelper("P100", kVersion), 0);
  EXPECT_EQ(waitForHelper(), 0);
  startHelper();
  EXPECT_EQ(state()["usage"].begin().value()["counters"][0]["count"], 200);
}

TEST_F(HelperLife, ACopyThatTheSessionStartsLeavesARunningOneAlone) {
  const std::string program = prepareHelper() + "/Contents/Linux/SampleHelper";
  auto copy = support::ChildProcess::spawn({program, "--unless-running"});
  EXPECT_EQ(copy.wait(), 0);
  EXPECT_EQ(state()["pid"], helperPid());
  killHelper();
  auto first = support::ChildProcess::spawn({program, "--unless-running"});
  EXPECT_TRUE(waitForState([&](const Json& now) { return now["pid"] == first.pid(); }));
}

TEST_F(HelperLife, TheServerCheckReachesTheHostWithFlagCodeAndDescription) {
  TQHPHelperControl::share().start("P100", kVersion);
  ASSERT_EQ(call("SampleHelperConsole", "closeServer:description:", {"7", "maintenance"}), 0);
  EXPECT_TRUE(support::runLoopUntil([this] { return listener_.checks.size() == 1; }));
  EXPECT_TRUE(state()["isServerClosed"].get<bool>());
  ASSERT_EQ(call("SampleHelperConsole", "openServer", {}), 0);
  EXPECT_TRUE(support::runLoopUntil([this] { return listener_.checks.size() == 2; }));
  EXPECT_FALSE(state()["isServerClosed"].get<bool>());
  const std::vector<std::pair<bool, std::int64_t>> expected = {{false, 7}, {true, 0}};
  EXPECT_EQ(listener_.checks, expected);
}

TEST_F(HelperLife, CallsThatMakeNoSenseAreAnsweredWithNothingAndHarmNothing) {
  const std::string odd("\xFF\0\x01###", 6);
  EXPECT_EQ(ask("TQHPHelperCommunicate", "extractHelper", {}).value_or(""), "");
  EXPECT_EQ(ask("TQHPHelperControl", "start:prodeuctVersion:", {"a", "b", "c"}).value_or(""), "");
  EXPECT_EQ(ask("TQHPHelperControl", "noSuch:", {"a"}).value_or(""), "");
  for (const char* selector : {"start:prodeuctVersion:", "stop:prodeuctVersion:"}) {
    EXPECT_EQ(call("TQHPHelperControl", selector, {odd, odd}), 0);
  }
  EXPECT_EQ(call("TQHPUploadByHelper", "collectData:version:collectionType:target:keyID:value:",
                 {odd, odd, "3", odd, odd, odd}),
            0);
  EXPECT_EQ(call("TQHPUploadByHelper", "collectData:version:collectionType:target:keyID:value:",
                 {"P100", kVersion, "9", "T", "k", ""}),
            0);
  EXPECT_EQ(call("TQHPUpgradeByHelper", "productUpgrade:versionID:", {"../../x", odd}), 0);
  const Json now = state();
  ASSERT_FALSE(now.is_null());
  EXPECT_EQ(now["pid"], helperPid());
  EXPECT_EQ(now["products"], Json::array());
  EXPECT_EQ(now["refusedRecords"], 1);
}

class HelperWithoutAPlace : public SampleHelperFixture {};

TEST_F(HelperWithoutAPlace, AnswersAllTheSameAndNotesWhatItCouldNotTake) {
  support::writeFile(dataFolder(), "in the way");
  startHelper();
  TQHPUploadByHelper& proxy = TQHPUploadByHelper::share();
  EXPECT_EQ(proxy.collectData("P100", kVersion, 3, "T", "k", ""), 0);
  EXPECT_EQ(proxy.uploadLog("P100", kVersion, "", "/etc/hostname", "", ""), 0);
  EXPECT_TRUE(TQHPGetDataByHelper::share().clientIDFormHelper());
  const Json now = state();
  EXPECT_EQ(now["failures"], 2);
  EXPECT_TRUE(now["latestFailure"].get<std::string>().starts_with("log: cannot make"));
}

// --- The smallest helper ---

TEST(MinimalHelper, CanBeReachedGivesAClientIDAndEndsWhenToldTo) {
  auto info = support::defaultHostInfo();
  info["Helper Bundle indentifiter"] = "com.example.minimalhelper";
  support::writeHostInfo(info);
  auto helper = support::ChildProcess::spawn(
      {support::inPeerBuild(MINIMAL_HELPER_BUNDLE) + "/Contents/Linux/MinimalHelper"});
  TQHPHelperControl& control = TQHPHelperControl::share();
  ASSERT_TRUE(support::waitUntil([&] { return control.isAlive("P100", kVersion) == 0; }));
  EXPECT_EQ(TQHPGetDataByHelper::share().clientIDFormHelper(), "one-for-all");
  EXPECT_EQ(control.exitHelper("P100", kVersion), 0);
  EXPECT_EQ(helper.wait(), 0);
}

// --- Usage data under SIGKILL ---

class UsageUnderKill : public SampleHelperFixture {
 protected:
  using Counts = std::map<std::string, int>;

  void SetUp() override {
    SampleHelperFixture::SetUp();
    const unsigned seed = std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    random_.seed(seed);
  }

  // Sends records, each with a key of its own, until the helper is killed at some moment after it
  // has taken the first ones.
  // @param uploads whether direct uploads go between them.
  void sendUntilKilled(bool uploads);
  // Sends ten records and asks a question. @return false when the helper is gone.
  bool sendSome(bool uploads);

  // How often each key was counted, in what has left and in what has not.
  static Counts allCounts();

  // Whether the outbox holds anything, half-made or whole.
  static bool hasBegunDelivery() { return fs::exists(outbox()) && !fs::is_empty(outbox()); }

  std::mt19937 random_;
  int sequence_ = 0;
  std::set<std::string> handedOver_;  // status 0
  std::set<std::string> taken_;       // answered by a later query
};

bool UsageUnderKill::sendSome(bool uploads) {
  TQHPUploadByHelper& proxy = TQHPUploadByHelper::share();
  std::set<std::string> sent;
  for (int i = 0; i < 10; ++i) {
    const std::string key = "k" + std::to_string(sequence_++);
    if (proxy.collectData("P100", kVersion, 4, "Target", key, "") != 0) return false;
    handedOver_.insert(key);
    sent.insert(key);
    if (uploads && i == 6) proxy.directUploadData("P100", kVersion);
  }
  // Calls of one sender are carried out in order: the answer says that all before it are done.
  if (proxy.productCollectStatus("P100", kVersion) != "1") return false;
  taken_.merge(sent);
  return true;
}

void UsageUnderKill::sendUntilKilled(bool uploads) {
  ASSERT_TRUE(sendSome(uploads));
  const pid_t target = helperPid();
  ASSERT_GT(target, 0);
  const auto delay = std::chrono::microseconds(random_() % 20'000);
  auto killer = support::ChildProcess::fork([target, delay] {
    std::this_thread::sleep_for(delay);
    return kill(target, SIGKILL);
  });
  while (sendSome(uploads)) {
  }
  EXPECT_EQ(killer.wait(), 0);
  killHelper();
}

UsageUnderKill::Counts UsageUnderKill::allCounts() {
  Counts counts;
  const auto add = [&](const Json& records) {
    for (const Json& counter : records.at("counters")) {
      counts[counter.at("key").get<std::string>()] += counter.at("count").get<int>();
    }
  };
  const Json now = state();
  for (const auto& [folder, records] : now.at("usage").items()) add(records);
  for (const Json& file : usageFiles()) add(file);
  return counts;
}

TEST_F(UsageUnderKill, NoRecordThatWasTakenIsLostAndNoneIsCountedTwice) {
  while (handedOver_.size() < 1000) {
    startHelper();
    sendUntilKilled(false);
  }
  startHelper();
  const Counts counts = allCounts();
  for (const auto& [key, count] : counts) {
    EXPECT_EQ(count, 1) << key;
    EXPECT_TRUE(handedOver_.contains(key)) << key;
  }
  for (const std::string& key : taken_) EXPECT_TRUE(counts.contains(key)) << key;
  EXPECT_GE(taken_.size(), 80U);
  RecordProperty("handedOver", static_cast<int>(handedOver_.size()));
  RecordProperty("taken", static_cast<int>(taken_.size()));
  RecordProperty("stored", static_cast<int>(counts.size()));
}

TEST_F(UsageUnderKill, EveryRecordTakenLeavesExactlyOnce) {
  for (int round = 0; round < 8; ++round) {
    startHelper();
    sendUntilKilled(true);
  }
  startHelper();
  TQHPUploadByHelper::share().directUploadData("P100", kVersion);
  const Json now = state();
  for (const auto& [folder, records] : now.at("usage").items()) {
    EXPECT_TRUE(records.at("counters").empty()) << folder;
  }
  std::set<std::string> batches;
  for (const Json& file : usageFiles()) {
    EXPECT_TRUE(batches.insert(file.at("batch").get<std::string>()).second);
  }
  const Counts counts = allCounts();
  for (const auto& [key, count] : counts) EXPECT_EQ(count, 1) << key;
  for (const std::string& key : taken_) EXPECT_TRUE(counts.contains(key)) << key;
  EXPECT_GT(batches.size(), 1U);
}

TEST_F(UsageUnderKill, AnUploadThatWasTakenIsDeliveredExactlyOnceHoweverOftenTheHelperIsKilled) {
  const std::string bytes(6 << 20, 'x');
  support::writeFile(sandbox() + "/large.log", bytes);
  startHelper();
  ASSERT_EQ(TQHPUploadByHelper::share().uploadLog("P100", kVersion, "a@b", sandbox() + "/large.log",
                                                  "large", ""),
            0);
  ASSERT_EQ(state()["deliveries"].size(), 1U);
  for (int round = 0; round < 4; ++round) {
    ASSERT_TRUE(support::waitUntil([] { return hasBegunDelivery(); }));
    std::this_thread::sleep_for(std::chrono::microseconds(random_() % 3'000));
    killHelper();
    startHelper();
  }
  EXPECT_TRUE(waitForState([](const Json& now) { return now["deliveries"][0]["done"] == true; }));
  const auto records = deliveries("log");
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(support::readFile(records[0]["folder"].get<std::string>() + "/content"), bytes);
  for (const auto& entry : fs::directory_iterator(outbox())) {
    EXPECT_FALSE(entry.path().filename().string().starts_with("."));
  }
}

// --- Services ---

class HelperServices : public SampleHelperFixture {
 protected:
  void SetUp() override {
    SampleHelperFixture::SetUp();
    startHelper();
  }

  static std::size_t recordCount(const Json& now) {
    std::size_t count = 0;
    for (const auto& [folder, records] : now.at("usage").items()) {
      count += records.at("counters").size() + records.at("texts").size();
    }
    return count;
  }
};

TEST_F(HelperServices, AProductWhoseCollectionIsOffHasNoRecordsKept) {
  TQHPUploadByHelper& proxy = TQHPUploadByHelper::share();
  EXPECT_EQ(proxy.productCollectStatus("P100", kVersion), "1");
  EXPECT_EQ(proxy.setProductCollectStatus("P100", kVersion, "0"), 0);
  EXPECT_EQ(proxy.productCollectStatus("P100", kVersion), "0");
  EXPECT_EQ(proxy.setProductCollectStatus("P100", kVersion, "maybe"), 0);
  EXPECT_EQ(proxy.productCollectStatus("P100", kVersion), "0");
  EXPECT_EQ(proxy.collectData("P100", kVersion, 3, "T", "k", ""), 0);
  EXPECT_EQ(recordCount(state()), 0U);
  EXPECT_EQ(proxy.setProductCollectStatus("P100", kVersion, "1"), 0);
  EXPECT_EQ(proxy.collectData("P100", kVersion, 3, "T", "k", ""), 0);
  EXPECT_EQ(recordCount(state()), 1U);
}

TEST_F(HelperServices, TheSwitchOfAProductHoldsForRecordsFiledUnderAnotherID) {
  TQHPHelperControl::share().start("P100", kVersion);
  TQHPUploadByHelper& proxy = TQHPUploadByHelper::share();
  proxy.setProductCollectStatus("P100", kVersion, "0");
  EXPECT_EQ(proxy.collectData("FAMILY", kVersion, 5, "T", "", "v"), 0);
  const Json now = state();
  EXPECT_EQ(recordCount(now), 0U);
  EXPECT_EQ(now["refusedRecords"], 1);
}

TEST_F(HelperServices, ASuitePageOfTheProductsOwnGoesBeforeTheGeneralOne) {
  TQHPUploadByHelper& proxy = TQHPUploadByHelper::share();
  const std::string own = dataFolder() + "/SuiteInfo/P100.json";
  EXPECT_EQ(proxy.regSuiteInfo("P100", kVersion), "https://suite.example.com/welcome###640###480");
  support::writeFile(own, R"({"registered": {"url": "u", "width": 1, "height": 2}})");
  EXPECT_EQ(proxy.regSuiteInfo("P100", kVersion), "u###1###2");
  EXPECT_EQ(proxy.unRegSuiteInfo("P100", kVersion),
            "https://suite.example.com/discover###800###600");
  EXPECT_EQ(proxy.regSuiteInfo("P200", kVersion), "https://suite.example.com/welcome###640###480");
  support::writeFile(own, "no JSON");
  EXPECT_EQ(proxy.regSuiteInfo("P100", kVersion), "https://suite.example.com/welcome###640###480");
}

class UpgradeListener final : public TQHPProductUpgradeCallBackDelegate {
 public:
  void productWillUpgrade(const clientcomm::Error* error) override {
    codes.push_back(error == nullptr ? 0 : error->code);
  }
  std::vector<std::int64_t> codes;
};

class HelperUpgrades : public HelperServices {
 protected:
  void SetUp() override {
    HelperServices::SetUp();
    proxy().setProductUpgradeDelegate(&listener_);
  }
  void TearDown() override { proxy().setProductUpgradeDelegate(nullptr); }

  static TQHPUpgradeByHelper& proxy() { return TQHPUpgradeByHelper::share(); }

  static void writeFeed(const std::string& text) {
    support::writeFile(dataFolder() + "/Feed/P100.json", text);
  }
  // Asks for an upgrade, and waits until `count` call-backs have come in all.
  void ask(std::size_t count) {
    EXPECT_EQ(proxy().productUpgrade("P100", kVersion), 0);
    EXPECT_TRUE(support::runLoopUntil([&] { return listener_.codes.size() == count; }));
  }
  static std::string outcome(std::size_t index) {
    return state()["upgrades"].at(index)["outcome"].get<std::string>();
  }

  UpgradeListener listener_;
};

TEST_F(HelperUpgrades, ANewerVersionIsOfferedAndTheAnswerNoted) {
  writeFeed(R"({"version": "1.10"})");
  ask(1);
  EXPECT_EQ(listener_.codes[0], 0);
  EXPECT_EQ(outcome(0), "offered");
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", kVersion, "1"), 0);
  EXPECT_EQ(outcome(0), "ready");
  ask(2);
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", kVersion, "0"), 0);
  EXPECT_EQ(outcome(1), "not ready");
}

TEST_F(HelperUpgrades, WhatIsNotNewerIsNotOffered) {
  for (const char* feed : {"", R"({"version": "1.2.3"})", R"({"version": "1.2"})"}) {
    if (*feed != '\0') writeFeed(feed);
    EXPECT_EQ(proxy().productUpgrade("P100", kVersion), 0);
    state();  // answered only after the feed was looked into, which is then written anew
  }
  const Json upgrades = state()["upgrades"];
  ASSERT_EQ(upgrades.size(), 3U);
  for (const Json& upgrade : upgrades) EXPECT_EQ(upgrade["outcome"], "up to date");
}

TEST_F(HelperUpgrades, AnErrorInTheFeedReachesTheHostAsAnError) {
  writeFeed(R"({"error": {"code": 12, "description": "the server is down"}})");
  ask(1);
  EXPECT_EQ(listener_.codes[0], 12);
  proxy().productReadyToUpgrade("P100", kVersion, "0");
  EXPECT_EQ(outcome(0), "error");
  writeFeed("no JSON");
  ask(2);
  EXPECT_EQ(listener_.codes[1], 100);
}

TEST_F(HelperUpgrades, ASecondQuestionBeforeTheAnswerIsIgnoredByTheHost) {
  writeFeed(R"({"version": "2.0"})");
  ask(1);
  EXPECT_EQ(proxy().productUpgrade("P100", kVersion), 0);
  EXPECT_TRUE(support::runLoopUntil([] { return outcome(1) == "ignored"; }));
  EXPECT_EQ(listener_.codes.size(), 1U);
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", kVersion, "1"), 0);
  EXPECT_EQ(outcome(0), "ready");
}

TEST_F(HelperUpgrades, AHostThatIsGoneIsNotedAsSuch) {
  ASSERT_EQ(call("SampleHelperConsole", "offerUpgrade:productID:version:code:description:",
                 {"com.example.gone", "P100", "2.0", "0", ""}),
            0);
  EXPECT_TRUE(support::runLoopUntil([] { return outcome(0) == "host not reached: -600"; }));
}

// --- The sample host, from its command line ---

class SampleHostCommands : public SampleHelperFixture {
 protected:
  void SetUp() override {
    SampleHelperFixture::SetUp();
    fs::copy(support::inPeerBuild(SAMPLE_HOST_BUNDLE), sandbox() + "/SampleHost.app",
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
    const std::string host = sandbox() + "/SampleHost.app";
    rewriteInfo(host, "Helper Bundle indentifiter", identifier());
    rewriteInfo(host + "/Contents/Resources/SampleHelper.app", "CFBundleIdentifier", identifier());
  }

  // Runs one command. @return its exit status; what it printed is in `output_`.
  int run(std::vector<std::string> words) {
    words.insert(words.begin(), sandbox() + "/SampleHost.app/Contents/Linux/SampleHost");
    auto host = support::ChildProcess::spawn(words);
    output_ = host.readAll();
    return host.wait();
  }

  std::string output_;
};

TEST_F(SampleHostCommands, HelpStartsNothing) {
  EXPECT_EQ(run({"--help"}), 0);
  EXPECT_NE(output_.find("upload-product-file"), std::string::npos);
  EXPECT_FALSE(fs::exists(sandbox() + "/home/.local/lib/clientcomm-samples"));
}

TEST_F(SampleHostCommands, AWordThatIsNoCommandStartsNothing) {
  EXPECT_EQ(run({"frobnicate"}), 2);
  EXPECT_EQ(run({}), 2);
  EXPECT_FALSE(fs::exists(sandbox() + "/home/.local/lib/clientcomm-samples"));
}

TEST_F(SampleHostCommands, EveryServiceReachesTheHelperThatTheHostInstalled) {
  support::writeFile(sandbox() + "/file.txt", "bytes");
  const std::string path = sandbox() + "/file.txt";
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"upload-log", path, "ann@example.com", "title", "text"},
           {"upload-user-file", path},
           {"upload-product-file", path},
           {"customer-service", "ann@example.com", path},
           {"check-messages"},
           {"count", "Launch", "cold"},
           {"auto-count", "Menu", "open"},
           {"record", "Theme", "dark"},
           {"suite-info"},
           {"unreg-suite-info"},
           {"error-page"},
           {"client-id"},
           {"collect-status", "on"},
           {"collect-status"},
           {"upgrade"}}) {
    EXPECT_EQ(run(words), 0) << words[0] << "\n" << output_;
  }
  const Json now = state();
  ASSERT_FALSE(now.is_null());
  EXPECT_EQ(now["bundlePath"], sandbox() + "/home/.local/lib/clientcomm-samples/SampleHelper.app");
  EXPECT_TRUE(waitForState([](const Json& later) {
    const Json& all = later["deliveries"];
    return all.size() == 4 && std::all_of(all.begin(), all.end(), [](const Json& delivery) {
             return delivery["done"] == true;
           });
  }));
  for (const char* kind : {"log", "user-file", "product-file", "customer-service"}) {
    const auto records = deliveries(kind);
    ASSERT_EQ(records.size(), 1U) << kind;
    EXPECT_EQ(support::readFile(records[0]["folder"].get<std::string>() + "/content"), "bytes");
    EXPECT_EQ(records[0]["bundleIdentifier"], "com.example.samplehost");
    EXPECT_EQ(records[0]["productID"], "SAMPLE-100");
  }
  EXPECT_EQ(now["messageChecks"][0]["count"], 1);
  EXPECT_EQ(now["upgrades"][0]["outcome"], "up to date");
  EXPECT_EQ(now["usage"].begin().value()["counters"].size(), 2U);
  EXPECT_EQ(run({"direct-upload"}), 0);
  ASSERT_TRUE(support::waitUntil([] { return usageFiles().size() == 1; }));
  EXPECT_EQ(usageFiles()[0]["texts"][0]["value"], "dark");
}

TEST_F(SampleHostCommands, TheAnswerToAnUpgradeComesFromTheCommandLine) {
  support::writeFile(dataFolder() + "/Feed/SAMPLE-100.json", R"({"version": "9.0"})");
  EXPECT_EQ(run({"upgrade", "--ready"}), 0) << output_;
  EXPECT_EQ(run({"upgrade", "--not-ready"}), 0) << output_;
  const Json upgrades = state()["upgrades"];
  ASSERT_EQ(upgrades.size(), 2U);
  EXPECT_EQ(upgrades[0]["outcome"], "ready");
  EXPECT_EQ(upgrades[1]["outcome"], "not ready");
}

TEST_F(SampleHostCommands, AtItsExitTheHelperForgetsTheHostsThatAreGone) {
  TQHPHelperControl::share();
  ASSERT_EQ(run({"is-alive"}), 0) << output_;
  ASSERT_EQ(TQHPHelperControl::share().start("P100", kVersion), 0);
  ASSERT_EQ(state()["products"].size(), 2U);
  ASSERT_EQ(call("SampleHelperConsole", "announceExit", {}), 0);
  ASSERT_TRUE(support::waitUntil([] { return state().is_null(); }));
  startHelper();
  const Json products = state()["products"];
  ASSERT_EQ(products.size(), 1U);
  EXPECT_EQ(products[0]["bundleIdentifier"], "com.example.testhost");
}

TEST_F(SampleHostCommands, AClosedServerIsAStatusOfTen) {
  ASSERT_EQ(run({"is-alive"}), 0) << output_;
  ASSERT_EQ(call("SampleHelperConsole", "closeServer:description:", {"7", "maintenance"}), 0);
  state();
  EXPECT_EQ(run({"show"}), 1);
  EXPECT_NE(output_.find("    10  "), std::string::npos) << output_;
}

}  // namespace
