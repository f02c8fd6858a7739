#pragma once

#include "ClientComm/TQHPAppEventBase.h"

/// Customer service through the helper; both return the send's own status.
class CLIENTCOMM_EXPORT TQHPCustomerServiceByHelepr : public TQHPAppEventBase {
 public:
  /// The one object, made on first use and never destroyed.
  static TQHPCustomerServiceByHelepr& share();

  TQHPCustomerServiceByHelepr() = default;

  /// The class by which the process's registry knows it.
  static const clientcomm::Class& staticClass();
  const clientcomm::Class& isa() const override { return staticClass(); }

  /// Has the helper look for messages from customer service.
  OSErr checkForHeleprMessage(const clientcomm::OptionalString& productID,
                              const clientcomm::OptionalString& versionID);
  /// Sends a request with the file at `attachment`.
  OSErr customerService(const clientcomm::OptionalString& productID,
                        const clientcomm::OptionalString& versionID,
                        const clientcomm::OptionalString& email,
                        const clientcomm::OptionalString& attachment);
};
