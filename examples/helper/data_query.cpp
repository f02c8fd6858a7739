#include "examples/helper/data_query.h"

#include "examples/helper/application.h"

using clientcomm::OptionalString;

namespace sample {

const clientcomm::Class& DataQuery::wireClass() {
  static const auto* const wireClass =
      new clientcomm::Class("TQHPGetDataByHelper", &clientcomm::makeShared<DataQuery>,
                            {clientcomm::method<&DataQuery::clientID>("clientIDFormHelper")});
  return *wireClass;
}

OptionalString DataQuery::clientID() { return Application::shared().preferences().clientID(); }

}  // namespace sample
