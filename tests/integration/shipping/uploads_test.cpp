// Uploads of the sample helper to a web server.

#include <cstdlib>
#include <filesystem>
#include <string>

#include "ClientComm/TQHPUploadByHelper.h"
#include "tests/integration/shipping/shipping_fixture.h"
#include "tests/support/test_sandbox.h"

namespace {

namespace fs = std::filesystem;
using support::sandbox;

class Uploads : public Shipping {};

TEST_F(Uploads, AFileReachesTheServerWholeAndLeavesTheOutbox) {
  startHelper();
  const std::string bytes = noise(300'000);
  upload(bytes, "my log");
  ASSERT_TRUE(waitForUploads(1));
  const auto batches = server().batches();
  ASSERT_EQ(batches.size(), 1U);
  const auto& [name, files] = *batches.begin();
  EXPECT_TRUE(name.starts_with("log-"));
  EXPECT_EQ(files.at("content"), bytes);
  const Json record = Json::parse(files.at("record.json"));
  EXPECT_EQ(record["title"], "my log");
  EXPECT_EQ(record["size"], bytes.size());
  EXPECT_EQ(outboxEntries(), 0U);
}

TEST_F(Uploads, ARequestWithoutAFileReachesTheServer) {
  startHelper();
  ASSERT_EQ(TQHPUploadByHelper::share().uploadLog("P100", "1", "", "", "only words", ""), 0);
  ASSERT_TRUE(waitForUploads(1));
  const auto batches = server().batches();
  ASSERT_EQ(batches.size(), 1U);
  EXPECT_FALSE(batches.begin()->second.contains("content"));
}

TEST_F(Uploads, AnEmptyFileReachesTheServer) {
  startHelper();
  upload("");
  ASSERT_TRUE(waitForUploads(1));
  EXPECT_EQ(server().batches().begin()->second.at("content"), "");
}

TEST_F(Uploads, UsageDataReachesTheServer) {
  startHelper();
  TQHPUploadByHelper& proxy = TQHPUploadByHelper::share();
  ASSERT_EQ(proxy.collectData("P100", "1", 3, "T", "k", ""), 0);
  ASSERT_EQ(proxy.directUploadData("P100", "1"), 0);
  ASSERT_TRUE(waitForUploads(1));
  const auto batches = server().batches();
  ASSERT_EQ(batches.size(), 1U);
  const auto& [name, files] = *batches.begin();
  const Json usage = Json::parse(files.at("usage.json"));
  EXPECT_EQ(usage["batch"], name);
  EXPECT_EQ(usage["counters"][0]["count"], 1);
  EXPECT_EQ(outboxEntries(), 0U);
}

TEST_F(Uploads, WhatWaitedInTheOutboxIsSentOnceThereIsAServer) {
  set("UploadURL", "");
  startHelper();
  upload("first");
  ASSERT_TRUE(waitForHelper([](const Json& now) { return now["deliveries"][0]["done"] == true; }));
  EXPECT_EQ(outboxEntries(), 1U);
  endHelper();
  set("UploadURL", url("/uploads"));
  startHelper();
  EXPECT_TRUE(waitForUploads(1));
  EXPECT_EQ(server().batches().size(), 1U);
}

TEST_F(Uploads, AHostCanReadTheProgress) {
  set("UploadPartBytes", "1000");
  server().setUnavailable(true);
  startHelper();
  upload(noise(10'000), "watched");
  ASSERT_TRUE(waitForError("503"));
  const auto read = [] {
    return Json::parse(support::readFile(dataFolder() + "/Uploads.json"), nullptr, false);
  };
  ASSERT_TRUE(support::waitUntil([&] { return read().is_object(); }));
  const Json waiting = read()["uploads"][0];
  EXPECT_EQ(waiting["title"], "watched");
  EXPECT_EQ(waiting["bundleIdentifier"], "com.example.testhost");
  EXPECT_LT(waiting["sent"], waiting["size"]);
  server().setUnavailable(false);
  EXPECT_TRUE(support::waitUntil([&] { return read()["uploads"][0]["state"] == "done"; }));
  EXPECT_EQ(read()["uploads"][0]["sent"], read()["uploads"][0]["size"]);
}

TEST_F(Uploads, AnAddressWithoutEncryptionIsNotUsed) {
  set("UploadURL", "http://127.0.0.1:" + std::to_string(relay().port()) + "/uploads");
  startHelper();
  upload("secret");
  ASSERT_TRUE(waitForHelper([](const Json& now) { return now["deliveries"][0]["done"] == true; }));
  EXPECT_FALSE(state().contains("uploads"));  // there is no server for this helper
  EXPECT_EQ(relay().connections(), 0);
  EXPECT_EQ(outboxEntries(), 1U);
}

TEST_F(Uploads, AProxyOfTheEnvironmentIsUsed) {
  relay().setProxy(true);
  setenv("https_proxy", ("http://127.0.0.1:" + std::to_string(relay().port())).c_str(), 1);
  set("UploadURL", "https://uploads.example.com/uploads");
  startHelper();
  upload("through the proxy");
  ASSERT_TRUE(waitForUploads(1));
  EXPECT_TRUE(relay().tunnelRequest().starts_with("CONNECT uploads.example.com:443 "));
}

TEST_F(Uploads, AProxyOfTheSettingsGoesBeforeThatOfTheEnvironment) {
  relay().setProxy(true);
  setenv("https_proxy", "http://127.0.0.1:9", 1);
  set("ProxyURL", "http://127.0.0.1:" + std::to_string(relay().port()));
  set("UploadURL", "https://uploads.example.com/uploads");
  startHelper();
  upload("through the proxy");
  EXPECT_TRUE(waitForUploads(1));
}

TEST_F(Uploads, TheCertificatesOfTheEnvironmentAreTrusted) {
  for (const char* name : {"CURL_CA_BUNDLE", "SSL_CERT_FILE"}) {
    unsetenv("CURL_CA_BUNDLE");
    setenv(name, server().authority().c_str(), 1);
    set("CertificateFile", "");
    startHelper();
    upload(name);
    EXPECT_TRUE(waitForUploads(name == std::string("CURL_CA_BUNDLE") ? 1 : 2)) << name;
    endHelper();
  }
}

TEST_F(Uploads, AnEntryThatAppearsAgainIsNotSentAgain) {
  set("UploadURL", "");
  startHelper();
  upload("only once");
  ASSERT_TRUE(waitForHelper([](const Json& now) { return now["deliveries"][0]["done"] == true; }));
  endHelper();
  fs::copy(outbox(), sandbox() + "/kept", fs::copy_options::recursive);
  set("UploadURL", url("/uploads"));
  startHelper();
  ASSERT_TRUE(waitForUploads(1));
  endHelper();
  const std::size_t sent = server().count("PUT ");
  fs::copy(sandbox() + "/kept", outbox(), fs::copy_options::recursive);
  startHelper();
  EXPECT_TRUE(support::waitUntil([] { return outboxEntries() == 0; }));
  EXPECT_EQ(server().count("PUT "), sent);
}

}  // namespace
