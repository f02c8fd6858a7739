#include "ClientComm/internal/host_classes.h"

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventProcesser.h"
#include "ClientComm/TQHPCustomerServiceByHelepr.h"
#include "ClientComm/TQHPGetDataByHelper.h"
#include "ClientComm/TQHPHelperCommunicate.h"
#include "ClientComm/TQHPHelperControl.h"
#include "ClientComm/TQHPUpgradeByHelper.h"
#include "ClientComm/TQHPUploadByHelper.h"
#include "ClientComm/platform/runtime.h"
#include "ClientComm/platform/shared_object.h"

namespace clientcomm {

namespace {

/// Made once, when the first of the classes is needed.
struct HostClasses {
  HostClasses() {
    registerClass(TQHPHelperControl::staticClass());
    registerClass(TQHPHelperCommunicate::staticClass());
    registerClass(TQHPGetDataByHelper::staticClass());
    registerClass(TQHPUpgradeByHelper::staticClass());
    registerClass(TQHPUploadByHelper::staticClass());
    registerClass(TQHPCustomerServiceByHelepr::staticClass());
  }
};

}  // namespace

void registerHostClasses() {
  static SharedObject<HostClasses> classes;
  classes.get();
}

void registerProxy(TQHPAppEventBase& proxy) {
  registerHostClasses();
  TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(proxy, proxy.className());
}

}  // namespace clientcomm
