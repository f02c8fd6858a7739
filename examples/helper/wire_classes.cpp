#include "examples/helper/wire_classes.h"

#include "examples/helper/console.h"
#include "examples/helper/customer_service.h"
#include "examples/helper/data_query.h"
#include "examples/helper/helper_control.h"
#include "examples/helper/upgrade_service.h"
#include "examples/helper/upload_service.h"

namespace sample {

void registerWireClasses() {
  platform::registerClass(HelperControl::wireClass());
  platform::registerClass(DataQuery::wireClass());
  platform::registerClass(UpgradeService::wireClass());
  platform::registerClass(UploadService::wireClass());
  platform::registerClass(CustomerService::wireClass());
  platform::registerClass(Console::wireClass());
}

}  // namespace sample
