#include "examples/helper/preferences.h"

#include <algorithm>
#include <utility>

#include "ClientComm/platform/user_defaults.h"
#include "examples/helper/durable_file.h"
#include "examples/helper/text.h"

namespace sample {
namespace {

constexpr const char kProducts[] = "Products";
constexpr const char kProductID[] = "PID";
constexpr const char kProductVersion[] = "Version";
constexpr const char kBundleIdentifier[] = "BundleIdentifier";
constexpr const char kClientID[] = "ClientID";
constexpr const char kShown[] = "Shown";
constexpr const char kCollect[] = "CollectStatus";
constexpr const char kServerClosed[] = "TQHPServerClosed";

clientcomm::UserDefaults& defaults() { return clientcomm::UserDefaults::standardUserDefaults(); }

bool boolFor(const char* key) {
  const auto value = defaults().objectForKey(key);
  return value && value->boolValue();
}

std::string textIn(const clientcomm::PropertyListDictionary& entry, const char* key) {
  const auto found = entry.find(key);
  return found == entry.end() ? std::string() : found->second.stringValue().value_or("");
}

Product printable(const Product& product) {
  return {printableText(product.id), printableText(product.version),
          printableText(product.bundleID)};
}

}  // namespace

std::vector<Product> Preferences::products() const {
  std::vector<Product> products;
  const auto stored = defaults().objectForKey(kProducts);
  if (!stored || stored->array() == nullptr) return products;
  for (const clientcomm::PropertyListValue& value : *stored->array()) {
    const auto* entry = value.dictionary();
    if (entry == nullptr) continue;
    products.push_back({textIn(*entry, kProductID), textIn(*entry, kProductVersion),
                        textIn(*entry, kBundleIdentifier)});
  }
  return products;
}

void Preferences::addProduct(const Product& product) {
  const Product added = printable(product);
  std::vector<Product> all = products();
  const auto same = std::find_if(all.begin(), all.end(), [&](const Product& other) {
    return other.id == added.id && other.bundleID == added.bundleID;
  });
  if (same == all.end()) {
    all.push_back(added);
  } else if (*same == added) {
    return;
  } else {
    *same = added;
  }
  storeProducts(all);
}

void Preferences::removeProduct(const std::string& productID, const std::string& bundleID) {
  const Product removed = printable({productID, "", bundleID});
  std::vector<Product> all = products();
  const auto count = std::erase_if(all, [&](const Product& other) {
    return other.id == removed.id && other.bundleID == removed.bundleID;
  });
  if (count > 0) storeProducts(all);
}

clientcomm::OptionalString Preferences::clientID() {
  if (auto stored = defaults().stringForKey(kClientID); stored && !stored->empty()) return stored;
  const std::string made = newIdentifier();
  try {
    store(kClientID, made);
  } catch (const FileError&) {
    return std::nullopt;
  }
  return made;
}

bool Preferences::isShown() const { return boolFor(kShown); }
void Preferences::setShown(bool isShown) { store(kShown, isShown); }

bool Preferences::isServerClosed() const { return boolFor(kServerClosed); }
void Preferences::setServerClosed(bool isClosed) { store(kServerClosed, isClosed); }

clientcomm::PropertyListDictionary Preferences::collectSwitches() const {
  const auto stored = defaults().objectForKey(kCollect);
  return stored && stored->dictionary() != nullptr ? *stored->dictionary()
                                                   : clientcomm::PropertyListDictionary();
}

bool Preferences::isCollecting(const std::string& productID) const {
  const auto switches = collectSwitches();
  const auto found = switches.find(printableText(productID));
  return found == switches.end() || found->second.boolValue();
}

void Preferences::setCollecting(const std::string& productID, bool isCollecting) {
  auto switches = collectSwitches();
  switches[printableText(productID)] = isCollecting;
  store(kCollect, std::move(switches));
}

void Preferences::store(const char* key, clientcomm::PropertyListValue value) {
  defaults().setObject(std::move(value), key);
  if (!defaults().synchronize()) throw FileError("cannot write the preferences");
}

void Preferences::storeProducts(const std::vector<Product>& products) {
  clientcomm::PropertyListValue::Array entries;
  for (const Product& product : products) {
    entries.emplace_back(clientcomm::PropertyListDictionary{{kProductID, product.id},
                                                            {kProductVersion, product.version},
                                                            {kBundleIdentifier, product.bundleID}});
  }
  store(kProducts, std::move(entries));
}

}  // namespace sample
