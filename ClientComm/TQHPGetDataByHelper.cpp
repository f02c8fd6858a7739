#include "ClientComm/TQHPGetDataByHelper.h"

#include "ClientComm/internal/proxy_call.h"

const platform::Class& TQHPGetDataByHelper::staticClass() {
  static const auto* const cls = new platform::Class(
      "TQHPGetDataByHelper", platform::makeShared<TQHPGetDataByHelper>,
      {platform::method<&TQHPGetDataByHelper::clientIDFormHelper>("clientIDFormHelper")});
  return *cls;
}

TQHPGetDataByHelper& TQHPGetDataByHelper::share() {
  static auto* const proxy = new TQHPGetDataByHelper;
  return *proxy;
}

OptionalString TQHPGetDataByHelper::clientIDFormHelper() {
  return sendQuery(*this, "clientIDFormHelper");
}
