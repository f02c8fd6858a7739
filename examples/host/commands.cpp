#include "examples/host/commands.h"

#include <algorithm>

#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/TQHPHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "examples/host/helper_watch.h"
#include "examples/host/session.h"

using clientcomm::OptionalString;

namespace sample {
namespace {

TQHPHelper& facade() { return TQHPHelper::share(); }
TQHPHelperCommunicate& controller() { return TQHPHelperCommunicate::share(); }

Outcome ofStatus(clientcomm::OSErr status, std::string detail = "") {
  return {status, std::move(detail), true};
}

Outcome ofAnswer(const OptionalString& answer) {
  return {std::nullopt, answer.value_or("no answer"), answer.has_value()};
}

Outcome ofPage(const TQHPSuiteInfo& page) {
  return {std::nullopt, page.description(), page.URL().has_value()};
}

// nil where the user gave no such argument.
OptionalString argument(const Arguments& arguments, std::size_t index) {
  return index < arguments.size() ? OptionalString(arguments[index]) : std::nullopt;
}

std::optional<bool> onOrOff(const std::string& word) {
  if (word == "on") return true;
  if (word == "off") return false;
  return std::nullopt;
}

Outcome notOnOrOff() { return {clientcomm::paramErr, "say on or off", true}; }

// --- The helper's life ---

Outcome start(Session&, const Arguments&) { return ofStatus(controller().startHelper()); }
Outcome stop(Session&, const Arguments&) { return ofStatus(controller().stopHelper()); }
Outcome show(Session&, const Arguments&) { return ofStatus(controller().showHelper()); }
Outcome hide(Session&, const Arguments&) { return ofStatus(controller().hideHelper()); }
Outcome isAlive(Session&, const Arguments&) { return ofStatus(controller().isAliveHelper()); }

Outcome restart(Session&, const Arguments&) {
  const OSErr status = controller().autoRestartHelper();
  return ofStatus(status, controller().isHelperSeverNotOpen(status) ? "the server is closed" : "");
}

Outcome status(Session&, const Arguments&) {
  const auto pid = runningHelper();
  std::string detail = pid ? "helper runs as " + std::to_string(*pid) : "helper does not run";
  detail += controller().getDefaultHelperServerOpen() ? ", server open" : ", server closed";
  detail += ", client ID " + controller().clientID().value_or("unknown");
  return {std::nullopt, detail, true};
}

Outcome clientID(Session&, const Arguments&) { return ofAnswer(controller().clientIDFormHelper()); }

// --- Uploads and customer service ---

Outcome uploadLog(Session&, const Arguments& words) {
  return ofStatus(controller().uploadLogByEmail(argument(words, 1), argument(words, 0),
                                                argument(words, 2), argument(words, 3)));
}

Outcome uploadUserFile(Session&, const Arguments& words) {
  return ofStatus(controller().uploadUserFile(argument(words, 1), argument(words, 0),
                                              argument(words, 2), argument(words, 3)));
}

Outcome uploadProductFile(Session&, const Arguments& words) {
  return ofStatus(facade().uploadProductFile(argument(words, 1), argument(words, 0),
                                             argument(words, 2), argument(words, 3)));
}

Outcome customerService(Session&, const Arguments& words) {
  return ofStatus(controller().customerserviceByEmail(argument(words, 0), argument(words, 1)));
}

Outcome checkMessages(Session&, const Arguments&) {
  return ofStatus(controller().checkForHeleprMessage());
}

// --- Usage data ---

Outcome count(Session&, const Arguments& words) {
  return ofStatus(controller().commIncreaseDataCollect(words[0], words[1]));
}

Outcome autoCount(Session&, const Arguments& words) {
  return ofStatus(controller().autoCreatedIncreaseDataCollect(words[0], words[1]));
}

Outcome record(Session&, const Arguments& words) {
  return ofStatus(controller().customStringDataCollect(words[0], words[1]));
}

Outcome directUpload(Session&, const Arguments&) {
  return ofStatus(controller().directUploadData());
}

Outcome collectStatus(Session&, const Arguments& words) {
  if (words.empty()) {
    return {std::nullopt, facade().productCollectStatus() ? "on" : "off", true};
  }
  const auto isOn = onOrOff(words[0]);
  return isOn ? ofStatus(controller().setProductCollectStatus(*isOn)) : notOnOrOff();
}

Outcome collectID(Session&, const Arguments& words) {
  facade().setDataCollectPID(words[0]);
  return {std::nullopt, "filed under " + controller().collectDataPID().value_or("nothing"), true};
}

Outcome collectFolder(Session&, const Arguments& words) {
  controller().initDataCollectionPath(words[0]);
  return {};
}

// --- Pages ---

Outcome suiteInfo(Session&, const Arguments&) { return ofPage(facade().regSuiteInfo()); }
Outcome unregSuiteInfo(Session&, const Arguments&) { return ofPage(facade().unRegSuiteInfo()); }
Outcome errorPage(Session&, const Arguments&) { return ofAnswer(facade().netErrorPagePath()); }

// --- Switches ---

Outcome tips(Session&, const Arguments& words) {
  const auto isOn = onOrOff(words[0]);
  if (!isOn) return notOnOrOff();
  facade().setTipsEnable(*isOn);
  return {};
}

Outcome ads(Session&, const Arguments& words) {
  const auto isOn = onOrOff(words[0]);
  if (!isOn) return notOnOrOff();
  controller().setEnableAD(*isOn);
  return {};
}

// --- Upgrade ---

Outcome upgrade(Session& session, const Arguments& words) {
  std::optional<bool> answer;
  if (!words.empty()) {
    if (words[0] != "--ready" && words[0] != "--not-ready") {
      return {clientcomm::paramErr, "say --ready or --not-ready", true};
    }
    answer = words[0] == "--ready";
  }
  return session.upgrade(answer);
}

Outcome ready(Session&, const Arguments&) {
  return ofStatus(controller().productReadyToUpgrade(true));
}

Outcome notReady(Session&, const Arguments&) {
  return ofStatus(controller().productReadyToUpgrade(false));
}

// --- For tours and tests ---

// Calls the helper's own console, which a shipping helper does not have.
Outcome console(Session&, const Arguments& words) {
  const std::vector<std::string> rest(words.begin() + 1, words.end());
  OptionalString answer;
  const OSErr status =
      TQHPAppleEventSender::share().sendEvnet("SampleHelperConsole", words[0], rest, &answer);
  return ofStatus(status, answer.value_or(""));
}

constexpr std::string_view kFile = "PATH [EMAIL [TITLE [TEXT]]]";

constexpr Command kCommands[] = {
    {"start", "", "start the helper for this product", 0, 0, start},
    {"stop", "", "stop the helper for this product", 0, 0, stop},
    {"show", "", "show the helper", 0, 0, show},
    {"hide", "", "hide the helper", 0, 0, hide},
    {"is-alive", "", "ask whether the helper runs", 0, 0, isAlive},
    {"restart", "", "make sure that the helper runs and is started", 0, 0, restart},
    {"status", "", "tell what is known of the helper", 0, 0, status},
    {"client-id", "", "ask for the client ID", 0, 0, clientID},
    {"upload-log", kFile, "upload a log", 1, 4, uploadLog},
    {"upload-user-file", kFile, "upload a file of the user", 1, 4, uploadUserFile},
    {"upload-product-file", kFile, "upload a file of the product", 1, 4, uploadProductFile},
    {"customer-service", "EMAIL [PATH]", "ask customer service", 1, 2, customerService},
    {"check-messages", "", "look for messages of customer service", 0, 0, checkMessages},
    {"count", "TARGET KEY", "count one use", 2, 2, count},
    {"auto-count", "TARGET KEY", "count one use, making the counter", 2, 2, autoCount},
    {"record", "TARGET VALUE", "file a text as usage data", 2, 2, record},
    {"direct-upload", "", "upload the usage data collected", 0, 0, directUpload},
    {"collect-status", "[on|off]", "tell or switch the collection", 0, 1, collectStatus},
    {"collect-pid", "ID", "file usage data under another ID", 1, 1, collectID},
    {"collect-path", "FOLDER", "keep usage data below a folder", 1, 1, collectFolder},
    {"suite-info", "", "ask for the suite page", 0, 0, suiteInfo},
    {"unreg-suite-info", "", "ask for the suite page at the end", 0, 0, unregSuiteInfo},
    {"error-page", "", "ask for the network-error page", 0, 0, errorPage},
    {"tips", "on|off", "switch the tips", 1, 1, tips},
    {"ads", "on|off", "switch the advertising", 1, 1, ads},
    {"upgrade", "[--ready|--not-ready]", "ask for an upgrade, and answer", 0, 1, upgrade},
    {"ready", "", "answer that the product can be upgraded", 0, 0, ready},
    {"not-ready", "", "answer that it cannot", 0, 0, notReady},
    {"console", "SELECTOR [TEXT...]", "call the sample helper's console", 1, 16, console},
};

}  // namespace

std::span<const Command> commands() { return kCommands; }

const Command* commandNamed(std::string_view name) {
  const auto found = std::find_if(std::begin(kCommands), std::end(kCommands),
                                  [&](const Command& command) { return command.name == name; });
  return found == std::end(kCommands) ? nullptr : found;
}

}  // namespace sample
