#include "examples/helper/upgrade_service.h"

#include <functional>
#include <nlohmann/json.hpp>
#include <utility>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/platform/file_manager.h"
#include "ClientComm/platform/text.h"
#include "examples/helper/application.h"
#include "examples/helper/durable_file.h"
#include "examples/helper/text.h"

using clientcomm::OptionalString;

namespace sample {
namespace {

// Of the helper's own making: a feed that cannot be read.
constexpr int kFeedUnreadable = 100;

constexpr const char kUpToDate[] = "up to date";

std::string outcomeFor(const std::string& ready) {
  if (ready == "1") return "ready";
  if (ready == "0") return "not ready";
  return "ignored";
}

// Fills in what the feed says: a version, or a code other than "0" with its description.
void readFeed(const std::string& path, UpgradeOffer& offer) {
  try {
    const auto feed = nlohmann::json::parse(readFile(path));
    if (feed.contains("error")) {
      offer.code = std::to_string(feed.at("error").at("code").get<std::int32_t>());
      offer.description = feed.at("error").at("description").get<std::string>();
    } else {
      offer.toVersion = feed.at("version").get<std::string>();
    }
  } catch (const std::exception&) {
    offer.code = std::to_string(kFeedUnreadable);
    offer.description = "the upgrade feed cannot be read";
  }
}

std::string outcomeOf(const UpgradeOffer& offer) {
  if (clientcomm::intValue(offer.code) != 0) return "error";
  const bool isNewer =
      TQHPHelperCommunicate::compareVersion(offer.toVersion, offer.fromVersion) == 1;
  return isNewer ? kOfferOpen : kUpToDate;
}

void callHost(const UpgradeOffer& offer, std::function<void(clientcomm::OSErr)> sent) {
  Application::shared().callBacks().add(
      {offer.bundleID,
       "TQHPUpgradeByHelper",
       "productUpgradeCallBack::::",
       {offer.productID, offer.toVersion, offer.code, offer.description},
       std::move(sent)});
}

std::string notReached(clientcomm::OSErr status) {
  return "host not reached: " + std::to_string(status);
}

}  // namespace

const clientcomm::Class& UpgradeService::wireClass() {
  using clientcomm::method;
  static const auto* const wireClass = new clientcomm::Class(
      "TQHPUpgradeByHelper", &clientcomm::makeShared<UpgradeService>,
      {method<&UpgradeService::upgrade>("productUpgrade:versionID:"),
       method<&UpgradeService::ready>("productReadyToUpgrade:versionID:ready:")});
  return *wireClass;
}

void UpgradeService::upgrade(const OptionalString& productID, const OptionalString& version) {
  UpgradeOffer asked;
  asked.bundleID = caller();
  asked.productID = text(productID);
  asked.fromVersion = text(version);
  asked.code = "0";
  Network* const network = Application::shared().network();
  if (network != nullptr && network->hasFeed()) {
    take("upgrade", [&] {
      asked.outcome = kOfferChecking;
      network->checkFeed(Application::shared().journal().noteOffer(asked), asked);
    });
    return;
  }
  const std::string feed =
      Application::shared().dataFolder() + "/Feed/" + fileNameFor(asked.productID) + ".json";
  if (clientcomm::fileExistsAtPath(feed)) readFeed(feed, asked);
  asked.outcome = outcomeOf(asked);
  take("upgrade", [&] { offer(asked); });
}

void UpgradeService::offer(const UpgradeOffer& offer) {
  const std::int64_t id = Application::shared().journal().noteOffer(offer);
  if (offer.outcome == kUpToDate) return;
  callHost(offer, [id](clientcomm::OSErr status) {
    if (status == clientcomm::noErr) return;
    take("upgrade", [&] { Application::shared().journal().setOutcome(id, notReached(status)); });
  });
}

// Noted after the call: a helper that ends between the two looks it up again, and calls again.
void UpgradeService::onChecked(std::int64_t id, const UpgradeOffer& checked) {
  UpgradeOffer offer = checked;
  offer.outcome = outcomeOf(offer);
  const auto note = [id, offer](clientcomm::OSErr status) {
    UpgradeOffer noted = offer;
    if (status != clientcomm::noErr) noted.outcome = notReached(status);
    take("upgrade", [&] { Application::shared().journal().noteCheck(id, noted); });
  };
  if (offer.outcome == kUpToDate) {
    note(clientcomm::noErr);
  } else {
    callHost(offer, note);
  }
}

// A host that refuses a second question sends "ignore" without saying for which product.
void UpgradeService::ready(const OptionalString& /*productID*/, const OptionalString& /*version*/,
                           const OptionalString& ready) {
  take("answer to an upgrade", [&] {
    Journal& journal = Application::shared().journal();
    const auto id = journal.openOffer(caller(), text(ready));
    if (!id) return;
    const UpgradeOffer offer = journal.offersWith(kOfferOpen).at(*id);
    Network* const network = Application::shared().network();
    const bool installs = text(ready) == "1" && network != nullptr && network->canInstall(offer);
    journal.setOutcome(*id, installs ? kOfferAgreed : outcomeFor(text(ready)));
    if (installs) network->install(*id, offer);
  });
}

}  // namespace sample
