#include "ClientComm/TQHPGetDataByHelper.h"

#include "ClientComm/internal/proxy_call.h"

const clientcomm::Class& TQHPGetDataByHelper::staticClass() {
  static const auto* const cls = new clientcomm::Class(
      "TQHPGetDataByHelper", clientcomm::makeShared<TQHPGetDataByHelper>,
      {clientcomm::method<&TQHPGetDataByHelper::clientIDFormHelper>("clientIDFormHelper")});
  return *cls;
}

TQHPGetDataByHelper& TQHPGetDataByHelper::share() {
  static auto* const proxy = new TQHPGetDataByHelper;
  return *proxy;
}

OptionalString TQHPGetDataByHelper::clientIDFormHelper() {
  return sendQuery(*this, "clientIDFormHelper");
}
