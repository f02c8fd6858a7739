#include "examples/helper/wire_object.h"

namespace sample {

void WireObject::setBundleID(const OptionalString& bundleID) {
  TQHPAppEventBase::setBundleID(bundleID);
  caller_ = *bundleID;
}

}  // namespace sample
