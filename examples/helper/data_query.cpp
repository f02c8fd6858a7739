#include "examples/helper/data_query.h"

#include "examples/helper/application.h"

namespace sample {

const platform::Class& DataQuery::wireClass() {
  static const auto* const wireClass =
      new platform::Class("TQHPGetDataByHelper", &platform::makeShared<DataQuery>,
                          {platform::method<&DataQuery::clientID>("clientIDFormHelper")});
  return *wireClass;
}

OptionalString DataQuery::clientID() { return Application::shared().preferences().clientID(); }

}  // namespace sample
