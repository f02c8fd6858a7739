#include "ClientComm/c/started_host.h"

#include "ClientComm/TQHPHelper.h"
#include "ClientComm/c/callable_class.h"
#include "ClientComm/platform/shared_object.h"

namespace clientcomm {
namespace {

SharedObject<bool> start;

}  // namespace

void startHost() {
  TQHPHelper::share();
  start.get();
  bindCallableClasses();
}

TQHPHelperCommunicate& startedHost() {
  if (start.existing() == nullptr) throw Refusal{CLIENTCOMM_NOT_STARTED};
  return TQHPHelperCommunicate::share();
}

}  // namespace clientcomm
