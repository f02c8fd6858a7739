#include "examples/helper/upgrade_service.h"

#include <nlohmann/json.hpp>

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
  UpgradeOffer found;
  found.bundleID = caller();
  found.productID = text(productID);
  found.fromVersion = text(version);
  found.code = "0";
  const std::string feed =
      Application::shared().dataFolder() + "/Feed/" + fileNameFor(found.productID) + ".json";
  if (clientcomm::fileExistsAtPath(feed)) readFeed(feed, found);
  const bool isNewer =
      TQHPHelperCommunicate::compareVersion(found.toVersion, found.fromVersion) == 1;
  if (found.code == "0" && !isNewer) {
    found.outcome = "up to date";
    take("upgrade", [&] { Application::shared().journal().noteOffer(found); });
    return;
  }
  take("upgrade", [&] { offer(found); });
}

void UpgradeService::offer(const UpgradeOffer& offer) {
  Journal& journal = Application::shared().journal();
  UpgradeOffer noted = offer;
  const bool isError = clientcomm::intValue(offer.code) != 0;
  noted.outcome = isError ? "error" : kOfferOpen;
  const std::int64_t id = journal.noteOffer(noted);
  const auto sent = [&journal, id](clientcomm::OSErr status) {
    if (status == clientcomm::noErr) return;
    try {
      journal.setOutcome(id, "host not reached: " + std::to_string(status));
    } catch (const std::exception& error) {
      g_warning("%s", error.what());
    }
  };
  Application::shared().callBacks().add(
      {offer.bundleID,
       "TQHPUpgradeByHelper",
       "productUpgradeCallBack::::",
       {offer.productID, offer.toVersion, offer.code, offer.description},
       sent});
}

// A host that refuses a second question sends "ignore" without saying for which product.
void UpgradeService::ready(const OptionalString& /*productID*/, const OptionalString& /*version*/,
                           const OptionalString& ready) {
  take("answer to an upgrade", [&] {
    Journal& journal = Application::shared().journal();
    if (const auto offer = journal.openOffer(caller(), text(ready))) {
      journal.setOutcome(*offer, outcomeFor(text(ready)));
    }
  });
}

}  // namespace sample
