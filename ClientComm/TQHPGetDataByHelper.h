#pragma once

#include "ClientComm/TQHPAppEventBase.h"
#include "ClientComm/async.h"

/// Queries of data that the helper holds.
class CLIENTCOMM_EXPORT TQHPGetDataByHelper : public TQHPAppEventBase {
 public:
  /// The one object, made on first use and never destroyed.
  static TQHPGetDataByHelper& share();

  TQHPGetDataByHelper() = default;

  /// The class by which the process's registry knows it.
  static const clientcomm::Class& staticClass();
  const clientcomm::Class& isa() const override { return staticClass(); }

  /// The client ID that the helper keeps; blocks until it answers or ends.
  /// @return nil when the helper could not be reached, or gave none.
  clientcomm::OptionalString clientIDFormHelper();
  /// The same without blocking; see ClientComm/async.h.
  [[nodiscard]] clientcomm::PendingQuery clientIDFormHelperAsync(
      clientcomm::QueryCallback<std::string> callback, clientcomm::TimeLimit limit = std::nullopt);
};
