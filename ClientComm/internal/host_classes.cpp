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

void registerHostClasses() {
  static bool isDone = false;
  if (isDone) return;
  isDone = true;
  platform::registerClass(TQHPHelperControl::staticClass());
  platform::registerClass(TQHPHelperCommunicate::staticClass());
  platform::registerClass(TQHPGetDataByHelper::staticClass());
  platform::registerClass(TQHPUpgradeByHelper::staticClass());
  platform::registerClass(TQHPUploadByHelper::staticClass());
  platform::registerClass(TQHPCustomerServiceByHelepr::staticClass());
}

void registerProxy(TQHPAppEventBase& proxy) {
  registerHostClasses();
  TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(proxy, proxy.className());
}
