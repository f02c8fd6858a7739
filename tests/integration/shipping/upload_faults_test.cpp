// Uploads of the sample helper when something fails: nothing is lost, and nothing arrives twice.

#include <sys/mount.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "ClientComm/TQHPGetDataByHelper.h"
#include "ClientComm/TQHPUploadByHelper.h"
#include "tests/integration/shipping/shipping_fixture.h"
#include "tests/support/mounts.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using support::sandbox;

bool mountSmall(const std::string& path) {
  return mount("tmpfs", path.c_str(), "tmpfs", 0, "size=1m") == 0;
}

class UploadFaults : public Shipping {
 protected:
  // Checks that the server has what was handed over, once, and that the helper keeps nothing.
  void expectArrived(std::vector<std::string> contents) {
    EXPECT_TRUE(waitForUploads(contents.size()));
    std::vector<std::string> arrived;
    for (const auto& [name, files] : server().batches()) arrived.push_back(files.at("content"));
    std::sort(contents.begin(), contents.end());
    std::sort(arrived.begin(), arrived.end());
    EXPECT_TRUE(arrived == contents) << arrived.size() << " batches arrived";
    EXPECT_EQ(outboxEntries(), 0U);
  }
};

TEST_F(UploadFaults, AConnectionCutInTheMidstIsResumedWhereItBroke) {
  set("UploadPartBytes", "100000");
  startHelper();
  const std::string bytes = noise(1'000'000);
  relay().cutAfter(550'000);
  upload(bytes);
  expectArrived({bytes});
  EXPECT_GE(relay().connections(), 2);
  // What arrived before the cut was not sent again.
  EXPECT_LT(relay().bytesFromClient(), 1'300'000);
  for (int part = 0; part < 4; ++part) {
    const std::string put = "." + std::to_string(part) + " 201";
    std::size_t count = 0;
    for (const std::string& request : server().requests()) {
      count += request.starts_with("PUT ") && request.ends_with("content" + put) ? 1U : 0U;
    }
    EXPECT_EQ(count, 1U) << part;
  }
}

TEST_F(UploadFaults, AConnectionThatIsCutAgainAndAgainStillBringsEverything) {
  set("UploadPartBytes", "20000");
  startHelper();
  const std::string bytes = noise(400'000);
  relay().cutAfter(30'000);
  upload(bytes);
  for (int cut = 0; cut < 6; ++cut) {
    const int before = relay().connections();
    if (!support::waitUntil([&] { return relay().connections() > before; },
                            std::chrono::seconds(2))) {
      break;
    }
    relay().cutAfter(50'000);
  }
  relay().cutAfter(-1);
  expectArrived({bytes});
}

TEST_F(UploadFaults, AServerThatRefusesConnectionsIsTriedAgain) {
  relay().setRefusing(true);
  startHelper();
  upload("bytes");
  ASSERT_TRUE(support::waitUntil([this] { return relay().connections() >= 3; }));
  relay().setRefusing(false);
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, AServerThatStandsStillIsGivenUpAndHostsAreServedMeanwhile) {
  set("StallSeconds", "1");
  startHelper();
  relay().setStalled(true);
  upload("bytes");
  ASSERT_TRUE(support::waitUntil([this] { return relay().connections() >= 1; }));
  EXPECT_TRUE(TQHPGetDataByHelper::share().clientIDFormHelper());
  EXPECT_NE(onlyUpload()["state"], "done");
  ASSERT_TRUE(support::waitUntil([this] { return relay().connections() >= 2; }));
  relay().setStalled(false);
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, AServerThatIsUnavailableIsTriedAgain) {
  server().setUnavailable(true);
  startHelper();
  upload("bytes");
  EXPECT_TRUE(waitForError("503"));
  ASSERT_TRUE(waitForHelper([](const Json& now) { return now["uploads"][0]["failures"] >= 3; }));
  EXPECT_EQ(outboxEntries(), 1U);
  server().setUnavailable(false);
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, AServerIsLeftAloneForAsLongAsItAsks) {
  server().start(
      WebServer::Certificate::kGood,
      {"add_header Retry-After 2 always; if ($request_method = PUT) { return 503; }", ""});
  startHelper();
  upload("bytes");
  EXPECT_TRUE(waitForError("503"));
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(waitForHelper([](const Json& now) { return now["uploads"][0]["failures"] == 2; }));
  EXPECT_GT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  server().start();
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, ACertificateOfAnotherAuthorityGetsNothing) {
  server().start(WebServer::Certificate::kOtherAuthority);
  startHelper();
  upload("bytes");
  EXPECT_TRUE(waitForError("certificate"));
  EXPECT_EQ(server().count(""), 0U);
  server().start();
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, ACertificateOfAnotherHostGetsNothing) {
  server().start(WebServer::Certificate::kOtherHost);
  startHelper();
  upload("bytes");
  EXPECT_TRUE(waitForError("match"));
  EXPECT_EQ(server().count(""), 0U);
  server().start();
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, ARedirectionIsNotFollowed) {
  server().start(WebServer::Certificate::kGood, {"return 307 http://127.0.0.1:9/;", ""});
  startHelper();
  upload("bytes");
  EXPECT_TRUE(waitForError("307"));
  server().start();
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, ABatchThatTheServerRefusesDoesNotHoldUpTheOthers) {
  server().start(WebServer::Certificate::kGood, {"client_max_body_size 20k;", ""});
  startHelper();
  const std::string large = noise(50'000);
  upload(large);
  EXPECT_TRUE(waitForError("413"));
  // It comes after the large one, which is tried first.
  support::writeFile(sandbox() + "/small", "small");
  ASSERT_EQ(
      TQHPUploadByHelper::share().uploadUserFile("P100", "1", "", sandbox() + "/small", "", ""), 0);
  EXPECT_TRUE(waitForUploads(1));
  EXPECT_EQ(outboxEntries(), 1U);
  server().start();
  expectArrived({large, "small"});
}

TEST_F(UploadFaults, ABatchIsTriedAgainHoweverShortTheDelay) {
  server().start(WebServer::Certificate::kGood, {"return 403;", ""});
  set("RetrySeconds", "0.001");
  set("RetryLimitSeconds", "0.001");
  startHelper();
  upload("bytes");
  EXPECT_TRUE(waitForHelper([](const Json& now) {
    return !now["uploads"].empty() && now["uploads"][0]["failures"] >= 100;
  }));
  server().start();
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, AServerThatAcceptsEverythingAndKeepsNothingIsNotBelieved) {
  server().start(WebServer::Certificate::kGood, {"return 200 yes;", ""});
  startHelper();
  upload("bytes");
  EXPECT_TRUE(waitForError("does not have"));
  EXPECT_EQ(outboxEntries(), 1U);
  server().start();
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, AServerThatAnswersRubbishIsTriedAgain) {
  const std::string folder = sandbox() + "/web";
  auto rubbish = support::ChildProcess::spawn({PYTHON_PROGRAM, RUBBISH_SERVER, folder + "/rubbish",
                                               folder + "/good.pem", folder + "/good.key"});
  ASSERT_EQ(rubbish.readLine(), "ready");
  relay().setServer(folder + "/rubbish");
  startHelper();
  upload("bytes");
  // It has an answer of another kind for each connection.
  ASSERT_TRUE(support::waitUntil([this] { return relay().connections() >= 8; }));
  EXPECT_EQ(outboxEntries(), 1U);
  EXPECT_TRUE(TQHPGetDataByHelper::share().clientIDFormHelper());
  relay().setServer(server().socket());
  expectArrived({"bytes"});
}

TEST_F(UploadFaults, AServerWhoseDiskIsFullIsTriedAgain) {
  const std::string place = server().root() + "/uploads";
  if (!support::ownMounts() || !mountSmall(place)) GTEST_SKIP() << "no mounts here";
  server().start();  // it sees the mount
  set("UploadPartBytes", "100000");
  startHelper();
  const std::string bytes = noise(2 << 20);
  upload(bytes);
  EXPECT_TRUE(waitForError("500"));
  ASSERT_EQ(mount("tmpfs", place.c_str(), nullptr, MS_REMOUNT, "size=16m"), 0);
  expectArrived({bytes});
}

TEST_F(UploadFaults, AFullDiskOfTheHelperDelaysAndLosesNothing) {
  fs::create_directories(dataFolder());
  if (!support::ownMounts() || !mountSmall(dataFolder())) GTEST_SKIP() << "no mounts here";
  set("UploadPartBytes", "10000");
  server().setUnavailable(true);
  startHelper();
  const std::string bytes = noise(100'000);
  upload(bytes);
  ASSERT_TRUE(waitForError("503"));
  std::ofstream filler(dataFolder() + "/filler");
  while (filler << noise(4096) << std::flush) {
  }
  server().setUnavailable(false);
  // The first part arrives again and again: it cannot be noted.
  EXPECT_TRUE(support::waitUntil([this] { return server().count("PUT ") >= 8; }));
  EXPECT_TRUE(server().batches().empty());
  filler.close();
  fs::remove(dataFolder() + "/filler");
  expectArrived({bytes});
}

// --- Kills ---

class UploadUnderKill : public UploadFaults {
 protected:
  void SetUp() override {
    UploadFaults::SetUp();
    const unsigned seed = std::random_device()();
    RecordProperty("seed", std::to_string(seed));
    random_.seed(seed);
  }

  // Names of the files that the server has, below the only batch.
  std::set<std::string> filesOnServer() {
    std::set<std::string> files;
    for (const auto& batch : fs::directory_iterator(server().root() + "/uploads")) {
      for (const auto& file : fs::directory_iterator(batch)) files.insert(file.path().filename());
    }
    return files;
  }

  std::mt19937 random_;
};

// The moment after each request: the server has carried it out, and the helper does not know.
TEST_F(UploadUnderKill, BetweenTheServersWorkAndItsAnswerLosesNothing) {
  set("UploadPartBytes", "1000");
  const std::string bytes = noise(2'500);
  relay().setAnswerDelay(std::chrono::milliseconds(30));
  startHelper();
  upload(bytes);
  for (const char* file :
       {"content.0", "content.1", "content.2", "record.json.0", "manifest.json"}) {
    ASSERT_TRUE(support::waitUntil([&] { return filesOnServer().contains(file); })) << file;
    killHelper();
    startHelper();
  }
  relay().setAnswerDelay({});
  expectArrived({bytes});
}

TEST_F(UploadUnderKill, AtAnyMomentLosesNothingAndSendsNothingTwice) {
  set("UploadPartBytes", "30000");
  std::vector<std::string> contents;
  for (int round = 0; round < 12; ++round) {
    startHelper();
    for (int each = 0; each < 2; ++each) {
      contents.push_back(noise(100'000));
      upload(contents.back());
    }
    state();  // they are taken
    std::this_thread::sleep_for(std::chrono::microseconds(random_() % 30'000));
    killHelper();
  }
  startHelper();
  expectArrived(contents);
  // Under each name there is one batch, and a part was sent again only where a kill hid its answer.
  EXPECT_LE(server().count("PUT "), contents.size() * 6 + 12 * 2);
}

}  // namespace
