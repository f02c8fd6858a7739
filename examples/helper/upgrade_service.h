#pragma once

#include "examples/helper/journal.h"
#include "examples/helper/wire_object.h"

namespace sample {

/// Upgrades of the hosts' products. On the wire: "TQHPUpgradeByHelper".
///
/// What there is to upgrade to stands in the signed feed of the helper's server. A helper without a
/// feed takes one file Feed/<product>.json in its data folder, with either "version", or "error" as
/// an object of "code" and "description".
class UpgradeService : public WireObject {
 public:
  static const clientcomm::Class& wireClass();
  const clientcomm::Class& isa() const override { return wireClass(); }

  /// Looks into the feed: asks the host whether it is ready where there is a newer version, and
  /// tells it of an error; does nothing where there is nothing newer.
  void upgrade(const clientcomm::OptionalString& productID,
               const clientcomm::OptionalString& version);
  /// The host's answer. @param ready "1", "0" or "ignore".
  void ready(const clientcomm::OptionalString& productID, const clientcomm::OptionalString& version,
             const clientcomm::OptionalString& ready);

  /// Notes the offer and calls the host, unless the outcome is "up to date".
  static void offer(const UpgradeOffer& offer);
  /// Does so with an offer that was noted before it was looked up.
  static void onChecked(std::int64_t id, const UpgradeOffer& checked);
};

}  // namespace sample
