#include "examples/helper/console.h"

#include "ClientComm/platform/text.h"
#include "examples/helper/application.h"
#include "examples/helper/json_text.h"
#include "examples/helper/upgrade_service.h"

using clientcomm::OptionalString;

namespace sample {

const clientcomm::Class& Console::wireClass() {
  using clientcomm::method;
  static const auto* const wireClass = new clientcomm::Class(
      "SampleHelperConsole", &clientcomm::makeShared<Console>,
      {method<&Console::closeServer>("closeServer:description:"),
       method<&Console::openServer>("openServer"), method<&Console::announceExit>("announceExit"),
       method<&Console::offerUpgrade>("offerUpgrade:productID:version:code:"
                                      "description:"),
       method<&Console::dumpState>("dumpState")});
  return *wireClass;
}

void Console::closeServer(const OptionalString& code, const OptionalString& description) {
  Application::shared().setServerClosed(true, text(code), text(description));
}

void Console::openServer() { Application::shared().setServerClosed(false, "0", ""); }

void Console::announceExit() { Application::shared().requestExit(); }

void Console::offerUpgrade(const OptionalString& bundleID, const OptionalString& productID,
                           const OptionalString& version, const OptionalString& code,
                           const OptionalString& description) {
  UpgradeOffer offer;
  offer.bundleID = text(bundleID);
  offer.productID = text(productID);
  offer.toVersion = text(version);
  offer.code = text(code);
  offer.description = text(description);
  offer.outcome = clientcomm::intValue(offer.code) != 0 ? "error" : kOfferOpen;
  UpgradeService::offer(offer);
}

OptionalString Console::dumpState() { return jsonText(Application::shared().state(), -1); }

}  // namespace sample
