#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/TQHPAppleEventSender.h"
#include "ClientComm/async.h"
#include "ClientComm/internal/guard.h"
#include "ClientComm/platform/types.h"

/// The rule that all proxies share: a call carries the proxy's own class name, the method's own
/// selector, and one string for each parameter, "" for nil. Statuses come back unchanged.
namespace clientcomm {

template <typename... Arguments>
std::vector<std::string> proxyArguments(const Arguments&... arguments) {
  return {arguments.value_or(std::string())...};
}

/// Sends a command. @return the send's own status; memFullErr when the call could not be built.
template <typename... Arguments>
OSErr sendCommand(const TQHPAppEventBase& proxy, std::string_view selector,
                  const Arguments&... arguments) noexcept {
  return guarded(memFullErr, [&] {
    return TQHPAppleEventSender::share().sendEvnet(proxy.className(), selector,
                                                   proxyArguments(arguments...));
  });
}

/// Sends a query and waits. @return the reply's text; nil when there is none.
template <typename... Arguments>
OptionalString sendQuery(const TQHPAppEventBase& proxy, std::string_view selector,
                         const Arguments&... arguments) noexcept {
  return guarded(OptionalString(), [&] {
    OptionalString result;
    TQHPAppleEventSender::share().sendEvnet(proxy.className(), selector,
                                            proxyArguments(arguments...), &result);
    return result;
  });
}

/// Sends a query and does not wait. @return its handle.
template <typename... Arguments>
PendingQuery sendQueryAsync(const TQHPAppEventBase& proxy, std::string_view selector,
                            QueryCallback<std::string> callback, TimeLimit limit,
                            const Arguments&... arguments) noexcept {
  return guarded(PendingQuery(), [&] {
    return TQHPAppleEventSender::share().sendEvnetAsync(
        proxy.className(), selector, proxyArguments(arguments...), std::move(callback), limit);
  });
}

}  // namespace clientcomm
