#include "examples/helper/helper_control.h"

#include "examples/helper/application.h"

using clientcomm::OptionalString;

namespace sample {

const clientcomm::Class& HelperControl::wireClass() {
  using clientcomm::method;
  // The spelling of the second piece is the wire's own.
  static const auto* const wireClass =
      new clientcomm::Class("TQHPHelperControl", &clientcomm::makeShared<HelperControl>,
                            {method<&HelperControl::isAlive>("isAlive:prodeuctVersion:"),
                             method<&HelperControl::start>("start:prodeuctVersion:"),
                             method<&HelperControl::stop>("stop:prodeuctVersion:"),
                             method<&HelperControl::show>("show:prodeuctVersion:"),
                             method<&HelperControl::hide>("hide:prodeuctVersion:"),
                             method<&HelperControl::exitHelper>("exitHelper:productVersion:")});
  return *wireClass;
}

void HelperControl::isAlive(const OptionalString& /*productID*/,
                            const OptionalString& /*version*/) {}

void HelperControl::start(const OptionalString& productID, const OptionalString& version) {
  take("start", [&] {
    Application::shared().preferences().addProduct({text(productID), text(version), caller()});
  });
}

void HelperControl::stop(const OptionalString& productID, const OptionalString& /*version*/) {
  take("stop",
       [&] { Application::shared().preferences().removeProduct(text(productID), caller()); });
}

void HelperControl::show(const OptionalString& /*productID*/, const OptionalString& /*version*/) {
  take("show", [] { Application::shared().preferences().setShown(true); });
}

void HelperControl::hide(const OptionalString& /*productID*/, const OptionalString& /*version*/) {
  take("hide", [] { Application::shared().preferences().setShown(false); });
}

void HelperControl::exitHelper(const OptionalString& /*productID*/,
                               const OptionalString& /*version*/) {
  Application::shared().requestExit();
}

}  // namespace sample
