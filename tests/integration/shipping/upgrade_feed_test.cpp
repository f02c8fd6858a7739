// Upgrades that the sample helper reads from a signed feed of a web server.

#include <glib.h>
#include <sys/mount.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "ClientComm/TQHPUpgradeByHelper.h"
#include "tests/integration/shipping/shipping_fixture.h"
#include "tests/support/mounts.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using support::sandbox;

constexpr std::chrono::seconds kLimit{60};

class Listener final : public TQHPProductUpgradeCallBackDelegate {
 public:
  void productWillUpgrade(const clientcomm::Error* error) override {
    codes.push_back(error == nullptr ? 0 : error->code);
  }
  std::vector<std::int64_t> codes;
};

std::string sha256(const std::string& bytes) {
  gchar* const sum = g_compute_checksum_for_string(G_CHECKSUM_SHA256, bytes.data(),
                                                   static_cast<gssize>(bytes.size()));
  std::string text = sum;
  g_free(sum);
  return text;
}

class UpgradeFeed : public Shipping {
 protected:
  void SetUp() override {
    Shipping::SetUp();
    set("UploadURL", "");
    set("FeedURL", url("/feed/feed.json"));
    set("FeedPublicKey", newKey(key()));
    proxy().setProductUpgradeDelegate(&listener_);
  }
  void TearDown() override {
    proxy().setProductUpgradeDelegate(nullptr);
    Shipping::TearDown();
  }

  static TQHPUpgradeByHelper& proxy() { return TQHPUpgradeByHelper::share(); }
  static std::string key() { return sandbox() + "/feed-key.pem"; }

  static std::string newKey(const std::string& path) {
    auto process = support::ChildProcess::spawn({SIGN_FEED, "new-key", path});
    const std::string text = process.readLine().value_or("");
    EXPECT_EQ(process.wait(), 0);
    return text;
  }

  std::string feedPath() { return server().root() + "/feed/feed.json"; }
  // Puts a feed with these products on the server, and its signature.
  void publish(const Json& products, int sequence = 1, const std::string& signer = key(),
               const std::string& expires = "2999-01-01T00:00:00Z") {
    const Json feed = {
        {"format", 1}, {"sequence", sequence}, {"expires", expires}, {"products", products}};
    support::writeFile(feedPath(), feed.dump());
    auto process = support::ChildProcess::spawn({SIGN_FEED, "sign", signer, feedPath()});
    ASSERT_EQ(process.wait(), 0);
  }
  // Puts a package on the server. @return what a feed says of it.
  Json publishPackage(const std::string& bytes, const std::string& version = "2.0") {
    support::writeFile(server().root() + "/feed/package", bytes);
    return {{"version", version},
            {"url", "package"},
            {"size", bytes.size()},
            {"sha256", sha256(bytes)}};
  }

  // Asks for an upgrade of P100, and waits for the call-back. @return its code.
  std::int64_t ask() {
    const std::size_t before = listener_.codes.size();
    EXPECT_EQ(proxy().productUpgrade("P100", "1.2.3"), 0);
    EXPECT_TRUE(support::runLoopUntil([&] { return listener_.codes.size() > before; }, kLimit));
    const std::int64_t code = listener_.codes.empty() ? -1 : listener_.codes.back();
    // A host asks no second question before it has answered.
    if (code != 0) proxy().productReadyToUpgrade("P100", "1.2.3", "0");
    return code;
  }
  static Json latestUpgrade() {
    const Json now = state();
    return now.is_null() || now["upgrades"].empty() ? Json() : now["upgrades"].back();
  }
  static bool waitForOutcome(const std::string& outcome) {
    return waitForHelper([&](const Json& now) {
      return !now["upgrades"].empty() && now["upgrades"].back()["outcome"] == outcome;
    });
  }
  static std::size_t files(const std::string& folder) {
    if (!fs::exists(folder)) return 0;
    const fs::directory_iterator entries(folder);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }
  static std::string packages() { return dataFolder() + "/Upgrades"; }

