#include "examples/helper/wire_object.h"

#include <exception>

#include "examples/helper/application.h"

using clientcomm::OptionalString;

namespace sample {

void WireObject::setBundleID(const OptionalString& bundleID) {
  TQHPAppEventBase::setBundleID(bundleID);
  caller_ = *bundleID;
}

void WireObject::take(const char* what, const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    Application::shared().noteFailure(std::string(what) + ": " + error.what());
  }
  Application::shared().noteChange();
}

}  // namespace sample
