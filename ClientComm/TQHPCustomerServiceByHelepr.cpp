#include "ClientComm/TQHPCustomerServiceByHelepr.h"

#include "ClientComm/internal/proxy_call.h"

const clientcomm::Class& TQHPCustomerServiceByHelepr::staticClass() {
  using Self = TQHPCustomerServiceByHelepr;
  static const auto* const cls = new clientcomm::Class(
      "TQHPCustomerServiceByHelepr", clientcomm::makeShared<Self>,
      {clientcomm::method<&Self::checkForHeleprMessage>("checkForHeleprMessage:versionID:"),
       clientcomm::method<&Self::customerService>("customerService:versionID:email:attachment:")});
  return *cls;
}

TQHPCustomerServiceByHelepr& TQHPCustomerServiceByHelepr::share() {
  static auto* const proxy = new TQHPCustomerServiceByHelepr;
  return *proxy;
}

OSErr TQHPCustomerServiceByHelepr::checkForHeleprMessage(const OptionalString& productID,
                                                         const OptionalString& versionID) {
  return sendCommand(*this, "checkForHeleprMessage:versionID:", productID, versionID);
}

OSErr TQHPCustomerServiceByHelepr::customerService(const OptionalString& productID,
                                                   const OptionalString& versionID,
                                                   const OptionalString& email,
                                                   const OptionalString& attachment) {
  return sendCommand(*this, "customerService:versionID:email:attachment:", productID, versionID,
                     email, attachment);
}
