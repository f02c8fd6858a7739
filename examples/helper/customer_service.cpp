#include "examples/helper/customer_service.h"

#include "examples/helper/application.h"

using clientcomm::OptionalString;

namespace sample {

const clientcomm::Class& CustomerService::wireClass() {
  using clientcomm::method;
  static const auto* const wireClass = new clientcomm::Class(
      "TQHPCustomerServiceByHelepr", &clientcomm::makeShared<CustomerService>,
      {method<&CustomerService::checkForMessage>("checkForHeleprMessage:versionID:"),
       method<&CustomerService::request>("customerService:versionID:email:attachment:")});
  return *wireClass;
}

void CustomerService::checkForMessage(const OptionalString& productID,
                                      const OptionalString& version) {
  take("check for messages",
       [&] { Application::shared().journal().noteMessageCheck(text(productID), text(version)); });
}

void CustomerService::request(const OptionalString& productID, const OptionalString& version,
                              const OptionalString& email, const OptionalString& attachment) {
  Delivery delivery;
  delivery.kind = "customer-service";
  delivery.bundleID = caller();
  delivery.productID = text(productID);
  delivery.version = text(version);
  delivery.email = text(email);
  delivery.path = text(attachment);
  take("customer service", [&] { Application::shared().outbox().take(delivery); });
}

}  // namespace sample
