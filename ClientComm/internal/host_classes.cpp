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
  clientcomm::registerClass(TQHPHelperControl::staticClass());
  clientcomm::registerClass(TQHPHelperCommunicate::staticClass());
  clientcomm::registerClass(TQHPGetDataByHelper::staticClass());
  clientcomm::registerClass(TQHPUpgradeByHelper::staticClass());
  clientcomm::registerClass(TQHPUploadByHelper::staticClass());
  clientcomm::registerClass(TQHPCustomerServiceByHelepr::staticClass());
}

void registerProxy(TQHPAppEventBase& proxy) {
  registerHostClasses();
  TQHPAppleEventProcesser::share().setObjectforKeyToMapTable(proxy, proxy.className());
}
