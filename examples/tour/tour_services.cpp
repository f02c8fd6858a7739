#include <glib.h>

#include <algorithm>
#include <filesystem>

#include "ClientComm/platform/property_list.h"
#include "examples/tour/tour.h"

namespace tour {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

std::string sha256(const std::string& bytes) {
  gchar* const sum = g_compute_checksum_for_string(G_CHECKSUM_SHA256, bytes.data(),
                                                   static_cast<gssize>(bytes.size()));
  std::string text = sum;
  g_free(sum);
  return text;
}

std::int64_t countIn(const json& records, const std::string& key) {
  std::int64_t count = 0;
  for (const json& counter : records.at("counters")) {
    if (counter.at("key") == key) count += counter.at("count").get<std::int64_t>();
  }
  return count;
}

// The records that the helper keeps in `folder`; none before the first.
json recordsIn(const json& state, const std::string& folder) {
  const json none = {{"counters", json::array()}, {"texts", json::array()}};
  return state.at("usage").value(folder, none);
}

std::vector<std::string> usageFilesIn(const std::string& outbox) {
  std::vector<std::string> files;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(outbox, error)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with("usage-")) files.push_back(entry.path().string());
  }
  return files;
}

}  // namespace

void Tour::takeServices() {
  printer_.section("Usage data");
  usageData();
  collectSwitch();
  printer_.section("Uploads and customer service");
  uploadOneFile("upload-log", "log");
  uploadOneFile("upload-user-file", "user-file");
  uploadOneFile("upload-product-file", "product-file");
  missingFile();
  customerService();
  printer_.section("Pages, switches and upgrades");
  pages();
  switches();
  upgrade();
  upgradeErrors();
}

std::string Tour::hostFile(const std::string& name) const {
  return stage_.folder() + "/Applications/SampleHost.app/Contents/" + name;
}

void Tour::usageData() {
  stage_.command(*host_, "collect-path '" + stage_.home() + "/Sample'");
  const std::string folder = stage_.home() + "/Sample/Log/Data";
  const std::string settings = stage_.folder() + "/config/Preferences/com.example.samplehost.plist";
  stage_.waitUntil("the folder in the host's settings", [&] {
    const auto stored = clientcomm::dictionaryWithContentsOfFile(settings);
    return stored && stored->contains("DataCollectPath");
  });
  printer_.step("SampleHost", "collect-path", std::nullopt, "~/Sample/Log/Data");

  for (int i = 0; i < 3; ++i) expectStatus(*host_, "count Launch cold", 0);
  expectStatus(*host_, "auto-count Menu export", 0);
  expectStatus(*host_, "record Theme 'Dark blue'", 0);
  stage_.waitForState(*host_, "the usage records", [&](const json& state) {
    const json records = recordsIn(state, folder);
    return countIn(records, "cold") == 3 && countIn(records, "export") == 1 &&
           records.at("texts").size() == 1 && records.at("texts")[0].at("value") == "Dark blue";
  });
  printer_.step("SampleHost", "count, record", 0, "in the folder: cold 3, export 1, \"Dark blue\"");

  expectStatus(*host_, "direct-upload", 0);
  stage_.waitForState(*host_, "the direct upload", [&](const json& state) {
    return recordsIn(state, folder).at("counters").empty();
  });
  const auto files = usageFilesIn(outbox_);
  require(files.size() == 1, std::to_string(files.size()) + " files of usage data, not one");
  const json sent = json::parse(contentOf(files[0]));
  require(countIn(sent, "cold") == 3 && sent.at("texts").size() == 1, "the upload is not whole");
  printer_.step("SampleHost", "direct-upload", 0, "one file left, with all of it");
}

