#pragma once

#include "examples/helper/wire_object.h"

namespace sample {

/// The helper's life as hosts command it. On the wire: "TQHPHelperControl".
class HelperControl : public WireObject {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  /// Nothing to do: that the call could be handed over is the answer.
  void isAlive(const clientcomm::OptionalString& productID,
               const clientcomm::OptionalString& version);
  void start(const clientcomm::OptionalString& productID,
             const clientcomm::OptionalString& version);
  void stop(const clientcomm::OptionalString& productID, const clientcomm::OptionalString& version);
  void show(const clientcomm::OptionalString& productID, const clientcomm::OptionalString& version);
  void hide(const clientcomm::OptionalString& productID, const clientcomm::OptionalString& version);
  void exitHelper(const clientcomm::OptionalString& productID,
                  const clientcomm::OptionalString& version);
};

}  // namespace sample
