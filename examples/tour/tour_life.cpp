#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "ClientComm/platform/bundle.h"
#include "examples/tour/tour.h"

namespace tour {
namespace {

using nlohmann::json;

constexpr const char kProduct[] = "SAMPLE-100";
constexpr const char kNewerProduct[] = "SAMPLE-200";
constexpr const char kOlderProduct[] = "SAMPLE-300";

bool isStartedBy(const json& state, const std::string& product) {
  const json& products = state.at("products");
  return std::any_of(products.begin(), products.end(),
                     [&](const json& entry) { return entry.at("productID") == product; });
}

std::string installedHelper(const Stage& stage) {
  return stage.home() + "/.local/lib/clientcomm-samples/SampleHelper.app";
}

std::string installedVersion(const Stage& stage) {
  return clientcomm::Bundle(installedHelper(stage)).infoString("CFBundleVersion").value_or("none");
}

std::string process(pid_t pid) { return "process " + std::to_string(pid); }

}  // namespace

void require(bool holds, const std::string& text) {
  if (!holds) throw StepFailed(text);
}

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  require(file.is_open(), "there is no file " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  require(file.good(), "cannot write " + path);
}

HostEvent Tour::expectStatus(HostProcess& host, const std::string& command, int status) {
  HostEvent event = stage_.command(host, command);
  require(event.status == status, command + ": status " + std::to_string(event.status.value_or(0)) +
                                      ", expected " + std::to_string(status) + " " + event.detail);
  return event;
}

json Tour::waitForNewHelper(pid_t former, const std::string& product) {
  return stage_.waitForState(*host_, "a new helper started for " + product, [&](const json& state) {
    return state.at("pid") != former && isStartedBy(state, product);
  });
}

void Tour::takeLife() {
  printer_.section("A product and its helper");
  firstStart();
  visibility();
  stopAndRestart();
  printer_.section("The helper ends, and the timer brings it back");
  killHelper();
  helperExits();
  printer_.section("The helper closes its server");
  closedServer();
  printer_.section("Other products of the family bring helpers of their own");
  newerHost();
  olderHost();
}

void Tour::firstStart() {
  require(installedVersion(stage_) == "none", "a helper is installed already");
  host_ = &stage_.startHost(SAMPLE_HOST_BUNDLE);
  const HostEvent begin = stage_.waitForEvent(
      *host_, "the host's begin", [](const HostEvent& event) { return event.what == "begin"; });
  require(begin.status == 0, "the host began with status " + std::to_string(*begin.status));
  require(installedVersion(stage_) == "1.0", "installed is " + installedVersion(stage_));
  printer_.step("SampleHost", "begin", begin.status, "installed and launched helper 1.0");

  const json state = waitForNewHelper(0, kProduct);
  helper_ = state.at("pid");
  clientID_ = state.at("clientID");
  dataFolder_ = state.at("dataFolder");
  outbox_ = state.at("outbox");
  require(state.at("bundlePath") == installedHelper(stage_), "the helper runs from elsewhere");
  printer_.step("helper", "started", std::nullopt,
                process(helper_) + " knows that " + kProduct + " has started it");

  const HostEvent answer = stage_.command(*host_, "client-id");
  require(!clientID_.empty() && answer.detail == clientID_, "the client ID is " + answer.detail);
  printer_.step("SampleHost", "client-id", std::nullopt, clientID_);
}

void Tour::visibility() {
  expectStatus(*host_, "is-alive", 0);
  printer_.step("SampleHost", "is-alive", 0, "the helper runs");
  for (const bool isShown : {true, false}) {
    const std::string command = isShown ? "show" : "hide";
    expectStatus(*host_, command, 0);
    stage_.waitForState(*host_, command,
                        [&](const json& state) { return state.at("isShown") == isShown; });
    printer_.step("SampleHost", command, 0, isShown ? "the helper is shown" : "and hidden again");
  }
}

void Tour::stopAndRestart() {
  expectStatus(*host_, "stop", 0);
  stage_.waitForState(*host_, "the stop command",
                      [](const json& state) { return !isStartedBy(state, kProduct); });
  printer_.step("SampleHost", "stop", 0, "the helper has no product left");
  stage_.waitForState(*host_, "the timer's start",
                      [](const json& state) { return isStartedBy(state, kProduct); });
  printer_.step("timer", "start", std::nullopt,
                "the helper is started for " + std::string(kProduct) + " again");
}

void Tour::killHelper() {
  kill(helper_, SIGKILL);
  require(stage_.exitStatusOf(helper_) == 128 + SIGKILL, "the helper was not killed");
  printer_.step("tour", "SIGKILL", std::nullopt, process(helper_) + " is gone");
  const json state = waitForNewHelper(helper_, kProduct);
  require(state.at("clientID") == clientID_, "the client ID has changed");
  helper_ = state.at("pid");
  printer_.step("timer", "launch", std::nullopt,
                process(helper_) + " runs, with the client ID of before");
}

void Tour::helperExits() {
  expectStatus(*host_, "console announceExit", 0);
  const int status = stage_.exitStatusOf(helper_);
  require(status == 0, "the helper ended with " + std::to_string(status));
  printer_.step("helper", "exit", std::nullopt, "told its hosts, and ended cleanly");
  const pid_t former = helper_;
  helper_ = stage_
                .waitForState(*host_, "a new helper",
                              [&](const json& state) { return state.at("pid") != former; })
                .at("pid");
  printer_.step("timer", "launch", std::nullopt, process(helper_) + " runs");
  waitForNewHelper(former, kProduct);
  printer_.step("timer", "start", std::nullopt,
                "the helper is started for " + std::string(kProduct) + " again");
}

void Tour::closedServer() {
  expectStatus(*host_, "console closeServer:description: 7 'closed for maintenance'", 0);
  printer_.step("helper", "close-server", std::nullopt, "marked in the helper's preferences");
  const HostEvent show = expectStatus(*host_, "show", 10);
  const json closed = stage_.waitForState(*host_, "an answer", [](const json&) { return true; });
  require(closed.at("isShown") == false, "the show command was sent all the same");
  printer_.step("SampleHost", "show", show.status, "nothing was sent");
  expectStatus(*host_, "console openServer", 0);
  printer_.step("helper", "open-server", std::nullopt, "the mark is gone");
  expectStatus(*host_, "show", 0);
  stage_.waitForState(*host_, "show",
                      [](const json& state) { return state.at("isShown") == true; });
  printer_.step("SampleHost", "show", 0, "the helper is shown");
}

void Tour::newerHost() {
  HostProcess& newer = stage_.startHost(NEWER_HOST_BUNDLE);
  stage_.waitForEvent(newer, "the newer host's begin",
                      [](const HostEvent& event) { return event.what == "begin"; });
  require(installedVersion(stage_) == "1.1", "installed is " + installedVersion(stage_));
  printer_.step("NewerHost", "begin", 0, "brings helper 1.1, installed in place of 1.0");
  const int status = stage_.exitStatusOf(helper_);
  require(status == 0, "the old helper ended with " + std::to_string(status));
  printer_.step("helper", "exit", std::nullopt, "1.0 was told to exit, and did so cleanly");
  const json state = stage_.waitForState(*host_, "helper 1.1", [&](const json& now) {
    return now.at("version") == "1.1" && isStartedBy(now, kProduct) &&
           isStartedBy(now, kNewerProduct);
  });
  require(state.at("clientID") == clientID_, "the client ID has changed");
  helper_ = state.at("pid");
  printer_.step("helper", "started", std::nullopt, "1.1 runs, started for both products");
  stage_.quitHost(newer);
  printer_.step("NewerHost", "quit", std::nullopt, "the helper runs on");
}

void Tour::olderHost() {
  HostProcess& older = stage_.startHost(OLDER_HOST_BUNDLE);
  stage_.waitForEvent(older, "the older host's begin",
                      [](const HostEvent& event) { return event.what == "begin"; });
  const json state = stage_.waitForState(older, "the older host's start", [](const json& now) {
    return isStartedBy(now, kOlderProduct);
  });
  require(state.at("pid") == helper_ && state.at("version") == "1.1", "the helper was replaced");
  require(installedVersion(stage_) == "1.1", "installed is " + installedVersion(stage_));
  printer_.step("OlderHost", "begin", 0, "brings helper 0.9; 1.1 stays installed and running");
  stage_.quitHost(older);
  printer_.step("OlderHost", "quit", std::nullopt, "the helper runs on");
}

void Tour::takeEnd() {
  printer_.section("The end");
  expectStatus(*host_, "stop", 0);
  stage_.waitForState(*host_, "the stop command",
                      [](const json& state) { return !isStartedBy(state, kProduct); });
  stage_.quitHost(*host_);
  host_ = nullptr;
  printer_.step("SampleHost", "stop, quit", 0, "the helper runs on without it");
  kill(helper_, SIGTERM);
  const int status = stage_.exitStatusOf(helper_);
  require(status == 0, "the helper ended with " + std::to_string(status));
  printer_.step("tour", "SIGTERM", std::nullopt, "the helper ended cleanly");
}

}  // namespace tour