void Tour::collectSwitch() {
  expectStatus(*host_, "collect-status off", 0);
  require(stage_.command(*host_, "collect-status").detail == "off", "the collection is still on");
  expectStatus(*host_, "count Launch unseen", 0);
  const json state = stage_.waitForState(
      *host_, "the refused record", [](const json& now) { return now.at("refusedRecords") == 1; });
  for (const auto& [folder, records] : state.at("usage").items()) {
    require(countIn(records, "unseen") == 0, "a record was kept in " + folder);
  }
  printer_.step("SampleHost", "collect-status off", 0,
                "the helper keeps no records of the product");
  expectStatus(*host_, "collect-status on", 0);
  require(stage_.command(*host_, "collect-status").detail == "on", "the collection is still off");
  printer_.step("SampleHost", "collect-status on", 0, "and does so again");

  require(stage_.command(*host_, "collect-pid FAMILY").detail == "filed under FAMILY", "not filed");
  expectStatus(*host_, "count Launch warm", 0);
  stage_.waitForState(*host_, "the record under another ID", [](const json& now) {
    for (const auto& [folder, records] : now.at("usage").items()) {
      for (const json& counter : records.at("counters")) {
        if (counter.at("productID") == "FAMILY" && counter.at("key") == "warm") return true;
      }
    }
    return false;
  });
  printer_.step("SampleHost", "collect-pid", std::nullopt, "records are filed under FAMILY now");
}

json Tour::waitForDelivery(const std::string& kind, const std::string& title) {
  json record;
  stage_.waitUntil("the " + kind + " in the outbox", [&] {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(outbox_, error)) {
      if (!entry.path().filename().string().starts_with(kind)) continue;
      record = json::parse(contentOf(entry.path().string() + "/record.json"));
      record["folder"] = entry.path().string();
      if (record.at("title") == title) return true;
    }
    return false;
  });
  return record;
}

void Tour::uploadOneFile(const std::string& command, const std::string& kind) {
  const std::string path = stage_.folder() + "/files/" + kind + ".bin";
  const std::string bytes = std::string(300000, 'x') + kind;
  writeFile(path, bytes);
  const std::string title = "My " + kind;
  expectStatus(*host_, command + " '" + path + "' ann@example.com '" + title + "' 'see inside'", 0);
  const json record = waitForDelivery(kind, title);
  require(contentOf(record.at("folder").get<std::string>() + "/content") == bytes,
          "the copy differs from the file");
  require(record.at("sha256") == sha256(bytes), "the checksum is wrong");
  require(record.at("email") == "ann@example.com" && record.at("description") == "see inside" &&
              record.at("productID") == "SAMPLE-100" && record.at("version") == "3.2.1",
          "the record is wrong: " + record.dump());
  printer_.step("SampleHost", command, 0,
                std::to_string(bytes.size()) + " bytes in the outbox, SHA-256 " +
                    record.at("sha256").get<std::string>().substr(0, 12) + "...");
}

void Tour::missingFile() {
  expectStatus(*host_, "upload-log /no/such/file ann@example.com Missing", 0);
  const json record = waitForDelivery("log", "Missing");
  require(record.contains("error") && !record.contains("sha256"), "there is no error noted");
  printer_.step("SampleHost", "upload-log", 0,
                "a missing file: \"" + record.at("error").get<std::string>() + "\" noted");
}

void Tour::customerService() {
  const std::string path = stage_.folder() + "/files/screenshot.png";
  writeFile(path, "a picture");
  expectStatus(*host_, "customer-service ann@example.com '" + path + "'", 0);
  const json record = waitForDelivery("customer-service", "");
  require(record.at("email") == "ann@example.com" && record.at("sha256") == sha256("a picture"),
          "the request is wrong: " + record.dump());
  printer_.step("SampleHost", "customer-service", 0, "request with attachment in the outbox");
  expectStatus(*host_, "check-messages", 0);
  stage_.waitForState(*host_, "the check for messages", [](const json& state) {
    const json& checks = state.at("messageChecks");
    return checks.size() == 1 && checks[0].at("count") == 1;
  });
  printer_.step("SampleHost", "check-messages", 0, "noted by the helper");
}

