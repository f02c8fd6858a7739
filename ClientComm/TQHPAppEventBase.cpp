#include "ClientComm/TQHPAppEventBase.h"

#include <vector>

#include "ClientComm/internal/object_state.h"
#include "ClientComm/platform/reporter.h"
#include "ClientComm/platform/shared_object.h"

using clientcomm::OptionalString;

namespace {

std::set<std::string, std::less<>>& sharedBundleIDSet() {
  static clientcomm::SharedObject<std::set<std::string, std::less<>>> identifiers;
  return identifiers.get();
}

}  // namespace

TQHPAppEventBase::TQHPAppEventBase() = default;
TQHPAppEventBase::~TQHPAppEventBase() = default;

const std::string& TQHPAppEventBase::className() const noexcept { return isa().name(); }

OptionalString TQHPAppEventBase::performSelector(std::string_view selector,
                                                 std::span<const OptionalString> objects) {
  const clientcomm::Method* const method = isa().methodForSelector(selector);
  if (method == nullptr) {
    clientcomm::report(clientcomm::DiagnosticCause::kSelectorUnknown, className(), selector);
    return std::nullopt;
  }
  if (objects.size() > method->argumentCount) {
    throw clientcomm::InvalidArgumentException("more arguments than the selector takes");
  }
  const auto invoke = [&](std::span<const OptionalString> arguments) {
    return state_ == nullptr ? method->invoke(*this, arguments)
                             : state_->invoke(*this, *method, arguments);
  };
  if (objects.size() == method->argumentCount) return invoke(objects);
  std::vector<OptionalString> arguments(objects.begin(), objects.end());
  arguments.resize(method->argumentCount);
  return invoke(arguments);
}

void TQHPAppEventBase::setBundleID(const OptionalString& bundleID) {
  if (!bundleID) throw clientcomm::InvalidArgumentException("the caller has no bundle identifier");
  if (!sharedBundleIDSet().contains(*bundleID)) sharedBundleIDSet().insert(*bundleID);
}

const TQHPAppEventBase::BundleIDSet& TQHPAppEventBase::bundleIDSet() { return sharedBundleIDSet(); }