  Listener listener_;
};

const nlohmann::json kNewer = {{"P100", {{"version", "2.0"}}}};

TEST_F(UpgradeFeed, ANewerVersionIsOffered) {
  publish(kNewer);
  startHelper();
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(latestUpgrade()["toVersion"], "2.0");
  EXPECT_EQ(latestUpgrade()["outcome"], "offered");
}

TEST_F(UpgradeFeed, WhatIsNotNewerIsNotOffered) {
  publish({{"P100", {{"version", "1.2.3"}}}});
  startHelper();
  EXPECT_EQ(proxy().productUpgrade("P100", "1.2.3"), 0);
  EXPECT_TRUE(waitForOutcome("up to date"));
  EXPECT_EQ(proxy().productUpgrade("P100", "3.0"), 0);
  EXPECT_TRUE(waitForHelper([](const Json& now) { return now["upgrades"].size() == 2; }));
  EXPECT_TRUE(waitForOutcome("up to date"));
  EXPECT_EQ(proxy().productUpgrade("P777", "1.0"), 0);
  EXPECT_TRUE(waitForHelper([](const Json& now) { return now["upgrades"].size() == 3; }));
  EXPECT_TRUE(waitForOutcome("up to date"));
}

TEST_F(UpgradeFeed, AnErrorOfTheFeedReachesTheHost) {
  publish({{"P100", {{"error", {{"code", 12}, {"description", "closed"}}}}}});
  startHelper();
  EXPECT_EQ(ask(), 12);
}

TEST_F(UpgradeFeed, AFeedThatWasChangedAfterItWasSignedIsNotUsed) {
  publish(kNewer);
  support::writeFile(feedPath(), support::readFile(feedPath()) + " ");
  startHelper();
  EXPECT_EQ(ask(), 102);
  EXPECT_EQ(latestUpgrade()["toVersion"], "");
}

TEST_F(UpgradeFeed, AFeedThatIsSignedBySomebodyElseIsNotUsed) {
  newKey(sandbox() + "/other.pem");
  publish(kNewer, 1, sandbox() + "/other.pem");
  startHelper();
  EXPECT_EQ(ask(), 102);
}

TEST_F(UpgradeFeed, AFeedWithoutASignatureIsNotUsed) {
  publish(kNewer);
  fs::remove(feedPath() + ".sig");
  startHelper();
  EXPECT_EQ(ask(), 101);
}

TEST_F(UpgradeFeed, WithoutAKeyNoFeedIsUsed) {
  set("FeedPublicKey", "");
  publish(kNewer);
  startHelper();
  EXPECT_EQ(ask(), 102);
}

TEST_F(UpgradeFeed, AnOlderFeedIsRefusedAfterAKillToo) {
  publish(kNewer, 5);
  startHelper();
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", "1.2.3", "0"), 0);
  killHelper();
  publish({{"P100", {{"version", "1.9"}}}}, 4);
  startHelper();
  EXPECT_EQ(ask(), 103);
}

TEST_F(UpgradeFeed, AnExpiredFeedIsRefused) {
  publish(kNewer, 1, key(), "2001-01-01T00:00:00Z");
  startHelper();
  EXPECT_EQ(ask(), 104);
}

TEST_F(UpgradeFeed, AServerThatCannotBeReachedIsAnError) {
  publish(kNewer);
  relay().setRefusing(true);
  startHelper();
  EXPECT_EQ(ask(), 101);
  EXPECT_EQ(relay().connections(), 3);
  relay().setRefusing(false);
  EXPECT_EQ(ask(), 0);
}

TEST_F(UpgradeFeed, ACertificateOfAnotherAuthorityGetsNoQuestion) {
  publish(kNewer);
  server().start(WebServer::Certificate::kOtherAuthority);
  startHelper();
  EXPECT_EQ(ask(), 101);
  EXPECT_EQ(server().count(""), 0U);
}