void Tour::pages() {
  const HostEvent suite = stage_.command(*host_, "suite-info");
  require(suite.detail == "url = https://suite.example.com/welcome width = 640 height = 480",
          "the suite page is " + suite.detail);
  printer_.step("SampleHost", "suite-info", std::nullopt, suite.detail);
  const HostEvent atEnd = stage_.command(*host_, "unreg-suite-info");
  require(atEnd.detail == "url = https://suite.example.com/discover width = 800 height = 600",
          "the suite page is " + atEnd.detail);
  printer_.step("SampleHost", "unreg-suite-info", std::nullopt, atEnd.detail);
  const HostEvent page = stage_.command(*host_, "error-page");
  require(contentOf(page.detail).starts_with("<!DOCTYPE html>"), page.detail + " is no page");
  printer_.step("SampleHost", "error-page", std::nullopt,
                fs::path(page.detail).filename().string() + " of the installed helper");
}

void Tour::switchTips(bool isOn) {
  stage_.command(*host_, isOn ? "tips on" : "tips off");
  const auto info = clientcomm::dictionaryWithContentsOfFile(hostFile("Info.plist"));
  const auto strings =
      clientcomm::dictionaryWithContentsOfFile(hostFile("Resources/en.lproj/InfoPlist.strings"));
  require(info && strings, "a settings file cannot be read any more");
  require(
      info->at("TipsEnable").boolValue() == isOn && strings->at("TipsEnable").boolValue() == isOn,
      "the switch is not in both files");
  require(info->at("PID").stringValue() == "SAMPLE-100", "another entry was lost");
  printer_.step("SampleHost", isOn ? "tips on" : "tips off", std::nullopt,
                "in the bundle's Info.plist and in its English strings");
}

void Tour::switches() {
  switchTips(false);
  switchTips(true);
  stage_.command(*host_, "ads on");
  const auto info = clientcomm::dictionaryWithContentsOfFile(hostFile("Info.plist"));
  require(info && info->at("EnableAD").boolValue(), "advertising is not on");
  printer_.step("SampleHost", "ads on", std::nullopt, "in the bundle's Info.plist");
}

void Tour::writeFeed(const json& feed) {
  writeFile(dataFolder_ + "/Feed/SAMPLE-100.json", feed.dump());
}

void Tour::waitForOffer(std::size_t index, const std::string& outcome) {
  stage_.waitForState(*host_, "the outcome \"" + outcome + "\"", [&](const json& state) {
    const json& offers = state.at("upgrades");
    return offers.size() > index && offers[index].at("outcome") == outcome;
  });
}

void Tour::upgrade() {
  const auto isQuestion = [](const HostEvent& event) { return event.what == "will-upgrade"; };
  expectStatus(*host_, "upgrade", 0);
  waitForOffer(0, "up to date");
  printer_.step("SampleHost", "upgrade", 0, "the feed has nothing newer");

  writeFeed({{"version", "3.10.0"}});
  expectStatus(*host_, "upgrade", 0);
  stage_.waitForEvent(*host_, "the helper's question", isQuestion);
  printer_.step("helper", "will-upgrade", std::nullopt, "3.10.0 is newer than 3.2.1");
  expectStatus(*host_, "upgrade", 0);
  waitForOffer(2, "ignored");
  printer_.step("SampleHost", "ignore", std::nullopt, "a second question before the first answer");
  expectStatus(*host_, "ready", 0);
  waitForOffer(1, "ready");
  printer_.step("SampleHost", "ready", 0, "the helper has noted the answer");
}

void Tour::upgradeErrors() {
  writeFeed({{"error", {{"code", 12}, {"description", "the update server is down"}}}});
  expectStatus(*host_, "upgrade --not-ready", 0);
  const HostEvent told =
      stage_.waitForEvent(*host_, "the helper's error",
                          [](const HostEvent& event) { return event.what == "will-upgrade"; });
  require(told.detail == "error 12: the update server is down", "the host heard " + told.detail);
  printer_.step("helper", "will-upgrade", std::nullopt, told.detail);
}

}  // namespace tour
