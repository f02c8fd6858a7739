#include "examples/helper/wire_classes.h"

#include "examples/helper/console.h"
#include "examples/helper/customer_service.h"
#include "examples/helper/data_query.h"
#include "examples/helper/helper_control.h"
#include "examples/helper/upgrade_service.h"
#include "examples/helper/upload_service.h"

namespace sample {

void registerWireClasses() {
  clientcomm::registerClass(HelperControl::wireClass());
  clientcomm::registerClass(DataQuery::wireClass());
  clientcomm::registerClass(UpgradeService::wireClass());
  clientcomm::registerClass(UploadService::wireClass());
  clientcomm::registerClass(CustomerService::wireClass());
  clientcomm::registerClass(Console::wireClass());
}

}  // namespace sample