TEST_F(UpgradeFeed, ARedirectionWithoutEncryptionIsNotFollowed) {
  publish(kNewer);
  server().start(WebServer::Certificate::kGood, {"", "return 302 http://127.0.0.1:9/feed.json;"});
  startHelper();
  EXPECT_EQ(ask(), 101);
  EXPECT_NE(latestUpgrade()["description"].get<std::string>().find("rotocol"), std::string::npos)
      << latestUpgrade();
}

TEST_F(UpgradeFeed, RubbishOfTheServerIsAnError) {
  const std::string folder = sandbox() + "/web";
  auto rubbish = support::ChildProcess::spawn({PYTHON_PROGRAM, RUBBISH_SERVER, folder + "/rubbish",
                                               folder + "/good.pem", folder + "/good.key"});
  ASSERT_EQ(rubbish.readLine(), "ready");
  relay().setServer(folder + "/rubbish");
  startHelper();
  for (int round = 0; round < 3; ++round) EXPECT_EQ(ask(), 101);
  relay().setServer(server().socket());
  publish(kNewer);
  EXPECT_EQ(ask(), 0);
}

// --- Packages ---

TEST_F(UpgradeFeed, APackageIsFetchedBeforeTheOfferAndRunAfterTheAnswer) {
  const std::string bytes = "#!/bin/sh\necho \"$@\" >" + sandbox() + "/installed\n";
  publish({{"P100", publishPackage(bytes)}});
  startHelper();
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(support::readFile(packages() + "/" + sha256(bytes)), bytes);
  EXPECT_FALSE(fs::exists(sandbox() + "/installed"));
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", "1.2.3", "1"), 0);
  EXPECT_TRUE(waitForOutcome("installed"));
  EXPECT_EQ(support::readFile(sandbox() + "/installed"), "P100 2.0\n");
}

TEST_F(UpgradeFeed, AnInstallerThatFailsIsNoted) {
  publish({{"P100", publishPackage("#!/bin/sh\nexit 3\n")}});
  startHelper();
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", "1.2.3", "1"), 0);
  EXPECT_TRUE(waitForOutcome("not installed: status 3"));
}

TEST_F(UpgradeFeed, APackageThatIsNotTheOneOfTheFeedIsNotKept) {
  const std::string bytes = noise(50'000);
  publish({{"P100", publishPackage(bytes)}});
  startHelper();
  std::string other = bytes;
  other[25'000] = static_cast<char>(other[25'000] ^ 1);
  for (const std::string& wrong : {other, bytes + "x", bytes.substr(1)}) {
    support::writeFile(server().root() + "/feed/package", wrong);
    EXPECT_EQ(ask(), 105) << wrong.size();
    EXPECT_EQ(files(packages()), 1U);  // the feed itself
  }
  fs::remove(server().root() + "/feed/package");
  EXPECT_EQ(ask(), 105);
  support::writeFile(server().root() + "/feed/package", bytes);
  EXPECT_EQ(ask(), 0);
}

TEST_F(UpgradeFeed, APackageThatWasChangedOnTheDiskIsNotRun) {
  const std::string bytes = "#!/bin/sh\ntouch " + sandbox() + "/installed\n";
  publish({{"P100", publishPackage(bytes)}});
  startHelper();
  EXPECT_EQ(ask(), 0);
  support::writeFile(packages() + "/" + sha256(bytes),
                     "#!/bin/sh\ntouch " + sandbox() + "/INSTALLED\n");
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", "1.2.3", "1"), 0);
  EXPECT_TRUE(waitForOutcome("not installed: the package is damaged"));
  EXPECT_FALSE(fs::exists(sandbox() + "/INSTALLED"));
}

TEST_F(UpgradeFeed, AConnectionCutInAPackageIsTriedAgain) {
  const std::string bytes = noise(1 << 20);
  publish({{"P100", publishPackage(bytes)}});
  server().start(WebServer::Certificate::kGood, {"", "limit_rate 4m;"});
  startHelper();
  EXPECT_EQ(proxy().productUpgrade("P100", "1.2.3"), 0);
  ASSERT_TRUE(support::waitUntil([] { return files(packages()) == 2; }, kLimit));
  relay().cutNow();
  EXPECT_TRUE(support::runLoopUntil([this] { return listener_.codes.size() == 1; }, kLimit));
  EXPECT_EQ(listener_.codes.at(0), 0);
  EXPECT_EQ(support::readFile(packages() + "/" + sha256(bytes)), bytes);
}

