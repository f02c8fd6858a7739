#pragma once

#include "examples/helper/wire_object.h"

namespace sample {

/// Customer service. On the wire: "TQHPCustomerServiceByHelepr".
class CustomerService : public WireObject {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  /// Notes that the host asked for messages; there is no call to answer it with.
  void checkForMessage(const clientcomm::OptionalString& productID,
                       const clientcomm::OptionalString& version);
  /// Takes a request, with the file at `attachment` where it is not empty.
  void request(const clientcomm::OptionalString& productID,
               const clientcomm::OptionalString& version, const clientcomm::OptionalString& email,
               const clientcomm::OptionalString& attachment);
};

}  // namespace sample
