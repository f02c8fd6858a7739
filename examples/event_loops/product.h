#pragma once

#include <ClientComm/TQHPHelperCommunicate.h>

namespace sample {

/// What each of these hosts does with its helper: it starts the helper, asks it for an upgrade, and
/// answers the question that the helper calls back with.
class Product final : public TQHPProductUpgradeCallBackDelegate {
 public:
  Product();
  ~Product();
  Product(const Product&) = delete;
  Product& operator=(const Product&) = delete;

  void productWillUpgrade(const clientcomm::Error* error) override;
};

}  // namespace sample
