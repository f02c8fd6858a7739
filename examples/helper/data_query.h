#pragma once

#include "examples/helper/wire_object.h"

namespace sample {

/// What hosts ask the helper for. On the wire: "TQHPGetDataByHelper".
class DataQuery : public WireObject {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  clientcomm::OptionalString clientID();
};

}  // namespace sample
