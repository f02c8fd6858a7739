#pragma once

#include "examples/helper/wire_object.h"

namespace sample {

/// A door for tours and tests, on the wire as "SampleHelperConsole": has the helper do what a
/// shipping one does of its own accord. A shipping helper has no such class.
class Console : public WireObject {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  /// Closes the server and tells every host why; opens it again and tells them so.
  void closeServer(const clientcomm::OptionalString& code,
                   const clientcomm::OptionalString& description);
  void openServer();
  /// Ends the helper as it would end by itself.
  void announceExit();
  /// Asks the host `bundleID` whether it is ready for `version`, whatever the feed says; tells it
  /// of an error where `code` is not 0.
  void offerUpgrade(const clientcomm::OptionalString& bundleID,
                    const clientcomm::OptionalString& productID,
                    const clientcomm::OptionalString& version,
                    const clientcomm::OptionalString& code,
                    const clientcomm::OptionalString& description);
  /// @return everything the helper knows, as one line of JSON.
  clientcomm::OptionalString dumpState();
};

}  // namespace sample
