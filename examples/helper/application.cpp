#include "examples/helper/application.h"

#include <glib-unix.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <string_view>

#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/platform/bundle.h"
#include "examples/helper/upgrade_service.h"
#include "examples/helper/wire_classes.h"

namespace sample {
namespace {

using nlohmann::json;

constexpr std::string_view kUnlessRunning = "--unless-running";
constexpr gint64 kFarewellLimitInMicroseconds = 2 * G_USEC_PER_SEC;

std::string ownDataFolder() {
  const auto identifier = clientcomm::Bundle::mainBundle().bundleIdentifier();
  return std::string(g_get_user_data_dir()) + "/" + identifier.value_or("SampleHelper");
}

json productsAsJson(const std::vector<Product>& products) {
  json all = json::array();
  for (const Product& product : products) {
    all.push_back({{"productID", product.id},
                   {"version", product.version},
                   {"bundleIdentifier", product.bundleID}});
  }
  return all;
}

}  // namespace

Application& Application::shared() {
  static Application* const application = new Application();
  return *application;
}

bool Application::isWanted(int count, char** arguments) {
  if (std::find(arguments + 1, arguments + count, kUnlessRunning) == arguments + count) return true;
  const auto identifier = clientcomm::Bundle::mainBundle().bundleIdentifier();
  return !identifier ||
         CallBacks::send(
             {*identifier, "TQHPHelperControl", "isAlive:prodeuctVersion:", {"", ""}, {}}) !=
             clientcomm::noErr;
}

Application::Application()
    : dataFolder_(ownDataFolder()),
      journal_(dataFolder_),
      outbox_(journal_, dataFolder_ + "/Outbox", [this] { sendOutbox(); }),
      usage_(journal_, dataFolder_ + "/Usage", outbox_.folder(), [this] { sendOutbox(); }),
      network_(openNetwork()),
      loop_(g_main_loop_new(nullptr, FALSE)) {
  watchSignals();
}

int Application::run() {
  outbox_.resume();
  try {
    usage_.finishOpenBatches();
  } catch (const std::exception& error) {
    g_warning("usage data has to wait: %s", error.what());
  }
  resumeNetwork();
  registerWireClasses();
  // From here on calls can arrive; every class that they may name is known by now.
  TQHPAppleEventProcesser::share();
  g_main_loop_run(loop_);
  outbox_.suspend();
  if (network_) network_->suspend();
  announceExit();
  finishPendingCalls();
  TQHPAppleEventProcesser::share().unRegist();
  return 0;
}

// A signal becomes an event of the main loop, so that it never cuts a call short. Blocked before
// a toolkit starts threads, which would take it otherwise.
void Application::watchSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, number);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  signals_ = ScopedFd(signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  const GUnixFDSourceFunc end = [](gint, GIOCondition, gpointer self) -> gboolean {
    static_cast<Application*>(self)->requestExit();
    return G_SOURCE_REMOVE;
  };
  g_unix_fd_add(signals_.get(), G_IO_IN, end, this);
}

std::unique_ptr<Network> Application::openNetwork() {
  const auto noteOutcome = [this](std::int64_t id, const std::string& outcome) {
    try {
      journal_.setOutcome(id, outcome);
      return true;
    } catch (const std::exception& error) {
      noteFailure(std::string("upgrade: ") + error.what());
      return false;
    }
  };
  return makeNetwork({dataFolder_, outbox_.folder(), dataFolder_ + "/Upgrades"},
                     {&UpgradeService::onChecked, noteOutcome});
}

// What an earlier run was asked for and did not finish. What it was installing is not begun again.
void Application::resumeNetwork() {
  if (!network_) return;
  network_->sendOutbox();
  try {
    for (const auto& [id, offer] : journal_.offersWith(kOfferChecking)) {
      network_->checkFeed(id, offer);
    }
    for (const auto& [id, offer] : journal_.offersWith(kOfferInstalling)) {
      journal_.setOutcome(id, "interrupted");
    }
    for (const auto& [id, offer] : journal_.offersWith(kOfferAgreed)) network_->install(id, offer);
  } catch (const std::exception& error) {
    noteFailure(std::string("upgrades have to wait: ") + error.what());
  }
}

void Application::sendOutbox() {
  if (network_) network_->sendOutbox();
}

void Application::requestExit() { g_main_loop_quit(loop_); }

// A host that hears the notice starts the helper again for its product. One that no longer runs is
// forgotten; where the notice failed for another reason, the record stays for the next helper.
void Application::announceExit() {
  callBacks_.flush();
  std::map<std::string, clientcomm::OSErr> told;
  for (const Product& product : preferences_.products()) {
    const auto [host, isNew] = told.try_emplace(product.bundleID, clientcomm::noErr);
    if (isNew) {
      host->second = CallBacks::send(
          {product.bundleID, "TQHPHelperControl", "helperExitNotify:", {product.id}, {}});
    }
    if (host->second != clientcomm::procNotFound) continue;
    try {
      preferences_.removeProduct(product.id, product.bundleID);
    } catch (const std::exception& error) {
      g_warning("%s", error.what());
    }
  }
}

void Application::finishPendingCalls() {
  const gint64 limit = g_get_monotonic_time() + kFarewellLimitInMicroseconds;
  while (g_main_context_pending(nullptr) && g_get_monotonic_time() < limit) {
    g_main_context_iteration(nullptr, FALSE);
  }
  callBacks_.flush();
}

void Application::setServerClosed(bool isClosed, const std::string& code,
                                  const std::string& description) {
  preferences_.setServerClosed(isClosed);
  for (const Product& product : preferences_.products()) {
    callBacks_.add({product.bundleID,
                    "TQHPHelperControl",
                    "checkServerOpenCallBack::::",
                    {product.id, isClosed ? "0" : "1", code, description},
                    {}});
  }
}

void Application::noteChange() {
  if (changed_) changed_();
}

void Application::noteFailure(const std::string& what) {
  ++failures_;
  latestFailure_ = what;
  g_warning("%s", what.c_str());
}

// A helper that cannot read its own data still tells everything else.
json Application::stored() {
  try {
    json stored = journal_.contents();
    stored["usage"] = usage_.collected();
    if (network_) stored["uploads"] = network_->uploads();
    return stored;
  } catch (const std::exception& error) {
    return {{"unreadable", error.what()}};
  }
}

json Application::state() {
  const clientcomm::Bundle& bundle = clientcomm::Bundle::mainBundle();
  json switches = json::object();
  for (const auto& [product, isOn] : preferences_.collectSwitches()) {
    switches[product] = isOn.boolValue();
  }
  json state = stored();
  state["pid"] = getpid();
  state["version"] = bundle.infoString(clientcomm::kCFBundleVersionKey).value_or("");
  state["bundlePath"] = bundle.bundlePath();
  state["dataFolder"] = dataFolder_;
  state["outbox"] = outbox_.folder();
  state["clientID"] = preferences_.clientID().value_or("");
  state["isShown"] = preferences_.isShown();
  state["isServerClosed"] = preferences_.isServerClosed();
  state["products"] = productsAsJson(preferences_.products());
  state["collectStatus"] = switches;
  state["refusedRecords"] = refusedRecords_;
  state["failures"] = failures_;
  state["latestFailure"] = latestFailure_;
  return state;
}

}  // namespace sample
