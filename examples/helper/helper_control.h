#pragma once

#include "examples/helper/wire_object.h"

namespace sample {

/// The helper's life as hosts command it. On the wire: "TQHPHelperControl".
class HelperControl : public WireObject {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  /// Nothing to do: that the call could be handed over is the answer.
  void isAlive(const OptionalString& productID, const OptionalString& version);
  void start(const OptionalString& productID, const OptionalString& version);
  void stop(const OptionalString& productID, const OptionalString& version);
  void show(const OptionalString& productID, const OptionalString& version);
  void hide(const OptionalString& productID, const OptionalString& version);
  void exitHelper(const OptionalString& productID, const OptionalString& version);
};

}  // namespace sample