TEST_F(UpgradeFeed, AFullDiskIsAnErrorAndLeavesNothing) {
  fs::create_directories(packages());
  if (!support::ownMounts() || mount("tmpfs", packages().c_str(), "tmpfs", 0, "size=200k") != 0) {
    GTEST_SKIP() << "no mounts here";
  }
  publish({{"P100", publishPackage(noise(1 << 20))}});
  startHelper();
  EXPECT_EQ(ask(), 105);
  EXPECT_EQ(files(packages()), 1U);  // the feed itself
  ASSERT_EQ(mount("tmpfs", packages().c_str(), nullptr, MS_REMOUNT, "size=16m"), 0);
  EXPECT_EQ(ask(), 0);
}

// --- Kills ---

TEST_F(UpgradeFeed, AQuestionOutlivesAKillAndIsAnsweredOnce) {
  const std::string bytes = noise(1 << 20);
  publish({{"P100", publishPackage(bytes)}});
  relay().setStalled(true);
  startHelper();
  EXPECT_EQ(proxy().productUpgrade("P100", "1.2.3"), 0);
  ASSERT_TRUE(waitForOutcome("checking"));
  killHelper();
  server().start(WebServer::Certificate::kGood, {"", "limit_rate 4m;"});
  relay().setStalled(false);
  startHelper();
  ASSERT_TRUE(support::waitUntil([] { return files(packages()) == 2; }, kLimit));
  killHelper();
  startHelper();
  EXPECT_TRUE(support::runLoopUntil([this] { return !listener_.codes.empty(); }, kLimit));
  EXPECT_TRUE(waitForOutcome("offered"));
  EXPECT_EQ(listener_.codes, std::vector<std::int64_t>{0});
  EXPECT_EQ(support::readFile(packages() + "/" + sha256(bytes)), bytes);
  EXPECT_EQ(state()["upgrades"].size(), 1U);
}

TEST_F(UpgradeFeed, AnAnswerOutlivesAKill) {
  // Long enough for a kill while it is compared with the feed.
  publish({{"P100", publishPackage("#!/bin/sh\necho run >>" + sandbox() + "/installed\nexit\n" +
                                   std::string(32 << 20, '#'))}});
  startHelper();
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", "1.2.3", "1"), 0);
  const std::string outcome = latestUpgrade()["outcome"].get<std::string>();
  killHelper();
  startHelper();
  if (outcome == "agreed") {
    EXPECT_TRUE(waitForOutcome("installed"));
    EXPECT_EQ(support::readFile(sandbox() + "/installed"), "run\n");
  }
  EXPECT_NE(outcome, "offered");
  EXPECT_NE(outcome, "ready");
}

TEST_F(UpgradeFeed, AnInstallerIsNotRunAgainAfterAKill) {
  const std::string go = sandbox() + "/go";
  publish({{"P100", publishPackage("#!/bin/sh\necho run >>" + sandbox() +
                                   "/installed\nfor i in $(seq 1000); do [ -e " + go +
                                   " ] && exit; sleep 0.02; done\n")}});
  startHelper();
  EXPECT_EQ(ask(), 0);
  EXPECT_EQ(proxy().productReadyToUpgrade("P100", "1.2.3", "1"), 0);
  // The shell makes the file before it writes to it.
  ASSERT_TRUE(
      support::waitUntil([] { return support::readFile(sandbox() + "/installed") == "run\n"; }));
  killHelper();
  startHelper();
  EXPECT_TRUE(waitForOutcome("interrupted"));
  EXPECT_EQ(support::readFile(sandbox() + "/installed"), "run\n");
  support::writeFile(go, "");
}

}  // namespace
