#include "ClientComm/c/started_host.h"

#include <utility>

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/c/callable_class.h"
#include "ClientComm/platform/shared_object.h"

namespace clientcomm {
namespace {

SharedObject<bool> start;

void markStarted() {
  start.get();
  bindCallableClasses();
}

}  // namespace

void startHost() {
  TQHPHelper::share();
  markStarted();
}

void startHostAsync(StartUpCallback callback) {
  TQHPHelper::shareAsync(std::move(callback));
  markStarted();
}

TQHPHelperCommunicate& startedHost() {
  if (start.existing() == nullptr) throw Refusal{CLIENTCOMM_NOT_STARTED};
  return TQHPHelperCommunicate::share();
}

}  // namespace clientcomm
