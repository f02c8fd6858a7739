#include "ClientComm/TQHPGetDataByHelper.h"

#include <utility>

#include "ClientComm/internal/proxy_call.h"
#include "ClientComm/platform/shared_object.h"

using clientcomm::OptionalString;

namespace {

// Selectors, as they travel; each is used by the method table and by the call.
constexpr char kClientIDFormHelper[] = "clientIDFormHelper";

}  // namespace

const clientcomm::Class& TQHPGetDataByHelper::staticClass() {
  static const auto* const cls = new clientcomm::Class(
      "TQHPGetDataByHelper", clientcomm::makeShared<TQHPGetDataByHelper>,
      {clientcomm::method<&TQHPGetDataByHelper::clientIDFormHelper>(kClientIDFormHelper)});
  return *cls;
}

TQHPGetDataByHelper& TQHPGetDataByHelper::share() {
  static clientcomm::SharedObject<TQHPGetDataByHelper> proxy;
  return proxy.get([] { return new TQHPGetDataByHelper; });
}

OptionalString TQHPGetDataByHelper::clientIDFormHelper() {
  return clientcomm::sendQuery(*this, kClientIDFormHelper);
}

clientcomm::PendingQuery TQHPGetDataByHelper::clientIDFormHelperAsync(
    clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit) {
  return clientcomm::sendQueryAsync(*this, kClientIDFormHelper, std::move(callback), limit);
}
