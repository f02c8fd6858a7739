#include "ClientComm/TQHPCustomerServiceByHelepr.h"

#include "ClientComm/internal/proxy_call.h"
#include "ClientComm/platform/shared_object.h"

using clientcomm::OptionalString;

namespace {

// Selectors, as they travel; each is used by the method table and by the call.
constexpr char kCheckForHeleprMessage[] = "checkForHeleprMessage:versionID:";
constexpr char kCustomerService[] = "customerService:versionID:email:attachment:";

}  // namespace

const clientcomm::Class& TQHPCustomerServiceByHelepr::staticClass() {
  using Self = TQHPCustomerServiceByHelepr;
  static const auto* const cls = new clientcomm::Class(
      "TQHPCustomerServiceByHelepr", clientcomm::makeShared<Self>,
      {clientcomm::method<&Self::checkForHeleprMessage>(kCheckForHeleprMessage),
       clientcomm::method<&Self::customerService>(kCustomerService)});
  return *cls;
}

TQHPCustomerServiceByHelepr& TQHPCustomerServiceByHelepr::share() {
  static clientcomm::SharedObject<TQHPCustomerServiceByHelepr> proxy;
  return proxy.get([] { return new TQHPCustomerServiceByHelepr; });
}

OSErr TQHPCustomerServiceByHelepr::checkForHeleprMessage(const OptionalString& productID,
                                                         const OptionalString& versionID) {
  return clientcomm::sendCommand(*this, kCheckForHeleprMessage, productID, versionID);
}

OSErr TQHPCustomerServiceByHelepr::customerService(const OptionalString& productID,
                                                   const OptionalString& versionID,
                                                   const OptionalString& email,
                                                   const OptionalString& attachment) {
  return clientcomm::sendCommand(*this, kCustomerService, productID, versionID, email, attachment);
}
