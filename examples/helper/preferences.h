#pragma once

#include <string>
#include <vector>

#include "ClientComm/platform/property_list.h"
#include "ClientComm/platform/types.h"

namespace sample {

/// A product that has started the helper, and the host application that did so for it.
struct Product {
  std::string id;
  std::string version;
  std::string bundleID;

  bool operator==(const Product&) const = default;
};

/// What the helper remembers from one run to the next, in its own preferences. Every change is on
/// disk when the call returns: a helper that is killed and launched by one host is not told of the
/// others again.
class Preferences {
 public:
  /// The products that have started the helper and not stopped it since.
  std::vector<Product> products() const;
  void addProduct(const Product& product);
  void removeProduct(const std::string& productID, const std::string& bundleID);

  /// The identifier of this installation, made on first use.
  /// @return nil when it could not be stored: a client ID that changes is worse than none.
  clientcomm::OptionalString clientID();

  bool isShown() const;
  void setShown(bool isShown);

  /// Whether the helper has closed its server; hosts read this key themselves, and leave the helper
  /// in peace while it is true.
  bool isServerClosed() const;
  void setServerClosed(bool isClosed);

  /// Whether usage data of the product is collected; so it is until it is switched off.
  bool isCollecting(const std::string& productID) const;
  void setCollecting(const std::string& productID, bool isCollecting);
  clientcomm::PropertyListDictionary collectSwitches() const;

 private:
  void store(const char* key, clientcomm::PropertyListValue value);
  void storeProducts(const std::vector<Product>& products);
};

}  // namespace sample
