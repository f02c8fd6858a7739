#include "examples/host/upgrade_listener.h"

#include <string>

#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperError.h"
#include "examples/host/event_log.h"

namespace sample {
namespace {

std::string describe(const clientcomm::Error& error) {
  const auto text = error.userInfo.find(kHelperErrorDescription);
  return "error " + std::to_string(error.code) + ": " +
         (text == error.userInfo.end() ? "" : text->second);
}

}  // namespace

void UpgradeListener::productWillUpgrade(const clientcomm::Error* error) {
  ++questionCount_;
  logEvent("helper", "will-upgrade", std::nullopt,
           error == nullptr ? "the helper is about to upgrade the product" : describe(*error));
  if (!answer_) return;
  answerStatus_ = TQHPHelperCommunicate::share().productReadyToUpgrade(*answer_);
  logEvent("host", *answer_ ? "ready" : "not-ready", answerStatus_);
}

}  // namespace sample
