#include "examples/helper/upload_service.h"

#include <algorithm>

#include "ClientComm/platform/bundle.h"
#include "ClientComm/platform/text.h"
#include "examples/helper/application.h"
#include "examples/helper/suite_pages.h"

using clientcomm::OptionalString;

namespace sample {

const clientcomm::Class& UploadService::wireClass() {
  using clientcomm::method;
  using Self = UploadService;
  static const auto* const wireClass = new clientcomm::Class(
      "TQHPUploadByHelper", &clientcomm::makeShared<Self>,
      {method<&Self::uploadLog>("uploadLog:versionID:email:filePath:title:description:"),
       method<&Self::uploadUserFile>("uploadUserFile:versionID:email:filePath:title:description:"),
       method<&Self::uploadProductFile>(
           "uploadProductFile:versionID:email:filePath:title:description:"),
       method<&Self::collectData>("collectData:version:collectionType:target:keyID:value:"),
       method<&Self::directUploadData>("directUploadData:version:"),
       method<&Self::setCollectStatus>("setProductCollectStatus:version:status:"),
       method<&Self::collectStatus>("productCollectStatus:version:"),
       method<&Self::suiteInfo>("regSuiteInfo:version:"),
       method<&Self::suiteInfoAtEnd>("unRegSuiteInfo:version:"),
       method<&Self::networkErrorPage>("netErrorPagePath:version:")});
  return *wireClass;
}

void UploadService::uploadLog(const OptionalString& productID, const OptionalString& version,
                              const OptionalString& email, const OptionalString& path,
                              const OptionalString& title, const OptionalString& description) {
  takeFile("log", productID, version, email, path, title, description);
}

void UploadService::uploadUserFile(const OptionalString& productID, const OptionalString& version,
                                   const OptionalString& email, const OptionalString& path,
                                   const OptionalString& title, const OptionalString& description) {
  takeFile("user-file", productID, version, email, path, title, description);
}

void UploadService::uploadProductFile(const OptionalString& productID,
                                      const OptionalString& version, const OptionalString& email,
                                      const OptionalString& path, const OptionalString& title,
                                      const OptionalString& description) {
  takeFile("product-file", productID, version, email, path, title, description);
}

void UploadService::takeFile(const char* kind, const OptionalString& productID,
                             const OptionalString& version, const OptionalString& email,
                             const OptionalString& path, const OptionalString& title,
                             const OptionalString& description) {
  Delivery delivery;
  delivery.kind = kind;
  delivery.bundleID = caller();
  delivery.productID = text(productID);
  delivery.version = text(version);
  delivery.email = text(email);
  delivery.path = text(path);
  delivery.title = text(title);
  delivery.description = text(description);
  take(kind, [&] { Application::shared().outbox().take(delivery); });
}

void UploadService::collectData(const OptionalString& productID, const OptionalString& version,
                                const OptionalString& type, const OptionalString& target,
                                const OptionalString& key, const OptionalString& value) {
  const int kind = clientcomm::intValue(text(type));
  const bool isKnown = kind == kCommonCounter || kind == kAutoCreatedCounter || kind == kCustomText;
  if (!isKnown || !isCollectingFor(text(productID))) {
    Application::shared().countRefusedRecord();
    return;
  }
  take("usage record", [&] {
    Application::shared().usage().add(
        caller(), {text(productID), text(version), kind, text(target), text(key), text(value)});
  });
}

// Records may be filed under another product ID than the one whose collection the user switches, so
// the sender's own products count too.
bool UploadService::isCollectingFor(const std::string& productID) const {
  const Preferences& preferences = Application::shared().preferences();
  if (!preferences.isCollecting(productID)) return false;
  const auto products = preferences.products();
  return std::all_of(products.begin(), products.end(), [&](const Product& product) {
    return product.bundleID != caller() || preferences.isCollecting(product.id);
  });
}

void UploadService::directUploadData(const OptionalString& productID,
                                     const OptionalString& /*version*/) {
  take("direct upload", [&] { Application::shared().usage().upload(text(productID)); });
}

void UploadService::setCollectStatus(const OptionalString& productID,
                                     const OptionalString& /*version*/,
                                     const OptionalString& status) {
  if (status != "1" && status != "0") return;
  take("collect status",
       [&] { Application::shared().preferences().setCollecting(text(productID), status == "1"); });
}

OptionalString UploadService::collectStatus(const OptionalString& productID,
                                            const OptionalString& /*version*/) {
  return Application::shared().preferences().isCollecting(text(productID)) ? "1" : "0";
}

OptionalString UploadService::suiteInfo(const OptionalString& productID,
                                        const OptionalString& /*version*/) {
  return suitePage(text(productID), "registered");
}

OptionalString UploadService::suiteInfoAtEnd(const OptionalString& productID,
                                             const OptionalString& /*version*/) {
  return suitePage(text(productID), "unregistered");
}

OptionalString UploadService::networkErrorPage(const OptionalString& /*productID*/,
                                               const OptionalString& /*version*/) {
  return clientcomm::Bundle::mainBundle().pathForResource("NetworkError", "html");
}

}  // namespace sample
